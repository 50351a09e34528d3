#pragma once
// The surroundings of a run from outside: an empty product root, an empty current directory, the built tool.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "support/bytes.hpp"
#include "support/file_tree.hpp"
#include "support/golden_reports.hpp"
#include "support/run_program.hpp"
#include "support/sanitizer.hpp"
#include "support/temp_directory.hpp"

namespace orvo::test {

namespace fs = std::filesystem;

inline constexpr const char* kSettingsName = "vq_verify_stream_file_xcorr.ini";

/// Exit status and both streams as one text, so that a comparison shows all three.
inline std::string seen(const ProgramResult& result) {
  return "exit " + std::to_string(result.exit_status) + "\n--- out\n" + result.out + "--- err\n" + result.err;
}

inline std::string seen(int exit_status, const std::string& out, const std::string& err) {
  return seen(ProgramResult{exit_status, out, err});
}

/// Nanoseconds since 1970, UTC.
inline std::int64_t now_ns() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::nanoseconds>(now).count();
}

inline std::int64_t modified_ns(const fs::path& path) {
  struct stat status = {};
  if (::stat(path.c_str(), &status) != 0) throw std::runtime_error("cannot stat " + path.string());
  return std::int64_t{status.st_mtim.tv_sec} * 1'000'000'000 + status.st_mtim.tv_nsec;
}

/// False when the file system cannot hold that date.
inline bool set_modified(const fs::path& path, std::int64_t seconds, long nanoseconds = 0) {
  const timespec times[2] = {{0, UTIME_OMIT}, {static_cast<time_t>(seconds), nanoseconds}};
  struct stat status = {};
  return ::utimensat(AT_FDCWD, path.c_str(), times, 0) == 0 && ::stat(path.c_str(), &status) == 0 &&
         status.st_mtim.tv_sec == static_cast<time_t>(seconds) && status.st_mtim.tv_nsec == nanoseconds;
}

/// A start of the tool; what is not named is as usual.
struct Start {
  std::string program = ORVO_TEST_TOOL;
  std::vector<std::string> arguments = {};
  fs::path directory = {};  // cwd() of the fixture when empty
  std::string argv0 = {};   // the program's path when empty
  std::map<std::string, std::string> environment = {};
};

class ProductRoot : public ::testing::Test {
 protected:
  ProductRoot() {
    fs::remove_all(root());
    fs::create_directories(root());
  }
  ~ProductRoot() override {
    std::error_code ignored;
    fs::remove_all(root(), ignored);
  }

  static fs::path root() { return ORVO_TEST_PRODUCT_ROOT; }
  static fs::path output_root() { return root() / "logs/verification/stream_file_xcorr"; }
  const fs::path& cwd() const { return cwd_.path(); }

  /// Runs the tool in cwd(), by its own absolute path unless `start` says otherwise.
  ProgramResult run(const Start& start) {
    const ProgramCall call{start.program, start.arguments, start.directory.empty() ? cwd() : start.directory,
                           start.argv0, start.environment};
    started_ns_ = now_ns();
    const ProgramResult result = run_program(call);
    ended_ns_ = now_ns();
    return result;
  }
  ProgramResult verify(std::vector<std::string> arguments = {}) { return run({.arguments = std::move(arguments)}); }

  /// Runs a line of shell in cwd(); "$0" is the tool.
  ProgramResult shell(const std::string& line) {
    return run({.program = "/bin/sh", .arguments = {"-c", line, ORVO_TEST_TOOL}});
  }

  /// What the JSON report of a run that ended well, o.json, shows: channels, range, bin, offset, decoded tags.
  std::string effect_of(const ProgramResult& result) const {
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.exit_status, 0);
    const std::string json = read_file(cwd() / "o.json");
    std::string values;
    for (const char* key : {"channel_a", "channel_b", "range_ps", "bin_ps", "offset_ps", "decoded_tags"}) {
      const auto from = json.find(':', json.find(std::string("\"") + key + "\"")) + 1;
      values += json.substr(from, json.find(',', from) - from) + " ";
    }
    return values;
  }

  /// Everything on disk: "cwd/..." and "product/...", the run directory's time stamp written as STAMP.
  FileTree files() const {
    FileTree tree;
    for (const auto& [name, content] : file_tree(cwd(), "cwd/") + file_tree(root(), "product/")) {
      tree[stamp_.empty() ? name : replaced(name, stamp_, "STAMP")] = content;
    }
    return tree;
  }

  /// The only time-stamped directory in the output root; from here on files() calls it STAMP.
  fs::path run_directory() {
    for (const auto& entry : fs::directory_iterator(output_root())) {
      if (!entry.is_directory()) continue;
      EXPECT_EQ(stamp_, "") << "second run directory " << entry.path();
      stamp_ = entry.path().filename().string();
    }
    EXPECT_THAT(stamp_, ::testing::MatchesRegex("[0-9]{8}_[0-9]{6}"));
    return output_root() / stamp_;
  }

  /// The age that a summary of the last run gives for `input`, checked against the clock.
  std::string age_in(const std::string& summary, const fs::path& input) const {
    constexpr std::string_view kKey = "\ninput_age_seconds=";
    const auto at = summary.find(kKey);
    if (at == summary.npos) return "missing";
    const auto from = at + kKey.size();
    const std::string age = summary.substr(from, summary.find('\n', from) - from);
    const std::int64_t modified = modified_ns(input);
    EXPECT_GE(std::stoll(age), (started_ns_ - modified) / 1'000'000'000);
    EXPECT_LE(std::stoll(age), (ended_ns_ - modified) / 1'000'000'000);
    return age;
  }

  /// The golden reports as the last run must have written them.
  Reports golden(const std::string& name, const fs::path& input, const fs::path& prefix,
                 const std::string& summary) const {
    return golden_reports(name, {input, prefix, age_in(summary, input)});
  }

  static std::string announcement(const fs::path& input, const fs::path& prefix) {
    return "Input:  " + input.string() + "\nOutput: " + prefix.string() + ".[csv|json|svg]\n";
  }
  static std::string closing_lines(const std::string& summary) {
    return summary + "latest_plot=" + (output_root() / "latest.svg").string() +
           "\nlatest_summary=" + (output_root() / "latest_summary.txt").string() + "\n";
  }

  void write_settings(const std::string& text) { write_file(cwd() / kSettingsName, text); }

 private:
  TempDirectory cwd_;
  std::string stamp_;
  std::int64_t started_ns_ = 0;
  std::int64_t ended_ns_ = 0;
};

}  // namespace orvo::test
