// Good captures of every encoding, damaged at random, as input of the built program: it ends by itself, prints
// nothing but its own messages, and leaves complete reports or none.
//
// A failure names its seed; see support/random.hpp for more rounds or other seeds.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "support/delta32_streams.hpp"
#include "support/packed_streams.hpp"
#include "support/product_root.hpp"
#include "support/strict_json.hpp"
#include "support/strict_xml.hpp"
#include "support/verify_captures.hpp"

namespace {

using namespace orvo::test;
/// No capture here is larger; ceilings_test has the limits of large files.
constexpr std::size_t kMostFileBytes = 200'000;
constexpr unsigned kMostCpuSeconds = kUnderAddressSanitizer ? 100 : 10;
/// Per byte of the file, beyond what the program needs to print its help; see docs/robustness.md.
constexpr std::int64_t kMostBytesPerByte = 200;
constexpr std::int64_t kMostBytesAtAnySize = 32 << 20;

std::string header_text(const std::string& format, const std::string& mode, std::uint64_t channel_mask,
                        const std::string& more) {
  return R"({"file_type":"orvo_timing_raw_stream_capture","stream_format":")" + format + R"(","mode":")" + mode +
         R"(","channel_mask":)" + std::to_string(channel_mask) + more + "}";
}

struct Parts {
  std::string header;
  Bytes payload;
};

Parts raw64_parts(Random& random) {
  const bool coarse_fine = random.one_in(2);
  Bytes payload;
  std::uint64_t time_ps = start_time(random);
  for (std::uint64_t events = random.between(1, 2000); events > 0; --events) {
    time_ps += random.of_any_size(16);
    const std::uint32_t channel = random.channel();
    payload += coarse_fine ? cf_record(channel, static_cast<std::uint32_t>(time_ps / 3333), random.channel() * 45)
                           : ps_record(channel, time_ps % kDevicePeriod);
  }
  return {header_text("raw64", "external", 15, coarse_fine ? R"(,"raw64_tag_format":"raw_cf")" : ""), payload};
}

Parts delta32_parts(Random& random) {
  return {header_text("delta32", "external", 15, ""), clean_delta32(random, random.between(1, 4000)).bytes};
}

Parts packed_parts(Random& random) {
  constexpr std::uint8_t kMasks[] = {0, 1, 3, 5, 14, 15};
  PackedSettings settings;
  settings.delta_bits = static_cast<std::uint32_t>(random.one_in(2) ? 16 : random.between(1, 31));
  settings.shift = static_cast<unsigned>(random.below(6));
  settings.channel_mask = kMasks[random.below(std::size(kMasks))];
  const std::string more = R"(,"packed_delta_config":{"delta_bits":)" + std::to_string(settings.delta_bits) +
                           R"(,"quantum_ps":)" + std::to_string(1u << settings.shift) + "}";
  return {header_text("packed_delta", random.one_in(2) ? "internal" : "external", settings.channel_mask, more),
          clean_packed(random, settings, random.between(1, 6000)).bytes};
}

Parts good_parts(Random& random) {
  switch (random.below(3)) {
    case 0:
      return raw64_parts(random);
    case 1:
      return delta32_parts(random);
    default:
      return packed_parts(random);
  }
}

/// A damaged capture: its payload, its whole file, or its payload joined with that of another.
Bytes damaged_capture(Random& random) {
  Parts parts = good_parts(random);
  if (random.one_in(5)) parts.payload += good_parts(random).payload;
  if (random.one_in(20)) parts.header = good_parts(random).header;
  const std::uint64_t defects = random.of_any_size(6);
  if (!random.one_in(5)) damage(random, parts.payload, defects);
  Bytes file = capture_bytes(parts.header, parts.payload, random.one_in(5) ? "VQSTRM1\n" : "TAGCAP1\n");
  if (random.one_in(5)) damage(random, file, random.between(1, 5));
  if (random.one_in(5)) file.resize(random.below(random.one_in(3) ? 300 : file.size() + 1));
  if (file.size() > kMostFileBytes) file.resize(kMostFileBytes);
  return file;
}

/// Value of a "name=value" line.
std::string value_of(const std::string& summary, const std::string& name) {
  const std::string key = "\n" + name + "=";
  const auto at = summary.find(key);
  if (at == std::string::npos) return "missing";
  const auto from = at + key.size();
  return summary.substr(from, summary.find('\n', from) - from);
}

