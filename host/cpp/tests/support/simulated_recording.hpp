#pragma once
// Tags of two or more channels drawn from a known source, in order of time, and how many recordings a simulation has.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <numbers>
#include <random>
#include <vector>

#include "support/random.hpp"

namespace orvo::test {

using Times = std::vector<std::int64_t>;

inline constexpr double kSecondPs = 1e12;

/// A number that a long simulation is asked for by its environment, or what a quick test takes.
inline int simulation_setting(const char* name, int quick) {
  const char* const wanted = std::getenv(name);
  return wanted == nullptr ? quick : std::atoi(wanted);
}

/// How many recordings a test of statistics simulates: ORVO_SIMULATION_SEEDS of them, or rounds(quick), at least ten.
inline int simulated_recordings(int quick) {
  const auto usual = static_cast<int>(rounds(static_cast<std::uint64_t>(quick)));
  return std::max(simulation_setting("ORVO_SIMULATION_SEEDS", usual), 10);
}

/// A rate that swings about its mean.
struct RateDrift {
  double depth = 0;
  double cycles = 3;  ///< in the recording
  double phase = 0;   ///< in turns

  double at(double share_of_time) const {
    return 1 + depth * std::sin(2 * std::numbers::pi * (cycles * share_of_time + phase));
  }
};

/// From 0 to below 1, as std::generate_canonical draws it, which takes two logarithms of long doubles each time.
inline double drawn_below_1(std::mt19937_64& random) {
  return std::min(static_cast<double>(random()) * 0x1p-64, 1 - 0x1p-53);
}

/// Moments of a Poisson process whose rate drifts, from 0 to `seconds`.
inline std::vector<double> poisson_moments_ps(double rate_hz, double seconds, const RateDrift& drift,
                                              std::mt19937_64& random) {
  std::vector<double> moments;
  if (!(rate_hz > 0)) return moments;
  const double highest = 1 + drift.depth;
  moments.reserve(static_cast<std::size_t>(1.05 * rate_hz * seconds) + 100);
  const double highest_per_ps = rate_hz * highest / kSecondPs;
  const auto gap = [&] { return -std::log(1 - drawn_below_1(random)) / highest_per_ps; };
  const double end = seconds * kSecondPs;
  for (double at = gap(); at < end; at += gap()) {
    if (drift.depth == 0 || drawn_below_1(random) * highest < drift.at(at / end)) moments.push_back(at);
  }
  return moments;
}

/// Two detectors, each of which sees light of its own beside that of a source of pairs.
struct PairSource {
  double rate_hz = 10'000;  ///< of tags on A, all in all
  double ratio = 1;         ///< of the tags on B to those on A
  double seconds = 10;
  double share = 0;  ///< of the tags on A whose partner is in the recording, too
  double delay_ps = 0;
  double jitter_ps = 100;
  RateDrift drift = {};
};

struct PairTags {
  Times a;
  Times b;
};

/// One recording of it. Both channels are recorded for the same time: clicks before or after are lost.
inline PairTags recorded_pairs(const PairSource& source, std::uint64_t seed) {
  std::mt19937_64 random(seed);
  std::normal_distribution<double> jitter(0, source.jitter_ps);
  const double end = source.seconds * kSecondPs;
  const double common = 1 - std::abs(source.delay_ps) / end;
  const double pairs_hz = source.share * source.rate_hz / common;
  PairTags tags;
  const auto add = [&](Times& times, double at) {
    if (at >= 0 && at < end) times.push_back(std::llround(at));
  };
  // The rates drift with the time of day, not with that of the source: B's clicks are taken as earlier by the delay.
  RateDrift early = source.drift;
  early.phase -= early.cycles * std::abs(source.delay_ps) / end;
  const double before_ps = std::abs(source.delay_ps);
  const double seconds = source.seconds + before_ps / kSecondPs;
  early.cycles *= seconds / source.seconds;
  for (const double moment : poisson_moments_ps(pairs_hz, seconds, early, random)) {
    const double at = moment - before_ps;  // of the earlier click; the other one follows
    add(tags.a, source.delay_ps < 0 ? at + before_ps : at);
    add(tags.b, (source.delay_ps < 0 ? at : at + before_ps) + jitter(random));
  }
  for (Times* times : {&tags.a, &tags.b}) {
    const double rate_hz = source.rate_hz * (times == &tags.b ? source.ratio : 1);
    for (const double at : poisson_moments_ps(rate_hz - pairs_hz, source.seconds, source.drift, random))
      add(*times, at);
    std::sort(times->begin(), times->end());
  }
  return tags;
}

}  // namespace orvo::test
