#include "verify/input_discovery.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>

#include "support/tool_surroundings.hpp"

namespace {

using namespace orvo::test;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

class InputDiscovery : public ToolSurroundings {
 protected:
  fs::path captures_below_vrn_b() const { return cwd() / "VRN-B/logs/stream_file_verify"; }
  fs::path captures_here() const { return cwd() / "logs/stream_file_verify"; }
  fs::path captures_of_the_product() const { return product_root_of_tests() / "logs/stream_file_verify"; }

  // An empty file that was written that long ago.
  static fs::path add(const fs::path& path, std::chrono::nanoseconds age = 1h) {
    write_file(path, "");
    set_age(path, age);
    return path;
  }
  static std::string newest() { return newest_tagcap_file().value_or("none").string(); }
};

TEST_F(InputDiscovery, FindsNothingInMissingOrEmptyDirectories) {
  EXPECT_EQ(newest_tagcap_file(), std::nullopt);
  fs::create_directories(captures_below_vrn_b());
  fs::create_directories(captures_of_the_product());
  EXPECT_EQ(newest_tagcap_file(), std::nullopt);
}

TEST_F(InputDiscovery, FindsACaptureInEachOfThePlaces) {
  for (const fs::path& directory : {captures_below_vrn_b(), captures_here(), captures_of_the_product()}) {
    const fs::path capture = add(directory / "a.tagcap");
    EXPECT_EQ(newest(), capture.string());
    fs::remove(capture);
  }
}

TEST_F(InputDiscovery, TheNewestOfAllPlacesWins) {
  add(captures_below_vrn_b() / "a.tagcap", 3h);
  add(captures_here() / "b.tagcap", 1h);
  add(captures_of_the_product() / "c.tagcap", 2h);
  EXPECT_EQ(newest(), captures_here() / "b.tagcap");
  set_age(captures_of_the_product() / "c.tagcap", 59min);
  EXPECT_EQ(newest(), captures_of_the_product() / "c.tagcap");
  set_age(captures_below_vrn_b() / "a.tagcap", 58min);
  EXPECT_EQ(newest(), captures_below_vrn_b() / "a.tagcap");
}

TEST_F(InputDiscovery, OfEqualTimesTheEarlierPlaceWins) {
  const auto time = fs::file_time_type::clock::now() - 1h;
  for (const fs::path& directory : {captures_of_the_product(), captures_here(), captures_below_vrn_b()}) {
    fs::last_write_time(add(directory / "a.tagcap"), time);
    EXPECT_EQ(newest(), directory / "a.tagcap");
  }
}

TEST_F(InputDiscovery, ANanosecondMakesTheDifference) {
  const auto time = fs::file_time_type::clock::now() - 1h;
  fs::last_write_time(add(captures_below_vrn_b() / "a.tagcap"), time);
  fs::last_write_time(add(captures_here() / "b.tagcap"), time + 1ns);
  EXPECT_EQ(newest(), captures_here() / "b.tagcap");
}

TEST_F(InputDiscovery, LooksIntoSubdirectoriesOfAnyDepth) {
  const fs::path deep = add(captures_here() / "2026/11/x/y/a.tagcap", 1h);
  add(captures_here() / "b.tagcap", 2h);
  EXPECT_EQ(newest(), deep);
}

TEST_F(InputDiscovery, TheExtensionCountsInAnyLetterCase) {
  for (const char* name : {"A.TAGCAP", "a.TagCap", "a.b.tagcap", "a..tagcap", " .tagcap"}) {
    const fs::path capture = add(captures_here() / name);
    EXPECT_EQ(newest(), capture.string());
    fs::remove(capture);
  }
}

TEST_F(InputDiscovery, OtherNamesAreNoCaptures) {
  for (const char* name :
       {"a.tagcap.bak", ".tagcap", "a.tagcap2", "a.tagca", "tagcap", "a.tagcap ", "a_tagcap", "a."}) {
    add(captures_here() / name);
  }
  EXPECT_EQ(newest_tagcap_file(), std::nullopt);
}

TEST_F(InputDiscovery, ADirectoryIsNoCaptureButMayHoldOne) {
  fs::create_directories(captures_here() / "x.tagcap");
  EXPECT_EQ(newest_tagcap_file(), std::nullopt);
  const fs::path inside = add(captures_here() / "x.tagcap" / "y.tagcap");
  EXPECT_EQ(newest(), inside);
}

TEST_F(InputDiscovery, OnlyRegularFilesCount) {
  fs::create_directories(captures_here());
  ASSERT_EQ(::mkfifo((captures_here() / "pipe.tagcap").c_str(), 0600), 0);
  fs::create_symlink("/dev/null", captures_here() / "device.tagcap");
  fs::create_symlink("missing", captures_here() / "dangling.tagcap");
  EXPECT_EQ(newest_tagcap_file(), std::nullopt);
}

TEST_F(InputDiscovery, ALinkToAFileCountsWithTheTimeOfTheFile) {
  add(cwd() / "elsewhere", 1h);
  add(captures_here() / "b.tagcap", 2h);
  fs::create_symlink(cwd() / "elsewhere", captures_here() / "link.tagcap");
  EXPECT_EQ(newest(), captures_here() / "link.tagcap");
  set_age(cwd() / "elsewhere", 3h);
  EXPECT_EQ(newest(), captures_here() / "b.tagcap");
}

TEST_F(InputDiscovery, LinksToDirectoriesAreNotFollowed) {
  add(cwd() / "elsewhere" / "a.tagcap");
  fs::create_directories(captures_here());
  fs::create_directory_symlink(cwd() / "elsewhere", captures_here() / "link");
  EXPECT_EQ(newest_tagcap_file(), std::nullopt);
}

TEST_F(InputDiscovery, APlaceThatIsALinkToADirectoryIsSearched) {
  add(cwd() / "elsewhere" / "a.tagcap");
  fs::create_directories(cwd() / "logs");
  fs::create_directory_symlink(cwd() / "elsewhere", captures_here());
  EXPECT_EQ(newest(), captures_here() / "a.tagcap");
}

TEST_F(InputDiscovery, APlaceThatIsAFileYieldsNothing) {
  write_file(captures_below_vrn_b(), "");
  const fs::path capture = add(captures_here() / "a.tagcap");
  EXPECT_EQ(newest(), capture);
}

TEST_F(InputDiscovery, ACaptureOfTheFutureIsTheNewest) {
  add(captures_here() / "a.tagcap", 0s);
  add(captures_here() / "b.tagcap", -24h);
  EXPECT_EQ(newest(), captures_here() / "b.tagcap");
}

}  // namespace