/// Sum of the counts of a CSV histogram; `nullopt` if the text is not one.
std::optional<std::int64_t> csv_total(const std::string& csv) {
  std::istringstream in(csv);
  std::string line;
  if (!std::getline(in, line) || line != "bin_center_ps,count" || csv.back() != '\n') return std::nullopt;
  std::int64_t total = 0;
  for (std::optional<std::int64_t> before; std::getline(in, line);) {
    std::istringstream fields(line);
    std::int64_t center = 0, count = 0;
    char comma = 0;
    if (!(fields >> center >> comma >> count) || comma != ',' || !fields.eof()) return std::nullopt;
    if (count < 0 || (before && center <= *before)) return std::nullopt;
    before = center;
    total += count;
  }
  return total;
}

class Mutation : public ProductRoot {
 protected:
  ProgramResult run_tool(const std::vector<std::string>& arguments) {
    return run_program(ORVO_TEST_TOOL, arguments, cwd(), kMostCpuSeconds);
  }

  void check_reports(const std::string& out) {
    const std::string summary = read_file(cwd() / "r.summary.txt");
    const auto json = StrictJson::parse(read_file(cwd() / "r.json"));
    const auto svg = StrictXml::parse(read_file(cwd() / "r.svg"));
    const auto total = csv_total(read_file(cwd() / "r.csv"));
    EXPECT_EQ(out, announcement(cwd() / "c.tagcap", cwd() / "r") + closing_lines(summary));
    ASSERT_TRUE(json && svg && total);
    const auto json_value = [&json](const std::string& name) {
      return json->count(name) == 0 ? "none" : json->at(name).text;
    };
    EXPECT_EQ(json_value("xcorr.total_coincidences"), std::to_string(*total));
    EXPECT_EQ(value_of(summary, "coincidences"), std::to_string(*total));
    EXPECT_EQ(value_of(summary, "peak_count"), json_value("xcorr.peak_count"));
    EXPECT_EQ(value_of(summary, "decoded_tags"), json_value("decoded_tags"));
    std::uint64_t tags = 0;
    for (const char* const channel : {"ch0", "ch1", "ch2", "ch3"}) {
      tags += std::strtoull(json_value(std::string("channel_counts.") + channel).c_str(), nullptr, 10);
    }
    EXPECT_EQ(json_value("decoded_tags"), std::to_string(tags));
    EXPECT_EQ(svg->front().name, "svg");
  }

  void check_failure(const ProgramResult& result) {
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_EQ(result.out, announcement(cwd() / "c.tagcap", cwd() / "r"));
    EXPECT_TRUE(result.err == "StreamFileReader: truncated magic\n" ||
                result.err == "StreamFileReader: not an Orvo timing stream file\n" ||
                result.err == "stream file: truncated header length\n" ||
                result.err == "StreamFileReader: truncated JSON header\n")
        << result.err;
    EXPECT_EQ(names(file_tree(cwd())), std::vector<std::string>{"c.tagcap"});
  }

  void clear() {
    for (const auto& entry : fs::directory_iterator(cwd())) fs::remove_all(entry.path());
  }
};

TEST_F(Mutation, EveryRunEndsByItselfWithWholeReportsOrNone) {
  const std::int64_t base_bytes = run_tool({"--help"}).peak_bytes;
  const std::vector<std::uint64_t> tried = seeds(300);
  std::uint64_t finished = 0, tags_seen = 0;
  for (const std::uint64_t seed : tried) {
    if (HasFailure()) return;
    SCOPED_TRACE("ORVO_TEST_SEED=" + std::to_string(seed));
    Random random(seed);
    const Bytes file = damaged_capture(random);
    clear();
    write_file(cwd() / "c.tagcap", file);
    const auto a = random.below(4);
    const ProgramResult run = run_tool({"c.tagcap", std::to_string(a), std::to_string((a + random.between(1, 3)) % 4),
                                        "--range=" + std::to_string(random.between(1, 60'000)),
                                        "--bin=" + std::to_string(random.between(20, 2'000)), "--out-prefix=r"});
    EXPECT_TRUE(read_file(cwd() / "c.tagcap") == std::string(file.begin(), file.end())) << "the capture was changed";
    if (run.exit_status == 0) {
      EXPECT_EQ(run.err, "");
      check_reports(run.out);
      ++finished;
      tags_seen += value_of(run.out, "decoded_tags") != "0" ? 1 : 0;
    } else {
      check_failure(run);
    }
    if (!kUnderAddressSanitizer) {
      const auto ceiling = kMostBytesAtAnySize + kMostBytesPerByte * static_cast<std::int64_t>(file.size());
      EXPECT_LE(run.peak_bytes - base_bytes, ceiling) << "for " << file.size() << " bytes";
    }
  }
  EXPECT_GT(finished, tried.size() / 2) << "the damage is so heavy that little is left to decode";
  EXPECT_GT(tags_seen, tried.size() / 3);
}

}  // namespace
