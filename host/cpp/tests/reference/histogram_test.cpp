// The references of histogram and offset estimate, held to numbers worked out by hand.
#include "reference/histogram.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <limits>

#include "reference/offset_estimate.hpp"
#include "support/random.hpp"

namespace orvo::test::reference {
namespace {

using ::testing::ElementsAre;

constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();

TEST(ReferenceOffset, IsTheUpperMedian) {
  EXPECT_EQ(offset_estimate_ps({0, 1000}, {10, 1013}), 13);
  EXPECT_EQ(offset_estimate_ps({100}, {110, 90}), 10);
  EXPECT_EQ(offset_estimate_ps({100}, {95, 110}), -5);
  EXPECT_EQ(offset_estimate_ps({500}, {100, 200}), -300);
  EXPECT_EQ(offset_estimate_ps({}, {1}), 0);
  EXPECT_EQ(offset_estimate_ps({1}, {}), 0);
  EXPECT_EQ(offset_estimate_ps({kMin}, {kMax}), kMax);
  EXPECT_EQ(offset_estimate_ps({kMax}, {kMin}), kMin);
  EXPECT_TRUE(offset_samples({kMin}, {kMax})[0] == (Wide{1} << 64) - 1);
}

TEST(ReferenceOffset, SamplesAtMost4000Events) {
  // b lies i ps above a[i] = 1000000 * i, so sample i gives the difference i.
  const auto samples = [](std::int64_t events) {
    Times a, b;
    for (std::int64_t i = 0; i < events; ++i) a.push_back(1'000'000 * i);
    for (std::int64_t i = 0; i < events; ++i) b.push_back(1'000'001 * i);
    return offset_samples(a, b);
  };
  EXPECT_EQ(samples(4500).size(), 4000U);
  EXPECT_TRUE(samples(4500).back() == 3999);
  EXPECT_EQ(samples(10'000).size(), 4000U);
  EXPECT_TRUE(samples(10'000).back() == 7998);
  EXPECT_EQ(samples(3999).size(), 3999U);
}

TEST(ReferenceHistogram, LaysOutAnOddNumberOfBins) {
  EXPECT_TRUE(number_of_bins(5000, 8) == 1251);
  EXPECT_TRUE(number_of_bins(10, 8) == 3);
  EXPECT_TRUE(number_of_bins(8, 8) == 3);
  EXPECT_TRUE(number_of_bins(8, 16) == 1);
  EXPECT_TRUE(number_of_bins(0, 8) == 1);
  EXPECT_TRUE(number_of_bins(kMax, 1) == (Wide{1} << 64) - 1);
  EXPECT_THAT(histogram({}, {}, {10, 8, 0}).centers, ElementsAre(-8, 0, 8));
  EXPECT_FALSE(histogram({}, {}, {kMax, kMax / 2 + 2, 0}).centers_fit);
}

TEST(ReferenceHistogram, RoundsHalvesOutwards) {
  EXPECT_THAT(histogram({0}, {4, 3, -3, -4, -12}, {12, 8, 0}).counts, ElementsAre(1, 2, 1));
  EXPECT_THAT(histogram({0}, {-2, -1, 0, 1, 2, 4, 5}, {4, 3, 0}).counts, ElementsAre(1, 3, 2));
  EXPECT_THAT(histogram({100, 100}, {90, 101, 110, 111}, {10, 20, 0}).counts, ElementsAre(2));
  EXPECT_THAT(histogram({kMin}, {kMax}, {2, 4, kMax}).counts, ElementsAre(0));
  EXPECT_THAT(histogram({-1}, {kMax}, {2, 4, kMax}).counts, ElementsAre(1));
}

TEST(ReferenceHistogram, CountsEveryPairOfTheWindowBothEndsIncluded) {
  EXPECT_THAT(histogram({0, 0}, {-9, -8, -8, 0, 8, 9}, {8, 8, 0}).counts, ElementsAre(4, 2, 2));
  EXPECT_THAT(histogram({500, 0}, {160, 660}, {4, 8, 160}).counts, ElementsAre(2));
  EXPECT_THAT(histogram({0}, {0}, {0, 8, 0}).counts, ElementsAre(0));
  EXPECT_THAT(histogram({0}, {0}, {8, 0, 0}).counts, ElementsAre(0));
}

/// Every pair looked at, one by one.
Times counts_of_all_pairs(const Times& a, const Times& b, const Window& window) {
  Times counts(static_cast<std::size_t>(number_of_bins(window.range_ps, window.bin_ps)));
  const auto half = static_cast<std::int64_t>(counts.size() / 2);
  for (const std::int64_t time_a : a) {
    for (const std::int64_t time_b : b) {
      const std::int64_t d = time_b - time_a - window.offset_ps;
      if (d < -window.range_ps || d > window.range_ps) continue;
      const std::int64_t steps = (std::abs(d) + window.bin_ps / 2) / window.bin_ps;
      if (steps <= half) ++counts[static_cast<std::size_t>(d < 0 ? half - steps : half + steps)];
    }
  }
  return counts;
}

TEST(ReferenceHistogram, EqualsTheCountOfAllPairsOneByOne) {
  Random random(42);
  for (int round = 0; round < 300; ++round) {
    const std::int64_t span = round % 2 == 0 ? 60 : 5'000;
    Times a(random.below(40));
    Times b(random.below(40));
    for (auto& t : a) t = random.integer(-span / 2, span / 2);
    for (auto& t : b) t = random.integer(-span / 2, span / 2);
    const Window window{random.integer(1, span), random.integer(1, 30), random.integer(-20, 20)};
    ASSERT_EQ(histogram(a, b, window).counts, counts_of_all_pairs(a, b, window)) << "round " << round;
  }
}

TEST(ReferenceHistogram, CountsRecordedTimesIn64BitsAlike) {
  const Window window{20, 7, -3};
  const Times a = {400, 10, 390}, b = {5, 17, 402, 371, 0};
  // Differences without the offset: 402 - 397, 5 - 7, 17 - 7, 0 - 7, 402 - 387, 371 - 387; in bins 1, 0, 1, -1, 2,
  // -2.
  EXPECT_THAT(histogram<std::int64_t>(a, b, window).counts, ElementsAre(0, 1, 1, 1, 2, 1, 0));
  EXPECT_EQ(histogram<std::int64_t>(a, b, window).counts, histogram(a, b, window).counts);
}

TEST(ReferenceHistogram, HasTheStatisticsOfItsBins) {
  const Statistics found = statistics({{-16, -8, 0, 8, 16}, {0, 1, 1, 0, 0}});
  EXPECT_EQ(found.total, 2);
  EXPECT_EQ(found.peak_count, 1);
  EXPECT_EQ(found.peak_ps, -8);  // the first of the highest
  EXPECT_EQ(found.mean_ps, -4);
  EXPECT_EQ(found.rms_ps, 4);
  EXPECT_EQ(found.fwhm_ps, 4 * 2.354820045);
}

}  // namespace
}  // namespace orvo::test::reference
