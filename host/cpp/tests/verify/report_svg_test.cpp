#include "verify/report_svg.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "reference/reports.hpp"
#include "support/as_findings.hpp"
#include "support/failure.hpp"
#include "support/tool_surroundings.hpp"

namespace {

using namespace orvo::test;
using orvo::timing::xcorr_histogram;
using orvo::timing::XcorrHistogram;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Lines = std::vector<std::string>;

class ReportSvg : public ToolSurroundings {
 protected:
  /// The report, with the reference's beside it where it binds.
  std::string svg(const RunResult& run) {
    write_svg(cwd() / "out.svg", run);
    std::string text = read_file(cwd() / "out.svg");
    if (reference_binds(run)) {
      EXPECT_EQ(text, reference::svg_report(as_findings(run)));
    }
    return text;
  }
  static bool reference_binds(const RunResult& run) {
    if (!has_reports(run)) return false;
    const auto& centers = run.histogram.bin_center_ps;
    const auto& counts = run.histogram.counts;
    constexpr std::int64_t kQuarter = std::int64_t{1} << 59;  // of what it can say
    return centers.back() / 4 - centers.front() / 4 < kQuarter &&
           *std::max_element(counts.begin(), counts.end()) / 4 < kQuarter;
  }
  std::string svg(const XcorrHistogram& histogram, std::int64_t offset_ps = 0) {
    RunResult run;
    run.window = {10, 8, offset_ps};
    run.histogram = histogram;
    return svg(run);
  }
  /// The lines of a plot that contain this word.
  Lines lines(const XcorrHistogram& histogram, const std::string& word) {
    const std::string text = svg(histogram);
    Lines found;
    for (std::size_t from = 0; from < text.size();) {
      const std::size_t end = text.find('\n', from);
      const std::string line = text.substr(from, end - from);
      if (line.find(word) != line.npos) found.push_back(line);
      from = end + 1;
    }
    return found;
  }
  Lines bars(const XcorrHistogram& histogram) { return lines(histogram, "steelblue"); }
  Lines marker(const XcorrHistogram& histogram) { return lines(histogram, "crimson"); }
};

// Bins 10 ps apart from 0 on, of which only the first and the last count.
XcorrHistogram two_bars(std::size_t bins) {
  XcorrHistogram histogram;
  for (std::size_t i = 0; i < bins; ++i) histogram.bin_center_ps.push_back(10 * static_cast<std::int64_t>(i));
  histogram.counts.assign(bins, 0);
  histogram.counts.front() = 2;
  histogram.counts.back() = 1;
  return histogram;
}

// What a y tick shows: height on the left of the axis, then the label below it.
std::string y_tick(int y, int label_y, int count) {
  const std::string at = std::to_string(y);
  return "<line x1=\"66\" y1=\"" + at + "\" x2=\"70\" y2=\"" + at + "\" stroke=\"black\"/>\n<text x=\"62\" y=\"" +
         std::to_string(label_y) + "\" text-anchor=\"end\">" + std::to_string(count) + "</text>\n";
}

std::string x_tick(int x, const std::string& label) {
  const std::string at = std::to_string(x);
  return "<line x1=\"" + at + "\" y1=\"310\" x2=\"" + at + "\" y2=\"314\" stroke=\"black\"/>\n<text x=\"" + at +
         "\" y=\"328\" text-anchor=\"middle\">" + label + "</text>\n";
}

TEST_F(ReportSvg, OfThreeBinsWithAPeakOfFour) {
  RunResult run;
  run.channel_a = 2;
  run.channel_b = 0;
  run.window = {10, 8, -160};
  run.histogram = {{-8, 0, 8}, {1, 4, 2}};
  EXPECT_EQ(svg(run),
            R"(<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 900 360" font-family="sans-serif" font-size="11">
<rect width="900" height="360" fill="white"/>
<text x="450" y="22" text-anchor="middle" font-size="14">xcorr ch2 vs ch0  offset -160 ps, peak 4, RMS 5 ps</text>
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
<text x="475" y="352" text-anchor="middle">delta t (ps, ch0 - ch2, offset removed)</text>
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
)"
            R"svg(<text x="15" y="175" text-anchor="middle" transform="rotate(-90 15 175)">counts</text>
<rect x="-64" y="242" width="269" height="68" fill="steelblue"/>
<rect x="341" y="40" width="269" height="270" fill="steelblue"/>
<rect x="746" y="175" width="269" height="135" fill="steelblue"/>
<line x1="475" y1="40" x2="475" y2="310" stroke="crimson" stroke-dasharray="4,3"/>
</svg>
)svg");
}

