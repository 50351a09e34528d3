#include "inspect/far_delay.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <span>
#include <vector>

#include "inspect/time_sample.hpp"
#include "inspect/window_counts.hpp"
#include "orvo/timing/chance_pairs.hpp"
#include "orvo/timing/pair_statistics.hpp"
#include "orvo/timing/xcorr_histogram.hpp"

namespace {

using orvo::timing::PairVerdict;
using orvo::timing::XcorrHistogram;
using orvo::timing::XcorrWindow;
using Times = std::vector<std::int64_t>;

constexpr double kSecondPs = 1e12;
constexpr std::size_t kBins = std::size_t{1} << 16;  // small and quick: shares are large instead

struct Recording {
  Times a;
  Times b;

  std::int64_t origin_ps() const { return std::min(a.front(), b.front()); }
  CountWindows counter() const {
    return [this](std::span<const XcorrWindow> windows, std::uint64_t one_of) {
      const TimeSample sample(orvo::timing::extent_of(a), one_of);
      std::vector<XcorrHistogram> histograms;
      for (const XcorrWindow& window : windows) histograms.push_back(count_sample(a, b, window, sample));
      return histograms;
    };
  }
};

struct Source {
  double seconds = 10;
  double rate_hz = 10'000;
  double share = 0;  ///< of the tags on either channel that are pairs
  double delay_ps = 0;
  double jitter_ps = 100;
  double drift = 0;  ///< of the rates, in three cycles
};

Recording recorded(const Source& source, std::uint64_t seed) {
  std::mt19937_64 random(seed);
  std::uniform_real_distribution<double> uniform(0, 1);
  std::normal_distribution<double> jitter(0, source.jitter_ps);
  const auto time = [&] {
    while (true) {
      const double at = uniform(random);
      const double rate = 1 + source.drift * std::sin(2 * 3.141592653589793 * 3 * at);
      if (uniform(random) * (1 + source.drift) < rate) return at * source.seconds * kSecondPs;
    }
  };
  const auto drawn = [&](double mean) { return mean > 0 ? std::poisson_distribution<int>(mean)(random) : 0; };
  Recording recording;
  const double tags = source.rate_hz * source.seconds;
  for (int i = drawn(tags * source.share); i > 0; --i) {
    const double at = time();
    recording.a.push_back(std::llround(at));
    recording.b.push_back(std::llround(at + source.delay_ps + jitter(random)));
  }
  for (Times* times : {&recording.a, &recording.b}) {
    for (int i = drawn(tags * (1 - source.share)); i > 0; --i) times->push_back(std::llround(time()));
    std::sort(times->begin(), times->end());
  }
  return recording;
}

FoldedCorrelation correlated(const Recording& recording, double reach_ps, std::size_t bins = kBins) {
  const FoldedGrid grid = folded_grid(recording.origin_ps(), whole_ps(reach_ps), bins);
  FoldedTimes a(grid);
  FoldedTimes b(grid);
  a.add(recording.a);
  b.add(recording.b);
  return folded_correlation(a, b);
}

FarDelay searched(const Recording& recording, double reach_ps) {
  return find_far_delay(correlated(recording, reach_ps), recording.counter());
}

/// The delay in the view that a search came to; NaN without one.
double found_delay_ps(const Recording& recording, double reach_ps) {
  const FarDelay found = searched(recording, reach_ps);
  if (!found.view) return std::nan("");
  const auto statistics = orvo::timing::pair_statistics(recording.a, recording.b, *found.view);
  if (statistics.judgement.verdict != PairVerdict::peak || !statistics.judgement.peak->place_ps) return std::nan("");
  return static_cast<double>(found.view->offset_ps) + statistics.judgement.peak->place_ps->value;
}

TEST(FoldedGrid, FoldsTimesBeforeAndAfterItsOrigin) {
  const FoldedGrid grid{100, 10, 8};
  EXPECT_EQ(grid.bin_of(100), 0U);
  EXPECT_EQ(grid.bin_of(109), 0U);
  EXPECT_EQ(grid.bin_of(110), 1U);
  EXPECT_EQ(grid.bin_of(180), 0U);
  EXPECT_EQ(grid.bin_of(99), 7U);
  EXPECT_EQ(grid.bin_of(90), 7U);
  EXPECT_EQ(grid.bin_of(89), 6U);
  EXPECT_EQ(grid.bin_of(20), 0U);
  const FoldedGrid ends{std::numeric_limits<std::int64_t>::max(), 1, 8};
  EXPECT_EQ(ends.bin_of(std::numeric_limits<std::int64_t>::min()), 1U);  // 2^64 - 1 before
}

TEST(FoldedGrid, TellsAllDelaysWithinReachApart) {
  for (const std::int64_t reach_ps : {1, 4, 5, 1000, 1'000'000'000}) {
    const FoldedGrid grid = folded_grid(0, reach_ps, 8);
    EXPECT_GE(grid.bin_ps * 8, 2 * reach_ps);
    EXPECT_LT((grid.bin_ps - 1) * 8, 2 * reach_ps);
  }
  EXPECT_GT(folded_grid(0, std::numeric_limits<std::int64_t>::max(), 8).bin_ps, 0);
  const FoldedGrid grid{0, 10, 8};
  EXPECT_EQ(grid.delay_ps(3), 30);
  EXPECT_EQ(grid.delay_ps(5), -30);
}

TEST(FoldedCorrelation, CountsEveryPairOfBins) {
  const FoldedGrid grid{0, 1, 64};
  FoldedTimes a(grid);
  FoldedTimes b(grid);
  std::mt19937 random(1);
  std::vector<int> in_a(64);
  std::vector<int> in_b(64);
  for (int i = 0; i < 500; ++i) {
    const auto bin_a = random() % 64;
    const auto bin_b = random() % 64;
    a.add(static_cast<std::int64_t>(bin_a));
    b.add(static_cast<std::int64_t>(bin_b));
    ++in_a[bin_a];
    ++in_b[bin_b];
  }
  const FoldedCorrelation correlation = folded_correlation(a, b);
  for (std::size_t delay = 0; delay < 64; ++delay) {
    int pairs = 0;
    for (std::size_t bin = 0; bin < 64; ++bin) pairs += in_a[bin] * in_b[(bin + delay) % 64];
    EXPECT_NEAR(correlation.pairs[delay], pairs, 0.02) << delay;
  }
}

TEST(DelayCandidates, ThresholdAndExpectedSigmasOfFourMillionBins) {
  const LogProbability threshold = candidate_threshold(std::size_t{1} << 22);
  EXPECT_NEAR(std::exp(threshold.ln), 1.986821e-12, 5e-19);
  EXPECT_NEAR(threshold.sigmas(), 6.938116, 5e-7);
  EXPECT_NEAR(expected_sigmas(0.01, std::size_t{1} << 22), 14.481547, 5e-7);
}

// 1250 pairs where chance gives 1000 are 7.5969 sigmas, by the Poisson distribution. Bins that are all 32 off have 1.024 times
// the variance of chance, such that are 60 off 3.6 times, which divides the sigmas by the root of that; 2 % pass as chance.
TEST(DelayCandidates, StandOutOfNoiseThatIsMoreThanChance) {
  const auto found = [](float off) {
    FoldedCorrelation correlation{{.origin_ps = 0, .bin_ps = 1000, .bins = 4096}, std::vector<float>(4096), 1};
    for (std::size_t i = 0; i < 4096; ++i) correlation.pairs[i] = 1000 + (i % 2 == 0 ? off : -off);
    correlation.pairs[700] = 1250;
    return delay_candidates(correlation);
  };
  const auto clearest = [](const DelayCandidates& candidates) {
    return *std::max_element(candidates.overview.sigmas.begin(), candidates.overview.sigmas.end());
  };
  EXPECT_NEAR(clearest(found(31)), 7.5969, 1e-3);
  EXPECT_NEAR(clearest(found(32)), 7.5073, 1e-3);
  EXPECT_NEAR(clearest(found(60)), 4.0039, 2e-3);
  EXPECT_NEAR(found(31).best.front().probability.sigmas(), 7.5969, 1e-3);
  EXPECT_NEAR(found(60).best.front().probability.sigmas(), 4.0039, 2e-3);
  EXPECT_EQ(found(32).significant, 1u);  // from 5.99 sigmas on
  EXPECT_EQ(found(60).significant, 0u);
}

TEST(DelayCandidates, StandOutBySigmasThatOnlyTheShareAndTheBinsDecide) {
  for (const double rate_hz : {1000.0, 10'000.0}) {
    for (const double share : {0.1, 0.15}) {
      double sigmas = 0;
      const int seeds = 6;
      for (std::uint64_t seed = 0; seed < seeds; ++seed) {
        const double middle_of_two = 30.5 * std::ceil(2e12 / kBins);
        const Recording recording = recorded({.rate_hz = rate_hz, .share = share, .delay_ps = middle_of_two}, seed);
        const DelayCandidates candidates = delay_candidates(correlated(recording, kSecondPs));
        ASSERT_FALSE(candidates.best.empty());
        sigmas += candidates.best.front().probability.sigmas() / seeds;
      }
      EXPECT_NEAR(sigmas / expected_sigmas(share, kBins), 1, 0.15) << rate_hz << " " << share;
    }
  }
}

TEST(FarDelay, IsFoundToTheWidthOfThePeakAnywhereWithinReach) {
  for (const double delay_ps : {0.0, 160.0, 12'345'678.9, 4.2e10, -7.77e11, 9.9e11}) {
    const Recording recording = recorded({.share = 0.05, .delay_ps = delay_ps}, 1);
    EXPECT_NEAR(found_delay_ps(recording, kSecondPs), delay_ps, 20) << delay_ps;
  }
}

TEST(FarDelay, IsFoundWhenTheRatesDrift) {
  const Recording recording = recorded({.share = 0.05, .delay_ps = 3.21e11, .drift = 0.5}, 2);
  EXPECT_NEAR(found_delay_ps(recording, kSecondPs), 3.21e11, 20);
}

TEST(FarDelay, IsFoundInARecordingThatFillsTheGridAThousandTimes) {
  const Recording recording = recorded({.seconds = 20, .share = 0.06, .delay_ps = -7.654321e9}, 8);
  EXPECT_NEAR(found_delay_ps(recording, 1e10), -7.654321e9, 20);
}

TEST(FarDelay, OfLightThatWasOnForAMomentIsFoundWhenever) {
  // 12,000 pairs within 20 ms of 20 s, whether or not a sample of the tags has any of them.
  std::mt19937_64 random(1);
  std::uniform_real_distribution<double> within(0, 2e10);
  std::normal_distribution<double> jitter(0, 100);
  for (const double start_ps : {1.21e12, 3.3e12, 7.77e12, 15.1e12}) {
    Recording recording = recorded({.seconds = 20}, 10);
    for (int i = 0; i < 12'000; ++i) {
      const double at = start_ps + within(random);
      recording.a.push_back(std::llround(at));
      recording.b.push_back(std::llround(at - 7.654321e9 + jitter(random)));
    }
    for (Times* times : {&recording.a, &recording.b}) std::sort(times->begin(), times->end());
    EXPECT_NEAR(found_delay_ps(recording, 1e10), -7.654321e9, 20) << start_ps;
  }
}

TEST(FarDelay, IsFoundWhenThePeakIsAboutAsWideAsABin) {
  for (const double jitter_ps : {1e7, 1.3e7, 3e7}) {  // bins of 30.5 us
    const Recording recording = recorded({.share = 0.1, .delay_ps = 1.234e11, .jitter_ps = jitter_ps}, 9);
    EXPECT_NEAR(found_delay_ps(recording, kSecondPs), 1.234e11, jitter_ps / 2) << jitter_ps;
  }
}

TEST(FarDelay, OfAWidePeakIsFound) {
  const Recording recording = recorded({.share = 0.3, .delay_ps = 2e11, .jitter_ps = 2e8}, 3);  // seven bins
  EXPECT_NEAR(found_delay_ps(recording, kSecondPs), 2e11, 2e7);
}

TEST(FarDelay, BeyondReachOrOfUnrelatedLightIsNone) {
  for (std::uint64_t seed = 0; seed < 10; ++seed) {
    const double drift = seed % 2 == 0 ? 0 : 0.5;
    EXPECT_FALSE(searched(recorded({.drift = drift}, seed), kSecondPs).view) << seed;
  }
  const Recording recording = recorded({.share = 0.001, .delay_ps = 1e11}, 4);  // a tenth of what it takes
  EXPECT_FALSE(searched(recording, kSecondPs).view);
}

TEST(FarDelay, OfSameChannelsIsZero) {
  Recording recording = recorded({}, 5);
  recording.b = recording.a;
  EXPECT_NEAR(found_delay_ps(recording, kSecondPs), 0, 1);
}

TEST(FarDelay, OfPulsesIsAmbiguous) {
  // Two detectors of the same laser, a pulse every 10 ms: every hundredth of a second is a delay.
  Recording recording;
  std::mt19937_64 random(6);
  std::normal_distribution<double> jitter(0, 100);
  std::uniform_real_distribution<double> uniform(0, 1);
  for (int pulse = 0; pulse < 5000; ++pulse) {
    if (uniform(random) < 0.5) recording.a.push_back(std::llround(1e10 * pulse + jitter(random)));
    if (uniform(random) < 0.5) recording.b.push_back(std::llround(1e10 * pulse + jitter(random)));
  }
  const FarDelay found = searched(recording, kSecondPs);
  ASSERT_TRUE(found.period_ps);
  EXPECT_NEAR(*found.period_ps, 1e10, 1e7);
  EXPECT_FALSE(searched(recorded({.share = 0.05}, 7), kSecondPs).period_ps);
}

TEST(FarDelay, OfFewOrEqualTagsIsANumber) {
  const Recording one{{17}, {17}};
  const Recording equal{Times(1000, 17), Times(1000, 17)};
  for (const Recording& recording : {one, equal}) {
    for (const double reach_ps : {1.0, 1000.0, kSecondPs, 9e18}) {
      EXPECT_FALSE(std::isnan(searched(recording, reach_ps).probability.ln));
    }
  }
}

}  // namespace
