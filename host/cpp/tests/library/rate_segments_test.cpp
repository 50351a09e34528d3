#include "orvo/timing/rate_segments.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "orvo/timing/xcorr_histogram.hpp"

namespace {

using orvo::timing::chance_pairs;
using orvo::timing::CommonDrift;
using orvo::timing::rate_segments;
using orvo::timing::RateSegmentCounter;
using orvo::timing::RateSegments;

const RateSegments kThree{1000, {10, 20, 5}, {30, 10, 20}};

TEST(RateSegments, ExpectTheProductsOfTheirTags) {
  EXPECT_NEAR(chance_pairs(kThree, {4, 9, 0})[0], 5.3995, 1e-9);
  EXPECT_NEAR(chance_pairs(kThree, {4, 9, 1200})[0], 3.96, 1e-9);
  EXPECT_EQ(chance_pairs(kThree, {4, 9, 5000})[0], 0);
  EXPECT_EQ(chance_pairs(kThree, {4, 9, -5000})[0], 0);
}

TEST(RateSegments, TellHowOftenBothAreBrightTogether) {
  const CommonDrift drift = kThree.common_drift(0);
  EXPECT_NEAR(drift.factor, 0.857143, 5e-7);
  EXPECT_NEAR(drift.error, 0.030861, 5e-7);
  EXPECT_FALSE(drift.is_steady());
  EXPECT_TRUE((RateSegments{1000, {10}, {30}}).common_drift(0).is_steady());
  EXPECT_TRUE(RateSegments{}.common_drift(0).is_steady());
}

TEST(RateSegments, RatesAreSteadyWithinFourStandardDeviations) {
  EXPECT_TRUE((CommonDrift{1.5, 0.125}).is_steady());
  EXPECT_TRUE((CommonDrift{0.5, 0.125}).is_steady());
  EXPECT_FALSE((CommonDrift{1.5078125, 0.125}).is_steady());
  EXPECT_FALSE((CommonDrift{0.4921875, 0.125}).is_steady());
}

TEST(RateSegments, AreAsManyAsHaveAThousandTagsOfTheRarerChannelUpTo1024) {
  const auto segments = [](std::uint64_t tags_a, std::uint64_t tags_b) {
    return RateSegmentCounter({0, 1'000'000'000, tags_a}, {0, 1'000'000'000, tags_b}).segments().a.size();
  };
  EXPECT_EQ(segments(1'999, 1'000'000), 1u);
  EXPECT_EQ(segments(1'000'000, 2'000), 2u);
  EXPECT_EQ(segments(1'023'999, 1'023'999), 1'023u);
  EXPECT_EQ(segments(5'000'000, 5'000'000), 1'024u);
}

TEST(RateSegments, TakeTimesInAnyOrder) {
  RateSegmentCounter counter({0, 2'000'000, 2'000}, {0, 2'000'000, 2'000});
  counter.add_a(std::vector<std::int64_t>{10, 1'999'000, 20});
  EXPECT_THAT(counter.segments().a, testing::ElementsAre(2, 1));
}

TEST(RateSegments, TruePairsAreNotTakenForChance) {
  // 600 products of tags of the same segment, 100 of which are pairs of a delay of 250 ps: a quarter of these would
  // count with the products of neighbours.
  const std::vector<double> plain = chance_pairs(kThree, {0x7F, 255, 0});
  const std::vector<double> less = chance_pairs(kThree, {0x7F, 255, 0}, {100, 250});
  double expected = 0;
  for (int d = -127; d <= 127; ++d) {
    const double own = d < 0 ? (1000.0 + d) / 1000 : (1000.0 - d) / 1000;
    expected += (75 * own + (d > 0 ? 25.0 * d / 1000 : 0)) / 1000;
  }
  EXPECT_NEAR(plain[0] - less[0], expected, 1e-9);
}

TEST(RateSegments, OneOfThemIsTheSteadyRate) {
  const RateSegments one{1000, {10}, {30}};
  for (const std::int64_t offset_ps : {-999, -300, 0, 17, 600, 1100}) {
    EXPECT_NEAR(chance_pairs(one, {4, 9, offset_ps})[0],
                chance_pairs({{0, 1000, 10}, {0, 1000, 30}}, {4, 9, offset_ps})[0], 1e-9);
  }
}

TEST(RateSegments, HoldEveryTagOnce) {
  std::vector<std::int64_t> a;
  std::vector<std::int64_t> b;
  for (std::int64_t i = 0; i < 5000; ++i) a.push_back(-7000 + 3 * i);
  for (std::int64_t i = 0; i < 4000; ++i) b.push_back(-7000 + 4 * i);
  const RateSegments segments = rate_segments(a, b);
  ASSERT_EQ(segments.a.size(), 4U);
  EXPECT_EQ(segments.a[0] + segments.a[1] + segments.a[2] + segments.a[3], 5000);
  EXPECT_EQ(segments.b[0] + segments.b[1] + segments.b[2] + segments.b[3], 4000);
  EXPECT_NEAR(segments.b[2], 1000, 2);
  EXPECT_EQ(rate_segments({}, b).a.size(), 1U);
}

/// Tags whose rate swings by half, ten times in the recording.
std::vector<std::int64_t> drifting_tags(std::uint64_t seed, int tags) {
  constexpr double kLengthPs = 1e12;
  std::mt19937_64 random(seed);
  std::uniform_real_distribution<double> uniform(0, 1);
  std::vector<std::int64_t> times;
  while (static_cast<int>(times.size()) < tags) {
    const double time = uniform(random);
    const double rate = (1 + 0.5 * std::sin(2 * 3.141592653589793 * 10 * time)) / 1.5;
    if (uniform(random) < rate) times.push_back(static_cast<std::int64_t>(time * kLengthPs));
  }
  std::sort(times.begin(), times.end());
  return times;
}

TEST(RateSegments, FollowDriftsThatSteadyRatesMiss) {
  const std::vector<std::int64_t> a = drifting_tags(1, 600'000);
  const std::vector<std::int64_t> b = drifting_tags(2, 600'000);
  const orvo::timing::XcorrWindow window{10'000'000, 20'000'001, 0};
  const auto counted = static_cast<double>(orvo::timing::xcorr_histogram_sorted(a, b, window).counts[0]);
  const double steady = chance_pairs(orvo::timing::recording_of(a, b), window)[0];
  const double followed = chance_pairs(rate_segments(a, b), window)[0];
  const double error =
      1 / std::sqrt(counted);  // 7.2 million pairs, and 1 + 0.5^2 / 2 times as many as steady rates give
  EXPECT_NEAR(counted / steady, 1.125, 0.005);
  EXPECT_NEAR(counted / followed, 1, 4 * error + 0.0005);
  EXPECT_FALSE(rate_segments(a, b).common_drift(0).is_steady());
}

TEST(RateSegments, AreCountedOneByOneInAnyOrder) {
  std::vector<std::int64_t> a = drifting_tags(3, 5000);
  const std::vector<std::int64_t> b = drifting_tags(4, 7000);
  const orvo::timing::ChannelExtent extent_a = orvo::timing::extent_of(a);
  orvo::timing::RateSegmentCounter counter(extent_a, orvo::timing::extent_of(b));
  // Five segments, from a mean gap before the first tag of either to one after the last.
  std::vector<double> tags(5);
  const double first = static_cast<double>(std::min(a.front(), b.front()));
  const double last = static_cast<double>(std::max(a.back(), b.back()));
  const double gap = (last - first) / (5000 + 7000 - 2);
  std::reverse(a.begin(), a.end());
  for (const std::int64_t time : a) {
    counter.add_a({&time, 1});
    tags[static_cast<std::size_t>((static_cast<double>(time) - first + gap) / (last - first + 2 * gap) * 5)] += 1;
  }
  counter.add_b(b);
  EXPECT_EQ(counter.segments().a, tags);
  std::reverse(a.begin(), a.end());
  EXPECT_EQ(counter.segments().b, rate_segments(a, b).b);
}

}  // namespace
