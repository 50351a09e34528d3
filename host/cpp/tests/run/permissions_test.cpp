// Files and directories that the user may not read or write. Root may do all of that, so as root the test starts the
// tool as another user.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "support/product_root.hpp"
#include "support/verify_captures.hpp"

namespace {

using namespace orvo::test;

class Permissions : public ProductRoot {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) return;
    as_user_ = "setpriv --reuid=65534 --regid=65534 --clear-groups -- ";
    give_away(cwd());
    give_away(root());
    const ProgramResult can = shell(as_user_ + R"(test -x "$0" -a -w . -a -w ')" + root().string() + "'");
    if (can.exit_status != 0) GTEST_SKIP() << "no other user can start the tool here: " << can.err;
  }
  void TearDown() override {
    fs::permissions(cwd(), fs::perms::owner_all);
    for (const auto& entry : fs::recursive_directory_iterator(cwd())) {
      if (entry.is_directory()) fs::permissions(entry, fs::perms::owner_all);
    }
  }

  static void give_away(const fs::path& path) { EXPECT_EQ(::chown(path.c_str(), 65534, 65534), 0) << path; }

  /// Runs the tool as a user who is subject to permissions.
  ProgramResult verify_as_user(const std::string& arguments) {
    return shell("exec " + as_user_ + "\"$0\" " + arguments);
  }

  /// Gives it to the user, with these permissions.
  void set(const fs::path& path, fs::perms permissions) const {
    if (!as_user_.empty()) give_away(path);
    fs::permissions(path, permissions);
  }

  fs::path vrn() const { return cwd() / "VRN-B/logs/stream_file_verify"; }
  fs::path logs() const { return cwd() / "logs/stream_file_verify"; }
  fs::path any_capture(const fs::path& path, std::int64_t modified_s) const {
    write_file(path, std::string("?"));
    EXPECT_TRUE(set_modified(path, modified_s));
    return path;
  }
  std::string taking(const fs::path& input) const {
    return seen(1, announcement(input, cwd() / "o"), "StreamFileReader: truncated magic\n");
  }

 private:
  std::string as_user_;
};

constexpr fs::perms kReadOnlyFile = fs::perms::owner_read;
constexpr fs::perms kReadOnlyDirectory = fs::perms::owner_read | fs::perms::owner_exec;

