#include "verify/report_stage.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "support/bytes.hpp"
#include "support/failure.hpp"
#include "support/tool_surroundings.hpp"
#include "verify/correlation.hpp"

namespace {

using namespace orvo::test;
namespace fs = std::filesystem;
using testing::HasSubstr;

const std::vector<std::int64_t> kA{0, 1000, 2000};
const std::vector<std::int64_t> kB{70, 1080, 2090};

std::int64_t offset(const std::string& setting) {
  return resolve_offset_ps(setting, kA, kB);
}

TEST(OffsetSetting, AutoIsEstimated) {
  EXPECT_EQ(offset("auto"), 80);
  EXPECT_EQ(resolve_offset_ps("auto", {}, kB), 0);
  EXPECT_EQ(resolve_offset_ps("auto", kA, {}), 0);
}

TEST(OffsetSetting, NumbersAreTaken) {
  EXPECT_EQ(offset("0"), 0);
  EXPECT_EQ(offset("-1200"), -1200);
  EXPECT_EQ(offset("+7"), 7);
  EXPECT_EQ(offset("  350ps"), 350);
  EXPECT_EQ(offset("12x"), 12);
  EXPECT_EQ(offset("010"), 10);
  EXPECT_EQ(offset("0x10"), 0);
  EXPECT_EQ(offset("9223372036854775807"), INT64_MAX);
  EXPECT_EQ(offset("-9223372036854775808"), INT64_MIN);
}

TEST(OffsetSetting, OnlyTheExactWordIsAuto) {
  for (const char* setting : {"AUTO", "Auto", "auto ", " auto", "aut", "automatic", "none", "", "x12", "-"}) {
    EXPECT_EQ(failure_of([&] { offset(setting); }), "invalid_argument: stoll") << setting;
  }
}

TEST(OffsetSetting, NumbersOutside64BitsAreThrown) {
  EXPECT_EQ(failure_of([] { offset("9223372036854775808"); }), "out_of_range: stoll");
  EXPECT_EQ(failure_of([] { offset("-9223372036854775809"); }), "out_of_range: stoll");
}

class ReportStage : public ToolSurroundings {
 protected:
  ReportStage() {
    write_file(cwd() / "in.tagcap", capture_bytes(R"({"stream_format":"raw64"})",
                                                  ps_record(1, 5'160) + ps_record(0, 5'000) + ps_record(2, 1) +
                                                      ps_record(1, 25'160) + ps_record(0, 25'000)));
  }
  void report(const fs::path& prefix) {
    orvo::timing::StreamFileReader reader;
    reader.open((cwd() / "in.tagcap").string());
    RunResult run;
    run.source = cwd() / "in.tagcap";
    run.header = reader.header();
    run.channel_a = config_.channel_a;
    run.channel_b = config_.channel_b;
    std::ostringstream out;
    correlate(reader, config_, kMostListedBytes, run);
    write_reports(run, prefix, out);
    console_ = out.str();
  }
  bool wrote(const char* name) const { return fs::is_regular_file(cwd() / name); }

  Config config_;
  std::string console_;
};

TEST_F(ReportStage, CorrelatesTheChosenChannelsAndWritesAllReports) {
  config_.range_ps = 12;
  report(cwd() / "a/b/c");
  EXPECT_EQ(read_file(cwd() / "a/b/c.csv"), "bin_center_ps,count\n-8,0\n0,2\n8,0\n");
  const std::string json = read_file(cwd() / "a/b/c.json");
  EXPECT_THAT(json,
              HasSubstr("  \"decoded_tags\":5,\n  \"channel_counts\":{\"ch0\":2,\"ch1\":2,\"ch2\":1,\"ch3\":0},\n"));
  EXPECT_THAT(
      json,
      HasSubstr("\"range_ps\":12,\n    \"bin_ps\":8,\n    \"offset_ps\":160,\n    \"total_coincidences\":2,\n"));
  EXPECT_THAT(read_file(cwd() / "a/b/c.svg"), HasSubstr(">xcorr ch0 vs ch1  offset 160 ps, peak 2, RMS 0 ps</text>"));
  EXPECT_THAT(read_file(cwd() / "a/b/c.summary.txt"), HasSubstr("decoded_tags=5\nch0=2\nch1=2\ncoincidences=2\n"));
  EXPECT_THAT(console_, HasSubstr("rms_ps=0.0\nlatest_plot="));
}

TEST_F(ReportStage, SwappedChannelsSwapTheSignOfTheOffset) {
  config_.channel_a = 1;
  config_.channel_b = 0;
  report(cwd() / "x");
  EXPECT_THAT(read_file(cwd() / "x.json"), HasSubstr("\"channel_a\":1,\n    \"channel_b\":0,\n"));
  EXPECT_THAT(read_file(cwd() / "x.json"), HasSubstr("\"offset_ps\":-160,\n    \"total_coincidences\":2,\n"));
}

TEST_F(ReportStage, AnExplicitOffsetIsUsedAndReported) {
  config_.offset = "-100ps";
  config_.range_ps = 300;
  report(cwd() / "x");
  EXPECT_THAT(read_file(cwd() / "x.json"), HasSubstr("\"offset_ps\":-100,\n    \"total_coincidences\":2,\n    "
                                                     "\"peak_count\":2,\n    \"peak_ps\":264,\n"));  // 260 / 8 = 32.5
}

TEST_F(ReportStage, AnEmptyChannelGivesEmptyReports) {
  config_.channel_b = 3;
  report(cwd() / "x");
  EXPECT_THAT(read_file(cwd() / "x.json"), HasSubstr("\"offset_ps\":0,\n    \"total_coincidences\":0,\n    "
                                                     "\"peak_count\":0,\n    \"peak_ps\":-5000,\n"));
  EXPECT_THAT(console_, HasSubstr("ch0=2\nch3=0\ncoincidences=0\npeak_count=0\npeak_ps=-5000\nrms_ps=0.0\n"));
}

TEST_F(ReportStage, AnOffsetThatIsNoNumberWritesNothing) {
  config_.offset = "none";
  EXPECT_EQ(failure_of([&] { report(cwd() / "deep/x"); }), "invalid_argument: stoll");
  EXPECT_FALSE(fs::exists(cwd() / "deep"));
  EXPECT_FALSE(fs::exists(product_root_of_tests()));
}

TEST_F(ReportStage, AFailureLeavesEarlierReportsAndWritesNoLaterOnes) {
  const std::vector<std::string> endings{".csv", ".json", ".svg", ".summary.txt"};
  const std::vector<std::string> failures{
      "could not open CSV output (code -2)", "could not open JSON output (code -2)",
      "could not open SVG output (code -2)", "could not open text output (code -2)"};
  for (std::size_t blocked = 0; blocked < endings.size(); ++blocked) {
    const std::string prefix = "x" + std::to_string(blocked);
    fs::create_directory(cwd() / (prefix + endings[blocked]));
    EXPECT_EQ(failure_of([&] { report(cwd() / prefix); }), failures[blocked]);
    for (std::size_t i = 0; i < endings.size(); ++i) {
      EXPECT_EQ(wrote((prefix + endings[i]).c_str()), i < blocked)
          << endings[i] << " with " << endings[blocked] << " blocked";
    }
    EXPECT_EQ(console_, "");
    EXPECT_FALSE(fs::exists(output_root_of_tests()));
  }
}

TEST_F(ReportStage, ADirectoryThatCannotBeCreatedIsTheStandardError) {
  write_file(cwd() / "file", "");
  EXPECT_EQ(failure_of([&] { report(cwd() / "file/x"); }), "filesystem_error");
}

}  // namespace
