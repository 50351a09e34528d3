#include "orvo/timing/correlation_significance.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "support/random.hpp"
#include "support/simulated_correlation.hpp"

namespace {

using orvo::test::drawn_bins;
using orvo::timing::bin_significance;
using orvo::timing::correlation_background;
using orvo::timing::CorrelationBackground;
using orvo::timing::CorrelationBins;
using orvo::timing::CorrelationSide;
using orvo::timing::CorrelationSignificance;
using orvo::timing::window_significance;

CorrelationBins flat(std::size_t bins, double counts, double expected) {
  CorrelationBins flat;
  flat.counts.assign(bins, counts);
  flat.expected.assign(bins, expected);
  for (std::size_t i = 0; i < bins; ++i) flat.middle_ps.push_back(static_cast<double>(i));
  return flat;
}

TEST(CorrelationSignificance, OfSingleBinsCountsEveryBin) {
  CorrelationBins bins = flat(100, 60, 60);
  bins.counts[37] = 159;
  const CorrelationSignificance best = bin_significance(bins, {}, CorrelationSide::peak);
  EXPECT_EQ(best.first, 37U);
  EXPECT_EQ(best.bins, 1U);
  EXPECT_NEAR(best.probability.log10(), -25.597788 + 2, 5e-6);
  EXPECT_TRUE(best.is_significant());
}

TEST(CorrelationSignificance, OfAWideExcessIsThatOfTheWindowThatHoldsIt) {
  CorrelationBins bins = flat(128, 10, 10);
  for (std::size_t i = 32; i < 48; ++i) bins.counts[i] = 20;
  const CorrelationSignificance best = window_significance(bins, {}, CorrelationSide::peak);
  EXPECT_EQ(best.first, 32U);
  EXPECT_EQ(best.bins, 16U);
  EXPECT_GT(best.probability.sigmas(), bin_significance(bins, {}, CorrelationSide::peak).probability.sigmas());
}

TEST(CorrelationSignificance, AnEmptyWindowIsADipFromTwentyExpectedOn) {
  // About 3 n windows: ln(N / 1e-5) is 19.7 for 1251 bins.
  CorrelationBins bins = flat(1251, 22, 22);
  bins.counts[600] = 0;
  EXPECT_TRUE(window_significance(bins, {}, CorrelationSide::dip).is_significant());
  bins = flat(1251, 18, 18);
  bins.counts[600] = 0;
  EXPECT_FALSE(window_significance(bins, {}, CorrelationSide::dip).is_significant());
  EXPECT_FALSE(window_significance(bins, {}, CorrelationSide::peak).is_significant());
}

TEST(CorrelationSignificance, IsJudgedAgainstTheHigherOfMeasuredAndExpectedLevel) {
  const CorrelationBins bins = flat(200, 100, 60);  // everywhere more than chance gives: no peak
  const CorrelationBackground background = correlation_background(bins);
  EXPECT_FALSE(window_significance(bins, background, CorrelationSide::peak).is_significant());
  EXPECT_TRUE(window_significance(bins, {}, CorrelationSide::peak).is_significant());
}

TEST(CorrelationSignificance, WhereNothingIsExpectedIsNone) {
  for (const CorrelationBins& bins : {flat(0, 0, 1), flat(20, 0, 0), flat(20, 3, 0)}) {
    for (const CorrelationSide side : {CorrelationSide::peak, CorrelationSide::dip}) {
      EXPECT_EQ(window_significance(bins, {}, side).probability.ln, 0);
      EXPECT_EQ(bin_significance(bins, {}, side).probability.ln, 0);
    }
  }
}

/// Of unrelated light, how often a probability below `limit` comes out in so many recordings, of peaks and of dips.
double unlikely_share(double background, double limit, std::uint64_t recordings) {
  int unlikely = 0;
  for (std::uint64_t seed = 0; seed < recordings; ++seed) {
    const CorrelationBins bins = drawn_bins({.background = background, .bins = 301}, seed);
    for (const CorrelationSide side : {CorrelationSide::peak, CorrelationSide::dip})
      unlikely += window_significance(bins, correlation_background(bins), side).probability.ln < std::log(limit);
  }
  return unlikely / (2 * static_cast<double>(recordings));
}

TEST(CorrelationSignificance, OfUnrelatedLightIsNeverTooHigh) {
  const std::uint64_t recordings = orvo::test::rounds(400);
  const double tried = 2 * static_cast<double>(recordings);
  for (const double background : {0.05, 5.0, 5000.0}) {
    EXPECT_LE(unlikely_share(background, 0.1, recordings), 0.1 + 3 * std::sqrt(0.1 / tried)) << background;
    EXPECT_LE(unlikely_share(background, 0.01, recordings), 0.01 + 3 * std::sqrt(0.01 / tried)) << background;
  }
}

TEST(CorrelationSignificance, OfManyCountsIsEvenlySpread) {
  // Each bin by itself against the known mean: probabilities are uniform as soon as counts are many.
  int below_tenth = 0;
  int below_half = 0;
  for (std::uint64_t seed = 0; seed < 400; ++seed) {
    const CorrelationBins bins = drawn_bins({.background = 1e5, .bins = 101}, seed);
    const double p = std::exp(bin_significance(bins, {}, CorrelationSide::peak).probability.ln);
    below_tenth += p < 0.1;
    below_half += p < 0.5;
  }
  EXPECT_NEAR(below_tenth, 40, 4 * 6);
  EXPECT_NEAR(below_half, 200, 4 * 10);
}

}  // namespace
