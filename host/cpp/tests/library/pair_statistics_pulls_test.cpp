// Errors of whole recordings are what they say: tags of known sources, with recording times, rates, drift and grid
// told by the tags. ORVO_SIMULATION_SEEDS sets how many recordings each regime has; see docs/peak-statistics.md.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <ostream>
#include <random>
#include <string>

#include "orvo/timing/detail/coarse_fine_time.hpp"
#include "orvo/timing/pair_statistics.hpp"
#include "support/pulls.hpp"
#include "support/simulated_recording.hpp"

namespace {

using orvo::test::expect_standard;
using orvo::test::kSecondPs;
using orvo::test::PairSource;
using orvo::test::PairTags;
using orvo::test::Pulls;
using orvo::test::Times;
using namespace orvo::timing;

constexpr double kFwhmPerSd = 2.354820045;

int seeds() {
  return orvo::test::simulated_recordings(20);
}

std::int64_t as_it_is(std::int64_t time_ps) {
  return time_ps;
}
std::int64_t in_steps_of_64(std::int64_t time_ps) {
  return time_ps - time_ps % 64;
}
std::int64_t by_interpolator(std::int64_t time_ps) {
  return detail::CoarseFineTime::nearest(time_ps).time_ps();
}

struct Recording {
  const char* name;
  PairSource source;
  XcorrWindow window;
  std::int64_t (*stored)(std::int64_t) = as_it_is;
  double grid_variance = 0;  ///< that storing adds to a difference
};

std::ostream& operator<<(std::ostream& out, const Recording& recording) {
  return out << recording.name;
}

class RecordedPulls : public testing::TestWithParam<Recording> {};

TEST_P(RecordedPulls, HaveMeanZeroAndWidthOne) {
  const auto& [name, source, window, stored, grid_variance] = GetParam();
  const double tags = source.rate_hz * source.seconds;
  const double fwhm_ps = kFwhmPerSd * std::sqrt(source.jitter_ps * source.jitter_ps + grid_variance);
  Pulls background;
  Pulls pairs;
  Pulls place;
  Pulls width;
  Pulls share;
  for (int seed = 0; seed < seeds(); ++seed) {
    PairSource moved = source;
    moved.delay_ps += seed * 7919 % 1000;
    PairTags recorded = recorded_pairs(moved, static_cast<std::uint64_t>(seed));
    for (Times* times : {&recorded.a, &recorded.b})
      std::transform(times->begin(), times->end(), times->begin(), stored);
    const PairStatistics statistics = pair_statistics(recorded.a, recorded.b, window);
    ASSERT_EQ(statistics.judgement.verdict, PairVerdict::peak);
    EXPECT_EQ(statistics.drifting, source.drift.depth != 0);
    const CorrelationPeak& peak = *statistics.judgement.peak;
    ASSERT_TRUE(peak.place_ps && peak.fwhm_ps);
    background.add(peak.level.value - 1, peak.level.error);
    pairs.add(peak.pairs.value - source.share * tags, peak.pairs.error);
    const double delay_ps = peak.place_ps->value + static_cast<double>(window.offset_ps);
    place.add(delay_ps - moved.delay_ps, peak.place_ps->error);
    width.add(std::log(peak.fwhm_ps->value / fwhm_ps), peak.fwhm_ps->error / peak.fwhm_ps->value);
    share.add(statistics.share_a->value - source.share, statistics.share_a->error);
  }
  std::printf("%-28s", name);
  expect_standard("background", background);
  expect_standard("pairs", pairs);
  expect_standard("place", place);
  expect_standard("width", width);
  // Pairs are tags of A, too: more of them are more tags, which makes the share steadier than the pairs.
  expect_standard("share", share, 0, std::sqrt(1 - source.share));
  std::printf("\n");
}

constexpr PairSource kSteady{.rate_hz = 2e6, .seconds = 0.025, .share = 0.04};

PairSource drifting() {
  PairSource source = kSteady;
  source.drift = {.depth = 0.5, .cycles = 1};
  return source;
}
PairSource far_apart() {
  PairSource source = kSteady;
  source.delay_ps = -5e9;
  return source;
}

INSTANTIATE_TEST_SUITE_P(
    Sources, RecordedPulls,
    testing::Values(Recording{"steady", kSteady, {5000, 10, 0}},
                    Recording{"a fifth of the recording off", far_apart(), {5000, 10, -5'000'000'000}},
                    Recording{"drifting by half", drifting(), {5000, 10, 0}},
                    Recording{"five times the rate of B",
                              {.rate_hz = 2e6, .ratio = 0.2, .seconds = 0.05, .share = 0.02},
                              {5000, 10, 0}},
                    // Rounding down to 64 ps on either channel: the variance of a triangle of 128 ps.
                    Recording{"clock of 64 ps",
                              {.rate_hz = 1e6, .seconds = 0.05, .share = 0.04, .jitter_ps = 700},
                              {35'000, 70, 0},
                              in_steps_of_64,
                              64.0 * 64 / 6},
                    Recording{"interpolator, 18.5 ps",
                              {.rate_hz = 1e6, .seconds = 0.05, .share = 0.04, .jitter_ps = 500},
                              {25'000, 50, 0},
                              by_interpolator,
                              18.5 * 18.5 / 6}),
    [](const auto& recording) { return "Source" + std::to_string(recording.index); });

/// Pulsed light on both channels, light of either alone that is not pulsed, and pairs of the same pulse.
struct PulsedSource {
  double period_ps = 12'500;
  double pulses = 2e6;
  double per_pulse = 0.02;
  double unpulsed = 5000;  ///< tags a channel
  double pairs = 2000;
  double delay_ps = 3100;  ///< of pulses and of pairs
  double jitter_ps = 500;  ///< of a tag
};

PairTags pulsed_pairs(const PulsedSource& source, std::uint64_t seed) {
  std::mt19937_64 random(seed);
  std::uniform_real_distribution<double> uniform(0, 1);
  std::normal_distribution<double> jitter(0, source.jitter_ps);
  const auto drawn = [&](double mean) { return std::poisson_distribution<int>(mean)(random); };
  const auto pulse = [&] { return 1000 + source.period_ps * std::floor(uniform(random) * source.pulses); };
  PairTags tags;
  const auto add = [&](Times& times, double at_ps) { times.push_back(std::llround(at_ps)); };
  for (int i = drawn(source.pairs); i > 0; --i) {
    const double at_ps = pulse();
    add(tags.a, at_ps + jitter(random));
    add(tags.b, at_ps + source.delay_ps + jitter(random));
  }
  for (Times* times : {&tags.a, &tags.b}) {
    const double delay_ps = times == &tags.b ? source.delay_ps : 0;
    for (int i = drawn(source.per_pulse * source.pulses); i > 0; --i)
      add(*times, pulse() + delay_ps + jitter(random));
    for (int i = drawn(source.unpulsed); i > 0; --i) add(*times, uniform(random) * source.pulses * source.period_ps);
    std::sort(times->begin(), times->end());
  }
  return tags;
}

TEST(RecordedPulls, OfPairsInPulsedLightHaveMeanZeroAndWidthOne) {
  const PulsedSource source;
  Pulls pairs;
  Pulls place;
  Pulls period;
  Pulls ratio;
  for (int seed = 0; seed < seeds(); ++seed) {
    const PairTags tags = pulsed_pairs(source, static_cast<std::uint64_t>(seed));
    const PairStatistics statistics = pair_statistics(tags.a, tags.b, {400'000, 500, 0});
    ASSERT_EQ(statistics.judgement.verdict, PairVerdict::peak);
    ASSERT_TRUE(statistics.judgement.comb && statistics.judgement.comb->odd);
    const CorrelationComb& comb = *statistics.judgement.comb;
    const double in_pulses = source.per_pulse * source.pulses + source.pairs;
    const double others = in_pulses * in_pulses / source.pulses;
    pairs.add(comb.odd->pairs.value - source.pairs, comb.odd->pairs.error);
    place.add(comb.odd->place_ps - source.delay_ps, comb.odd->place_error_ps);
    period.add(comb.period_ps.value - source.period_ps, comb.period_ps.error);
    ratio.add(comb.odd->of_others.value - 1 - source.pairs / others, comb.odd->of_others.error);
  }
  std::printf("%-28s", "pulsed, 2000 of one pulse");
  expect_standard("pairs", pairs);
  expect_standard("place", place);
  expect_standard("period", period);
  expect_standard("g2", ratio);
  std::printf("\n");
}

}  // namespace