TEST_F(ReportSvg, WithoutCountsHasNoBarsAndItsMarkerAtTheLeft) {
  const XcorrHistogram histogram{{-8, 0, 8}, {0, 0, 0}};
  const std::string plot = svg(histogram, 7);
  EXPECT_THAT(plot, HasSubstr(">xcorr ch0 vs ch1  offset 7 ps, peak 0, RMS 0 ps</text>\n"));
  EXPECT_THAT(plot, HasSubstr(y_tick(310, 314, 0) + y_tick(310, 314, 0) + y_tick(310, 314, 0) + y_tick(310, 314, 0) +
                              y_tick(40, 44, 1)));
  EXPECT_THAT(bars(histogram), IsEmpty());
  EXPECT_THAT(marker(histogram),
              ElementsAre(R"(<line x1="70" y1="40" x2="70" y2="310" stroke="crimson" stroke-dasharray="4,3"/>)"));
}

TEST_F(ReportSvg, OfOneBinHasEverythingAtTheLeftEdge) {
  const XcorrHistogram histogram{{0}, {3}};
  const std::string plot = svg(histogram);
  EXPECT_THAT(plot,
              HasSubstr(x_tick(70, "0") + x_tick(70, "0") + x_tick(70, "0") + x_tick(70, "0") + x_tick(70, "0")));
  EXPECT_THAT(plot, HasSubstr(y_tick(310, 314, 0) + y_tick(310, 314, 0) + y_tick(220, 224, 1) + y_tick(130, 134, 2) +
                              y_tick(40, 44, 3)));
  EXPECT_THAT(bars(histogram), ElementsAre(R"(<rect x="-334" y="40" width="809" height="270" fill="steelblue"/>)"));
  EXPECT_THAT(marker(histogram),
              ElementsAre(R"(<line x1="70" y1="40" x2="70" y2="310" stroke="crimson" stroke-dasharray="4,3"/>)"));
}

TEST_F(ReportSvg, OfAPeakOfTenIsLabelledInWholeCounts) {
  EXPECT_THAT(svg({{-8, 0, 8}, {0, 10, 0}}),
              HasSubstr(y_tick(310, 314, 0) + y_tick(256, 260, 2) + y_tick(175, 179, 5) + y_tick(121, 125, 7) +
                        y_tick(40, 44, 10)));
}

TEST_F(ReportSvg, XTicksOf10NanosecondsStandAtTheQuarters) {
  EXPECT_THAT(svg(xcorr_histogram({}, {}, 5000, 8, 0)),
              HasSubstr(x_tick(70, "-5000") + x_tick(273, "-2500") + x_tick(475, "0") + x_tick(678, "2500") +
                        x_tick(880, "5000")));
}

TEST_F(ReportSvg, XTicksAreCutToWholePicoseconds) {
  EXPECT_THAT(svg({{-5, 0, 5}, {0, 0, 0}}), HasSubstr(x_tick(70, "-5") + x_tick(232, "-3") + x_tick(475, "0") +
                                                      x_tick(637, "2") + x_tick(880, "5")));
}

TEST_F(ReportSvg, BarsAreAsWideAsTheirShareLessOne) {
  const auto bar = [](int x, int width, int height) {
    return "<rect x=\"" + std::to_string(x) + "\" y=\"" + std::to_string(310 - height) + "\" width=\"" +
           std::to_string(width) + "\" height=\"" + std::to_string(height) + "\" fill=\"steelblue\"/>";
  };
  EXPECT_THAT(bars(two_bars(2)), ElementsAre(bar(70 - 202, 404, 270), bar(880 - 202, 404, 135)));
  EXPECT_THAT(bars(two_bars(101)), ElementsAre(bar(67, 7, 270), bar(877, 7, 135)));
  EXPECT_THAT(bars(two_bars(270)), ElementsAre(bar(69, 2, 270), bar(879, 2, 135)));
  for (const std::size_t bins : {271u, 405u, 406u, 810u, 811u, 900u, 1251u}) {
    EXPECT_THAT(bars(two_bars(bins)), ElementsAre(bar(70, 1, 270), bar(880, 1, 135))) << bins << " bins";
  }
}

