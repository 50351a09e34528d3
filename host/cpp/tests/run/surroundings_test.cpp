// A run in a hostile environment: no current directory, streams that are closed, full or broken.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "support/product_root.hpp"
#include "support/verify_captures.hpp"

namespace {

using namespace orvo::test;

const std::string kPlace = "product/logs/verification/stream_file_xcorr";
const std::string kRun = R"("$0" c.tagcap 2 0 --range=500 --bin=10 --offset=-1200 --out-prefix=out/run )";

class Surroundings : public ProductRoot {
 protected:
  Surroundings() { write_file(cwd() / "c.tagcap", pairs_capture()); }

  // The reports are complete, whatever happened to the console.
  void expect_reports() {
    const std::string summary = read_file(cwd() / "out/run.summary.txt");
    const Reports reports = golden("pairs", cwd() / "c.tagcap", cwd() / "out/run", summary);
    EXPECT_EQ(files(), (FileTree{{"cwd/c.tagcap", read_file(cwd() / "c.tagcap")}} +
                        reports_under("cwd/out/run", reports) + latest_files(kPlace, reports)));
  }
};

TEST_F(Surroundings, ARemovedCurrentDirectoryEndsTheRun) {
  const std::string removed = "mkdir gone && cd gone && rmdir ../gone && exec \"$0\" ";
  const std::string message = "filesystem error: cannot get current path: No such file or directory\n";
  EXPECT_EQ(seen(shell(removed)), seen(1, "", message));
  // Even if no given path depends on it: the tool looks for settings in the current directory.
  EXPECT_EQ(seen(shell(removed + (cwd() / "c.tagcap").string() + " --out-prefix=" + (cwd() / "out/run").string())),
            seen(1, "", message));
  EXPECT_THAT(names(files()), testing::ElementsAre("cwd/c.tagcap"));
}

TEST_F(Surroundings, AClosedStandardOutputLosesTheConsoleAlone) {
  EXPECT_EQ(seen(shell("exec " + kRun + ">&-")), seen(0, "", ""));
  expect_reports();
}

TEST_F(Surroundings, AFullStandardOutputLosesTheConsoleAlone) {
  EXPECT_EQ(seen(shell("exec " + kRun + ">/dev/full")), seen(0, "", ""));
  expect_reports();
}

TEST_F(Surroundings, WithoutAnyStreamTheReportsAreStillWhole) {
  EXPECT_EQ(seen(shell("exec " + kRun + "<&- >&- 2>&-")), seen(0, "", ""));
  expect_reports();
}

TEST_F(Surroundings, AClosedStandardErrorLosesTheMessageAlone) {
  EXPECT_EQ(seen(shell(R"(exec "$0" none --out-prefix=out/run 2>&-)")),
            seen(1, announcement(cwd() / "none", cwd() / "out/run"), ""));
  EXPECT_EQ(seen(shell(R"(exec "$0" c.tagcap 1 1 2>/dev/full)")), seen(64, "", ""));
}

TEST_F(Surroundings, TheExitStatusOfAFailureDoesNotHangOnTheConsole) {
  EXPECT_EQ(seen(shell(R"(exec "$0" none --out-prefix=out/run >/dev/full)")),
            seen(1, "", "StreamFileReader: cannot open " + (cwd() / "none").string() + "\n"));
  EXPECT_EQ(seen(shell(R"(exec "$0" --help >/dev/full)")), seen(0, "", ""));
}

// The loop ends when nobody is left to read the pipe; only then does the tool start.
const std::string kUntilBroken = "while echo waiting 2>/dev/null; do :; done; ";

TEST_F(Surroundings, ABrokenPipeIsOneMoreFullConsole) {
  EXPECT_EQ(seen(shell("{ trap '' PIPE; " + kUntilBroken + kRun + "; echo $? >&2; } | :")), seen(0, "", "0\n"));
  expect_reports();
}

TEST_F(Surroundings, ABrokenPipeMayEndTheRunByItsSignalButLeavesNoMessage) {
  const std::string status_of_run =
      shell("{ trap '' PIPE; " + kUntilBroken + "trap - PIPE; " + kRun + "; echo $? >&2; } | :").err;
  EXPECT_THAT(status_of_run, testing::AnyOf("0\n", "141\n"));
}

TEST_F(Surroundings, AnEmptyEnvironmentIsEnough) {
  const ProgramResult result = shell("exec env -i " + kRun);
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_EQ(result.err, "");
  expect_reports();
}

TEST_F(Surroundings, TheLanguageOfTheEnvironmentChangesNothing) {
  const ProgramResult result = shell("LC_ALL=de_DE.UTF-8 LANG=de_DE.UTF-8 exec " + kRun);
  EXPECT_EQ(result.exit_status, 0);
  expect_reports();
}

TEST_F(Surroundings, FilesAreMadeByTheUsersMask) {
  EXPECT_EQ(shell("umask 077; exec " + kRun).exit_status, 0);
  EXPECT_EQ(fs::status(cwd() / "out/run.csv").permissions(), fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_EQ(fs::status(cwd() / "out").permissions(), fs::perms::owner_all);
  expect_reports();
}

TEST_F(Surroundings, ANameLongerThanTheFileSystemTakesCannotBeOpened) {
  const std::string name(300, 'n');
  EXPECT_EQ(seen(verify({name, "--out-prefix=out/run"})),
            seen(1, announcement(cwd() / name, cwd() / "out/run"),
                 "StreamFileReader: cannot open " + (cwd() / name).string() + "\n"));
  EXPECT_EQ(seen(verify({"c.tagcap", "--out-prefix=" + name})),
            seen(1, announcement(cwd() / "c.tagcap", cwd() / name), "could not open CSV output\n"));
}

}  // namespace
