#include "orvo/timing/xcorr_histogram.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <vector>

#include "orvo/timing/channel_times.hpp"
#include "orvo/timing/offset_estimate.hpp"
#include "orvo/timing/sorted_times.hpp"
#include "support/checked_correlation.hpp"
#include "support/failure.hpp"
#include "support/sanitizer.hpp"

namespace {

using orvo::test::checked_histogram;
using orvo::test::failure_of;
using orvo::timing::xcorr_histogram;
using orvo::timing::XcorrHistogram;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::Field;
using testing::SizeIs;
using Times = std::vector<std::int64_t>;

auto bins_are(auto centers, auto counts) {
  return AllOf(Field("bin_center_ps", &XcorrHistogram::bin_center_ps, centers),
               Field("counts", &XcorrHistogram::counts, counts));
}

TEST(XcorrLayout, RangeOf5000InBinsOf8Is1251Bins) {
  const XcorrHistogram histogram = checked_histogram({}, {}, 5000, 8, 0);
  ASSERT_THAT(histogram.bin_center_ps, SizeIs(1251));
  EXPECT_EQ(histogram.bin_center_ps.front(), -5000);
  EXPECT_EQ(histogram.bin_center_ps[1], -4992);
  EXPECT_EQ(histogram.bin_center_ps[625], 0);
  EXPECT_EQ(histogram.bin_center_ps.back(), 5000);
  EXPECT_EQ(histogram.counts, Times(1251, 0));
}

TEST(XcorrLayout, NumberOfBinsIsTheRoundedUpQuotientMadeOdd) {
  EXPECT_THAT(checked_histogram({}, {}, 10, 8, 0),
              bins_are(ElementsAre(-8, 0, 8), ElementsAre(0, 0, 0)));                              // 2.5 -> 3
  EXPECT_THAT(checked_histogram({}, {}, 8, 8, 0).bin_center_ps, ElementsAre(-8, 0, 8));            // 2 -> 3
  EXPECT_THAT(checked_histogram({}, {}, 12, 8, 0).bin_center_ps, ElementsAre(-8, 0, 8));           // 3
  EXPECT_THAT(checked_histogram({}, {}, 13, 8, 0).bin_center_ps, ElementsAre(-16, -8, 0, 8, 16));  // 3.25 -> 5
  EXPECT_THAT(checked_histogram({}, {}, 4, 8, 0).bin_center_ps, ElementsAre(0));                   // 1
  EXPECT_THAT(checked_histogram({}, {}, 5, 8, 0).bin_center_ps, ElementsAre(-8, 0, 8));            // 1.25 -> 3
  EXPECT_THAT(checked_histogram({}, {}, 1, 1000, 0).bin_center_ps, ElementsAre(0));
  EXPECT_THAT(checked_histogram({}, {}, 1, 1, 0).bin_center_ps, ElementsAre(-1, 0, 1));
  EXPECT_THAT(checked_histogram({}, {}, 7, 7, 0).bin_center_ps, ElementsAre(-7, 0, 7));
}

TEST(XcorrLayout, RangeOrBinBelowOneIsASingleBinWithoutCounts) {
  const Times same{0, 0, 5};
  for (const auto& [range_ps, bin_ps] : {std::pair<std::int64_t, std::int64_t>{0, 8},
                                         {5000, 0},
                                         {0, 0},
                                         {-1, 8},
                                         {5000, -1},
                                         {INT64_MIN, 8},
                                         {5000, INT64_MIN},
                                         {INT64_MIN, INT64_MIN}}) {
    EXPECT_THAT(checked_histogram(same, same, range_ps, bin_ps, 0), bins_are(ElementsAre(0), ElementsAre(0)))
        << range_ps << ' ' << bin_ps;
  }
}

// The counts of A = {0} and B = {difference}.
Times counts_of(std::int64_t difference, std::int64_t range_ps, std::int64_t bin_ps) {
  return checked_histogram({0}, {difference}, range_ps, bin_ps, 0).counts;
}

TEST(XcorrCounting, HalfABinGoesAwayFromZeroWithAnEvenWidth) {
  EXPECT_THAT(counts_of(4, 8, 8), ElementsAre(0, 0, 1));
  EXPECT_THAT(counts_of(-4, 8, 8), ElementsAre(1, 0, 0));
  EXPECT_THAT(counts_of(3, 8, 8), ElementsAre(0, 1, 0));
  EXPECT_THAT(counts_of(-3, 8, 8), ElementsAre(0, 1, 0));
  EXPECT_THAT(counts_of(0, 8, 8), ElementsAre(0, 1, 0));
  EXPECT_EQ(checked_histogram({0}, {4}, 5000, 8, 0).counts[626], 1);
  EXPECT_EQ(checked_histogram({0}, {-4}, 5000, 8, 0).counts[624], 1);
  EXPECT_EQ(checked_histogram({0}, {3}, 5000, 8, 0).counts[625], 1);
}

TEST(XcorrCounting, OddWidthsRoundToTheNearestCentre) {
  EXPECT_THAT(counts_of(3, 7, 7), ElementsAre(0, 1, 0));
  EXPECT_THAT(counts_of(4, 7, 7), ElementsAre(0, 0, 1));
  EXPECT_THAT(counts_of(-3, 7, 7), ElementsAre(0, 1, 0));
  EXPECT_THAT(counts_of(-4, 7, 7), ElementsAre(1, 0, 0));
}

TEST(XcorrCounting, WidthOfOneGivesEveryDifferenceItsOwnBin) {
  for (std::int64_t d = -2; d <= 2; ++d) {
    Times expected(5, 0);
    expected[static_cast<std::size_t>(d + 2)] = 1;
    EXPECT_EQ(counts_of(d, 2, 1), expected) << d;
  }
}

TEST(XcorrCounting, BothEndsOfTheRangeAreIncluded) {
  EXPECT_THAT(counts_of(10, 10, 8), ElementsAre(0, 0, 1));
  EXPECT_THAT(counts_of(11, 10, 8), ElementsAre(0, 0, 0));
  EXPECT_THAT(counts_of(-10, 10, 8), ElementsAre(1, 0, 0));
  EXPECT_THAT(counts_of(-11, 10, 8), ElementsAre(0, 0, 0));
}

TEST(XcorrCounting, PairsThatRoundBeyondTheLastBinAreDropped) {
  EXPECT_THAT(counts_of(12, 12, 8), ElementsAre(0, 0, 0));
  EXPECT_THAT(counts_of(11, 12, 8), ElementsAre(0, 0, 1));
  EXPECT_THAT(counts_of(-12, 12, 8), ElementsAre(0, 0, 0));
  EXPECT_THAT(counts_of(-11, 12, 8), ElementsAre(1, 0, 0));
  EXPECT_THAT(counts_of(4, 4, 8), ElementsAre(0));  // one bin
  EXPECT_THAT(counts_of(3, 4, 8), ElementsAre(1));
}

TEST(XcorrCounting, TheOffsetIsTakenOffBMinusA) {
  for (const std::int64_t offset : {0, 160, -160, 1'000'000}) {
    EXPECT_THAT(checked_histogram({100}, {100 + offset}, 10, 8, offset).counts, ElementsAre(0, 1, 0)) << offset;
    EXPECT_THAT(checked_histogram({100}, {110 + offset}, 10, 8, offset).counts, ElementsAre(0, 0, 1)) << offset;
    EXPECT_THAT(checked_histogram({100}, {111 + offset}, 10, 8, offset).counts, ElementsAre(0, 0, 0)) << offset;
    EXPECT_THAT(checked_histogram({100}, {90 + offset}, 10, 8, offset).counts, ElementsAre(1, 0, 0)) << offset;
    EXPECT_THAT(checked_histogram({100}, {89 + offset}, 10, 8, offset).counts, ElementsAre(0, 0, 0)) << offset;
  }
}

TEST(XcorrCounting, EveryPairWithinTheRangeCounts) {
  EXPECT_THAT(checked_histogram({0, 8, 16}, {0, 8, 16}, 8, 8, 0).counts, ElementsAre(2, 3, 2));
}

TEST(XcorrCounting, DuplicateTimesFormTheirOwnPairs) {
  EXPECT_THAT(checked_histogram({5, 5}, {5, 5, 5, 13}, 8, 8, 0).counts, ElementsAre(0, 6, 2));
}

TEST(XcorrCounting, ListsMayBeUnsortedAndAreNotModified) {
  const Times a{900, -300, 0, 900, 5};
  const Times b{3, 905, -300, 891};
  const XcorrHistogram histogram = checked_histogram(a, b, 10, 8, 0);
  EXPECT_THAT(histogram.counts, ElementsAre(2, 3, 2));  // 891-900 twice; 0, 3 and 3-5; 905-900 twice
  EXPECT_EQ(a, (Times{900, -300, 0, 900, 5}));
  EXPECT_EQ(b, (Times{3, 905, -300, 891}));
}

// Channel 0 at 100, 300, 200 ps (the last one late) and channel 1 each time 10 ps later.
orvo::timing::ChannelTimes times_with_a_late_tag() {
  orvo::timing::ChannelTimes times;
  times.begin_chunk(6);
  for (const std::int64_t time_ps : {100, 300, 200}) {
    times.add(0, time_ps);
    times.add(1, time_ps + 10);
  }
  times.end_chunk();
  return times;
}

TEST(XcorrCounting, TakesListsOfAnyOrderFromSpansArraysAndChannelTimes) {
  const orvo::timing::ChannelTimes times = times_with_a_late_tag();
  const auto three_pairs_at_10_ps = bins_are(ElementsAre(-10, 0, 10), ElementsAre(0, 0, 3));
  EXPECT_THAT(xcorr_histogram(times[0], times[1], 15, 10, 0), three_pairs_at_10_ps);
  const std::array<std::int64_t, 3> a = {100, 300, 200};
  EXPECT_THAT(xcorr_histogram(a, Times{310, 210, 110}, 15, 10, 0), three_pairs_at_10_ps);
  EXPECT_EQ(orvo::timing::estimate_offset_ps(times[0], times[1]), 10);
}

TEST(XcorrCounting, SortTimesBringsAListWhereTheSortedFormsWantIt) {
  orvo::timing::ChannelTimes times = times_with_a_late_tag();
  orvo::timing::sort_times(times[0]);
  orvo::timing::sort_times(times[1]);
  EXPECT_THAT(orvo::timing::xcorr_histogram_sorted(times[0], times[1], {15, 10, 0}),
              bins_are(ElementsAre(-10, 0, 10), ElementsAre(0, 0, 3)));
}

#ifndef NDEBUG
TEST(XcorrCountingDeathTest, DebugBuildsRefuseDisorderInTheSortedForms) {
  const Times disorder = {2, 1};
  const Times order = {1, 2};
  EXPECT_DEATH(orvo::timing::xcorr_histogram_sorted(disorder, order, {15, 10, 0}), "is_sorted");
  EXPECT_DEATH(orvo::timing::xcorr_histogram_sorted(order, disorder, {15, 10, 0}), "is_sorted");
  EXPECT_DEATH(orvo::timing::estimate_offset_sorted_ps(order, disorder), "is_sorted");
}
#endif

TEST(XcorrCounting, AnEmptyListLeavesAllCountsZero) {
  EXPECT_EQ(checked_histogram({}, {1, 2}, 5000, 8, 0).counts, Times(1251, 0));
  EXPECT_EQ(checked_histogram({1, 2}, {}, 5000, 8, 0).counts, Times(1251, 0));
}

TEST(XcorrAtTheEndsOf64Bits, WindowsBeyondTheEndsReachToTheEnds) {
  EXPECT_THAT(checked_histogram({INT64_MAX}, {INT64_MAX - 8, INT64_MAX, INT64_MIN}, 10, 8, 0).counts,
              ElementsAre(1, 1, 0));
  EXPECT_THAT(checked_histogram({INT64_MIN}, {INT64_MIN + 8, INT64_MIN, INT64_MAX}, 10, 8, 0).counts,
              ElementsAre(0, 1, 1));
  EXPECT_THAT(checked_histogram({INT64_MAX - 3}, {INT64_MAX}, 10, 8, INT64_MAX).counts, ElementsAre(0, 0, 0));
  EXPECT_THAT(checked_histogram({INT64_MIN + 3}, {INT64_MIN}, 10, 8, INT64_MIN).counts, ElementsAre(0, 0, 0));
}

TEST(XcorrAtTheEndsOf64Bits, DifferencesAreThoseOfUnboundedIntegers) {
  // Here b - a itself does not fit in 64 bits: 2^64 - 1 (far off, less the offset), 2^63 and below -2^63.
  EXPECT_THAT(checked_histogram({INT64_MIN, 0}, {INT64_MAX}, 10, 8, INT64_MAX).counts, ElementsAre(0, 1, 0));
  EXPECT_THAT(checked_histogram({0, INT64_MAX}, {INT64_MIN}, 10, 8, INT64_MIN).counts, ElementsAre(0, 1, 0));
  EXPECT_THAT(checked_histogram({-1}, {INT64_MAX}, 10, 8, INT64_MAX).counts, ElementsAre(0, 1, 0));
  EXPECT_THAT(checked_histogram({8}, {INT64_MIN}, 10, 8, INT64_MIN).counts, ElementsAre(1, 0, 0));
}

TEST(XcorrAtTheEndsOf64Bits, LargestRangeAndBin) {
  EXPECT_THAT(checked_histogram({INT64_MIN}, {INT64_MAX - 1}, INT64_MAX, INT64_MAX, INT64_MAX),
              bins_are(ElementsAre(-INT64_MAX, 0, INT64_MAX), ElementsAre(0, 0, 1)));
  EXPECT_THAT(checked_histogram({0}, {-INT64_MAX, 0, INT64_MAX, INT64_MIN}, INT64_MAX, INT64_MAX, 0).counts,
              ElementsAre(1, 1, 1));
  EXPECT_THAT(checked_histogram({0}, {-1, 1, 2}, 1, INT64_MAX, 0), bins_are(ElementsAre(0), ElementsAre(2)));
  EXPECT_THAT(checked_histogram({0}, {0}, INT64_MAX, INT64_MAX, INT64_MIN).counts, ElementsAre(0, 0, 0));
  // The outer centres, 2^63 + 2 and less than -2^63, wrap.
  EXPECT_THAT(checked_histogram({}, {}, INT64_MAX, 4'611'686'018'427'387'905, 0).bin_center_ps,
              ElementsAre(9'223'372'036'854'775'806, -4'611'686'018'427'387'905, 0, 4'611'686'018'427'387'905,
                          -9'223'372'036'854'775'806));
}

TEST(XcorrAtTheEndsOf64Bits, MoreBinsThanAVectorHoldsIsALengthError) {
  constexpr const char* kTooLong = "length_error: vector::reserve";
  EXPECT_EQ(failure_of([] { xcorr_histogram({}, {}, INT64_MAX, 1, 0); }), kTooLong);
  EXPECT_EQ(failure_of([] { xcorr_histogram({0}, {0}, INT64_MAX, 2, 0); }), kTooLong);
  EXPECT_EQ(failure_of([] { xcorr_histogram({0}, {0}, std::int64_t{1} << 60, 1, 0); }), kTooLong);
  EXPECT_EQ(failure_of([] { xcorr_histogram({0}, {0}, std::int64_t{1} << 59, 1, 0); }), kTooLong);  // 2^60 + 1 bins
  for (const std::int64_t bin_ps : {3, 4, 8, 13, 15}) {
    EXPECT_EQ(failure_of([&] { xcorr_histogram({0}, {0}, INT64_MAX, bin_ps, 0); }), kTooLong) << "bins of " << bin_ps;
  }
}

TEST(XcorrAtTheEndsOf64Bits, MoreBinsThanTheMemoryHoldsIsAnAllocationFailure) {
  if (orvo::test::kUnderAddressSanitizer) GTEST_SKIP() << "the sanitizer ends the program where the allocation fails";
  EXPECT_EQ(failure_of([] { xcorr_histogram({0}, {0}, std::int64_t{1} << 58, 1, 0); }), "bad_alloc");
}

}  // namespace
