// A capture that changes while it is read; and a capture that must not be changed by being read.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "support/hostile_captures.hpp"
#include "support/product_root.hpp"
#include "support/verify_captures.hpp"

namespace {

using namespace orvo::test;

constexpr std::uintmax_t kGapBytes = 128 << 20;

/// The position of a process in a file that it has open; 0 if it has not opened it.
std::uint64_t position_in(pid_t process, const fs::path& file) {
  const fs::path proc = "/proc/" + std::to_string(process);
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(proc / "fd", error)) {
    if (fs::read_symlink(entry.path(), error) != file) continue;
    std::ifstream info(proc / "fdinfo" / entry.path().filename());
    std::string word;
    std::uint64_t position = 0;
    info >> word >> position;
    return position;
  }
  return 0;
}

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
    while (std::chrono::steady_clock::now() < deadline) {
      const std::uint64_t position = position_in(tool, capture());
      if (position > (1 << 20)) {
        ::kill(tool, SIGSTOP);
        int status = 0;
        if (::waitpid(tool, &status, WUNTRACED) != tool || !WIFSTOPPED(status)) return false;
        return position_in(tool, capture()) < kGapBytes - (8 << 20);
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
