#pragma once
// Part of vq_simulate_stream_file: file-local throughout.
// The calculated shape of a histogram of the coincidences.
#include <algorithm>
#include <cmath>
#include <cstdint>

#include "simulate/coincidences.hpp"
#include "simulate/settings.hpp"

namespace {

inline constexpr double kPi = 3.14159265358979323846;

/// Standard deviation of the stored difference of a pair when both tags are rounded to a grid of `step_ps`.
///
/// A difference between two multiples of the step is stored as one or the other, the nearer one more often: at a
/// fraction f of the step, this adds f (1 - f) steps squared to the variance. The mean of that over the jitter is a
/// Fourier series: 1/6 less the sum over k of cos(2 pi k f) exp(-2 (pi k jitter / step)^2) / (pi k)^2.
inline double pair_sigma_ps(const PairSettings& pairs, double step_ps) {
  const double delay_steps = static_cast<double>(pairs.delay_ps) / step_ps;
  const double fraction = delay_steps - std::floor(delay_steps);
  if (pairs.jitter_ps == 0) return std::sqrt(fraction * (1 - fraction)) * step_ps;
  const auto jitter_ps = static_cast<double>(pairs.jitter_ps);
  const double turn = 2 * kPi * fraction;
  double steps2 = 1.0 / 6;
  for (int k = 1; k <= 1'000; ++k) {
    const double width = kPi * k * jitter_ps / step_ps;
    steps2 -= std::cos(turn * k) * std::exp(-2 * width * width) / (kPi * kPi * k * k);
  }
  return std::sqrt(jitter_ps * jitter_ps + std::max(steps2, 0.0) * step_ps * step_ps);
}

/// The number of pairs stored with a difference within the range of the delay, when there is no dead time.
inline double pairs_in_range(const PairSettings& pairs, double sigma_ps, double length_ps) {
  const double range_sigmas = static_cast<double>(pairs.range_ps) / std::max(sigma_ps, 1e-3);
  const double common_ps = std::max(length_ps - std::abs(static_cast<double>(pairs.delay_ps)), 0.0);
  return pairs.rate_hz * 1e-12 * common_ps * std::erf(range_sigmas / std::sqrt(2.0));
}

/// Accidental coincidences, of tags that do not belong to one pair: they spread evenly over the range. With a delay
/// there are as many as in the time for which both tags can be in the recording.
inline double accidentals(double tags_a, double tags_b, const PairSettings& pairs, double length_ps) {
  if (!(length_ps > 0)) return 0;
  const double common = std::max(1 - std::abs(static_cast<double>(pairs.delay_ps)) / length_ps, 0.0);
  return tags_a * tags_b * static_cast<double>(2 * pairs.range_ps + 1) / length_ps * common;
}

/// Width of a histogram of pairs and accidentals, and how much it and the mean vary.
struct ExpectedHistogram {
  double rms_ps = 0;
  double rms_error_ps = 0;  ///< standard deviation from one seed to another
  double mean_error_ps = 0;
};

/// `accidental`: how many of the `count` coincidences are accidental.
inline ExpectedHistogram expected_histogram(double count, double accidental, double sigma_ps, std::int64_t range_ps) {
  if (count < 1) return {};
  const auto range = static_cast<double>(range_ps);
  const double flat = std::min(accidental / count, 1.0);
  const double variance = (1 - flat) * sigma_ps * sigma_ps + flat * range * range / 3;
  const double fourth = (1 - flat) * 3 * std::pow(sigma_ps, 4) + flat * std::pow(range, 4) / 5;
  ExpectedHistogram expected;
  expected.rms_ps = std::sqrt(variance);
  expected.mean_error_ps = std::sqrt(variance / count);
  if (variance == 0) return {};
  expected.rms_error_ps = std::sqrt(std::max(fourth - variance * variance, 0.0) / (4 * variance * count));
  return expected;
}

}  // namespace
