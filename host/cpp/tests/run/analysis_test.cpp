// Offset, histogram and plot of small captures, as the reports show them.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "support/product_root.hpp"
#include "support/verify_captures.hpp"

namespace {

using namespace orvo::test;
using testing::HasSubstr;
using testing::Not;

using Times = std::vector<std::uint64_t>;

class Analysis : public ProductRoot {
 protected:
  // Verifies a capture of channel 0 at the times `a` and channel 1 at the times `b`.
  void correlate(const Times& a, const Times& b, std::vector<std::string> options = {}) {
    Bytes payload;
    for (const std::uint64_t t : a) payload += ps_record(0, t);
    for (const std::uint64_t t : b) payload += ps_record(1, t);
    write_file(cwd() / "c.tagcap", raw64_capture(payload));
    options.insert(options.begin(), {"c.tagcap", "--out-prefix=o"});
    const ProgramResult result = verify(options);
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.err, "");
  }
  std::string number(const std::string& key) const {
    const std::string json = read_file(cwd() / "o.json");
    const auto from = json.find(':', json.find("\"" + key + "\"")) + 1;
    return json.substr(from, json.find_first_of(",\n", from) - from);
  }
  std::string estimated_offset(const Times& a, const Times& b) {
    correlate(a, b);
    return number("offset_ps");
  }
  std::string csv(const Times& a, const Times& b, const std::string& range, const std::string& bin,
                  const std::string& offset) {
    correlate(a, b, {"--range=" + range, "--bin=" + bin, "--offset=" + offset});
    return read_file(cwd() / "o.csv");
  }
  std::string svg() const { return read_file(cwd() / "o.svg"); }
};

// The automatic offset.

TEST_F(Analysis, TheOffsetIsTheUpperMedianOfTheNearestDifferences) {
  EXPECT_EQ(estimated_offset({0, 1000}, {10, 1013}), "13");
  EXPECT_EQ(estimated_offset({1000, 0}, {1013, 10}), "13");  // in any order
  EXPECT_EQ(estimated_offset({0, 1000, 2000}, {10, 1013, 2700}), "13");
}

TEST_F(Analysis, AmongTwoNeighboursTheNearerCountsAndOnATieTheLater) {
  EXPECT_EQ(estimated_offset({100}, {90, 110}), "10");
  EXPECT_EQ(estimated_offset({100}, {95, 110}), "-5");
  EXPECT_EQ(estimated_offset({500}, {100, 200}), "-300");
  EXPECT_EQ(estimated_offset({100}, {100}), "0");
}

TEST_F(Analysis, AnEmptyChannelGivesOffset0AndReportsOfZeros) {
  for (const auto& [a, b] : {std::pair<Times, Times>{{500}, {}}, {{}, {500}}}) {
    EXPECT_EQ(estimated_offset(a, b), "0");
    EXPECT_EQ(number("total_coincidences"), "0");
    EXPECT_EQ(number("peak_ps"), "-5000");
    EXPECT_THAT(svg(), HasSubstr("  offset 0 ps, peak 0, RMS 0 ps</text>\n"));
  }
}

TEST_F(Analysis, AtMost4000EventsAreSampledEvenlyOrFromTheStart) {
  // 10000 events: every second one is sampled, up to the 7999th. 2001 of those have a difference of 7, the rest of 3.
  Times a;
  Times b;
  for (std::uint64_t i = 0; i < 10'000; ++i) {
    a.push_back(1'000'000 * (i + 1));
    const bool seven = i % 2 == 0 ? i < 4002 : true;
    b.push_back(a.back() + (seven ? 7 : 3));
  }
  EXPECT_EQ(estimated_offset(a, b), "7");
  b[4000] -= 4;  // one of the 2001 less: 2000 of 4000 are 7, and the upper median still is
  EXPECT_EQ(estimated_offset(a, b), "7");
  b[3998] -= 4;
  EXPECT_EQ(estimated_offset(a, b), "3");
}

TEST_F(Analysis, Of4500EventsTheFirst4000AreSampled) {
  Times a;
  Times b;
  for (std::uint64_t i = 0; i < 4500; ++i) {
    a.push_back(1'000'000 * (i + 1));
    b.push_back(a.back() + (i < 2001 ? 3 : 7));  // 2001 of the first 4000, 2001 of all 4500
  }
  EXPECT_EQ(estimated_offset(a, b), "3");
}

// The histogram.

TEST_F(Analysis, HalvesRoundAwayFromZero) {
  const std::string head = "bin_center_ps,count\n";
  EXPECT_EQ(csv({100}, {104}, "8", "8", "0"), head + "-8,0\n0,0\n8,1\n");
  EXPECT_EQ(csv({100}, {96}, "8", "8", "0"), head + "-8,1\n0,0\n8,0\n");
  EXPECT_EQ(csv({100}, {103, 97}, "8", "8", "0"), head + "-8,0\n0,2\n8,0\n");
  EXPECT_EQ(csv({100}, {102, 98, 101, 99}, "3", "3", "0"), head + "-3,1\n0,2\n3,1\n");
}

