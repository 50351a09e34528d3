#include "orvo/timing/correlation_bins.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

namespace {

using orvo::timing::correlation_bins;
using orvo::timing::CorrelationBins;
using orvo::timing::normalised;
using orvo::timing::XcorrHistogram;
using testing::ElementsAre;

TEST(Normalised, CountsFromTenOnHaveTheErrorOfTheirRoot) {
  const auto many = normalised(100, 50);
  ASSERT_TRUE(many);
  EXPECT_DOUBLE_EQ(many->g2, 2);
  EXPECT_DOUBLE_EQ(many->error, 0.2);
  EXPECT_DOUBLE_EQ(many->low, 1.8);
  EXPECT_DOUBLE_EQ(many->high, 2.2);
  EXPECT_DOUBLE_EQ(normalised(10, 10)->low, 1 - 0.31622776601683794);
}

TEST(Normalised, FewCountsHaveAnInterval) {
  const auto none = normalised(0, 2);
  ASSERT_TRUE(none);
  EXPECT_EQ(none->g2, 0);
  EXPECT_EQ(none->low, 0);
  EXPECT_NEAR(none->high, 0.920511, 5e-7);
  EXPECT_NEAR(none->error, 0.460255, 1e-6);
  const auto nine = normalised(9, 1);
  EXPECT_NEAR(nine->low, 6.056539, 5e-7);
  EXPECT_NEAR(nine->high, 13.110204, 5e-7);
}

/// Of the counts that a mean gives the share whose interval lies wholly above it, or wholly below.
struct Missed {
  double above = 0;
  double below = 0;
};

Missed missed(double mean) {
  Missed share;
  double probability = std::exp(-mean);
  for (int count = 0; count < 300; probability *= mean / ++count) {
    const auto interval = normalised(count, 1);
    if (interval->low > mean) share.above += probability;
    if (interval->high < mean) share.below += probability;
  }
  return share;
}

TEST(Normalised, IntervalsOfFewCountsMissTheTruthNoMoreOftenThanTheySay) {
  for (double mean = 0.05; mean < 10; mean += 0.05) {
    EXPECT_LE(missed(mean).above, 0.15866) << mean;
    EXPECT_LE(missed(mean).below, 0.15866) << mean;
  }
  // From 10 counts on they are roots, and one count more or less is a few percent.
  for (double mean = 10; mean < 200; mean += 0.5) {
    EXPECT_NEAR(missed(mean).above, 0.1587, 0.07) << mean;
    EXPECT_NEAR(missed(mean).below, 0.1587, 0.07) << mean;
  }
}

TEST(Normalised, WhereNothingIsExpectedThereIsNone) {
  EXPECT_FALSE(normalised(5, 0));
  EXPECT_FALSE(normalised(0, 0));
  EXPECT_FALSE(normalised(1e300, 1e-300));
}

TEST(CorrelationBins, StandBesideTheHistogramTheyComeFrom) {
  const XcorrHistogram histogram{{-8, 0, 8}, {3, 4, 5}};
  const CorrelationBins bins = correlation_bins(histogram, {12, 8, 0}, {1, 2, 3});
  EXPECT_EQ(bins.bin_ps, 8);
  EXPECT_THAT(bins.middle_ps, ElementsAre(-7.5, 0, 7.5));
  EXPECT_THAT(bins.counts, ElementsAre(3, 4, 5));
  EXPECT_THAT(bins.expected, ElementsAre(1, 2, 3));
}

}  // namespace
