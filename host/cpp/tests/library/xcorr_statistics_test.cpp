// Peak, width and mean of a histogram.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>

#include "orvo/timing/xcorr_histogram.hpp"

namespace {

using orvo::timing::xcorr_histogram;
using orvo::timing::xcorr_moments;
using orvo::timing::XcorrHistogram;
using orvo::timing::XcorrMoments;
using orvo::timing::XcorrPeak;

void expect_peak(const XcorrHistogram& histogram, std::int64_t count, std::int64_t center_ps) {
  const XcorrPeak peak = histogram.peak();
  EXPECT_EQ(peak.count, count);
  EXPECT_EQ(peak.center_ps, center_ps);
}

TEST(XcorrPeak, IsTheHighestBin) {
  expect_peak({{-8, 0, 8}, {1, 5, 2}}, 5, 0);
  expect_peak({{-8, 0, 8}, {1, 2, 7}}, 7, 8);
  expect_peak({{-8, 0, 8}, {9, 2, 7}}, 9, -8);
}

TEST(XcorrPeak, OfEqualBinsIsTheLowest) {
  expect_peak({{-8, 0, 8}, {1, 3, 3}}, 3, 0);
  expect_peak({{-8, 0, 8}, {3, 1, 3}}, 3, -8);
}

TEST(XcorrPeak, WithoutCountsIsZeroAtTheLowestCentre) {
  expect_peak({{-8, 0, 8}, {0, 0, 0}}, 0, -8);
  expect_peak(xcorr_histogram({}, {1}, 5000, 8, 0), 0, -5000);
}

TEST(XcorrPeak, OfNegativeCountsIsTheGreatestOfThem) {
  expect_peak({{-8, 0, 8}, {-3, -2, -9}}, -2, 0);
  expect_peak({{-8, 0, 8}, {-3, -5, -4}}, -3, -8);
}

TEST(XcorrPeak, WithoutBinsOrWithUnequalVectorsIsZeroAtZero) {
  expect_peak({}, 0, 0);
  expect_peak({{-8, 0, 8}, {}}, 0, 0);
  expect_peak({{-8, 0, 8}, {1, 2}}, 0, 0);
  expect_peak({{-8, 0}, {1, 2, 3}}, 0, 0);
  expect_peak({{}, {4}}, 0, 0);
}

double rms(const XcorrHistogram& histogram) {
  return histogram.rms_ps();
}

TEST(XcorrRms, IsTheDeviationAboutTheMeanAndNotAboutZero) {
  EXPECT_EQ(rms({{-8, 0, 8}, {1, 0, 1}}), 8.0);
  EXPECT_EQ(rms({{-8, 0, 8}, {0, 0, 5}}), 0.0);
  EXPECT_EQ(rms({{100, 120}, {7, 7}}), 10.0);
}

TEST(XcorrRms, DividesByTheWholeCount) {
  EXPECT_DOUBLE_EQ(rms({{-8, 0, 8}, {1, 2, 1}}), 5.656854249492381);  // sqrt(32)
  EXPECT_DOUBLE_EQ(rms({{0, 10}, {1, 3}}), 4.330127018922193);        // mean 7.5, sqrt(18.75)
  EXPECT_EQ(rms({{-4, 4}, {1, 1}}), 4.0);
}

TEST(XcorrRms, RoundsTheMeanToADoubleFirst) {
  // The mean 2^60 + 0.5 rounds to 2^60, so the distances are 0 and 1.
  const std::int64_t center = std::int64_t{1} << 60;
  EXPECT_DOUBLE_EQ(rms({{center, center + 1}, {1, 1}}), 0.7071067811865476);
  EXPECT_EQ(xcorr_moments({{center, center + 1}, {1, 1}}).mean_ps, 1152921504606846976.0);
}

TEST(XcorrRms, WithoutCountsIsZero) {
  EXPECT_EQ(rms({}), 0.0);
  EXPECT_EQ(rms({{-8, 0, 8}, {}}), 0.0);
  EXPECT_EQ(rms({{-8, 0, 8}, {0, 0, 0}}), 0.0);
  EXPECT_EQ(rms(xcorr_histogram({0}, {}, 5000, 8, 0)), 0.0);
}

TEST(XcorrRms, OfACountSumOfZeroOrLessIsZero) {
  EXPECT_EQ(rms({{-8, 8}, {1, -1}}), 0.0);
  EXPECT_EQ(rms({{-8, 8}, {-1, -1}}), 0.0);
}

TEST(XcorrRms, OfANegativeSumOfSquaresIsNotANumber) {
  EXPECT_TRUE(std::isnan(rms({{0, 10, 20}, {-1, 5, -1}})));
}

TEST(XcorrRms, OfUnequalVectorsRunsOverTheShorter) {
  EXPECT_EQ(rms({{-8, 8}, {1, 1, 1'000}}), 8.0);
  EXPECT_EQ(rms({{-8, 8, 1'000}, {1, 1}}), 8.0);
  EXPECT_EQ(rms({{}, {5}}), 0.0);
}

TEST(XcorrMoments, AreTotalMeanSigmaAndWidth) {
  const XcorrMoments moments = xcorr_moments({{0, 10}, {1, 3}});
  EXPECT_EQ(moments.total, 4);
  EXPECT_EQ(moments.mean_ps, 7.5);
  EXPECT_DOUBLE_EQ(moments.sigma_ps, 4.330127018922193);
  EXPECT_DOUBLE_EQ(moments.fwhm_ps, 10.196669901554074);
}

TEST(XcorrMoments, WidthIsTheSigmaTimesItsTenDigitFactor) {
  EXPECT_EQ(xcorr_moments({{-1, 1}, {1, 1}}).fwhm_ps, 2.354820045);
  EXPECT_EQ(xcorr_moments({{-10, 10}, {1, 1}}).fwhm_ps, 10.0 * 2.354820045);
  EXPECT_EQ(xcorr_moments({{-10, 10}, {1, 1}}).sigma_ps, 10.0);
}

TEST(XcorrMoments, MeanOfNegativeCentresIsNegative) {
  EXPECT_EQ(xcorr_moments({{-10, 0, 10}, {3, 0, 1}}).mean_ps, -5.0);
}

TEST(XcorrMoments, OfAnEmptyOrCountlessHistogramAreZero) {
  for (const XcorrHistogram& histogram : {XcorrHistogram{}, XcorrHistogram{{-8, 0, 8}, {0, 0, 0}}}) {
    const XcorrMoments moments = xcorr_moments(histogram);
    EXPECT_EQ(moments.total, 0);
    EXPECT_EQ(moments.mean_ps, 0.0);
    EXPECT_EQ(moments.sigma_ps, 0.0);
    EXPECT_EQ(moments.fwhm_ps, 0.0);
  }
}

TEST(XcorrMoments, OfACountSumBelowZeroHaveAMeanOfZero) {
  const XcorrMoments moments = xcorr_moments({{-8, 8}, {-1, -3}});
  EXPECT_EQ(moments.total, -4);
  EXPECT_EQ(moments.mean_ps, 0.0);
  EXPECT_EQ(moments.sigma_ps, 0.0);
}

TEST(XcorrMoments, TotalHasTheCountsWithoutACentreToo) {
  const XcorrMoments moments = xcorr_moments({{-8, 8}, {1, 1, 5}});
  EXPECT_EQ(moments.total, 7);
  EXPECT_EQ(moments.mean_ps, 0);
}

TEST(XcorrMoments, TotalIsAnExactInteger) {
  EXPECT_EQ(xcorr_moments({{0, 8}, {4'611'686'018'427'387'904, 4'611'686'018'427'387'903}}).total, INT64_MAX);
}

}  // namespace
