// The reference of the reports, held to texts worked out by hand.
#include "reference/reports.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace orvo::test::reference {
namespace {

/// Channel 1 against channel 0: one pair at -8 ps, four at 0. Mean -8/5; variance (6.4^2 + 4 * 1.6^2) / 5 = 10.24.
Findings five_pairs() {
  Findings found;
  found.input = "/data/a\"b.tagcap";
  found.prefix = "/out/run";
  found.output_root = "/latest";
  found.input_age_seconds = 3600;
  found.header.stream_format = Encoding::raw64;
  found.channel_a = 1;
  found.channel_b = 0;
  found.window.range_ps = 8;
  found.window.offset_ps = -7;
  found.decoded_tags = 18;
  found.channel_counts = {4, 5, 0, 9};
  found.histogram.centers = {-8, 0, 8};
  found.histogram.counts = {1, 4, 0};
  return found;
}

TEST(ReferenceReports, WritesCsvAndJson) {
  EXPECT_EQ(csv_report(five_pairs()), "bin_center_ps,count\n-8,1\n0,4\n8,0\n");
  EXPECT_EQ(json_report(five_pairs()), R"({
  "source_file":"/data/a\"b.tagcap",
  "stream_format":"raw64",
  "mode":"external",
  "transport":"usb",
  "packed_delta_bits":16,
  "packed_delta_quantum_ps":8,
  "decoded_tags":18,
  "channel_counts":{"ch0":4,"ch1":5,"ch2":0,"ch3":9},
  "xcorr":{
    "channel_a":1,
    "channel_b":0,
    "range_ps":8,
    "bin_ps":8,
    "offset_ps":-7,
    "total_coincidences":5,
    "peak_count":4,
    "peak_ps":0,
    "moment_fit":{
      "mean_ps":-1.600,
      "sigma_ps":3.200,
      "fwhm_ps":7.535
    }
  }
}
)");
}

TEST(ReferenceReports, DrawsThePlot) {
  EXPECT_EQ(
      svg_report(five_pairs()),
      R"svg(<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 900 360" font-family="sans-serif" font-size="11">
<rect width="900" height="360" fill="white"/>
<text x="450" y="22" text-anchor="middle" font-size="14">xcorr ch1 vs ch0  offset -7 ps, peak 4, RMS 3 ps</text>
<line x1="70" y1="310" x2="880" y2="310" stroke="black"/>
<line x1="70" y1="40" x2="70" y2="310" stroke="black"/>
<line x1="70" y1="310" x2="70" y2="314" stroke="black"/>
<text x="70" y="328" text-anchor="middle">-8</text>
<line x1="273" y1="310" x2="273" y2="314" stroke="black"/>
<text x="273" y="328" text-anchor="middle">-4</text>
<line x1="475" y1="310" x2="475" y2="314" stroke="black"/>
<text x="475" y="328" text-anchor="middle">0</text>
<line x1="678" y1="310" x2="678" y2="314" stroke="black"/>
<text x="678" y="328" text-anchor="middle">4</text>
<line x1="880" y1="310" x2="880" y2="314" stroke="black"/>
<text x="880" y="328" text-anchor="middle">8</text>
<text x="475" y="352" text-anchor="middle">delta t (ps, ch0 - ch1, offset removed)</text>
<line x1="66" y1="310" x2="70" y2="310" stroke="black"/>
<text x="62" y="314" text-anchor="end">0</text>
<line x1="66" y1="242" x2="70" y2="242" stroke="black"/>
<text x="62" y="246" text-anchor="end">1</text>
<line x1="66" y1="175" x2="70" y2="175" stroke="black"/>
<text x="62" y="179" text-anchor="end">2</text>
<line x1="66" y1="107" x2="70" y2="107" stroke="black"/>
<text x="62" y="111" text-anchor="end">3</text>
<line x1="66" y1="40" x2="70" y2="40" stroke="black"/>
<text x="62" y="44" text-anchor="end">4</text>
<text x="15" y="175" text-anchor="middle" transform="rotate(-90 15 175)">counts</text>
<rect x="-64" y="242" width="269" height="68" fill="steelblue"/>
<rect x="341" y="40" width="269" height="270" fill="steelblue"/>
<line x1="475" y1="40" x2="475" y2="310" stroke="crimson" stroke-dasharray="4,3"/>
</svg>
)svg");
}

TEST(ReferenceReports, WritesTheSummary) {
  Findings found = five_pairs();
  const std::string summary = R"(Orvo timing stream-file cross-correlation verification
mode=offline_existing_file
input=/data/a"b.tagcap
input_age_seconds=3600
csv=/out/run.csv
json=/out/run.json
svg=/out/run.svg
decoded_tags=18
ch1=5
ch0=4
coincidences=5
peak_count=4
peak_ps=0
rms_ps=3.2
)";
  EXPECT_EQ(summary_text(found), summary);
  EXPECT_EQ(closing_lines(found),
            summary + "latest_plot=/latest/latest.svg\nlatest_summary=/latest/latest_summary.txt\n");
  found.input_age_seconds = 3601;
  EXPECT_THAT(summary_text(found), ::testing::EndsWith("rms_ps=3.2\nwarning=input file is older than one hour; "
                                                       "this is not a fresh hardware calibration check\n"));
}

TEST(ReferenceReports, NoPairsPeakAtTheLowestBin) {
  Findings found = five_pairs();
  found.histogram.counts = {0, 0, 0};
  const Statistics stats = statistics(found.histogram);
  EXPECT_EQ(stats.peak_count, 0);
  EXPECT_EQ(stats.peak_ps, -8);
  EXPECT_EQ(stats.mean_ps, 0.0);
  EXPECT_EQ(stats.rms_ps, 0.0);
  EXPECT_THAT(svg_report(found), ::testing::Not(::testing::HasSubstr("steelblue")));
  EXPECT_THAT(svg_report(found),
              ::testing::HasSubstr("<line x1=\"70\" y1=\"40\" x2=\"70\" y2=\"310\" stroke=\"crimson\""));
}

}  // namespace
}  // namespace orvo::test::reference
