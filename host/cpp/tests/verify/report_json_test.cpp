#include "verify/report_json.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "reference/reports.hpp"
#include "support/as_findings.hpp"
#include "support/failure.hpp"
#include "support/tool_surroundings.hpp"

namespace {

using namespace orvo::test;
using orvo::timing::StreamFormat;
using orvo::timing::StreamMode;
using orvo::timing::StreamTransport;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

RunResult raw64_run() {
  RunResult run;
  run.source = "/data/run_07.tagcap";
  run.header.stream_format = StreamFormat::raw64;
  run.channel_counts = {2000, 1999, 0, 1};
  run.decoded_tags = 4000;
  run.window = {10, 8, 160};
  run.histogram = {{-8, 0, 8}, {1, 4, 2}};
  return run;
}

class ReportJson : public ToolSurroundings {
 protected:
  /// The report, with the reference's beside it where there is one.
  std::string json(const RunResult& run) {
    write_json(cwd() / "out.json", run);
    std::string text = read_file(cwd() / "out.json");
    if (has_reports(run)) {
      EXPECT_EQ(text, reference::json_report(as_findings(run)));
    }
    return text;
  }
};

TEST_F(ReportJson, IsTheseTwentyFiveLines) {
  // mean 8 / 7, sigma sqrt(192 / 7 - 64 / 49) = 5.1110..., width 12.0355...
  EXPECT_EQ(json(raw64_run()),
            "{\n"
            "  \"source_file\":\"/data/run_07.tagcap\",\n"
            "  \"stream_format\":\"raw64\",\n"
            "  \"mode\":\"external\",\n"
            "  \"transport\":\"usb\",\n"
            "  \"packed_delta_bits\":16,\n"
            "  \"packed_delta_quantum_ps\":8,\n"
            "  \"decoded_tags\":4000,\n"
            "  \"channel_counts\":{\"ch0\":2000,\"ch1\":1999,\"ch2\":0,\"ch3\":1},\n"
            "  \"xcorr\":{\n"
            "    \"channel_a\":0,\n"
            "    \"channel_b\":1,\n"
            "    \"range_ps\":10,\n"
            "    \"bin_ps\":8,\n"
            "    \"offset_ps\":160,\n"
            "    \"total_coincidences\":7,\n"
            "    \"peak_count\":4,\n"
            "    \"peak_ps\":0,\n"
            "    \"moment_fit\":{\n"
            "      \"mean_ps\":1.143,\n"
            "      \"sigma_ps\":5.111,\n"
            "      \"fwhm_ps\":12.036\n"
            "    }\n"
            "  }\n"
            "}\n");
}

TEST_F(ReportJson, OfAnEmptyCorrelationIsAllZeroAtTheLowestCentre) {
  RunResult run = raw64_run();
  run.histogram = {{-8, 0, 8}, {0, 0, 0}};
  EXPECT_THAT(json(run), EndsWith("    \"total_coincidences\":0,\n"
                                  "    \"peak_count\":0,\n"
                                  "    \"peak_ps\":-8,\n"
                                  "    \"moment_fit\":{\n"
                                  "      \"mean_ps\":0.000,\n"
                                  "      \"sigma_ps\":0.000,\n"
                                  "      \"fwhm_ps\":0.000\n"
                                  "    }\n"
                                  "  }\n"
                                  "}\n"));
}

TEST_F(ReportJson, OfNoBinsIsAllZeroAtZero) {
  RunResult run = raw64_run();
  run.histogram = {};
  EXPECT_THAT(json(run), HasSubstr("\"total_coincidences\":0,\n    \"peak_count\":0,\n    \"peak_ps\":0,\n"));
}

TEST_F(ReportJson, SigmaOfTenHasAWidthOf23Point548) {
  RunResult run = raw64_run();
  run.histogram = {{-10, 0, 10}, {3, 0, 3}};
  EXPECT_THAT(json(run), HasSubstr("\"mean_ps\":0.000,\n      \"sigma_ps\":10.000,\n      \"fwhm_ps\":23.548\n"));
}

TEST_F(ReportJson, LargeMomentsStayInFixedPoint) {
  RunResult run = raw64_run();
  run.histogram = {{-3'000'000'000'000, -1'000'000'000'000}, {1, 1}};
  EXPECT_THAT(json(run), HasSubstr("\"mean_ps\":-2000000000000.000,\n      \"sigma_ps\":1000000000000.000,\n"
                                   "      \"fwhm_ps\":2354820045000.000\n"));
}

TEST_F(ReportJson, SourcePathIsEscaped) {
  RunResult run = raw64_run();
  run.source = "/a\"b\\c\td\ne\rf\x01g\x1F/\xC2\xB5";
  EXPECT_THAT(json(run), StartsWith("{\n  \"source_file\":\"/a\\\"b\\\\c\\td\\ne\\rf?g?/\xC2\xB5\",\n"));
}

TEST_F(ReportJson, HeaderWordsAreSpelledAsInTheCapture) {
  RunResult run = raw64_run();
  run.header.stream_format = StreamFormat::delta32;
  run.header.mode = StreamMode::internal;
  run.header.stream_transport = StreamTransport::usb_async;
  EXPECT_THAT(json(run),
              HasSubstr("\"stream_format\":\"delta32\",\n  \"mode\":\"internal\",\n  \"transport\":\"usb_async\","));
  run.header.stream_format = StreamFormat::packed_delta;
  run.header.stream_transport = StreamTransport::uart;
  EXPECT_THAT(json(run),
              HasSubstr("\"stream_format\":\"packed_delta\",\n  \"mode\":\"internal\",\n  \"transport\":\"uart\","));
}

TEST_F(ReportJson, NumbersOutsideTheEnumerationsHaveTheirFallback) {
  RunResult run = raw64_run();
  run.header.stream_format = static_cast<StreamFormat>(7);
  run.header.mode = static_cast<StreamMode>(9);
  run.header.stream_transport = static_cast<StreamTransport>(3);
  EXPECT_THAT(json(run),
              HasSubstr("\"stream_format\":\"raw64\",\n  \"mode\":\"external\",\n  \"transport\":\"uart\","));
}

TEST_F(ReportJson, PackedSettingsAreNumbers) {
  RunResult run = raw64_run();
  run.header.delta_bits = 65;
  run.header.quantum_ps = 65535;
  EXPECT_THAT(json(run), HasSubstr("  \"packed_delta_bits\":65,\n  \"packed_delta_quantum_ps\":65535,\n"));
}

TEST_F(ReportJson, NumbersReachTheEndsOfTheirTypes) {
  RunResult run = raw64_run();
  run.decoded_tags = UINT64_MAX;
  run.channel_counts = {UINT64_MAX, 0, 1'000'000, 3};
  run.channel_a = 3;
  run.channel_b = 2;
  run.window = {INT64_MAX, INT64_MAX, INT64_MIN};
  EXPECT_THAT(json(run),
              HasSubstr("  \"decoded_tags\":18446744073709551615,\n"
                        "  \"channel_counts\":{\"ch0\":18446744073709551615,\"ch1\":0,\"ch2\":1000000,\"ch3\":3},\n"
                        "  \"xcorr\":{\n"
                        "    \"channel_a\":3,\n"
                        "    \"channel_b\":2,\n"
                        "    \"range_ps\":9223372036854775807,\n"
                        "    \"bin_ps\":9223372036854775807,\n"
                        "    \"offset_ps\":-9223372036854775808,\n"));
}

TEST_F(ReportJson, DirectoryIsNotCreatedHere) {
  EXPECT_EQ(failure_of([&] { write_json(cwd() / "missing/out.json", raw64_run()); }),
            "could not open JSON output (code -2)");
  EXPECT_FALSE(std::filesystem::exists(cwd() / "missing"));
}

TEST_F(ReportJson, ReplacesWhatWasThere) {
  const std::string text = json(raw64_run());
  write_file(cwd() / "out.json", std::string(10'000, 'x'));
  EXPECT_EQ(json(raw64_run()), text);
}

}  // namespace
