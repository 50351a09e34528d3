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

}  // namespace
