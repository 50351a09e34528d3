#include "orvo/timing/offset_estimate.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "support/checked_correlation.hpp"

namespace {

using orvo::test::checked_offset_ps;
using Times = std::vector<std::int64_t>;

TEST(OffsetEstimate, OfAnEmptyChannelIsZero) {
  EXPECT_EQ(checked_offset_ps({}, {}), 0);
  EXPECT_EQ(checked_offset_ps({}, {5}), 0);
  EXPECT_EQ(checked_offset_ps({5}, {}), 0);
}

TEST(OffsetEstimate, OfOnePairIsItsDifference) {
  EXPECT_EQ(checked_offset_ps({100}, {100}), 0);
  EXPECT_EQ(checked_offset_ps({100}, {163}), 63);
  EXPECT_EQ(checked_offset_ps({100}, {37}), -63);
}

TEST(OffsetEstimate, OfAnEvenNumberIsTheUpperMedian) {
  EXPECT_EQ(checked_offset_ps({0, 1000}, {10, 1013}), 13);
}

TEST(OffsetEstimate, OfAnOddNumberIsTheMedian) {
  EXPECT_EQ(checked_offset_ps({0, 1000, 2000}, {10, 1013, 1993}), 10);
}

TEST(OffsetEstimate, EqualDistancesTakeTheLaterEvent) {
  EXPECT_EQ(checked_offset_ps({100}, {90, 110}), 10);
}

TEST(OffsetEstimate, TheStrictlyNearerEventIsTaken) {
  EXPECT_EQ(checked_offset_ps({100}, {95, 110}), -5);
  EXPECT_EQ(checked_offset_ps({100}, {91, 110}), -9);
  EXPECT_EQ(checked_offset_ps({100}, {89, 110}), 10);
  EXPECT_EQ(checked_offset_ps({100}, {99, 100, 101}), 0);
}

TEST(OffsetEstimate, BehindTheLastEventTheLastIsTaken) {
  EXPECT_EQ(checked_offset_ps({500}, {100, 200}), -300);
}

TEST(OffsetEstimate, BeforeTheFirstEventTheFirstIsTaken) {
  EXPECT_EQ(checked_offset_ps({-500}, {100, 200}), 600);
}

TEST(OffsetEstimate, OneEventOfBServesManyOfA) {
  EXPECT_EQ(checked_offset_ps({0, 10, 20, 30, 40}, {100}), 80);
}

TEST(OffsetEstimate, OrderOfTheListsDoesNotMatterAndTheyStayAsTheyAre) {
  const Times a{3000, 0, 2000, 1000};
  const Times b{2030, 3031, 12, 1009};
  EXPECT_EQ(checked_offset_ps(a, b), 30);  // 9, 12, 30, 31
  EXPECT_EQ(a, (Times{3000, 0, 2000, 1000}));
  EXPECT_EQ(b, (Times{2030, 3031, 12, 1009}));
}

// `events` events of A, one every microsecond, each with an event of B near by. The events at 0, stride, 2 * stride,
// ... are the expected samples: the first `near` of them are followed after 1 ps, the other samples after 5 ps. All
// events that are not to be sampled are followed after `elsewhere` ps.
std::int64_t estimate(std::size_t events, std::size_t stride, std::size_t samples, std::size_t near, int elsewhere) {
  Times a;
  Times b;
  for (std::size_t i = 0; i < events; ++i) {
    const bool sampled = i % stride == 0 && i / stride < samples;
    a.push_back(static_cast<std::int64_t>(i) * 1'000'000);
    b.push_back(a.back() + (!sampled ? elsewhere : i / stride < near ? 1 : 5));
  }
  std::rotate(a.begin(), a.begin() + static_cast<std::ptrdiff_t>(events / 3), a.end());  // the order does not matter
  return checked_offset_ps(a, b);
}

// Exactly half of the samples (rounded down) are 1, so rank k / 2 is the first 5; one more 1 and it is the last 1.
// Any sample too many, too few or elsewhere changes one of the two.
void expect_samples(std::size_t events, std::size_t stride, std::size_t samples) {
  EXPECT_EQ(estimate(events, stride, samples, samples / 2, 1), 5) << events << " events";
  EXPECT_EQ(estimate(events, stride, samples, samples / 2 + 1, 5), 1) << events << " events";
}

TEST(OffsetEstimate, SamplesEveryEventOfASmallChannel) {
  expect_samples(5, 1, 5);
  expect_samples(3'999, 1, 3'999);
  expect_samples(4'000, 1, 4'000);
}

TEST(OffsetEstimate, SamplesTheFirst4000OfLessThan8000Events) {
  expect_samples(4'001, 1, 4'000);
  expect_samples(4'500, 1, 4'000);
  expect_samples(7'999, 1, 4'000);
}

TEST(OffsetEstimate, SamplesEvenlySpread4000OfManyEvents) {
  expect_samples(8'000, 2, 4'000);
  expect_samples(10'000, 2, 4'000);
  expect_samples(11'999, 2, 4'000);
  expect_samples(12'000, 3, 4'000);
  expect_samples(40'001, 10, 4'000);
}

TEST(OffsetEstimate, BeyondTheEndsOf64BitsIsTheEnd) {
  EXPECT_EQ(checked_offset_ps({INT64_MIN}, {INT64_MAX}), INT64_MAX);
  EXPECT_EQ(checked_offset_ps({INT64_MAX}, {INT64_MIN}), INT64_MIN);
}

TEST(OffsetEstimate, IsNotRoundedToAnyBin) {
  EXPECT_EQ(checked_offset_ps({0}, {163}), 163);
}

}  // namespace
