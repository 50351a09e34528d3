#include "orvo/timing/correlation_significance.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <vector>

#include "support/random.hpp"
#include "support/simulated_correlation.hpp"
#include "support/simulated_recording.hpp"

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

int recordings() {
  return orvo::test::simulated_recordings(400);
}

/// Of unrelated light, in how many recordings a probability below each limit comes out.
std::vector<int> unlikely_recordings(double background, CorrelationSide side, const std::vector<double>& limits) {
  std::vector<int> unlikely(limits.size());
  for (int seed = 0; seed < recordings(); ++seed) {
    const CorrelationBins bins =
        drawn_bins({.background = background, .bins = 301}, static_cast<std::uint64_t>(seed));
    const double ln_p = window_significance(bins, correlation_background(bins), side).probability.ln;
    for (std::size_t i = 0; i < limits.size(); ++i) unlikely[i] += ln_p < std::log(limits[i]) ? 1 : 0;
  }
  return unlikely;
}

TEST(CorrelationSignificance, OfUnrelatedLightIsNeverTooHigh) {
  const std::vector<double> limits{0.1, 0.01, 0.001};
  for (const double background : {0.05, 5.0, 50.0, 5000.0}) {
    for (const CorrelationSide side : {CorrelationSide::peak, CorrelationSide::dip}) {
      const std::vector<int> unlikely = unlikely_recordings(background, side, limits);
      std::printf("%6g a bin, %s:", background, side == CorrelationSide::peak ? "peak" : "dip ");
      for (std::size_t i = 0; i < limits.size(); ++i) {
        const double most = recordings() * limits[i];  // and four standard deviations
        EXPECT_LE(unlikely[i], most + 4 * std::sqrt(most)) << background << " " << limits[i];
        std::printf("  P(p < %g) = %.4f", limits[i], static_cast<double>(unlikely[i]) / recordings());
      }
      std::printf("\n");
    }
  }
}

TEST(CorrelationSignificance, OfManyCountsIsEvenlySpread) {
  // Each bin by itself against the known mean: probabilities are uniform as soon as counts are many. The largest
  // distance of their distribution from the even one, D, is below 1.95 / sqrt(n) in 999 of 1000 cases (Kolmogorov and
  // Smirnov).
  std::vector<double> probabilities;
  for (int seed = 0; seed < recordings(); ++seed) {
    const CorrelationBins bins = drawn_bins({.background = 1e5, .bins = 101}, static_cast<std::uint64_t>(seed));
    probabilities.push_back(std::exp(bin_significance(bins, {}, CorrelationSide::peak).probability.ln));
  }
  std::sort(probabilities.begin(), probabilities.end());
  const double n = recordings();
  double distance = 0;
  for (std::size_t i = 0; i < probabilities.size(); ++i) {
    const auto rank = static_cast<double>(i);
    distance = std::max({distance, (rank + 1) / n - probabilities[i], probabilities[i] - rank / n});
  }
  std::printf("D sqrt(n) = %.2f\n", distance * std::sqrt(n));
  EXPECT_LT(distance * std::sqrt(n), 1.95);
}

}  // namespace
