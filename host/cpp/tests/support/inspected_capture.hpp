#pragma once
// Captures made for the inspection, and what it says of them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "support/bytes.hpp"
#include "support/run_program.hpp"
#include "support/temp_directory.hpp"

namespace orvo::test {

/// A tag before it is written.
struct MadeTag {
  unsigned channel = 0;
  std::uint64_t time_ps = 0;
};

inline constexpr std::uint64_t kMadePeriodPs = 14'315'125'997'568;
inline constexpr std::uint64_t kMadeSecondPs = 1'000'000'000'000;

/// raw64 records of the tags, their times modulo the device period.
inline Bytes raw64_payload(const std::vector<MadeTag>& tags) {
  Bytes payload;
  payload.reserve(8 * tags.size());
  for (const MadeTag& tag : tags) payload += ps_record(tag.channel, tag.time_ps % kMadePeriodPs);
  return payload;
}

/// A header as the simulator writes it.
inline std::string made_header(const std::string& format = "raw64", unsigned mask = 3, unsigned delta_bits = 16,
                               const std::string& mode = "external") {
  return R"({"file_type":"orvo_timing_raw_stream_capture","schema_version":1,"created_utc":"1970-01-01T00:00:00.000000Z",)"
         R"("application":"a","device_product":"b","device_serial":"c","device_port":"d","stream_format":")" +
         format + R"(","mode":")" + mode + R"(","stream_transport":"usb","raw64_tag_format":"ps","channel_mask":)" +
         std::to_string(mask) + R"(,"tdl_index":0,"packed_delta_config":{"delta_bits":)" +
         std::to_string(delta_bits) + R"(,"quantum_ps":8}})";
}

/// One capture and what the program says of it.
class InspectedCapture : public testing::Test {
 protected:
  using Json = nlohmann::ordered_json;

  std::filesystem::path path() const { return directory_ / "c.tagcap"; }

  ProgramResult inspector(std::vector<std::string> arguments) const {
    return run_program({.program = ORVO_TEST_INSPECTOR,
                        .arguments = std::move(arguments),
                        .directory = directory_.path(),
                        .argv0 = {},
                        .environment = {}});
  }

  /// Simulates the capture; the usual base unless the test says otherwise.
  void simulate(std::vector<std::string> arguments, bool base = true) const {
    arguments.insert(arguments.begin(), path().string());
    if (base) arguments.insert(arguments.end(), {"--tags", "400000", "--seed", "11"});
    const ProgramResult result = run_program({.program = ORVO_TEST_SIMULATOR,
                                              .arguments = std::move(arguments),
                                              .directory = directory_.path(),
                                              .argv0 = {},
                                              .environment = {}});
    ASSERT_EQ(result.exit_status, 0) << result.err;
  }

  /// Header text and payload of the capture.
  std::string header() const {
    const std::string file = read_file(path());
    return file.substr(12, header_bytes(file));
  }
  Bytes payload() const {
    const std::string file = read_file(path());
    return text_bytes(std::string_view(file).substr(12 + header_bytes(file)));
  }
  void write(const std::string& header, const Bytes& payload) const {
    write_file(path(), capture_bytes(header, payload));
  }
  void write(const std::vector<MadeTag>& tags, unsigned mask = 3) const {
    write(made_header("raw64", mask), raw64_payload(tags));
  }

  /// The report of the capture. Every one is held to the published schema when the test ends.
  Json report(std::vector<std::string> options = {}) const {
    reports_.push_back((directory_ / ("r" + std::to_string(reports_.size()) + ".json")).string());
    options.insert(options.end(), {"--quiet", "--json", reports_.back(), path().string()});
    const ProgramResult result = inspector(std::move(options));
    EXPECT_EQ(result.exit_status, 0) << result.err;
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "");
    return Json::parse(read_file(reports_.back()));
  }

  /// The codes of a report's findings, with the level before them: "B time_jump".
  static std::set<std::string> codes(const Json& report, std::string_view levels = "NSB") {
    std::set<std::string> all;
    for (const Json& finding : report.at("findings")) {
      const std::string word = finding.at("level");
      const char level = word == "note" ? 'N' : word == "suspect" ? 'S' : 'B';
      if (levels.find(level) == levels.npos) continue;
      std::string code = std::string(1, level) + ' ' + std::string(finding.at("code"));
      all.insert(code);
    }
    return all;
  }
  /// Those above a note.
  std::set<std::string> alarms() const { return codes(report(), "SB"); }
  std::set<std::string> all_codes() const { return codes(report()); }

  const TempDirectory& directory() const { return directory_; }

  /// Whether a Python with the module that checks schemas was found when the build was configured.
  static bool can_check_schema() { return *ORVO_TEST_SCHEMA_PYTHON != '\0'; }
  /// Status 0 when all these files hold to the published schema.
  static ProgramResult checked_against_schema(const std::vector<std::string>& reports) {
    std::vector<std::string> arguments = {
        "-c",
        "import json, sys, jsonschema\n"
        "schema = json.load(open(sys.argv[1]))\n"
        "validator = jsonschema.validators.validator_for(schema)(schema)\n"
        "validator.check_schema(schema)\n"
        "for path in sys.argv[2:]: validator.validate(json.load(open(path)))",
        schema().string()};
    arguments.insert(arguments.end(), reports.begin(), reports.end());
    return run_program({.program = ORVO_TEST_SCHEMA_PYTHON,
                        .arguments = std::move(arguments),
                        .directory = "/",
                        .argv0 = {},
                        .environment = {}});
  }

 private:
  static std::size_t header_bytes(const std::string& file) {
    std::size_t bytes = 0;
    for (std::size_t i = 0; i < 4; ++i) bytes |= std::size_t{static_cast<unsigned char>(file[8 + i])} << 8 * i;
    return bytes;
  }

  void TearDown() override {
    if (reports_.empty() || !can_check_schema()) return;
    const ProgramResult result = checked_against_schema(reports_);
    EXPECT_EQ(result.exit_status, 0) << result.err;
  }

  static std::filesystem::path schema() {
    return std::filesystem::path(__FILE__).parent_path() / "../../../../docs/capture-health.schema.json";
  }

  TempDirectory directory_;
  mutable std::vector<std::string> reports_;
};

}  // namespace orvo::test
