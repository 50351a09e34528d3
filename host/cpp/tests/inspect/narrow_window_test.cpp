// What stands out of a view: against the view's own level where its bins hold enough pairs to tell.
#include "inspect/narrow_window.hpp"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>

namespace {

using orvo::timing::XcorrHistogram;
using orvo::timing::XcorrWindow;

/// 1000 bins of 10 ps about 5 us, `level` pairs in each, half in the first and last, which are cut in half, and
/// `high` in the one at 5 us + 1 ns.
NarrowWindow found(std::int64_t level, std::int64_t high, double chance_per_ps) {
  const XcorrWindow window{5'000, 10, 5'000'000};
  XcorrHistogram histogram;
  for (std::int64_t center = -5'000; center <= 5'000; center += 10) {
    histogram.bin_center_ps.push_back(center);
    const bool is_half = center == -5'000 || center == 5'000;
    histogram.counts.push_back(center == 1'000 ? high : is_half ? level / 2 : level);
  }
  return best_narrow_window(histogram, window, chance_per_ps, {});
}

// 300 pairs more than the 1000 of all other bins, in bins for which the folded correlation has 1700.
TEST(NarrowWindow, StandsOutOfAViewThatHasFewerPairsThanAreFoldedOnIt) {
  const NarrowWindow window = found(1000, 1300, 170);
  ASSERT_EQ(window.bins, 1U);
  EXPECT_NEAR(window.middle_ps, 5'001'000, 5);
  EXPECT_NEAR(window.width_ps, 10, 1e-9);
  EXPECT_NEAR(window.excess, 300, 5);
  EXPECT_NEAR(window.probability.sigmas(), 9.1, 0.4);  // 300 / sqrt(1000) = 9.5, and a Poisson tail is longer
}

// The same with a hundredth of the pairs: too few to go by.
TEST(NarrowWindow, OfFewPairsIsAtLeastWhatStandsOutByChance) {
  EXPECT_EQ(found(10, 13, 1.7).bins, 0U);
}

TEST(NarrowWindow, StandsOutOfAViewThatHasMorePairsThanByChance) {
  for (const std::int64_t scale : {1, 100}) {
    const NarrowWindow window = found(40 * scale, 80 * scale, 1.7 * static_cast<double>(scale));
    ASSERT_EQ(window.bins, 1U);
    EXPECT_NEAR(window.excess / static_cast<double>(scale), 40, 0.5);
  }
}

}  // namespace
