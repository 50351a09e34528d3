// Settings file and command line: only the standard library's number exceptions escape, and the settings are those
// that a second, literal reading of the same text gives.
//
//   settings text | 0xFF | argument | 0xFE | argument | 0xFE | ...
#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "fuzz/support/input.hpp"
#include "fuzz/support/require.hpp"
#include "verify/command_line.hpp"
#include "verify/help_text.hpp"
#include "verify/settings_file.hpp"

namespace {

using orvo::fuzz::require;

/// Everything as the user wrote it, the last word on each setting.
class PlainSettings {
 public:
  Config config;

  void read_file(const std::string& text) {
    std::string line;
    for (const char c : text + "\n") {
      if (c != '\n') {
        line += c;
        continue;
      }
      read_line(line.substr(0, line.find('#')));
      line.clear();
    }
  }

  void read_arguments(const std::vector<std::string>& arguments) {
    std::vector<std::string> plain;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
      const bool is_flag = arguments[i].size() >= 2 && arguments[i][0] == '-' && arguments[i][1] == '-';
      if (!is_flag) plain.push_back(arguments[i]);
      if (is_flag && arguments[i].find('=') == std::string::npos) ++i;
    }
    if (plain.size() >= 1) set("input_file", plain[0]);
    if (plain.size() >= 2) set("channel_a", plain[1]);
    if (plain.size() >= 3) set("channel_b", plain[2]);
    constexpr const char* kFlags[][2] = {{"range", "range_ps"},
                                         {"bin", "bin_ps"},
                                         {"offset", "offset"},
                                         {"max-tags", "max_tags"},
                                         {"out-prefix", "output_prefix"}};
    for (const auto& [flag, key] : kFlags) {
      if (const auto value = flag_value(arguments, std::string("--") + flag)) set(key, *value);
    }
  }

 private:
  static std::optional<std::string> flag_value(const std::vector<std::string>& arguments, const std::string& word) {
    for (std::size_t i = 0; i < arguments.size(); ++i) {
      if (arguments[i].rfind(word + "=", 0) == 0) return arguments[i].substr(word.size() + 1);
      if (arguments[i] == word && i + 1 == arguments.size()) return std::nullopt;
      if (arguments[i] == word) return arguments[i + 1];
    }
    return std::nullopt;
  }

  static std::string trimmed(std::string text) {
    const auto blank = [](char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; };
    while (!text.empty() && blank(text.back())) text.pop_back();
    while (!text.empty() && blank(text.front())) text.erase(0, 1);
    return text;
  }

  static std::string lower(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
  }

  void read_line(const std::string& line) {
    const auto equals = line.find('=');
    if (equals == std::string::npos) return;
    const std::string key = lower(trimmed(line.substr(0, equals)));
    const std::string value = trimmed(line.substr(equals + 1));
    if (!key.empty() && !value.empty()) set(key, value);
  }

  void set(const std::string& key, const std::string& value) {
    if (key == "input_file" || key == "source_file") {
      config.input_file = value;
    } else if (key == "output_prefix" || key == "out_prefix") {
      config.output_prefix = value;
    } else if (key == "channel_a" || key == "ch_a") {
      config.channel_a = std::stoi(value);
    } else if (key == "channel_b" || key == "ch_b") {
      config.channel_b = std::stoi(value);
    } else if (key == "range_ps") {
      config.range_ps = std::stoll(value);
    } else if (key == "bin_ps") {
      config.bin_ps = std::stoll(value);
    } else if (key == "offset") {
      config.offset = lower(value);
    } else if (key == "max_tags") {
      config.max_tags = std::stoull(value);
    }
  }
};

std::string shown(const Config& config) {
  const auto path = [](const std::optional<std::filesystem::path>& p) {
    return p ? "[" + p->native() + "]" : "none";
  };
  std::ostringstream out;
  out << path(config.input_file) << ' ' << path(config.output_prefix) << ' ' << config.channel_a << ' '
      << config.channel_b << ' ' << config.range_ps << ' ' << config.bin_ps << " [" << config.offset << "] "
      << config.max_tags;
  return out.str();
}

/// The failure's text, empty when there was none. Anything but the two exceptions ends the program.
template <class Action>
std::string failure_of(Action&& action) {
  try {
    action();
  } catch (const std::invalid_argument& error) {
    return std::string("invalid ") + error.what();
  } catch (const std::out_of_range& error) {
    return std::string("out of range ") + error.what();
  }
  return {};
}

void check_validation(const Config& config) {
  std::ostringstream err;
  const bool channels = config.channel_a >= 0 && config.channel_a < 4 && config.channel_b >= 0 &&
                        config.channel_b < 4 && config.channel_a != config.channel_b;
  const bool widths = config.range_ps > 0 && config.bin_ps > 0;
  require(validate(config, err) == (channels && widths), "validation takes exactly the valid settings");
  const char* const expected = !channels ? "channels must be distinct and in 0..3\n"
                               : !widths ? "range_ps and bin_ps must be positive\n"
                                         : "";
  require(err.str() == expected, "validation names the first fault");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  orvo::fuzz::Input input(data, size);
  const std::string text = input.text_until(0xFF);
  std::vector<std::string> words;
  while (!input.empty() && words.size() < 12) words.push_back(input.text_until(0xFE).c_str());  // ends at a zero byte
  std::vector<const char*> argv{"tool"};
  for (const std::string& word : words) argv.push_back(word.c_str());
  const int argc = static_cast<int>(argv.size());

  Config config;
  const std::string failure = failure_of([&] {
    std::istringstream in(text);
    read_settings(in, config);
    apply_command_line(config, argc, argv.data());
  });
  PlainSettings plain;
  const std::string plain_failure = failure_of([&] {
    plain.read_file(text);
    plain.read_arguments(words);
  });
  require(failure == plain_failure, "both readings fail alike");
  require(shown(config) == shown(plain.config), "both readings give the same settings");
  if (!failure.empty()) return 0;

  check_validation(config);
  resolve_paths(config, "/base");
  for (const auto& path : {config.input_file, config.output_prefix}) {
    require(!path || path->is_absolute(), "resolved paths are absolute");
  }
  const bool asks_for_help = std::any_of(words.begin(), words.end(), [](const std::string& word) {
    return word == "--help" || word == "-h" || word == "/?" || word == "-?";
  });
  require(help_requested(argc, argv.data()) == asks_for_help, "help is asked for by its words");
  settings_file_candidates(words.empty() ? nullptr : words.front().c_str());
  return 0;
}
