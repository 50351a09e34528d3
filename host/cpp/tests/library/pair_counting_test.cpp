#include "orvo/timing/detail/pair_counting.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "reference/histogram.hpp"
#include "support/as_reference.hpp"
#include "support/random.hpp"

namespace {

using namespace orvo::timing;
using Times = std::vector<std::int64_t>;

/// Ascending, with gaps of 0 to `widest_gap_ps`; now and then one that is a hundred times wider.
Times walk(orvo::test::Random& random, std::size_t events, std::int64_t first_ps, std::uint64_t widest_gap_ps) {
  Times times;
  for (std::int64_t time_ps = first_ps; times.size() < events; times.push_back(time_ps)) {
    const std::uint64_t gap = random.below(widest_gap_ps + 1);
    time_ps += static_cast<std::int64_t>(random.below(50) == 0 ? 100 * gap : gap);
  }
  return times;
}

Times counts_of(const Times& a_ps, const Times& b_ps, const XcorrWindow& window) {
  Times counts(detail::BinLayout(window).bins());
  if (!a_ps.empty() && !b_ps.empty()) detail::count_pairs(a_ps, b_ps, window, counts);
  return counts;
}

Times expected_counts(const Times& a_ps, const Times& b_ps, const XcorrWindow& window) {
  return orvo::test::reference::histogram(a_ps, b_ps, orvo::test::as_reference(window)).counts;
}

void expect_as_reference(const Times& a_ps, const Times& b_ps, const XcorrWindow& window) {
  ASSERT_EQ(counts_of(a_ps, b_ps, window), expected_counts(a_ps, b_ps, window))
      << a_ps.size() << " A, " << b_ps.size() << " B, range " << window.range_ps << " bin " << window.bin_ps
      << " offset " << window.offset_ps;
}

TEST(PairCounting, AgreesWithTheReferenceOnLongLists) {
  orvo::test::Random random(1);
  for (int i = 0; i < 400; ++i) {
    const Times a =
        walk(random, random.below(3000), -static_cast<std::int64_t>(random.below(200'000)), random.below(200));
    const Times b =
        walk(random, random.below(3000), -static_cast<std::int64_t>(random.below(200'000)), random.below(200));
    const auto range_ps = static_cast<std::int64_t>(1 + random.below(1 + random.below(2000)));
    const auto bin_ps = static_cast<std::int64_t>(1 + random.below(1 + random.below(300)));
    expect_as_reference(a, b, {range_ps, bin_ps, static_cast<std::int64_t>(random.below(4000)) - 2000});
    if (HasFatalFailure()) return;
  }
}

TEST(PairCounting, AgreesWhereOneListIsMuchDenser) {
  orvo::test::Random random(2);
  for (const std::uint64_t gap : {3u, 30u, 3000u, 300'000u}) {
    const Times a = walk(random, 4000, 1000, gap);
    const Times b = walk(random, 4000, 1000, 1000);
    expect_as_reference(a, b, {5000, 8, 0});
    expect_as_reference(b, a, {5000, 8, 0});
    expect_as_reference(b, a, {5000, 7, -100});
  }
}

TEST(PairCounting, AgreesAcrossTimeZero) {
  orvo::test::Random random(3);
  const Times a = walk(random, 4000, -100'000, 50);
  const Times b = walk(random, 4000, -100'000, 50);
  for (const std::int64_t offset_ps : {-100'000, -3000, -1, 0, 1, 3000, 100'000}) {
    expect_as_reference(a, b, {500, 8, offset_ps});
  }
}

TEST(PairCounting, AgreesWhereTheListsDoNotMeet) {
  orvo::test::Random random(4);
  const Times early = walk(random, 2000, 0, 50);
  const Times late = walk(random, 2000, 100'000'000, 50);
  expect_as_reference(early, late, {500, 8, 0});
  expect_as_reference(late, early, {500, 8, 0});
  expect_as_reference(early, late, {500, 8, 100'000'000});
  expect_as_reference(late, early, {200'000'000, 800'000, 0});
}

// A event i is followed by B events i * 1000 - 12 .. +12: each difference once for each A event.
TEST(PairCounting, EveryDifferenceOfAWindowOnce) {
  Times a;
  Times b;
  for (std::int64_t i = 1; i <= 1000; ++i) {
    a.push_back(i * 1000);
    for (std::int64_t d = -12; d <= 12; ++d) b.push_back(i * 1000 + d);
  }
  // Bins of 4 around -8, -4, 0, 4, 8; -10 and 10 lie half a bin outside -8 and 8, and so round to bins that are not
  // there. -6 rounds to -8 and 6 to 8, away from zero, so the middle bin holds -1, 0, 1 only.
  EXPECT_EQ(counts_of(a, b, {10, 4, 0}), (Times{4000, 4000, 3000, 4000, 4000}));
  EXPECT_EQ(counts_of(a, b, {10, 5, 0}), (Times{3000, 5000, 5000, 5000, 3000}));  // -10 to -8, -7 to -3, ...
}

TEST(PairCounting, AMillionPairsOfOneDifference) {
  const Times same(1000, 77);
  EXPECT_EQ(counts_of(same, same, {8, 8, 0}), (Times{0, 1'000'000, 0}));
  const Times apart(1000, 85);
  Times far(1000, 77);
  far.resize(1500, 1'000'000);  // so that the windows end before the list does
  EXPECT_EQ(counts_of(apart, far, {8, 8, 0}), (Times{1'000'000, 0, 0}));
  EXPECT_EQ(counts_of(apart, far, {8, 8, -8}), (Times{0, 1'000'000, 0}));
}

TEST(PairCounting, AgreesForWindowsBeyondAMillisecond) {
  orvo::test::Random random(5);
  const Times a = walk(random, 2000, 0, 1'000'000'000);
  const Times b = walk(random, 2000, 0, 1'000'000'000);
  expect_as_reference(a, b, {5'000'000'000, 1'000'000, 0});
  expect_as_reference(a, b, {5'000'000'001, 999'999, 123});
}

TEST(InterleavedPairCounter, CountsThatMoveToTheBinsEarlyAreTheSame) {
  orvo::test::Random random(6);
  const Times a = walk(random, 3000, 1000, 50);
  const Times b = walk(random, 3000, 1000, 50);
  const XcorrWindow window{1000, 8, 0};
  Times counts(detail::BinLayout(window).bins());
  Times counts_in_one(counts.size());
  const detail::DelayBinning<std::uint64_t> binning(window, counts.size());
  detail::SlotCounts slots(counts);
  detail::SlotCounts slots_in_one(counts_in_one);
  detail::InterleavedPairCounter<detail::DelayBinning<std::uint64_t>, 100> counter(window, binning, slots);
  detail::InterleavedPairCounter<detail::DelayBinning<std::uint64_t>> counter_in_one(window, binning, slots_in_one);
  const std::size_t counted = counter.count(a, b);
  EXPECT_GE(counted, 2500u);
  EXPECT_EQ(counter_in_one.count(a, b), counted);
  EXPECT_LT(slots.unflushed(), 100u);
  EXPECT_GE(slots_in_one.unflushed(), 2500u);
  slots.flush();
  slots_in_one.flush();
  EXPECT_EQ(counts, counts_in_one);
  EXPECT_EQ(counts, expected_counts(Times(a.begin(), a.begin() + static_cast<std::ptrdiff_t>(counted)), b, window));
}

/// `events` times `period_ps` apart.
Times clock(std::int64_t first_ps, std::int64_t period_ps, std::size_t events) {
  Times times;
  for (std::size_t i = 0; i < events; ++i) times.push_back(first_ps + static_cast<std::int64_t>(i) * period_ps);
  return times;
}

Times later(Times times, std::int64_t by_ps) {
  for (std::int64_t& time_ps : times) time_ps += by_ps;
  return times;
}

Times joined(Times first, const Times& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

// Every pulse once on either channel, 30 ps apart.
TEST(PairCounting, PulsesOnBothChannels) {
  const Times a = clock(-100'000'000, 1000, 200'000);
  Times counts(13);  // -48 to 48 ps
  counts[10] = 200'000;
  EXPECT_EQ(counts_of(a, later(a, 30), {50, 8, 0}), counts);
  counts[10] = 0;
  counts[2] = 200'000;
  EXPECT_EQ(counts_of(later(a, 30), a, {50, 8, 0}), counts);
}

// B events 40 ps after every thousandth tick of a clock, and so 60 ps before the next tick.
TEST(PairCounting, AClockAgainstRareEvents) {
  const Times a = clock(0, 100, 300'000);
  const Times b = later(clock(1000, 100'000, 299), 40);
  EXPECT_EQ(counts_of(a, b, {100, 100, 0}), (Times{299, 299, 0}));
  EXPECT_EQ(counts_of(b, a, {100, 100, 0}), (Times{0, 299, 299}));
}

TEST(PairCounting, AgreesWherePatternsCeaseAndReturn) {
  orvo::test::Random random(7);
  Times a;
  Times b;
  for (int part = 0; part < 12; ++part) {
    const std::int64_t from_ps = (a.empty() ? -150'000'000 : std::max(a.back(), b.back())) + 1;
    const std::size_t events = random.below(60'000);
    if (part % 2 == 0) {
      const Times pulses = clock(from_ps, 500 + static_cast<std::int64_t>(random.below(500)), events + 1);
      a = joined(a, pulses);
      b = joined(b, later(pulses, static_cast<std::int64_t>(random.below(400))));
    } else {
      a = joined(a, walk(random, events + 1, from_ps, 1000));
      b = joined(b, walk(random, events + 1, from_ps, 1000));
    }
  }
  expect_as_reference(a, b, {300, 8, 0});
  expect_as_reference(b, a, {300, 7, -100});
  expect_as_reference(a, b, {5000, 80, 100});
}

TEST(InterleavedPairCounter, CountsOfPulsesThatMoveToTheBinsEarlyAreTheSame) {
  const Times a = clock(1000, 100, 3000);
  const XcorrWindow window{200, 8, 0};
  Times counts(detail::BinLayout(window).bins());
  detail::SlotCounts slots(counts);
  detail::InterleavedPairCounter<detail::DelayBinning<std::uint64_t>, 7> counter(
      window, detail::DelayBinning<std::uint64_t>(window, counts.size()), slots);
  const auto counted = static_cast<std::int64_t>(counter.count(a, a));
  slots.flush();
  EXPECT_EQ(counted, 2816);  // whole blocks of 256 of the 2994 whose windows end before the last four
  Times expected(51);
  // 200 ps are 25 bins; 100 ps are 12 and a half, and round to 13.
  for (const std::size_t bin : {0u, 12u, 25u, 38u, 50u}) expected[bin] = counted;
  expected[0] -= 2;  // there is nothing before the first pulses
  expected[12] -= 1;
  EXPECT_EQ(counts, expected);
}

TEST(InterleavedPairCounter, LeavesAListThatIsTooShortAlone) {
  const XcorrWindow window{1000, 8, 0};
  Times counts(detail::BinLayout(window).bins());
  detail::SlotCounts slots(counts);
  detail::InterleavedPairCounter counter(window, detail::DelayBinning<std::uint64_t>(window, counts.size()), slots);
  EXPECT_EQ(counter.count(Times{}, Times{}), 0u);
  EXPECT_EQ(counter.count(Times(5000, 2000), Times{3000, 4000, 5000}), 0u);
  EXPECT_EQ(counter.count(Times(255, 2000), Times(100, 5000)), 0u);
  EXPECT_EQ(counter.count(Times(256, 2000), Times(100, 5000)), 256u);
  EXPECT_EQ(counter.count(Times(256, 2000), Times(100, 3001)), 256u);
  EXPECT_EQ(counter.count(Times(256, 2000), Times(100, 3000)), 0u);  // the windows reach the end of B
}

// Sums of four such numbers must fit: two times, range and offset.
TEST(PairCounting, NumbersUpTo2ToThe60AreNearby) {
  constexpr std::int64_t k2To60 = std::int64_t{1} << 60;
  EXPECT_TRUE(detail::is_nearby(-k2To60, k2To60));
  EXPECT_FALSE(detail::is_nearby(0, k2To60 + 1));
  EXPECT_FALSE(detail::is_nearby(-k2To60 - 1, 0));
}

/// 1000 times whose gaps grow from 2001 ps on: no two windows of up to 1000 ps meet, and no pattern repeats.
Times irregular() {
  Times times;
  for (std::int64_t i = 0; i < 1000; ++i) times.push_back(2000 * i + i * i);
  return times;
}

TEST(PairCounting, BothEndsOfTheWindowPairAndNothingBeyond) {
  const Times a = irregular();
  Times counts(11);  // -40 to 40 ps
  EXPECT_EQ(counts_of(a, later(a, 41), {40, 8, 0}), counts);
  EXPECT_EQ(counts_of(a, later(a, -41), {40, 8, 0}), counts);
  counts[10] = 1000;
  EXPECT_EQ(counts_of(a, later(a, 40), {40, 8, 0}), counts);
  Times both = joined(later(a, 40), later(a, 41));  // one candidate after another
  std::sort(both.begin(), both.end());
  EXPECT_EQ(counts_of(a, both, {40, 8, 0}), counts);
  counts[10] = 0;
  counts[0] = 1000;
  EXPECT_EQ(counts_of(a, later(a, -40), {40, 8, 0}), counts);
}

// Each difference from -500 to 500 ps once, with halves away from zero: the middle bin of 8 ps has 7 of them, and 500
// rounds to a bin outside.
TEST(PairCounting, EveryDifferenceAroundZeroFallsIntoItsBin) {
  Times a;
  Times b;
  for (std::int64_t i = 0; i <= 1000; ++i) {
    a.push_back(2000 * i + i * i);
    b.push_back(a.back() + i - 500);
  }
  Times counts(125, 8);
  counts[62] = 7;
  EXPECT_EQ(counts_of(a, b, {500, 8, 0}), counts);
  EXPECT_EQ(counts_of(a, b, {500, 7, 0}), Times(143, 7));  // odd bins have no halves
}

// Which of the two it is, inside or just beyond, is left to chance: only such lists are counted in lanes.
TEST(PairCounting, EventsJustBeyondTheWindowDoNotPairWhereNothingCanBePredicted) {
  orvo::test::Random random(8);
  const Times a = irregular();
  Times after;
  Times before;
  Times counts(11);
  for (const std::int64_t a_ps : a) {
    const bool inside = random.one_in(2);
    counts[10] += inside ? 1 : 0;
    after.push_back(a_ps + (inside ? 40 : 41));
    before.push_back(a_ps - (inside ? 40 : 41));
    if (random.one_in(2)) after.push_back(a_ps + 41);
  }
  EXPECT_EQ(counts_of(a, after, {40, 8, 0}), counts);
  std::swap(counts[0], counts[10]);
  EXPECT_EQ(counts_of(a, before, {40, 8, 0}), counts);
}

}  // namespace
