// Reports that cannot be written: which message ends the run, and what is then on disk.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "support/product_root.hpp"
#include "support/verify_captures.hpp"

namespace {

using namespace orvo::test;

const std::string kPlace = "product/logs/verification/stream_file_xcorr";

class ReportFailures : public ProductRoot {
 protected:
  ReportFailures() { write_file(cwd() / "c.tagcap", pairs_capture()); }

  // Puts a directory where the run wants to write a file.
  static void block(const fs::path& path) { fs::create_directories(path); }

  ProgramResult run_pairs() {
    return verify({"c.tagcap", "2", "0", "--range=500", "--bin=10", "--offset=-1200", "--out-prefix=out/run"});
  }
  fs::path input() const { return cwd() / "c.tagcap"; }
  fs::path prefix() const { return cwd() / "out/run"; }
  // What is seen of a run that ended with this message after its first lines.
  std::string ended_with(const std::string& message) const {
    return seen(1, announcement(input(), prefix()), message);
  }
  // The reports on disk; the age comes from the summary there, when there is one.
  Reports reports() const {
    const fs::path summary = prefix().string() + ".summary.txt";
    return golden("pairs", input(), prefix(), fs::is_regular_file(summary) ? read_file(summary) : "");
  }
  FileTree capture() const { return {{"cwd/c.tagcap", read_file(input())}}; }
};

TEST_F(ReportFailures, WithoutTheCsvNothingIsWritten) {
  block(cwd() / "out/run.csv");
  EXPECT_EQ(seen(run_pairs()), ended_with("could not open CSV output\n"));
  EXPECT_EQ(files(), (capture() + FileTree{{"cwd/out/run.csv/", ""}}));
}

TEST_F(ReportFailures, WithoutTheJsonThereIsOnlyTheCsv) {
  block(cwd() / "out/run.json");
  EXPECT_EQ(seen(run_pairs()), ended_with("could not open JSON output\n"));
  EXPECT_EQ(files(), (capture() + FileTree{{"cwd/out/run.csv", reports().csv}, {"cwd/out/run.json/", ""}}));
}

TEST_F(ReportFailures, WithoutTheSvgThereAreCsvAndJson) {
  block(cwd() / "out/run.svg");
  EXPECT_EQ(seen(run_pairs()), ended_with("could not open SVG output\n"));
  EXPECT_EQ(files(), (capture() + FileTree{{"cwd/out/run.csv", reports().csv},
                                           {"cwd/out/run.json", reports().json},
                                           {"cwd/out/run.svg/", ""}}));
}

TEST_F(ReportFailures, WithoutTheSummaryTheLatestFilesAreNotTouched) {
  block(cwd() / "out/run.summary.txt");
  EXPECT_EQ(seen(run_pairs()), ended_with("could not open text output\n"));
  EXPECT_EQ(files(), (capture() + FileTree{{"cwd/out/run.csv", reports().csv},
                                           {"cwd/out/run.json", reports().json},
                                           {"cwd/out/run.svg", reports().svg},
                                           {"cwd/out/run.summary.txt/", ""}}));
}

TEST_F(ReportFailures, WithoutTheLatestSummaryThereIsNoLauncherAndNothingIsPrinted) {
  block(output_root() / "latest_summary.txt");
  EXPECT_EQ(seen(run_pairs()), ended_with("could not open text output\n"));
  FileTree expected = capture() + reports_under("cwd/out/run", reports()) + latest_files(kPlace, reports());
  expected.erase(kPlace + "/latest_summary.txt");
  expected.erase(kPlace + "/open_latest_plot.bat");
  EXPECT_EQ(files(), (expected + FileTree{{kPlace + "/latest_summary.txt/", ""}}));
}

TEST_F(ReportFailures, WithoutTheLauncherNothingIsPrinted) {
  block(output_root() / "open_latest_plot.bat");
  EXPECT_EQ(seen(run_pairs()), ended_with("could not open text output\n"));
  FileTree expected = capture() + reports_under("cwd/out/run", reports()) + latest_files(kPlace, reports());
  expected.erase(kPlace + "/open_latest_plot.bat");
  EXPECT_EQ(files(), (expected + FileTree{{kPlace + "/open_latest_plot.bat/", ""}}));
}

TEST_F(ReportFailures, ALatestCopyThatFailsIsPassedOverInSilence) {
  for (const char* name : {"latest.csv", "latest.json", "latest.svg"}) {
    SCOPED_TRACE(name);
    fs::remove_all(root());
    block(output_root() / name);
    const ProgramResult result = run_pairs();
    EXPECT_EQ(seen(result), seen(0, announcement(input(), prefix()) + closing_lines(reports().summary), ""));
    FileTree expected = capture() + reports_under("cwd/out/run", reports()) + latest_files(kPlace, reports());
    expected.erase(kPlace + "/" + name);
    EXPECT_EQ(files(), (expected + FileTree{{kPlace + "/" + name + "/", ""}}));
  }
}

// A file where a directory is needed.

TEST_F(ReportFailures, ADirectoryOfThePrefixThatCannotBeMadeEndsTheRunBeforeTheCsv) {
  write_file(cwd() / "out", std::string("a file"));
  const ProgramResult result = run_pairs();
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.out, announcement(input(), prefix()));
  EXPECT_THAT(result.err, testing::MatchesRegex("filesystem error: cannot create directories: [^\n]*\n"));
  EXPECT_EQ(files(), (capture() + FileTree{{"cwd/out", "a file"}}));
}

