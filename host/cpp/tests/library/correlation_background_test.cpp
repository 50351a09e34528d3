#include "orvo/timing/correlation_background.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

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
