#pragma once
// Part of vq_simulate_stream_file: file-local throughout.
// The rules between settings. Those that keep them give a capture that decodes to exactly what was simulated.
#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "common/usage_error.hpp"
#include "simulate/settings.hpp"

namespace {

inline void check_pairs(const Settings& settings) {
  const PairSettings& pairs = settings.pairs;
  if (pairs.channel_a == pairs.channel_b) {
    if (settings.light.rate_hz() != 0) throw UsageError("--light: it takes two active channels (--channels)");
    if (pairs.rate_hz != 0) throw UsageError("--pair-rate: pairs need two active channels (--channels)");
    return;
  }
  for (const unsigned c : {pairs.channel_a, pairs.channel_b}) {
    if (!settings.channels[c].active) {
      throw UsageError("--pair-channels: channel " + std::to_string(c) + " is not active (--channels)");
    }
  }
}

/// With two decimals, and without those that are 0.
inline std::string number_text(double value) {
  std::string text = std::to_string(std::llround(value * 100) / 100);
  const long long hundredths = std::llround(value * 100) % 100;
  if (hundredths == 0) return text;
  text += hundredths < 10 ? ".0" : ".";
  text += std::to_string(hundredths % 10 == 0 ? hundredths / 10 : hundredths);
  return text;
}

inline void check_light(const LightSettings& light) {
  constexpr double kMostHz = 1e8;
  if (light.kind == Light::none) return;
  if (light.kind == Light::pulses && light.pulse_period_ps == 0) {
    throw UsageError("--pulse-period: pulses need one; continuous light is that of an emitter");
  }
  if (light.rate_hz() > kMostHz) {
    throw UsageError("--photons, --pulse-period: " + number_text(light.rate_hz()) +
                     " photons per second; it takes at most 100000000");
  }
  if (light.pulse_period_ps == 0 && light.rate_hz() != 0 && light.excitation_ps() < 1) {
    throw UsageError("--lifetime: an emitter of " + number_text(light.emission_rate_hz) +
                     " photons per second lives shorter than the time between them");
  }
}

/// Clicks wait in memory for as long as the delay.
inline void check_delay(const Settings& settings) {
  constexpr double kMostWaiting = 1e8;
  const double seconds = std::abs(static_cast<double>(settings.pairs.delay_ps)) * 1e-12;
  const double waiting = seconds * std::max(settings.total_rate_hz(settings.pairs.channel_a),
                                            settings.total_rate_hz(settings.pairs.channel_b));
  if (waiting > kMostWaiting) {
    throw UsageError("--delay: " + number_text(waiting) + " clicks would be under way; it takes at most 100000000");
  }
}

/// A gap of a second could be taken for a wrap of the device time. At 100 tags per second one gap in 10^43 is as
/// long.
inline void check_rates(const Settings& settings) {
  constexpr double kLeastHz = 100;
  for (const unsigned c : active_channels_of(settings)) {
    const double rate_hz = settings.total_rate_hz(c);
    if (rate_hz != 0 && rate_hz < kLeastHz) {
      throw UsageError("--rate, --pair-rate: channel " + std::to_string(c) + " would click " + number_text(rate_hz) +
                       " times per second; it takes 0, or at least 100");
    }
  }
}

inline void check_length(const Settings& settings) {
  if (settings.tags && settings.duration_ps) throw UsageError("--tags, --duration: give only one of them");
  if (!settings.tags || *settings.tags == 0) return;
  double rate_hz = 0;
  for (const unsigned c : active_channels_of(settings)) rate_hz += settings.stored_rate_hz(c);
  if (rate_hz == 0) throw UsageError("--tags: no channel ever clicks (--rate, --pair-rate)");
  constexpr double kLongestSeconds = 900'000;
  if (static_cast<double>(*settings.tags) / rate_hz > kLongestSeconds) {
    throw UsageError("--tags: " + std::to_string(*settings.tags) + " would take more than 900000 s at these rates");
  }
}

/// Decoders align packed records by two channels that click; in internal mode by all, which click at similar rates.
inline void check_packed(const Settings& settings) {
  std::vector<double> rates_hz;
  for (const unsigned c : active_channels_of(settings)) rates_hz.push_back(settings.stored_rate_hz(c));
  if (rates_hz.size() < 2) return;
  std::sort(rates_hz.begin(), rates_hz.end());
  if (rates_hz[rates_hz.size() - 2] == 0) {
    throw UsageError("--rate: packed_delta needs at least two channels that click, where several are active");
  }
  constexpr double kMostUneven = 1.5;
  if (settings.mode == orvo::timing::StreamMode::internal && rates_hz.back() > kMostUneven * rates_hz.front()) {
    throw UsageError(
        "--rate: packed_delta in internal mode needs similar rates: the highest, pairs included, may be at most 1.5 "
        "times the lowest");
  }
}

/// Throws `UsageError` for settings that no capture can have.
inline void check_settings(const Settings& settings) {
  if (settings.out.empty()) throw UsageError("no file given: name the capture to write (--help lists the options)");
  check_light(settings.light);
  check_pairs(settings);
  check_delay(settings);
  check_rates(settings);
  check_length(settings);
  if (settings.is_packed()) check_packed(settings);
}

}  // namespace