TEST_F(Analysis, BothEndsOfTheRangeCount) {
  const std::string head = "bin_center_ps,count\n";
  EXPECT_EQ(csv({100}, {110, 111, 90, 89}, "10", "8", "0"), head + "-8,1\n0,0\n8,1\n");
  EXPECT_EQ(csv({1000}, {350 + 1010, 350 + 1011}, "10", "8", "350"), head + "-8,0\n0,0\n8,1\n");
}

TEST_F(Analysis, APairThatRoundsBeyondTheLastBinIsDropped) {
  EXPECT_EQ(csv({100}, {112, 88, 111, 89}, "12", "8", "0"), "bin_center_ps,count\n-8,1\n0,0\n8,1\n");
  EXPECT_EQ(number("total_coincidences"), "2");
}

TEST_F(Analysis, EveryPairCountsDuplicatesToo) {
  EXPECT_EQ(csv({100, 100, 100}, {100, 100}, "8", "8", "0"), "bin_center_ps,count\n-8,0\n0,6\n8,0\n");
  EXPECT_EQ(csv({100, 108}, {100, 108}, "8", "8", "0"), "bin_center_ps,count\n-8,1\n0,2\n8,1\n");
}

TEST_F(Analysis, MomentsHaveThreeDecimals) {
  correlate({1000}, {990, 1010}, {"--bin=10", "--range=100", "--offset=0"});
  EXPECT_EQ(number("mean_ps") + " " + number("sigma_ps") + " " + number("fwhm_ps"), "0.000 10.000 23.548");
  correlate({1000}, {990, 1000, 1000}, {"--bin=10", "--range=100", "--offset=0"});
  // Mean -10/3; sigma = 10 sqrt(2) / 3 = 4.71405; times 2.354820045 = 11.10073.
  EXPECT_EQ(number("mean_ps") + " " + number("sigma_ps") + " " + number("fwhm_ps"), "-3.333 4.714 11.101");
}

// The plot.

TEST_F(Analysis, BarsNarrowWithTheNumberOfBins) {
  const auto bar = [this](const std::string& range) {
    correlate({1000}, {1000}, {"--range=" + range, "--bin=10", "--offset=0"});
    const std::string plot = svg();
    const auto from = plot.find("<rect x=\"");
    return plot.substr(from, plot.find('\n', from) - from);
  };
  const auto rect = [](const std::string& x, const std::string& width) {
    return "<rect x=\"" + x + "\" y=\"40\" width=\"" + width + "\" height=\"270\" fill=\"steelblue\"/>";
  };
  EXPECT_EQ(bar("10"), rect("341", "269"));  // 3 bins
  EXPECT_EQ(bar("20"), rect("395", "161"));  // 5
  EXPECT_EQ(bar("500"), rect("472", "7"));   // 101
  EXPECT_EQ(bar("1340"), rect("474", "2"));  // 269
  EXPECT_EQ(bar("1350"), rect("475", "1"));  // 271
  EXPECT_EQ(bar("2020"), rect("475", "1"));  // 405
  EXPECT_EQ(bar("4050"), rect("475", "1"));  // 811: 810 / 811 is 0
}

TEST_F(Analysis, ABarThatRoundsToNoHeightIsNotDrawn) {
  Times b(540, 1000);
  b.push_back(1100);
  correlate({1000}, b, {"--range=100", "--bin=100", "--offset=0"});
  EXPECT_THAT(
      svg(),
      HasSubstr("<rect x=\"746\" y=\"309\" width=\"269\" height=\"1\" fill=\"steelblue\"/>\n"));  // 270 / 540 = 0.5
  b.push_back(1000);
  correlate({1000}, b, {"--range=100", "--bin=100", "--offset=0"});
  EXPECT_THAT(svg(), Not(HasSubstr("<rect x=\"746\"")));
  EXPECT_EQ(number("total_coincidences"), "542");
}

TEST_F(Analysis, TheTitleShowsTheRoundedRms) {
  correlate({1000}, {990, 1000, 1000}, {"--bin=10", "--range=100", "--offset=0"});  // 4.714
  EXPECT_THAT(svg(), HasSubstr(">xcorr ch0 vs ch1  offset 0 ps, peak 2, RMS 5 ps</text>\n"));
  correlate({1000}, {995, 1004}, {"--bin=9", "--range=100", "--offset=-3"});  // -2 and 7: bins 0 and 9, 4.5
  EXPECT_THAT(svg(), HasSubstr(">xcorr ch0 vs ch1  offset -3 ps, peak 1, RMS 5 ps</text>\n"));
}

}  // namespace
