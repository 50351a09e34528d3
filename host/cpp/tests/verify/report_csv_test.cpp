#include "verify/report_csv.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>

#include "reference/reports.hpp"
#include "support/as_findings.hpp"
#include "support/failure.hpp"
#include "support/tool_surroundings.hpp"

namespace {

using namespace orvo::test;
using orvo::timing::xcorr_histogram;
using orvo::timing::XcorrHistogram;

RunResult run_of(const XcorrHistogram& histogram) {
  RunResult run;
  run.histogram = histogram;
  return run;
}

class ReportCsv : public ToolSurroundings {
 protected:
  /// The report, with the reference's beside it.
  std::string csv(const XcorrHistogram& histogram) {
    const RunResult run = run_of(histogram);
    write_csv(cwd() / "out.csv", run);
    std::string text = read_file(cwd() / "out.csv");
    EXPECT_EQ(text, reference::csv_report(as_findings(run)));
    return text;
  }
};

TEST_F(ReportCsv, HasALineForEveryBinEmptyOnesIncluded) {
  EXPECT_EQ(csv({{-8, 0, 8}, {1, 0, 42}}),
            "bin_center_ps,count\n"
            "-8,1\n"
            "0,0\n"
            "8,42\n");
}

TEST_F(ReportCsv, OfNoBinsIsTheHeadingAlone) {
  EXPECT_EQ(csv({}), "bin_center_ps,count\n");
}

TEST_F(ReportCsv, WritesNumbersOfAnySizePlainly) {
  EXPECT_EQ(csv({{INT64_MIN, INT64_MAX}, {INT64_MAX, -1}}),
            "bin_center_ps,count\n"
            "-9223372036854775808,9223372036854775807\n"
            "9223372036854775807,-1\n");
}

TEST_F(ReportCsv, Of1251BinsHas1252Lines) {
  const std::string text = csv(xcorr_histogram({0}, {160}, 5000, 8, 0));
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1252);
  EXPECT_EQ(text.substr(0, 30), "bin_center_ps,count\n-5000,0\n-4");
  EXPECT_NE(text.find("\n152,0\n160,1\n168,0\n"), std::string::npos);
  EXPECT_EQ(text.substr(text.size() - 14), "4992,0\n5000,0\n");
}

TEST_F(ReportCsv, ReplacesWhatWasThere) {
  write_file(cwd() / "out.csv", std::string(1000, 'x'));
  EXPECT_EQ(csv({{0}, {5}}), "bin_center_ps,count\n0,5\n");
}

TEST_F(ReportCsv, AFileThatCannotBeOpenedIsAnError) {
  EXPECT_EQ(failure_of([&] { write_csv(cwd() / "missing/out.csv", {}); }), "could not open CSV output (code -2)");
  EXPECT_EQ(failure_of([&] { write_csv(cwd(), {}); }), "could not open CSV output (code -2)");
}

TEST_F(ReportCsv, ErrorsAfterTheOpeningAreNotLookedAt) {
  EXPECT_EQ(failure_of([] { write_csv("/dev/full", run_of(xcorr_histogram({}, {}, 5000, 1, 0))); }),
            "nothing thrown");
}

}  // namespace
