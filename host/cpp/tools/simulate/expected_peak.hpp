#pragma once
// Part of vq_simulate_stream_file: file-local throughout.
// What an analysis of the capture should find, calculated from the settings: means over all seeds, without dead time.
#include <algorithm>
#include <cmath>
#include <optional>
#include <string>

#include "simulate/settings.hpp"

namespace {

struct ExpectedPeak {
  std::string verdict = "none";  ///< "peak", "dip", "comb" or "none", given counts enough
  double pairs = 0;              ///< that belong together
  double share_a = 0;            ///< of A's tags
  double share_b = 0;
  double background_per_ps = 0;      ///< other pairs per picosecond of delay; of pulses between the teeth
  std::optional<double> g2;          ///< within the full width at half maximum, background or other teeth 1
  std::optional<double> g2_at_zero;  ///< of a dip in its middle
  std::optional<double> period_ps;
  std::optional<double> tooth_pairs;   ///< of any other tooth
  std::optional<double> dip_decay_ps;  ///< the dip has fallen to 1 / e of its depth
};

/// g2 in the middle of a Gaussian peak: of its pairs 76.1 % lie within its full width at half maximum.
inline double g2_of_peak(double pairs, double sigma_ps, double background_per_ps) {
  constexpr double kShareWithin = 0.76096811;
  return 1 + kShareWithin * pairs / (2.354820045 * sigma_ps * background_per_ps);
}

inline void expect_pulses(ExpectedPeak& expected, const LightSettings& light, double common_ps) {
  const auto period_ps = static_cast<double>(light.pulse_period_ps);
  const double seen_of_each = light.photons_of_a_pulse() / 2;
  expected.period_ps = period_ps;
  expected.tooth_pairs = seen_of_each * seen_of_each * common_ps / period_ps;
  const double own_tooth = light.kind == Light::emitter ? 0 : *expected.tooth_pairs;
  expected.g2 = (own_tooth + expected.pairs) / *expected.tooth_pairs;
  expected.verdict = "comb";
  if (expected.pairs > 0) expected.verdict = "peak";
  if (light.kind == Light::emitter && *expected.g2 < 1) expected.verdict = "dip";
}

/// `length_ps`: of the recording; `sigma_ps`: of a pair's delay as it is stored.
inline ExpectedPeak expected_peak(const Settings& settings, double length_ps, double sigma_ps) {
  const LightSettings& light = settings.light;
  const double rate_a = settings.total_rate_hz(settings.pairs.channel_a) * 1e-12;
  const double rate_b = settings.total_rate_hz(settings.pairs.channel_b) * 1e-12;
  const double rate_light = light.rate_hz() / 2 * 1e-12;
  const double common_ps = std::max(length_ps - std::abs(static_cast<double>(settings.pairs.delay_ps)), 0.0);
  const bool is_pulsed = light.kind != Light::none && light.pulse_period_ps != 0;
  ExpectedPeak expected;
  expected.pairs = settings.pairs.rate_hz * 1e-12 * common_ps;
  if (rate_a > 0) expected.share_a = expected.pairs / (rate_a * length_ps);
  if (rate_b > 0) expected.share_b = expected.pairs / (rate_b * length_ps);
  expected.background_per_ps = (rate_a * rate_b - (is_pulsed ? rate_light * rate_light : 0)) * common_ps;
  if (is_pulsed && rate_light > 0 && common_ps > 0) {
    expect_pulses(expected, light, common_ps);
    return expected;
  }
  if (expected.pairs > 0) {
    expected.verdict = "peak";
    if (sigma_ps > 0) expected.g2 = g2_of_peak(expected.pairs, sigma_ps, expected.background_per_ps);
  } else if (rate_light > 0 && common_ps > 0) {
    expected.verdict = "dip";
    const double depth = rate_light * rate_light / (rate_a * rate_b);
    expected.g2 = 1 - depth / 2 / std::log(2.0);  // the mean of e^-t up to the half: (1 - 1/2) / ln 2
    expected.g2_at_zero = 1 - depth;
    expected.dip_decay_ps = 1 / (1 / light.excitation_ps() + 1 / static_cast<double>(light.lifetime_ps));
  }
  return expected;
}

}  // namespace