TEST_F(Permissions, AnUnreadableSubdirectoryEndsTheWalkOfItsDirectoryOnly) {
  any_capture(vrn() / "closed/a.tagcap", 1'700'000'001);
  const fs::path other = any_capture(logs() / "b.tagcap", 1'700'000'000);
  set(vrn() / "closed", fs::perms::none);
  EXPECT_EQ(seen(verify_as_user("--out-prefix=o")), taking(other));
}

TEST_F(Permissions, AnUnreadableCaptureDirectoryIsSteppedOver) {
  any_capture(vrn() / "a.tagcap", 1'700'000'001);
  const fs::path other = any_capture(logs() / "b.tagcap", 1'700'000'000);
  set(vrn(), fs::perms::none);
  EXPECT_EQ(seen(verify_as_user("--out-prefix=o")), taking(other));
}

TEST_F(Permissions, ACaptureDirectoryBehindAClosedOneIsSteppedOver) {
  any_capture(vrn() / "a.tagcap", 1'700'000'001);
  const fs::path other = any_capture(logs() / "b.tagcap", 1'700'000'000);
  set(cwd() / "VRN-B", fs::perms::none);
  EXPECT_EQ(seen(verify_as_user("--out-prefix=o")), taking(other));
}

TEST_F(Permissions, AnUnreadableCaptureCannotBeOpened) {
  write_file(cwd() / "c.tagcap", single_pair_capture());
  set(cwd() / "c.tagcap", fs::perms::none);
  EXPECT_EQ(seen(verify_as_user("c.tagcap --out-prefix=o")),
            seen(1, announcement(cwd() / "c.tagcap", cwd() / "o"),
                 "StreamFileReader: cannot open " + (cwd() / "c.tagcap").string() + "\n"));
}

TEST_F(Permissions, AnUnreadableCaptureIsTakenAllTheSameWhenItIsTheNewest) {
  const fs::path newest = any_capture(logs() / "a.tagcap", 1'700'000'001);
  any_capture(logs() / "b.tagcap", 1'700'000'000);
  set(newest, fs::perms::none);
  EXPECT_EQ(seen(verify_as_user("--out-prefix=o")),
            seen(1, announcement(newest, cwd() / "o"), "StreamFileReader: cannot open " + newest.string() + "\n"));
}

TEST_F(Permissions, AnUnreadableSettingsFileIsPassedOver) {
  write_settings("channel_a=1\nchannel_b=1\n");
  set(cwd() / kSettingsName, fs::perms::none);
  const fs::path input = any_capture(cwd() / "c.tagcap", 1'700'000'000);
  EXPECT_EQ(seen(verify_as_user("c.tagcap --out-prefix=o")), taking(input));
}

TEST_F(Permissions, AReadOnlyCaptureInAReadOnlyDirectoryIsVerified) {
  write_file(cwd() / "in/c.tagcap", single_pair_capture());
  set(cwd() / "in/c.tagcap", kReadOnlyFile);
  set(cwd() / "in", kReadOnlyDirectory);
  const ProgramResult result = verify_as_user("in/c.tagcap --out-prefix=out/run");
  EXPECT_EQ(result.exit_status, 0) << result.err;
  EXPECT_THAT(read_file(cwd() / "out/run.summary.txt"), testing::HasSubstr("\ndecoded_tags=2\n"));
}

TEST_F(Permissions, NoReportsGoIntoAReadOnlyDirectory) {
  write_file(cwd() / "c.tagcap", single_pair_capture());
  fs::create_directory(cwd() / "out");
  set(cwd() / "out", kReadOnlyDirectory);
  EXPECT_EQ(seen(verify_as_user("c.tagcap --out-prefix=out/run")),
            seen(1, announcement(cwd() / "c.tagcap", cwd() / "out/run"), "could not open CSV output\n"));
  const ProgramResult result = verify_as_user("c.tagcap --out-prefix=out/new/run");
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_THAT(result.err, testing::MatchesRegex("filesystem error: cannot create directories: [^\n]*\n"));
  EXPECT_THAT(names(files()), testing::ElementsAre("cwd/c.tagcap", "cwd/out/"));
}

TEST_F(Permissions, AReadOnlyReportOfAnEarlierRunStaysAsItIs) {
  write_file(cwd() / "c.tagcap", single_pair_capture());
  write_file(cwd() / "run.csv", std::string("mine"));
  set(cwd() / "run.csv", kReadOnlyFile);
  EXPECT_EQ(seen(verify_as_user("c.tagcap --out-prefix=run")),
            seen(1, announcement(cwd() / "c.tagcap", cwd() / "run"), "could not open CSV output\n"));
  EXPECT_EQ(read_file(cwd() / "run.csv"), "mine");
}

TEST_F(Permissions, AReadOnlyProductRootEndsTheRunBehindTheReports) {
  write_file(cwd() / "c.tagcap", single_pair_capture());
  set(root(), kReadOnlyDirectory);
  const ProgramResult result = verify_as_user("c.tagcap --out-prefix=run");
  fs::permissions(root(), fs::perms::owner_all);
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.out, announcement(cwd() / "c.tagcap", cwd() / "run"));
  EXPECT_THAT(result.err, testing::MatchesRegex("filesystem error: cannot create directories: [^\n]*\n"));
  EXPECT_THAT(names(files()), testing::ElementsAre("cwd/c.tagcap", "cwd/run.csv", "cwd/run.json",
                                                   "cwd/run.summary.txt", "cwd/run.svg"));
}

}  // namespace
