// A capture that changes while it is read; and a capture that must not be changed by being read.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "support/hostile_captures.hpp"
#include "support/product_root.hpp"
#include "support/stopped_amid.hpp"
#include "support/verify_captures.hpp"

namespace {

using namespace orvo::test;

constexpr std::uintmax_t kGapBytes = 128 << 20;

class ChangingInput : public ProductRoot {
 protected:
  fs::path capture() const { return cwd() / "c.tagcap"; }

  /// Two tags, a gap without tags that takes no disk space, two tags.
  void write_capture() const {
    const Bytes pair = cf_record(0, 1000, 0) + cf_record(1, 1001, 180);
    write_file(capture(), capture_bytes(raw64_header("raw_cf"), pair));
    fs::resize_file(capture(), kGapBytes);
    std::ofstream out(capture(), std::ios::binary | std::ios::app);
    out.write(reinterpret_cast<const char*>(pair.data()), static_cast<std::streamsize>(pair.size()));
  }

  /// Runs the tool and does something to the capture while the tool is within the gap.
  int run_and(std::function<void()> change) const {
    return run_stopped_amid({.words = {ORVO_TEST_TOOL, "c.tagcap", "--out-prefix=r"},
                             .directory = cwd(),
                             .file = capture(),
                             .from = 1 << 20,
                             .to = kGapBytes - (8 << 20),
                             .prepare = [this] { write_capture(); },
                             .meanwhile = std::move(change)});
  }
};

TEST_F(ChangingInput, ATruncatedCaptureEndsWhereItWasRead) {
  EXPECT_EQ(run_and([this] { fs::resize_file(capture(), 0); }), 0);
  EXPECT_THAT(read_file(cwd() / "r.summary.txt"), testing::HasSubstr("\ndecoded_tags=2\n"));
  EXPECT_EQ(fs::file_size(capture()), 0u);
}

TEST_F(ChangingInput, ARemovedCaptureIsReadToItsEndAndHasNoAge) {
  EXPECT_EQ(run_and([this] { fs::remove(capture()); }), 0);
  const std::string summary = read_file(cwd() / "r.summary.txt");
  EXPECT_THAT(summary, testing::HasSubstr("\ndecoded_tags=4\n"));
  EXPECT_THAT(summary, testing::HasSubstr("\ninput_age_seconds=-1\n"));
  EXPECT_THAT(summary, testing::Not(testing::HasSubstr("warning=")));
}

TEST_F(ChangingInput, ACaptureThatIsReplacedIsStillTheOneThatWasOpened) {
  write_file(cwd() / "other.tagcap", single_pair_capture());
  EXPECT_EQ(run_and([this] { fs::rename(cwd() / "other.tagcap", capture()); }), 0);
  EXPECT_THAT(read_file(cwd() / "r.summary.txt"), testing::HasSubstr("\ndecoded_tags=4\n"));
  EXPECT_EQ(read_file(capture()), [] {
    const Bytes other = single_pair_capture();
    return std::string(other.begin(), other.end());
  }());
}

TEST_F(ChangingInput, ACaptureThatGrowsIsReadToItsNewEnd) {
  EXPECT_EQ(run_and([this] {
              const Bytes more = cf_record(2, 2000, 0);
              std::ofstream out(capture(), std::ios::binary | std::ios::app);
              out.write(reinterpret_cast<const char*>(more.data()), static_cast<std::streamsize>(more.size()));
            }),
            0);
  EXPECT_THAT(read_file(cwd() / "r.summary.txt"), testing::HasSubstr("\ndecoded_tags=5\n"));
}

/// Everything that a run could change about a file, and the time of the last change.
std::string state_of(const fs::path& path) {
  struct stat status = {};
  EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
  const auto time = [](const timespec& t) { return std::to_string(t.tv_sec) + "." + std::to_string(t.tv_nsec); };
  return std::to_string(status.st_ino) + " " + std::to_string(status.st_mode) + " " +
         std::to_string(status.st_nlink) + " " + time(status.st_mtim) + " " + time(status.st_ctim) + "\n" +
         read_file(path);
}

class InputOnlyRead : public ProductRoot {};

TEST_F(InputOnlyRead, ACaptureOfAnyEncodingAndTheSettingsAreLeftAsTheyWere) {
  std::vector<HostileCapture> captures = hostile_raw64();
  for (auto& more : {hostile_delta32(), hostile_packed(1)}) captures.insert(captures.end(), more.begin(), more.end());
  for (const HostileCapture& hostile : captures) {
    const TempDirectory directory;
    write_file(directory / "c.tagcap", capture_bytes(hostile.header, hostile.pieces()));
    write_file(directory / kSettingsName,
               std::string("input_file=c.tagcap\noutput_prefix=r\nrange_ps=1\nbin_ps=1\n"));
    const std::string capture_before = state_of(directory / "c.tagcap");
    const std::string settings_before = state_of(directory / kSettingsName);
    EXPECT_EQ(run_program({ORVO_TEST_TOOL, {}, directory.path(), {}, {}}).exit_status, 0) << hostile.name;
    EXPECT_TRUE(state_of(directory / "c.tagcap") == capture_before) << hostile.name;
    EXPECT_EQ(state_of(directory / kSettingsName), settings_before) << hostile.name;
  }
}

}  // namespace
