#include "verify/report_summary.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <sstream>
#include <string>

#include "reference/reports.hpp"
#include "support/as_findings.hpp"
#include "support/failure.hpp"
#include "support/tool_surroundings.hpp"

namespace {

using namespace orvo::test;
using namespace std::chrono_literals;
namespace fs = std::filesystem;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

constexpr const char* kWarning =
    "warning=input file is older than one hour; this is not a fresh hardware calibration check\n";

RunResult small_run() {
  RunResult run;
  run.source = "/data/run 07.tagcap";
  run.channel_a = 2;
  run.channel_b = 0;
  run.channel_counts = {11, 22, 33, 44};
  run.decoded_tags = 110;
  run.histogram = {{-8, 0, 8}, {1, 2, 1}};
  return run;
}

/// The summary, with the reference's beside it.
std::string summary_of(const RunResult& run, const std::string& prefix, std::int64_t input_age_seconds) {
  std::string text = summary_text(run, ReportPaths(prefix), input_age_seconds);
  reference::Findings found = as_findings(run);
  found.prefix = prefix;
  found.input_age_seconds = input_age_seconds;
  EXPECT_EQ(text, reference::summary_text(found));
  return text;
}

TEST(ReportPathsTest, AppendTheirEndingsToTheWholePrefix) {
  const ReportPaths paths("out/run_01.v2");
  EXPECT_EQ(paths.csv, "out/run_01.v2.csv");
  EXPECT_EQ(paths.json, "out/run_01.v2.json");
  EXPECT_EQ(paths.svg, "out/run_01.v2.svg");
  EXPECT_EQ(paths.summary, "out/run_01.v2.summary.txt");
  EXPECT_EQ(ReportPaths("dir/").csv.string(), "dir/.csv");
}

TEST(SummaryText, IsTheseFourteenLines) {
  EXPECT_EQ(summary_of(small_run(), "/out/x", 59),
            "Orvo timing stream-file cross-correlation verification\n"
            "mode=offline_existing_file\n"
            "input=/data/run 07.tagcap\n"
            "input_age_seconds=59\n"
            "csv=/out/x.csv\n"
            "json=/out/x.json\n"
            "svg=/out/x.svg\n"
            "decoded_tags=110\n"
            "ch2=33\n"
            "ch0=11\n"
            "coincidences=4\n"
            "peak_count=2\n"
            "peak_ps=0\n"
            "rms_ps=5.7\n");
}

TEST(SummaryText, WarnsOfAnInputOlderThanAnHourInItsLastLine) {
  for (const std::int64_t age : {std::int64_t{3601}, std::int64_t{86'400}, std::int64_t{INT64_MAX}}) {
    EXPECT_THAT(summary_of(small_run(), "x", age), EndsWith(std::string("rms_ps=5.7\n") + kWarning));
  }
  for (const std::int64_t age : {3600, 0, -1, -7200}) {
    EXPECT_THAT(summary_of(small_run(), "x", age), EndsWith("rms_ps=5.7\n"));
  }
}

TEST(SummaryText, OfAnEmptyCorrelationIsZeroAtTheLowestCentre) {
  RunResult run = small_run();
  run.histogram = {{-8, 0, 8}, {0, 0, 0}};
  EXPECT_THAT(summary_of(run, "x", -1), EndsWith("coincidences=0\npeak_count=0\npeak_ps=-8\nrms_ps=0.0\n"));
}

TEST(SummaryText, WritesNumbersPlainly) {
  RunResult run = small_run();
  run.decoded_tags = UINT64_MAX;
  run.channel_counts = {UINT64_MAX, 0, 1'000'000, 0};
  run.histogram = {{-3'000'000'000'000, -1'000'000'000'000}, {1, 1}};
  const std::string text = summary_of(run, "x", -1'000'000);
  EXPECT_THAT(text, HasSubstr("input_age_seconds=-1000000\n"));
  EXPECT_THAT(text, HasSubstr("decoded_tags=18446744073709551615\nch2=1000000\nch0=18446744073709551615\n"));
  EXPECT_THAT(text, EndsWith("peak_ps=-3000000000000\nrms_ps=1000000000000.0\n"));
}

class ReportSummary : public ToolSurroundings {
 protected:
  ReportSummary() {
    write_file(paths_.csv, "csv");
    write_file(paths_.json, "json");
    write_file(paths_.svg, "svg");
    write_file(cwd() / "in.tagcap", "capture");
    run_.source = cwd() / "in.tagcap";
  }
  /// The console's text.
  std::string write() {
    std::ostringstream out;
    write_summary(run_, paths_, out);
    return out.str();
  }
  static std::string latest(const char* name) { return read_file(output_root_of_tests() / name); }

  ReportPaths paths_{cwd() / "deep/er/x"};
  RunResult run_ = small_run();
};

TEST_F(ReportSummary, AgeIsInWholeSecondsCutTowardsZero) {
  set_age(run_.source, 10'500ms);
  EXPECT_EQ(file_age_seconds(run_.source), 10);
  set_age(run_.source, -10'500ms);
  EXPECT_EQ(file_age_seconds(run_.source), -10);
  set_age(run_.source, -500ms);
  EXPECT_EQ(file_age_seconds(run_.source), 0);
  EXPECT_EQ(file_age_seconds(cwd() / "missing"), -1);
}

TEST_F(ReportSummary, OfAnHourIsNotWarnedOfAndASecondMoreIs) {
  set_age(run_.source, 3600s);
  EXPECT_THAT(write(), HasSubstr("input_age_seconds=3600\n"));
  EXPECT_THAT(read_file(paths_.summary), Not(HasSubstr("warning")));
  set_age(run_.source, 3601s);
  EXPECT_THAT(write(), HasSubstr(std::string(kWarning) + "latest_plot="));
  EXPECT_THAT(read_file(paths_.summary), EndsWith(kWarning));
  EXPECT_THAT(latest("latest_summary.txt"), EndsWith(kWarning));
}

TEST_F(ReportSummary, ConsoleShowsTheSummaryAndTheTwoLatestPaths) {
  const std::string console = write();
  const std::string summary = read_file(paths_.summary);
  EXPECT_EQ(console, summary + "latest_plot=" + (output_root_of_tests() / "latest.svg").string() +
                         "\nlatest_summary=" + (output_root_of_tests() / "latest_summary.txt").string() + "\n");
  EXPECT_EQ(summary, summary_text(run_, paths_, file_age_seconds(run_.source)));
  reference::Findings found = as_findings(run_);
  found.prefix = (cwd() / "deep/er/x").string();
  found.output_root = output_root_of_tests().string();
  found.input_age_seconds = file_age_seconds(run_.source);
  EXPECT_EQ(console, reference::closing_lines(found));
}

TEST_F(ReportSummary, AMissingCaptureHasAnAgeOfMinusOneAndNoWarning) {
  run_.source = cwd() / "missing.tagcap";
  const std::string console = write();
  EXPECT_THAT(console, HasSubstr("input_age_seconds=-1\n"));
  EXPECT_THAT(console, Not(HasSubstr("warning")));
}

TEST_F(ReportSummary, SummaryFilesThatCannotBeOpenedAreErrors) {
  fs::create_directories(output_root_of_tests() / "open_latest_plot.bat");
  EXPECT_EQ(failure_of([&] { write(); }), "could not open text output (code -2)");
  fs::remove(output_root_of_tests() / "latest_summary.txt");
  fs::create_directories(output_root_of_tests() / "latest_summary.txt");
  EXPECT_EQ(failure_of([&] { write(); }), "could not open text output (code -2)");
  fs::remove(paths_.summary);
  fs::create_directories(paths_.summary);
  EXPECT_EQ(failure_of([&] { write(); }), "could not open text output (code -2)");
}

TEST_F(ReportSummary, AnOutputRootThatCannotBeCreatedIsTheStandardError) {
  write_file(product_root_of_tests() / "logs", "a file where the directory should be");
  EXPECT_EQ(failure_of([&] { write(); }), "filesystem_error");
  EXPECT_TRUE(fs::exists(paths_.summary));
}

}  // namespace
