#pragma once
// Seeded random runs of the tool: a capture, settings, and the ways in which the tool is told them.
#include <cstdint>
#include <filesystem>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "reference/run.hpp"
#include "support/random_captures.hpp"

namespace orvo::test {

/// One run: what the reference needs to know of it, and how the tool is told.
struct RunPlan {
  reference::RunSettings settings;
  std::optional<reference::FileBytes> capture;  // bytes of the input; nothing: it does not exist
  bool input_is_directory = false;
  std::int64_t modified_ns = 0;  // last-write time of the input
  std::string settings_text;     // of the settings file; empty: no such file
  std::vector<std::string> arguments;
};

/// Writes a setting as a line of the settings file, in one of the ways that are read alike.
inline std::string settings_line(Random& random, std::string key, const std::string& value) {
  if (random.one_in(4)) key[0] = static_cast<char>(key[0] - 'a' + 'A');
  const auto blank = [&] { return random.one_in(4) ? random.word({" ", "\t", "  "}) : ""; };
  std::string line = blank();
  line += key + blank();
  line += "=" + blank();
  line += value + blank();
  line += random.word({"", "", "# wide", "#=1", "\r"});
  return line + "\n";
}

/// Tells the tool its settings: in the settings file, as positional arguments and as flags; the later one holds.
class Telling {
 public:
  explicit Telling(Random& random) : random_(random) {}

  /// A setting that the settings file and a flag know.
  void tell(const std::string& key, const std::string& flag, const std::string& value, const std::string& decoy) {
    const bool by_flag = random_.one_in(2) || value.empty();
    if (!by_flag) {
      if (random_.one_in(4)) line(key, decoy);
      line(key, value);
      return;
    }
    if (random_.one_in(3)) line(key, decoy);
    if (random_.one_in(2)) {
      flags_.push_back({"--" + flag + "=" + value});
    } else {
      flags_.push_back({"--" + flag, value});
    }
    if (random_.one_in(6)) flags_.push_back({"--" + flag + "=" + decoy});  // the first one decides
  }

  /// Settings that the settings file and the positions know: a position needs all those before it.
  void tell_positions(const std::vector<std::pair<std::string, std::string>>& settings) {
    const std::uint64_t positions = random_.below(settings.size() + 1);
    for (std::size_t i = 0; i < settings.size(); ++i) {
      const auto& [key, value] = settings[i];
      if (i < positions) {
        if (random_.one_in(3)) line(key, i == 0 ? "/nowhere" : "9");
        words_.push_back(value);
      } else {
        line(key, value);
      }
    }
  }

  std::string settings_text() const { return text_; }

  /// Flags and positions mixed, each in its order.
  std::vector<std::string> arguments() {
    std::vector<std::string> out;
    std::size_t flag = 0;
    std::size_t word = 0;
    while (flag < flags_.size() || word < words_.size()) {
      if (word == words_.size() || (flag < flags_.size() && random_.one_in(2))) {
        out.insert(out.end(), flags_[flag].begin(), flags_[flag].end());
        ++flag;
      } else {
        out.push_back(words_[word++]);
      }
    }
    return out;
  }

 private:
  void line(const std::string& key, const std::string& value) {
    if (random_.one_in(8))
      text_ += random_.word({"\n", "# comment = 1\n", "[section]\n", "unknown=5\n", "bin_ps=\n", "=3\n"});
    text_ += settings_line(random_, key, value);
  }

  Random& random_;
  std::string text_;
  std::vector<std::vector<std::string>> flags_;
  std::vector<std::string> words_;
};

/// A number in one of the spellings that are read alike.
inline std::string spelled(Random& random, std::int64_t value) {
  const std::string digits = std::to_string(value);
  const std::string sign = value < 0 ? "-" : "";
  const std::string magnitude = digits.substr(sign.size());
  if (!random.one_in(4)) return digits;
  return random.word({sign + "00" + magnitude, digits + "ps", digits + ".9", value < 0 ? digits : "+" + digits});
}

/// Range and bin width with few enough bins to write them all out; now and then ones that are refused.
inline void choose_window(Random& random, reference::RunSettings& settings) {
  std::int64_t& range = settings.range_ps;
  std::int64_t& bin = settings.bin_ps;
  range = random.pick<std::int64_t>({5000, 5000, 5000, 20'000, random.integer(1, 30'000)});
  if (random.one_in(8)) range = random.pick<std::int64_t>({1, 2, 7, 8, 12});
  if (random.one_in(12)) range = random.integer(1, std::int64_t{1} << 58);
  bin = random.pick<std::int64_t>({8, 8, 20, 2, 7, 100, 999});
  if (random.one_in(6)) bin = random.pick<std::int64_t>({1, range, range + 1, 2 * range, 2 * range + 1});
  if (reference::number_of_bins(range, bin) > 3000) bin = range / random.integer(1, 1200) + 1;
  if (random.one_in(60))
    bin = random.pick<std::int64_t>(
        {0, -1, std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::int64_t>::max()});
  if (random.one_in(60)) range = random.pick<std::int64_t>({0, -5000, std::numeric_limits<std::int64_t>::min()});
  if (random.one_in(60)) {  // more bins than a vector has
    range = std::numeric_limits<std::int64_t>::max();
    bin = random.integer(1, 15);
  }
}

