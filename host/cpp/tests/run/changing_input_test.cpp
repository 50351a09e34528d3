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

#include "support/delta32_payload.hpp"
#include "support/hostile_captures.hpp"
#include "support/product_root.hpp"
#include "support/sanitizer.hpp"
#include "support/stopped_amid.hpp"
#include "support/verify_captures.hpp"

namespace {

using namespace orvo::test;

constexpr std::uintmax_t kGapBytes = (kUnderAddressSanitizer ? 48 : 128) << 20;
/// Makes a delta32 capture too long for lists: at most one tag in 4 bytes, 8 bytes a tag.
constexpr std::uintmax_t kGapBytesOfPasses = 264 << 20;

class ChangingInput : public ProductRoot {
 protected:
  fs::path capture() const { return cwd() / "c.tagcap"; }

  /// What comes before the gap, the size up to its end, what comes after it, and how often the tool starts over
  /// before it is stopped within the gap.
  struct Capture {
    Bytes start;
    std::uintmax_t gap_end_bytes = kGapBytes;
    Bytes rest;
    int rewinds = 0;
  };

  /// Two tags, a gap without tags that takes no disk space, two tags.
  virtual Capture content() const {
    const Bytes pair = cf_record(0, 1000, 0) + cf_record(1, 1001, 180);
    return {capture_bytes(raw64_header("raw_cf"), pair), kGapBytes, pair, 0};
  }

  void append(const Bytes& more) const {
    std::ofstream out(capture(), std::ios::binary | std::ios::app);
    out.write(reinterpret_cast<const char*>(more.data()), static_cast<std::streamsize>(more.size()));
  }

  void write_capture() const {
    const Capture parts = content();
    write_file(capture(), parts.start);
    fs::resize_file(capture(), parts.gap_end_bytes);
    append(parts.rest);
  }

  /// Runs the tool and does something to the capture while the tool is within the gap; exit status 126 if it was
  /// never seen there.
  int run_and(const std::function<void()>& change) const {
    for (int attempt = 0; attempt < 20; ++attempt) {
      write_capture();
      const pid_t tool = ::fork();
      if (tool == 0) {
        if (::chdir(cwd().c_str()) != 0 || ::dup2(::open("/dev/null", O_WRONLY), 1) < 0) ::_exit(125);
        ::execl(ORVO_TEST_TOOL, ORVO_TEST_TOOL, "c.tagcap", "--out-prefix=r", nullptr);
        ::_exit(127);
      }
      const bool caught = stop_amid_gap(tool);
      if (caught) change();
      ::kill(tool, SIGCONT);
      int status = 0;
      ::waitpid(tool, &status, 0);
      if (caught) return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    return 126;
  }

 private:
  bool stop_amid_gap(pid_t tool) const {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    const Capture parts = content();
    int rewinds = 0;
    bool past_middle = false;
    while (std::chrono::steady_clock::now() < deadline) {
      const std::uint64_t position = position_in(tool, capture());
      const bool in_second_half = position > parts.gap_end_bytes / 2;
      if (past_middle && !in_second_half) ++rewinds;
      past_middle = in_second_half;
      if (position > (1 << 20) && rewinds == parts.rewinds) {
        ::kill(tool, SIGSTOP);
        int status = 0;
        if (::waitpid(tool, &status, WUNTRACED) != tool || !WIFSTOPPED(status)) return false;
        return position_in(tool, capture()) < parts.gap_end_bytes - (8 << 20);
      }
      siginfo_t ended = {};
      if (::waitid(P_PID, static_cast<id_t>(tool), &ended, WEXITED | WNOHANG | WNOWAIT) != 0 || ended.si_pid != 0)
        return false;
    }
    return false;
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
  EXPECT_EQ(run_and([this] { append(cf_record(2, 2000, 0)); }), 0);
  EXPECT_THAT(read_file(cwd() / "r.summary.txt"), testing::HasSubstr("\ndecoded_tags=5\n"));
}

Bytes delta32_pair(std::uint64_t time_ps) {
  return d32_base(time_ps) + d32_event(0, 0) + d32_base(time_ps + 123) + d32_event(1, 0);
}

/// A capture so long that an offset is estimated in passes over it. The tool is stopped in the second one: what it
/// then finds is no longer what the first one has seen, and it starts over with lists.
class InputChangingBetweenPasses : public ChangingInput {
 protected:
  Capture content() const override {
    const Bytes start = capture_bytes(R"({"stream_format":"delta32"})", delta32_pair(1'000'000));
    return {start, kGapBytesOfPasses, delta32_pair(9'000'000), 1};
  }
  void expect_summary(const std::string& counts, const std::string& offset) const {
    EXPECT_THAT(read_file(cwd() / "r.summary.txt"), testing::HasSubstr(counts));
    EXPECT_THAT(read_file(cwd() / "r.json"), testing::HasSubstr("\"offset_ps\":" + offset + ","));
  }
  /// The reports that do not tell the time are those of a run over the capture as it is now.
  void expect_reports_of_the_capture_now() const {
    EXPECT_EQ(run_program({ORVO_TEST_TOOL, {"c.tagcap", "--out-prefix=now"}, cwd(), {}, {}}).exit_status, 0);
    for (const char* report : {".csv", ".json"}) {
      EXPECT_EQ(read_file(cwd() / ("r" + std::string(report))), read_file(cwd() / ("now" + std::string(report))));
    }
  }
};

TEST_F(InputChangingBetweenPasses, ACaptureThatIsLeftAloneGivesItsPairs) {
  EXPECT_EQ(run_and([] {}), 0);
  expect_summary("\ndecoded_tags=4\nch0=2\nch1=2\ncoincidences=2\n", "123");
}

TEST_F(InputChangingBetweenPasses, ACaptureThatGrewCountsToItsNewEnd) {
  EXPECT_EQ(run_and([this] { append(delta32_pair(12'000'000) + delta32_pair(15'000'000)); }), 0);
  expect_summary("\ndecoded_tags=8\nch0=4\nch1=4\ncoincidences=4\n", "123");
  expect_reports_of_the_capture_now();
}

TEST_F(InputChangingBetweenPasses, ATruncatedCaptureCountsToItsNewEnd) {
  EXPECT_EQ(run_and([this] { fs::resize_file(capture(), content().start.size()); }), 0);
  expect_summary("\ndecoded_tags=2\nch0=1\nch1=1\ncoincidences=1\n", "123");
  expect_reports_of_the_capture_now();
}

TEST_F(InputChangingBetweenPasses, ACaptureThatIsReplacedIsStillTheOneThatWasOpened) {
  write_file(cwd() / "other.tagcap", single_pair_capture());
  EXPECT_EQ(run_and([this] { fs::rename(cwd() / "other.tagcap", capture()); }), 0);
  expect_summary("\ndecoded_tags=4\nch0=2\nch1=2\ncoincidences=2\n", "123");
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
  if (kUnderAddressSanitizer) captures = {captures.front(), captures.back()};  // which sees nothing in this
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
