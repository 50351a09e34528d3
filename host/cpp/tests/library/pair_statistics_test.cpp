#include "orvo/timing/pair_statistics.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <vector>

namespace {

using orvo::timing::Estimate;
using orvo::timing::pair_statistics;
using orvo::timing::PairStatistics;
using orvo::timing::PairVerdict;
using orvo::timing::XcorrWindow;
using Times = std::vector<std::int64_t>;

constexpr double kSecondPs = 1e12;

struct Channels {
  Times a;
  Times b;
};

/// Pairs of one second and what else each channel sees, everything at random times.
Channels two_detectors(int pairs, int alone, double delay_ps, double sigma_ps, std::uint64_t seed) {
  std::mt19937_64 random(seed);
  std::uniform_real_distribution<double> time(0, kSecondPs);
  std::normal_distribution<double> jitter(0, sigma_ps);
  Channels channels;
  for (int i = 0; i < pairs; ++i) {
    const double at = time(random);
    channels.a.push_back(std::llround(at));
    channels.b.push_back(std::llround(at + delay_ps + (sigma_ps > 0 ? jitter(random) : 0)));
  }
  for (int i = 0; i < alone; ++i) {
    channels.a.push_back(std::llround(time(random)));
    channels.b.push_back(std::llround(time(random)));
  }
  std::sort(channels.a.begin(), channels.a.end());
  std::sort(channels.b.begin(), channels.b.end());
  return channels;
}

/// Whether every number that can be printed is finite.
bool is_finite(const PairStatistics& statistics) {
  const auto& judgement = statistics.judgement;
  std::vector<double> numbers{judgement.background.level, judgement.background.error};
  const auto take = [&](const auto& estimate) {
    if (estimate) numbers.insert(numbers.end(), {estimate->value, estimate->error});
  };
  take(statistics.share_a);
  take(statistics.share_b);
  if (judgement.peak) {
    for (const Estimate& estimate : {judgement.peak->pairs, judgement.peak->background_pairs, judgement.peak->level})
      numbers.insert(numbers.end(), {estimate.value, estimate.error});
    take(judgement.peak->place_ps);
    take(judgement.peak->fwhm_ps);
    take(judgement.peak->accidental_ratio());
    if (const auto& g2 = judgement.peak->g2) numbers.insert(numbers.end(), {g2->g2, g2->error, g2->low, g2->high});
  }
  for (const double expected : statistics.bins.expected) numbers.push_back(expected);
  return !std::isnan(judgement.probability.ln) &&
         std::all_of(numbers.begin(), numbers.end(), [](double number) { return std::isfinite(number); });
}

TEST(PairStatistics, OfPairsAreTheirDelayWidthAndShares) {
  const Channels channels = two_detectors(20'000, 60'000, 1'234'567, 100, 1);
  const PairStatistics statistics = pair_statistics(channels.a, channels.b, {5000, 21, 1'234'000});
  EXPECT_EQ(statistics.judgement.verdict, PairVerdict::peak);
  EXPECT_TRUE(statistics.judgement.significant);
  EXPECT_FALSE(statistics.drifting);
  const auto& peak = *statistics.judgement.peak;
  EXPECT_NEAR(peak.place_ps->value, 567, 4 * 100 / std::sqrt(20'000.0));
  EXPECT_NEAR(peak.fwhm_ps->value, 235.5, 4 * peak.fwhm_ps->error);
  EXPECT_NEAR(peak.pairs.value, 20'000, 100);
  EXPECT_NEAR(statistics.share_a->value, 0.25, 0.001);
  EXPECT_NEAR(statistics.share_b->value, 0.25, 0.001);
  EXPECT_NEAR(statistics.share_a->error, std::sqrt(20'000.0) / 80'000, 1e-4);
}

TEST(PairStatistics, OfUnrelatedChannelsAreNone) {
  const Channels channels = two_detectors(0, 300'000, 0, 0, 2);
  const PairStatistics statistics = pair_statistics(channels.a, channels.b, {500'000, 999, 0});
  EXPECT_EQ(statistics.judgement.verdict, PairVerdict::none);
  EXPECT_FALSE(statistics.judgement.significant);
  EXPECT_FALSE(statistics.judgement.peak);
  EXPECT_FALSE(statistics.share_a);
  EXPECT_NEAR(statistics.judgement.background.level, 1, 4 * statistics.judgement.background.error);
}

TEST(PairStatistics, OfChannelsThatAvoidOneAnotherAreADip) {
  Channels channels = two_detectors(0, 1'000'000, 0, 0, 3);
  Times kept;  // after every tag of A, B is dead for 50 ns
  for (const std::int64_t b : channels.b) {
    const auto a = std::upper_bound(channels.a.begin(), channels.a.end(), b);
    if (a == channels.a.begin() || b - a[-1] > 50'000) kept.push_back(b);
  }
  const PairStatistics statistics = pair_statistics(channels.a, kept, {500'000, 999, 0});
  EXPECT_EQ(statistics.judgement.verdict, PairVerdict::dip);
  ASSERT_TRUE(statistics.judgement.peak && statistics.judgement.peak->place_ps);
  EXPECT_NEAR(statistics.judgement.peak->place_ps->value, 25'000, 1000);
  EXPECT_LT(statistics.judgement.peak->g2->high, 0.01);
  EXPECT_FALSE(statistics.share_a);
}

TEST(PairStatistics, OfPulsesOnBothChannelsAreAComb) {
  Channels channels;
  std::mt19937_64 random(4);
  std::normal_distribution<double> jitter(0, 300);
  std::uniform_real_distribution<double> uniform(0, 1);
  for (int pulse = 0; pulse < 4'000'000; ++pulse) {
    if (uniform(random) < 0.02) channels.a.push_back(std::llround(12'500.0 * pulse + jitter(random)));
    if (uniform(random) < 0.02) channels.b.push_back(std::llround(12'500.0 * pulse + 4000 + jitter(random)));
  }
  const PairStatistics statistics = pair_statistics(channels.a, channels.b, {100'000, 101, 0});
  EXPECT_EQ(statistics.judgement.verdict, PairVerdict::comb);
  EXPECT_TRUE(statistics.judgement.ambiguous);
  ASSERT_TRUE(statistics.judgement.comb);
  EXPECT_NEAR(statistics.judgement.comb->period_ps.value, 12'500, 5);
  EXPECT_FALSE(statistics.judgement.peak);
}

TEST(PairStatistics, ADipInABlinkingBackgroundIsMeasuredAgainstWhatSurroundsIt) {
  // Both channels see light only half of the time, in stretches of a millisecond: twice the coincidences of chance.
  Channels channels = two_detectors(20'000, 400'000, 0, 100, 5);
  const auto is_dark = [](std::int64_t time) { return time / 1'000'000'000 % 2 == 1; };
  std::erase_if(channels.a, is_dark);
  std::erase_if(channels.b, is_dark);
  const PairStatistics statistics = pair_statistics(channels.a, channels.b, {20'000, 51, 0});
  EXPECT_EQ(statistics.judgement.verdict, PairVerdict::peak);
  EXPECT_NEAR(statistics.judgement.peak->pairs.value, 10'000, 4 * 110);
  // Segments are longer than the stretches: the measured level shows what they miss.
  const double level = statistics.judgement.background.level * statistics.bins.expected[10] / 51;
  EXPECT_NEAR(level, 210'000.0 * 210'000.0 / (kSecondPs / 2), 0.1 * level);
}

TEST(PairStatistics, OfAViewBeyondHalfOfTheRecordingAreNone) {
  const Channels channels = two_detectors(20'000, 0, 0, 10, 6);
  const PairStatistics statistics = pair_statistics(channels.a, channels.b, {5000, 8, 600'000'000'000});
  EXPECT_TRUE(statistics.too_short);
  EXPECT_EQ(statistics.judgement.verdict, PairVerdict::none);
  EXPECT_FALSE(pair_statistics(channels.a, channels.b, {5000, 8, 400'000'000'000}).too_short);
}

TEST(PairStatistics, OfNoOneOrEqualTagsAreNone) {
  const Times none;
  const Times one{17};
  const Times equal(1000, 17);
  const Times two{17, 18};
  for (const Times& a : {none, one, equal, two}) {
    for (const Times& b : {none, one, equal, two}) {
      for (const XcorrWindow window :
           {XcorrWindow{5000, 8, 0}, {1, 1, 0}, {0, 0, 0}, {-5, 8, 0}, {5000, 10'000, 0}}) {
        const PairStatistics statistics = pair_statistics(a, b, window);
        EXPECT_EQ(statistics.judgement.verdict, PairVerdict::none);
        EXPECT_FALSE(statistics.judgement.significant);
        EXPECT_TRUE(is_finite(statistics));
      }
    }
  }
}

TEST(PairStatistics, AreNumbersForTimesAndWindowsAtTheEnds) {
  constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
  constexpr std::int64_t kLeast = std::numeric_limits<std::int64_t>::min();
  Times ends{kLeast, kLeast, -1, 0, 1, kMost, kMost};
  Times middle;
  for (std::int64_t i = 0; i < 300; ++i) middle.push_back(i * i);
  for (const Times& a : {ends, middle}) {
    for (const Times& b : {ends, middle}) {
      for (const std::int64_t offset_ps : {kLeast, std::int64_t{-1}, std::int64_t{0}, kMost}) {
        for (const XcorrWindow window : {XcorrWindow{kMost, kMost / 100, offset_ps},
                                         {kMost, kMost, offset_ps},
                                         {1000, 2, offset_ps},
                                         {1, kMost, offset_ps}}) {
          EXPECT_TRUE(is_finite(pair_statistics(a, b, window)));
        }
      }
    }
  }
}

}  // namespace
