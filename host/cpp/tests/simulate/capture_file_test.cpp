#include "simulate/capture_file.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <filesystem>
#include <string>

#include "support/bytes.hpp"
#include "support/temp_directory.hpp"

namespace {

using namespace orvo::test;
namespace fs = std::filesystem;
using testing::EndsWith;
using testing::StartsWith;

class CaptureFiles : public testing::Test {
 protected:
  std::size_t files() const {
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator(directory_.path()), fs::directory_iterator()));
  }
  std::string failure(const fs::path& path) {
    try {
      CaptureFile file(path, {});
    } catch (const orvo::timing::Error& error) {
      return error.what();
    }
    return "none";
  }

  TempDirectory directory_;
  fs::path path_ = directory_ / "a.tagcap";
  Bytes payload_ = bytes({1, 2, 3, 4, 5});
};

TEST_F(CaptureFiles, HaveTheirNameOnlyWhenComplete) {
  CaptureFile file(path_, {});
  file.write(payload_.data(), payload_.size());
  EXPECT_FALSE(fs::exists(path_));
  file.complete(0);
  EXPECT_EQ(files(), 1u);
  EXPECT_THAT(read_file(path_), StartsWith("TAGCAP1\n"));
  EXPECT_THAT(read_file(path_), EndsWith("\1\2\3\4\5"));
}

TEST_F(CaptureFiles, GoAwayWhenAbandoned) {
  {
    CaptureFile file(path_, {});
    file.write(payload_.data(), payload_.size());
    EXPECT_EQ(files(), 1u);
  }
  EXPECT_EQ(files(), 0u);
}

TEST_F(CaptureFiles, LeaveAnEarlierFileAloneUntilComplete) {
  write_file(path_, "earlier");
  {
    CaptureFile file(path_, {});
    EXPECT_EQ(read_file(path_), "earlier");
  }
  EXPECT_EQ(read_file(path_), "earlier");
  CaptureFile file(path_, {});
  file.complete(0);
  EXPECT_THAT(read_file(path_), StartsWith("TAGCAP1\n"));
  EXPECT_EQ(files(), 1u);
}

TEST_F(CaptureFiles, LoseTheirTail) {
  CaptureFile file(path_, {});
  file.write(payload_.data(), payload_.size());
  file.complete(2);
  EXPECT_THAT(read_file(path_), EndsWith("}\1\2\3"));
}

TEST_F(CaptureFiles, LoseNoMoreThanThePayload) {
  CaptureFile file(path_, {});
  file.write(payload_.data(), payload_.size());
  file.complete(1'000'000);
  EXPECT_THAT(read_file(path_), EndsWith("}}"));
}

TEST_F(CaptureFiles, AreNotPutInPlaceOfAnythingButAFile) {
  fs::create_directory(path_);
  EXPECT_EQ(failure(path_), path_.string() + " is not an ordinary file");
  EXPECT_EQ(failure("/dev/null"), "/dev/null is not an ordinary file");
  EXPECT_EQ(files(), 1u);
}

TEST_F(CaptureFiles, CannotBeCreatedInAMissingDirectory) {
  const fs::path path = directory_ / "missing/a.tagcap";
  EXPECT_EQ(failure(path), "cannot create " + path.string());
}

TEST_F(CaptureFiles, ReplaceTheFileBehindALink) {
  write_file(directory_ / "real.tagcap", "earlier");
  fs::create_symlink("real.tagcap", path_);
  CaptureFile(path_, {}).complete(0);
  EXPECT_TRUE(fs::is_symlink(path_));
  EXPECT_THAT(read_file(directory_ / "real.tagcap"), StartsWith("TAGCAP1\n"));
}

TEST_F(CaptureFiles, GoAwayWhenTheProgramIsInterrupted) {
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    const pid_t child = ::fork();
    if (child == 0) {
      ::signal(number, SIG_DFL);  // in the background it may be ignored
      CaptureFile file(path_, {});
      ::raise(number);
      ::_exit(0);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == number);
    EXPECT_EQ(files(), 0u);
  }
}

TEST_F(CaptureFiles, OutliveASignalThatIsIgnored) {
  const pid_t child = ::fork();
  if (child == 0) {
    ::signal(SIGHUP, SIG_IGN);
    CaptureFile file(path_, {});
    ::raise(SIGHUP);
    file.complete(0);
    ::_exit(0);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_TRUE(fs::exists(path_));
}

}  // namespace
