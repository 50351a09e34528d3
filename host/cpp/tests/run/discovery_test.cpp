// Without a configured input the tool takes the newest capture below the three capture directories.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "support/product_root.hpp"

namespace {

using namespace orvo::test;

class Discovery : public ProductRoot {
 protected:
  // The content does not matter: the run prints its input before it opens it, and then fails.
  fs::path capture(const fs::path& path, std::int64_t modified_s, long modified_ns = 0) {
    write_file(path, std::string("?"));
    EXPECT_TRUE(set_modified(path, modified_s, modified_ns));
    return path;
  }

  // The input the tool takes, "" when it generates one.
  std::string taken() {
    const ProgramResult result = verify({"--out-prefix=o"});
    constexpr std::string_view kStart = "Input:  ";
    if (result.out.rfind(kStart, 0) != 0) {
      EXPECT_THAT(result.out, testing::StartsWith("No stream capture found; "));
      fs::remove_all(cwd() / "VRN-B/logs/stream_file_verify/verification");
      return "";
    }
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_EQ(result.err, "StreamFileReader: truncated magic\n");
    return result.out.substr(kStart.size(), result.out.find('\n') - kStart.size());
  }

  fs::path vrn() const { return cwd() / "VRN-B/logs/stream_file_verify"; }
  fs::path logs() const { return cwd() / "logs/stream_file_verify"; }
  static fs::path product_logs() { return root() / "logs/stream_file_verify"; }
};

TEST_F(Discovery, FindsTheOnlyCaptureInEachOfTheThreeDirectories) {
  for (const fs::path& directory : {vrn(), logs(), product_logs()}) {
    const fs::path only = capture(directory / "a.tagcap", 1'700'000'000);
    EXPECT_EQ(taken(), only.string());
    fs::remove(only);
  }
}

TEST_F(Discovery, TakesTheNewestOfAllDirectories) {
  const fs::path first = capture(vrn() / "a.tagcap", 1'700'000'001);
  capture(logs() / "b.tagcap", 1'700'000'000);
  capture(product_logs() / "c.tagcap", 1'699'999'999);
  EXPECT_EQ(taken(), first.string());
  const fs::path second = capture(logs() / "b.tagcap", 1'700'000'002);
  EXPECT_EQ(taken(), second.string());
  const fs::path third = capture(product_logs() / "c.tagcap", 1'700'000'003);
  EXPECT_EQ(taken(), third.string());
}

TEST_F(Discovery, TakesTheNewestWithinADirectory) {
  capture(logs() / "a.tagcap", 1'700'000'000);
  const fs::path newest = capture(logs() / "m.tagcap", 1'700'000'002);
  capture(logs() / "z.tagcap", 1'700'000'001);
  EXPECT_EQ(taken(), newest.string());
}

TEST_F(Discovery, ANanosecondIsNewer) {
  capture(vrn() / "a.tagcap", 1'700'000'000, 500);
  const fs::path newest = capture(product_logs() / "b.tagcap", 1'700'000'000, 501);
  EXPECT_EQ(taken(), newest.string());
}

TEST_F(Discovery, OnATieTheEarlierDirectoryWins) {
  const fs::path third = capture(product_logs() / "c.tagcap", 1'700'000'000, 7);
  const fs::path second = capture(logs() / "b.tagcap", 1'700'000'000, 7);
  EXPECT_EQ(taken(), second.string());
  const fs::path first = capture(vrn() / "a.tagcap", 1'700'000'000, 7);
  EXPECT_EQ(taken(), first.string());
}

TEST_F(Discovery, ADateBefore1970IsADate) {
  const fs::path old = capture(vrn() / "a.tagcap", -1'000'000);
  EXPECT_EQ(taken(), old.string());
  const fs::path newer = capture(logs() / "b.tagcap", -999'999);
  EXPECT_EQ(taken(), newer.string());
}

TEST_F(Discovery, LooksIntoSubdirectories) {
  const fs::path nested = capture(logs() / "2026/11/a.tagcap", 1'700'000'001);
  capture(logs() / "b.tagcap", 1'700'000'000);
  EXPECT_EQ(taken(), nested.string());
}

TEST_F(Discovery, TheExtensionIsMatchedInAnyCase) {
  for (const char* name : {"A.TAGCAP", "a.TagCap", "a.b.tagcap", "a..tagcap", "caf\xC3\xA9\xFF.tagcap", " .tagcap"}) {
    const fs::path only = capture(logs() / name, 1'700'000'000);
    EXPECT_EQ(taken(), only.string());
    fs::remove(only);
  }
}

TEST_F(Discovery, OtherNamesAreNoCaptures) {
  for (const char* name :
       {"a.tagcap.bak", ".tagcap", "a.tagcap2", "a.tagca", "tagcap", "a.tagcap ", "atagcap", "a.tagcap."}) {
    capture(logs() / name, 1'700'000'000);
  }
  EXPECT_EQ(taken(), "");
}

TEST_F(Discovery, OtherDirectoriesAreNotSearched) {
  capture(cwd() / "a.tagcap", 1'700'000'000);
  capture(cwd() / "logs/b.tagcap", 1'700'000'000);
  capture(cwd() / "VRN-B/logs/c.tagcap", 1'700'000'000);
  capture(root() / "VRN-B/logs/stream_file_verify/d.tagcap", 1'700'000'000);
  capture(root() / "host/cpp/logs/stream_file_verify/e.tagcap", 1'700'000'000);
  EXPECT_EQ(taken(), "");
}

TEST_F(Discovery, ADirectoryNamedLikeACaptureIsNone) {
  fs::create_directories(logs() / "x.tagcap");
  EXPECT_EQ(taken(), "");
  const fs::path inside = capture(logs() / "x.tagcap/y.tagcap", 1'700'000'000);
  EXPECT_EQ(taken(), inside.string());
}

TEST_F(Discovery, ALinkToAFileCountsWithTheFilesDate) {
  const fs::path target = capture(cwd() / "elsewhere.bin", 1'700'000'005);
  capture(logs() / "a.tagcap", 1'700'000'004);
  fs::create_symlink(target, logs() / "link.tagcap");
  EXPECT_EQ(taken(), (logs() / "link.tagcap").string());
  EXPECT_TRUE(set_modified(target, 1'700'000'003));
  EXPECT_EQ(taken(), (logs() / "a.tagcap").string());
}

TEST_F(Discovery, OtherLinksDoNotCount) {
  capture(cwd() / "elsewhere/a.tagcap", 1'700'000'000);
  fs::create_directories(logs());
  fs::create_symlink(cwd() / "elsewhere", logs() / "directory");  // is not followed
  fs::create_symlink(cwd() / "elsewhere", logs() / "directory.tagcap");
  fs::create_symlink("nowhere", logs() / "dangling.tagcap");
  fs::create_symlink("loop.tagcap", logs() / "loop.tagcap");
  fs::create_symlink("/dev/null", logs() / "device.tagcap");
  EXPECT_EQ(taken(), "");
  // None of them ends the walk, either.
  const fs::path real = capture(logs() / "real.tagcap", 1'700'000'000);
  EXPECT_EQ(taken(), real.string());
}

TEST_F(Discovery, APipeIsNoCapture) {
  fs::create_directories(logs());
  ASSERT_EQ(::mkfifo((logs() / "pipe.tagcap").c_str(), 0600), 0);
  EXPECT_EQ(taken(), "");
}

TEST_F(Discovery, ACaptureDirectoryMayBeALink) {
  capture(cwd() / "elsewhere/a.tagcap", 1'700'000'000);
  fs::create_directories(logs().parent_path());
  fs::create_directory_symlink(cwd() / "elsewhere", logs());
  EXPECT_EQ(taken(), (logs() / "a.tagcap").string());
}

TEST_F(Discovery, WhatStandsInPlaceOfADirectoryIsSteppedOver) {
  write_file(cwd() / "VRN-B", std::string("a file where a directory is meant"));
  fs::create_directories(logs().parent_path());
  fs::create_symlink("stream_file_verify", logs());  // a link to itself
  const fs::path only = capture(product_logs() / "a.tagcap", 1'700'000'000);
  EXPECT_EQ(taken(), only.string());

  fs::remove(logs());
  write_file(logs(), std::string("a file where a directory is meant"));
  EXPECT_EQ(taken(), only.string());
}

TEST_F(Discovery, AFileInPlaceOfACaptureDirectoryIsNoCapture) {
  fs::create_directories(cwd() / "VRN-B");
  write_file(logs(), std::string("?"));
  EXPECT_EQ(taken(), "");
}

TEST_F(Discovery, AnUnreadableSubdirectoryEndsTheWalkOfItsDirectoryOnly) {
  if (::geteuid() == 0) GTEST_SKIP() << "permissions do not bind root";
  const fs::path closed = vrn() / "closed";
  capture(closed / "a.tagcap", 1'700'000'001);
  const fs::path other = capture(logs() / "b.tagcap", 1'700'000'000);
  fs::permissions(closed, fs::perms::none);
  EXPECT_EQ(taken(), other.string());
  fs::permissions(closed, fs::perms::owner_all);
}

TEST_F(Discovery, AConfiguredInputEndsTheSearchBeforeItStarts) {
  capture(logs() / "a.tagcap", 1'700'000'000);
  EXPECT_EQ(seen(verify({"b.tagcap", "--out-prefix=o"})),
            seen(1, announcement(cwd() / "b.tagcap", cwd() / "o"),
                 "StreamFileReader: cannot open " + (cwd() / "b.tagcap").string() + "\n"));
}

TEST_F(Discovery, TheSettingsFilesDirectoryIsNotSearched) {
  const TempDirectory bin;
  write_file(bin / kSettingsName, std::string("output_prefix=o\n"));
  capture(bin / "logs/stream_file_verify/a.tagcap", 1'700'000'005);
  const fs::path here = capture(logs() / "b.tagcap", 1'700'000'000);
  EXPECT_THAT(run({.argv0 = (bin / "tool").string()}).out, testing::HasSubstr("\nInput:  " + here.string() + "\n"));
}

}  // namespace
