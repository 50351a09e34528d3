#include "inspect/pair_page.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <sstream>
#include <string>
#include <vector>

namespace {

using orvo::timing::PairVerdict;
using testing::HasSubstr;
using testing::Not;

/// A view of 1001 bins with a peak of 40 ps jitter.
PairFinding peak_in(orvo::timing::XcorrWindow view, double background, double pairs) {
  PairFinding finding;
  finding.view = view;
  auto& bins = finding.statistics.bins;
  bins.bin_ps = static_cast<double>(view.bin_ps);
  for (int i = -500; i <= 500; ++i) {
    const double distance = i * bins.bin_ps / 40;
    bins.middle_ps.push_back(i * bins.bin_ps);
    bins.expected.push_back(background);
    bins.counts.push_back(std::round(background + pairs * std::exp(-distance * distance / 2)));
  }
  finding.statistics.judgement = orvo::timing::judge_correlation(bins);
  finding.statistics.recording.a = finding.statistics.recording.b = {0, 1e12, 1e6};
  return finding;
}

std::string page_of(const PairFinding& finding, const std::string& path = "c.tagcap") {
  std::ostringstream out;
  write_pairs(out, {finding}, path);
  return out.str();
}

TEST(PairPage, ShowsTheVerdictTheDelayAndTheSigmasInItsMatrix) {
  const PairFinding finding = peak_in({5005, 10, -2'000'000}, 100, 1000);
  EXPECT_THAT(page_of(finding), HasSubstr("<td class=\"pair peak\"><a href=\"#pair-0-1\"><b>peak</b>"
                                          "<span>-2.00 us</span><span>"));
  EXPECT_THAT(page_of(finding), HasSubstr("<pre>vq_verify_stream_file_xcorr c.tagcap 0 1 --offset=-2000000 "));
}

TEST(PairPage, HasTheHalfMaximumAndTheRegionOfThePeak) {
  const auto json = histogram_numbers(peak_in({5005, 10, 0}, 100, 1000));
  const double width_ps = 40 * std::sqrt(8 * std::log(2));  // 94.2
  EXPECT_NEAR(json["half"]["from_ps"], -width_ps / 2, 1);
  EXPECT_NEAR(json["half"]["to_ps"], width_ps / 2, 1);
  EXPECT_NEAR(json["half"]["level"], (100 + 500) / 100.0, 0.06);
  EXPECT_NEAR(json["peak"]["to_ps"], 1.5 * width_ps + 5, 2);
  EXPECT_NEAR(json["level"], 1, 0.01);
}

TEST(PairPage, HasTheHalfMaximumOfADipBelowTheBackground) {
  const auto json = histogram_numbers(peak_in({5005, 10, 0}, 1000, -800));
  EXPECT_NEAR(json["half"]["level"], (1000 - 400) / 1000.0, 0.02);
}

TEST(PairPage, OfAnEmptyChannelIsOneSentence) {
  const std::string page = page_of(PairFinding{});
  EXPECT_THAT(page, HasSubstr("<b>none</b><span>no tags</span><span></span>"));
  EXPECT_THAT(page, HasSubstr("A channel has no tags: there are no pairs."));
  EXPECT_THAT(page, Not(HasSubstr("class=\"plot")));
  EXPECT_EQ(pair_numbers({PairFinding{}}).size(), 0U);
}

TEST(PairPage, NeedsAFewHundredKilobytesAtMost) {
  PairFinding finding = peak_in({500'000'000, 999'999, 1'000'000'000'000'000}, 1.23456789e12, 1.23456789e18);
  for (std::size_t i = 0; i < 1024; ++i) finding.overview.sigmas.push_back(1000.0 / 3);
  const std::vector<PairFinding> six(6, finding);
  std::ostringstream out;
  write_pairs(out, six, std::string(4096, '<'));
  EXPECT_LT(pair_numbers(six).dump().size() + out.str().size(), 400'000U);
}

TEST(PairPage, TellsErrorsToTwoDigits) {
  EXPECT_EQ(with_error({160.23, 1.27}, " ps"), "160.2 &plusmn; 1.3 ps");
  EXPECT_EQ(with_error({-123'456'789'012.4, 37}), "-123456789012 &plusmn; 37");
  EXPECT_EQ(with_error({0.012345, 0.00067}), "0.01235 &plusmn; 0.00067");
  EXPECT_EQ(with_error({5, 0}), "5.0 &plusmn; 0.0");
}

}  // namespace