inline std::string choose_offset(Random& random, const reference::RunSettings& settings) {
  if (random.one_in(2)) return random.word({"auto", "AUTO", "Auto"});
  if (random.one_in(12)) {
    return random.word({"none", "", "x12", "9223372036854775808", "-9223372036854775809", "autos", "-"});
  }
  if (random.one_in(6))
    return spelled(random, random.pick<std::int64_t>({0, std::numeric_limits<std::int64_t>::min(),
                                                      std::numeric_limits<std::int64_t>::max(),
                                                      random.integer(std::numeric_limits<std::int64_t>::min(),
                                                                     std::numeric_limits<std::int64_t>::max())}));
  return spelled(random, random.pick<std::int64_t>({-settings.range_ps, 0, random.integer(-4000, 4000)}));
}

/// A run in `cwd`, now and then with settings that are refused. Time zero of the input's age is `now_ns`.
inline RunPlan random_plan(std::uint64_t seed, const std::filesystem::path& cwd, std::int64_t now_ns) {
  Random random(seed);
  RunPlan plan;
  reference::RunSettings& settings = plan.settings;
  choose_window(random, settings);
  settings.offset = choose_offset(random, settings);
  if (random.one_in(4)) settings.channel_b = static_cast<int>(random.integer(0, 3));
  if (random.one_in(4)) settings.channel_a = static_cast<int>(random.integer(0, 3));
  if (settings.channel_a == settings.channel_b && !random.one_in(10)) settings.channel_b = 3 - settings.channel_a;
  if (random.one_in(40)) settings.channel_a = random.pick<int>({-1, 4, std::numeric_limits<int>::min()});
  settings.max_tags =
      random.one_in(2) ? 0 : random.pick<std::uint64_t>({1, 3, 40, random.below(400), 65'536, ~std::uint64_t{0}});
  const std::string most_tags = settings.max_tags + 1 == 0
                                    ? random.word({"-1", "18446744073709551615"})
                                    : spelled(random, static_cast<std::int64_t>(settings.max_tags));

  const std::string input = random.word({"run.tagcap", "data/run 07.tagcap", "we\"ird\\n.tagcap", "tab\there\x01.x",
                                         "k\xC3\xA4se", "a=b.tagcap", "./x//y.tagcap"});
  const std::string prefix =
      random.word({"run_01", "out/run.v2", "out/deep/er/\"q\"", "./out//x", "out/", "out/k\xC3\xA4se \\"});
  const auto named = [&](const std::string& name) { return random.one_in(2) ? name : (cwd / name).string(); };

  Telling telling(random);
  telling.tell_positions({{random.word({"input_file", "source_file"}), named(input)},
                          {random.word({"channel_a", "ch_a"}), spelled(random, settings.channel_a)},
                          {random.word({"channel_b", "ch_b"}), spelled(random, settings.channel_b)}});
  telling.tell("range_ps", "range", spelled(random, settings.range_ps), "77");
  telling.tell("bin_ps", "bin", spelled(random, settings.bin_ps), "5");
  telling.tell("offset", "offset", settings.offset, "-13");
  telling.tell("max_tags", "max-tags", most_tags, "2");
  const std::string prefix_key = random.word({"output_prefix", "out_prefix"});
  telling.tell(prefix_key, "out-prefix", named(prefix), "/nowhere/x");
  plan.settings_text = telling.settings_text();
  plan.arguments = telling.arguments();

  settings.offset = reference::lower_case(settings.offset);
  settings.input = (cwd / input).string();
  settings.prefix = (cwd / prefix).string();
  if (!plan.settings_text.empty()) settings.settings_file = (cwd / "vq_verify_stream_file_xcorr.ini").string();

  if (!random.one_in(40)) plan.capture = random_capture(random, random.pick<std::uint64_t>({3, 100, 300, 300}));
  if (random.one_in(60)) {
    plan.capture = reference::FileBytes{};  // a directory reads like an empty file
    plan.input_is_directory = true;
  }
  const std::int64_t age =
      random.pick<std::int64_t>({0, 60, 3600, 3601, random.integer(3590, 3610), 86'400 * 400, -86'400 * 400, -1});
  plan.modified_ns = now_ns - age * 1'000'000'000 - random.pick<std::int64_t>({0, 0, 500'000'000, -500'000'000});
  return plan;
}

}  // namespace orvo::test