TEST_F(ReportFailures, AnOutputRootThatCannotBeMadeEndsTheRunAfterTheSummary) {
  write_file(root() / "logs", std::string("a file"));
  const ProgramResult result = run_pairs();
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.out, announcement(input(), prefix()));
  EXPECT_THAT(result.err, testing::MatchesRegex("filesystem error: cannot create directories: [^\n]*\n"));
  EXPECT_EQ(files(), (capture() + reports_under("cwd/out/run", reports()) + FileTree{{"product/logs", "a file"}}));
}

TEST_F(ReportFailures, ARunDirectoryThatCannotBeMadeEndsTheRunBeforeItsAnnouncement) {
  write_file(root() / "logs", std::string("a file"));
  const ProgramResult result = verify({"c.tagcap"});
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_THAT(result.err, testing::MatchesRegex("filesystem error: cannot create directories: [^\n]*\n"));
  EXPECT_EQ(files(), (capture() + FileTree{{"product/logs", "a file"}}));
}

TEST_F(ReportFailures, TheRunDirectoryIsNotAnnouncedWithTheGeneratedCaptureEither) {
  fs::remove(input());
  write_file(root() / "logs", std::string("a file"));
  const std::string generated = "VRN-B/logs/stream_file_verify/verification/synthetic_raw64_xcorr.tagcap";
  const ProgramResult result = verify();
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.out, "No stream capture found; generated synthetic verification file:\n  " +
                            (cwd() / generated).string() + "\n");
  EXPECT_EQ(names(files()), (std::vector<std::string>{"cwd/" + generated, "product/logs"}));
}

TEST_F(ReportFailures, AFullDeviceInPlaceOfAReportIsNotNoticed) {
  fs::create_directories(cwd() / "out");
  for (const char* suffix : {".csv", ".json", ".svg", ".summary.txt"}) {
    fs::create_symlink("/dev/full", prefix().string() + suffix);
  }
  EXPECT_EQ(run_pairs().exit_status, 0);
  EXPECT_THAT(read_file(output_root() / "latest_summary.txt"), testing::HasSubstr("\ndecoded_tags=31\n"));
}

TEST_F(ReportFailures, AnOffsetThatIsNoNumberEndsTheRunBeforeAnyReport) {
  for (const char* offset : {"x12", "", "auto ", " auto", "none", "9223372036854775808", "-9223372036854775809"}) {
    EXPECT_EQ(seen(verify({"c.tagcap", std::string("--offset=") + offset, "--out-prefix=out/run"})),
              ended_with("stoll\n"))
        << offset;
  }
  EXPECT_EQ(files(), capture());
}

}  // namespace