TEST_F(ReportSvg, BarsBelowHalfAUnitAreNotDrawn) {
  EXPECT_THAT(bars({{0, 10}, {1, 541}}), ElementsAre(HasSubstr("height=\"270\"")));
  EXPECT_THAT(bars({{0, 10}, {1, 539}}), ElementsAre(HasSubstr("height=\"1\""), HasSubstr("height=\"270\"")));
  EXPECT_THAT(bars({{0, 10}, {-3, 5}}), ElementsAre(HasSubstr("height=\"270\"")));
}

TEST_F(ReportSvg, MarkerStandsAtTheFirstOfEqualPeaks) {
  EXPECT_THAT(marker({{-8, 0, 8}, {1, 3, 3}}), ElementsAre(HasSubstr("<line x1=\"475\" y1=\"40\" x2=\"475\"")));
  EXPECT_THAT(marker({{-8, 0, 8}, {1, 2, 3}}), ElementsAre(HasSubstr("<line x1=\"880\" y1=\"40\" x2=\"880\"")));
}

TEST_F(ReportSvg, TitleRoundsTheWidthToWholePicoseconds) {
  EXPECT_THAT(svg({{-1, 0}, {1, 1}}, 0), HasSubstr("  offset 0 ps, peak 1, RMS 1 ps</text>"));     // 0.5
  EXPECT_THAT(svg({{-8, 0, 8}, {1, 2, 1}}), HasSubstr("  offset 0 ps, peak 2, RMS 6 ps</text>"));  // 5.66
  EXPECT_THAT(svg({{0, 10}, {1, 3}}, -1), HasSubstr("  offset -1 ps, peak 3, RMS 4 ps</text>"));   // 4.33
}

TEST_F(ReportSvg, PositionsAreSignedDistancesFromTheFirstCentre) {
  const XcorrHistogram histogram{{0, -8, 8}, {1, 2, 1}};
  EXPECT_THAT(bars(histogram), ElementsAre(R"(<rect x="-64" y="175" width="269" height="135" fill="steelblue"/>)",
                                           R"(<rect x="-873" y="40" width="269" height="270" fill="steelblue"/>)",
                                           R"(<rect x="746" y="175" width="269" height="135" fill="steelblue"/>)"));
  EXPECT_THAT(marker(histogram), ElementsAre(HasSubstr("<line x1=\"-739\" y1=\"40\" x2=\"-739\"")));
}

TEST_F(ReportSvg, MarkerOfAHistogramWithoutAPeakStandsAtZero) {
  EXPECT_THAT(marker({{100, 200}, {}}), ElementsAre(HasSubstr("<line x1=\"-739\" y1=\"40\" x2=\"-739\"")));
}

TEST_F(ReportSvg, DescendingCentresHaveNoSpanToSpread) {
  const XcorrHistogram histogram{{8, 0, -8}, {0, 1, 0}};
  EXPECT_THAT(svg(histogram),
              HasSubstr(x_tick(70, "8") + x_tick(70, "4") + x_tick(70, "0") + x_tick(70, "-4") + x_tick(70, "-8")));
  EXPECT_THAT(marker(histogram), ElementsAre(HasSubstr("<line x1=\"70\" y1=\"40\" x2=\"70\"")));
}

TEST_F(ReportSvg, OfNoBinsIsAnEmptyForm) {
  EXPECT_EQ(svg(XcorrHistogram{}),
            "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 900 120\">"
            "<text x=\"20\" y=\"60\">empty histogram</text></svg>\n");
}

TEST_F(ReportSvg, CountsAndOffsetsReachTheEndsOfTheirTypes) {
  EXPECT_THAT(svg({{0, 10}, {INT64_MAX, 1}}, INT64_MIN),
              HasSubstr("  offset -9223372036854775808 ps, peak 9223372036854775807, RMS 0 ps</text>"));
}

TEST_F(ReportSvg, AFileThatCannotBeOpenedIsAnError) {
  EXPECT_EQ(failure_of([&] { write_svg(cwd() / "missing/out.svg", {}); }), "could not open SVG output (code -2)");
}

}  // namespace
