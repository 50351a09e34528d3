// Full disks: the run ends by itself, and what it reads and what earlier runs left stays complete.
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <string>

#include "support/product_root.hpp"
#include "support/verify_captures.hpp"

namespace {

using namespace orvo::test;

const std::string kRun = R"("$0" c.tagcap 2 0 --range=500 --bin=1 --offset=-1200 --out-prefix=out/run)";

class FullDisk : public ProductRoot {
 protected:
  FullDisk() {
    write_file(cwd() / "c.tagcap", pairs_capture());
    EXPECT_EQ(verify({"c.tagcap", "2", "0", "--out-prefix=earlier/run"}).exit_status, 0);
    before_ = file_tree(cwd());
  }

  void expect_the_rest_untouched() const {
    FileTree now;
    for (const auto& [name, content] : file_tree(cwd())) {
      if (name.rfind("out/", 0) != 0) now[name] = content;
    }
    EXPECT_EQ(now, before_);
  }

 private:
  FileTree before_;
};

// A limit on the size of files stands in for a full disk: a write in the middle of a report fails. The unit is 512
// bytes.

TEST_F(FullDisk, ReportsThatAreCutOffAreNotNoticed) {
  const ProgramResult result = shell("trap '' XFSZ; ulimit -f 2; exec " + kRun);
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(fs::file_size(cwd() / "out/run.csv"), 1024u);
  EXPECT_EQ(fs::file_size(cwd() / "out/run.svg"), 1024u);
  expect_the_rest_untouched();
}

TEST_F(FullDisk, ADiskThatTakesNothingLeavesEmptyReports) {
  const ProgramResult result = shell("trap '' XFSZ; ulimit -f 0; exec " + kRun);
  EXPECT_EQ(seen(result), seen(0, "", ""));  // its output is a file, too
  for (const char* const suffix : {".csv", ".json", ".svg", ".summary.txt"}) {
    EXPECT_EQ(fs::file_size(cwd() / (std::string("out/run") + suffix)), 0u) << suffix;
  }
  expect_the_rest_untouched();
}

TEST_F(FullDisk, ALimitOnTheSizeOfFilesMayEndTheRunByItsSignal) {
  const ProgramResult result = shell("ulimit -f 2; exec " + kRun);
  EXPECT_EQ(result.exit_status, 128 + SIGXFSZ);
  expect_the_rest_untouched();
}

TEST_F(FullDisk, AGeneratedCaptureThatIsCutOffFailsAsAnyOther) {
  fs::remove(cwd() / "c.tagcap");
  const ProgramResult result = shell("trap '' XFSZ; ulimit -f 0; exec \"$0\" --out-prefix=out/run");
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(names(file_tree(root(), "")).size(), 5u) << "the latest files of the earlier run";
  EXPECT_FALSE(fs::exists(cwd() / "out"));
}

TEST_F(FullDisk, AFullFileSystemCostsItsReportsAlone) {
  const std::string mounted = "mkdir out && mount -t tmpfs -o size=4k none out";
  const ProgramResult can = shell("unshare -m sh -c '" + mounted + "'");
  fs::remove(cwd() / "out");
  if (can.exit_status != 0) GTEST_SKIP() << "no file system can be mounted here: " << can.err;
  const ProgramResult result =
      shell("unshare -m sh -c '" + mounted + " && " + kRun + "; echo $? >&2; wc -c out/*' \"$0\"");
  EXPECT_EQ(result.err, "0\n");
  const std::string summary = read_file(output_root() / "latest_summary.txt");
  EXPECT_EQ(result.out.rfind(announcement(cwd() / "c.tagcap", cwd() / "out/run") + closing_lines(summary), 0), 0u)
      << result.out;
  EXPECT_THAT(result.out, testing::HasSubstr("4096 out/run.csv\n"));
  EXPECT_THAT(result.out, testing::HasSubstr("\n4096 total\n"));
  expect_the_rest_untouched();
}

}  // namespace
