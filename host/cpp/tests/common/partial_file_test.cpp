#include "common/partial_file.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstddef>
#include <filesystem>
#include <iterator>
#include <string>

#include "support/temp_directory.hpp"

namespace {

using namespace orvo::test;
namespace fs = std::filesystem;

class PartialFiles : public testing::Test {
 protected:
  std::size_t files() const {
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator(directory_.path()), fs::directory_iterator()));
  }
  /// What `act` throws.
  template <class Act>
  std::string failure(Act act) {
    try {
      act();
    } catch (const orvo::timing::Error& error) {
      return error.what();
    }
    return "none";
  }

  TempDirectory directory_;
  fs::path path_ = directory_ / "a.bin";
};

TEST_F(PartialFiles, HaveTheirNameOnlyWhenComplete) {
  PartialFile file(path_);
  EXPECT_EQ(file.path(), path_);
  EXPECT_EQ(file.partial_path(), path_.string() + ".partial-" + std::to_string(::getpid()));
  write_file(file.partial_path(), "new");
  EXPECT_FALSE(fs::exists(path_));
  file.complete();
  EXPECT_EQ(files(), 1u);
  EXPECT_EQ(read_file(path_), "new");
}

TEST_F(PartialFiles, GoAwayWhenAbandoned) {
  {
    PartialFile file(path_);
    write_file(file.partial_path(), "new");
    EXPECT_EQ(files(), 1u);
  }
  EXPECT_EQ(files(), 0u);
}

TEST_F(PartialFiles, LeaveAnEarlierFileAloneUntilComplete) {
  write_file(path_, "earlier");
  {
    PartialFile file(path_);
    write_file(file.partial_path(), "new");
  }
  EXPECT_EQ(read_file(path_), "earlier");
  PartialFile file(path_);
  write_file(file.partial_path(), "new");
  EXPECT_EQ(read_file(path_), "earlier");
  file.complete();
  EXPECT_EQ(read_file(path_), "new");
  EXPECT_EQ(files(), 1u);
}

TEST_F(PartialFiles, AreNotPutInPlaceOfAnythingButAFile) {
  fs::create_directory(path_);
  EXPECT_EQ(failure([&] { PartialFile file(path_); }), path_.string() + " is not an ordinary file");
  EXPECT_EQ(failure([&] { PartialFile file("/dev/null"); }), "/dev/null is not an ordinary file");
  EXPECT_EQ(files(), 1u);
}

TEST_F(PartialFiles, ReplaceTheFileThatALinkPointsTo) {
  write_file(directory_ / "real.bin", "earlier");
  fs::create_symlink("real.bin", path_);
  PartialFile file(path_);
  write_file(file.partial_path(), "new");
  file.complete();
  EXPECT_TRUE(fs::is_symlink(path_));
  EXPECT_EQ(read_file(directory_ / "real.bin"), "new");
}

TEST_F(PartialFiles, SayWhatFailed) {
  PartialFile file(path_);
  EXPECT_EQ(failure([&] { file.fail_to_create(); }), "cannot create " + path_.string());
  EXPECT_EQ(failure([&] { file.fail_to_write(); }), "cannot write all of " + path_.string());
  EXPECT_EQ(failure([&] { file.complete(); }), "cannot write all of " + path_.string()) << "nothing was written";
}

TEST_F(PartialFiles, GoAwayWhenTheProgramIsInterrupted) {
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    const pid_t child = ::fork();
    if (child == 0) {
      ::signal(number, SIG_DFL);  // in the background it may be ignored
      PartialFile file(path_);
      write_file(file.partial_path(), "new");
      ::raise(number);
      ::_exit(0);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == number);
    EXPECT_EQ(files(), 0u);
  }
}

TEST_F(PartialFiles, OutliveASignalThatIsIgnored) {
  const pid_t child = ::fork();
  if (child == 0) {
    ::signal(SIGHUP, SIG_IGN);
    PartialFile file(path_);
    write_file(file.partial_path(), "new");
    ::raise(SIGHUP);
    file.complete();
    ::_exit(0);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_TRUE(fs::exists(path_));
}

}  // namespace
