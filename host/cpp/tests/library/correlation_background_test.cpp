#include "orvo/timing/correlation_background.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "orvo/timing/poisson_statistics.hpp"
#include "support/pulls.hpp"
#include "support/simulated_correlation.hpp"
#include "support/simulated_recording.hpp"

namespace {

using orvo::test::drawn_bins;
using orvo::timing::correlation_background;
using orvo::timing::CorrelationBackground;
using orvo::timing::CorrelationBins;
using testing::ElementsAre;

CorrelationBins bins_of(const std::vector<double>& counts, double expected) {
  CorrelationBins bins;
  bins.counts = counts;
  bins.expected.assign(counts.size(), expected);
  for (std::size_t i = 0; i < counts.size(); ++i) bins.middle_ps.push_back(static_cast<double>(i));
  return bins;
}

TEST(CorrelationBackground, LeavesOutWhatStandsOutAndItsSurroundings) {
  const CorrelationBackground background = correlation_background(bins_of({5, 4, 6, 5, 50, 48, 5, 4, 6, 5}, 5));
  EXPECT_THAT(background.masked, ElementsAre(0, 0, 0, 1, 1, 1, 1, 0, 0, 0));
  EXPECT_TRUE(background.measured);
  EXPECT_DOUBLE_EQ(background.level, 1);
  EXPECT_NEAR(background.error, 0.182574, 5e-7);
}

TEST(CorrelationBackground, OfAFlatHistogramIsItsMean) {
  const CorrelationBackground background = correlation_background(bins_of(std::vector<double>(100, 150), 100));
  EXPECT_TRUE(background.measured);
  EXPECT_DOUBLE_EQ(background.level, 1.5);
  EXPECT_NEAR(background.error, std::sqrt(15'000.0) / 10'000, 1e-12);
  EXPECT_TRUE(background.differs_from_chance());
}

// The level swings between those of two masks: 75 counts of 80 expected and 43 of 50 in the first view, 58 of 70 and 44
// of 50 in the second. An even round has the latter.
TEST(CorrelationBackground, IsThatOfThe20thRoundWhereLevelAndMaskDoNotAgree) {
  const CorrelationBackground short_view =
      correlation_background(bins_of({12, 25, 29, 15, 14, 10, 8, 8, 10, 6, 11, 8}, 10));
  EXPECT_THAT(short_view.masked, ElementsAre(1, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0));
  EXPECT_DOUBLE_EQ(short_view.level, 0.86);
  const CorrelationBackground long_view =
      correlation_background(bins_of({11, 38, 14, 33, 35, 29, 31, 23, 5, 14, 0, 7, 8, 9, 9, 11}, 10));
  EXPECT_THAT(long_view.masked, ElementsAre(1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0));
  EXPECT_DOUBLE_EQ(long_view.level, 0.88);
}

// Counts so near to their mean are not asked for their tail.
TEST(CorrelationBackground, NoTailWithinTwoAndAHalfStandardDeviationsIsImprobableEnough) {
  const double ln_limit = std::log(1e-4 / 3);  // of a window of a third of the view; shorter ones have lower limits
  for (double mean = 1e-3; mean < 1e6; mean *= 1.003) {
    const double most = std::floor(mean + 2.5 * std::sqrt(mean));
    const double least = std::ceil(std::max(mean - 2.5 * std::sqrt(mean), 0.0));
    ASSERT_GT(orvo::timing::poisson_at_least(most, mean).ln, ln_limit) << mean;
    ASSERT_GT(orvo::timing::poisson_at_most(least, mean).ln, ln_limit) << mean;
  }
}

TEST(CorrelationBackground, WithoutAnyCountIsZeroWithinOnePair) {
  const CorrelationBackground background = correlation_background(bins_of(std::vector<double>(50, 0), 0.1));
  EXPECT_TRUE(background.measured);
  EXPECT_EQ(background.level, 0);
  EXPECT_DOUBLE_EQ(background.error, 0.2);
}

TEST(CorrelationBackground, WhereNothingIsExpectedOrThereAreNoBinsIsNotMeasured) {
  for (const CorrelationBins& bins : {bins_of({}, 1), bins_of({0, 0, 0}, 0), bins_of({3, 4, 5}, 0)}) {
    const CorrelationBackground background = correlation_background(bins);
    EXPECT_FALSE(background.measured);
    EXPECT_EQ(background.level, 1);
    EXPECT_FALSE(background.differs_from_chance());
  }
}

TEST(CorrelationBackground, OfAPeakOverHalfOfTheViewIsNotMeasured) {
  const CorrelationBackground background = correlation_background(drawn_bins({.pairs = 4e5, .width = 500}, 1));
  EXPECT_FALSE(background.measured);
  EXPECT_EQ(background.level, 1);
}

TEST(CorrelationBackground, IsThatBesideAPeakOfASixthOfTheView) {
  orvo::test::Pulls pulls;
  int not_measured = 0;
  const int seeds = orvo::test::simulated_recordings(100);
  for (int seed = 0; seed < seeds; ++seed) {
    const CorrelationBackground background = correlation_background(drawn_bins(
        {.pairs = 40'000, .width = 167, .background = 130, .level = 1.3}, static_cast<std::uint64_t>(seed)));
    if (background.measured) pulls.add(background.level - 1.3, background.error);
    not_measured += background.measured ? 0 : 1;
  }
  EXPECT_LE(not_measured, 3 * seeds / 100);
  EXPECT_NEAR(pulls.mean(), 0, 4 / std::sqrt(seeds));  // four standard deviations
  EXPECT_NEAR(pulls.width(), 1, 3 / std::sqrt(seeds));
}

}  // namespace
