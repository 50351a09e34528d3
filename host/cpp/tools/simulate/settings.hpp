#pragma once
// Part of vq_simulate_stream_file: file-local throughout.
#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "orvo/timing/stream_file_header.hpp"
#include "orvo/timing/time_tag.hpp"

namespace {

/// One input.
struct ChannelSettings {
  bool active = false;
  double rate_hz = 0;  ///< of the uncorrelated tags, Poisson; a multiple of 0.01
  double dark_hz = 0;  ///< of tags without light, likewise
  std::int64_t dead_time_ps = 0;
};

/// Correlated clicks on two inputs: B clicks later than A by the delay plus a normally distributed jitter.
struct PairSettings {
  unsigned channel_a = 0;
  unsigned channel_b = 1;
  double rate_hz = 50'000;  ///< a multiple of 0.01
  std::int64_t delay_ps = 160;
  std::int64_t jitter_ps = 40;    ///< standard deviation
  std::int64_t range_ps = 5'000;  ///< largest distance from the delay that counts as a coincidence
};

enum class Light { none, pulses, emitter };

/// Light whose photons go to the two inputs of the pairs at random, later to B by the delay.
struct LightSettings {
  Light kind = Light::none;
  std::int64_t pulse_period_ps = 0;    ///< 0: continuous light of an emitter
  std::int64_t pulse_jitter_ps = 100;  ///< standard deviation of a photon's time
  double photons = 0.1;                ///< mean of a pulse; an emitter gives one photon for all of them
  double emission_rate_hz = 100'000;   ///< of continuous light
  std::int64_t lifetime_ps = 10'000;   ///< of continuous light, from excitation to photon

  /// Photons per second, on both inputs together.
  double rate_hz() const {
    if (kind == Light::none) return 0;
    if (pulse_period_ps == 0) return emission_rate_hz;
    return photons_of_a_pulse() * 1e12 / static_cast<double>(pulse_period_ps);
  }
  /// Mean of the photons that are seen of a pulse.
  double photons_of_a_pulse() const { return kind == Light::emitter ? -std::expm1(-photons) : photons; }
  /// Mean time until an emitter of continuous light is excited again.
  double excitation_ps() const { return 1e12 / emission_rate_hz - static_cast<double>(lifetime_ps); }
};

/// Damage to the encoded payload.
struct DamageSettings {
  std::uint64_t front_garbage_bytes = 0;
  std::uint64_t garbage_bytes = 0;
  std::uint64_t garbage_at = 0;        ///< before this byte of the encoded payload
  std::uint64_t flip_every_bytes = 0;  ///< flips one random bit in every stretch of this many bytes; 0 = none
  std::uint64_t cut_tail_bytes = 0;

  bool any() const { return (front_garbage_bytes | garbage_bytes | flip_every_bytes | cut_tail_bytes) != 0; }
};

/// Everything a capture depends on.
struct Settings {
  std::filesystem::path out;
  orvo::timing::StreamFormat encoding = orvo::timing::StreamFormat::raw64;
  orvo::timing::StreamMode mode = orvo::timing::StreamMode::external;
  std::string tag_format = "ps";
  unsigned delta_bits = 16;
  unsigned quantum_ps = 8;
  unsigned start_bit = 0;
  std::uint64_t anchor_every = 1'000;  ///< tags of a channel from one time base or anchor to the next
  std::array<ChannelSettings, orvo::timing::kChannels> channels{};
  PairSettings pairs;
  LightSettings light;
  std::int64_t start_ps = 0;
  std::optional<std::uint64_t> tags;        ///< stop after this many tags,
  std::optional<std::int64_t> duration_ps;  ///< or after this time: exactly one of the two is set
  std::uint64_t seed = 1;
  DamageSettings damage;

  /// The exponent of the largest power of two that divides `quantum_ps`.
  unsigned quantum_shift() const { return static_cast<unsigned>(std::countr_zero(quantum_ps)); }
  bool is_packed() const { return encoding == orvo::timing::StreamFormat::packed_delta; }
  bool is_raw_cf() const { return encoding == orvo::timing::StreamFormat::raw64 && tag_format == "raw_cf"; }
  bool in_pairs(unsigned channel) const { return channel == pairs.channel_a || channel == pairs.channel_b; }
  bool has_dead_time() const {
    return std::any_of(channels.begin(), channels.end(),
                       [](const ChannelSettings& channel) { return channel.dead_time_ps != 0; });
  }
  /// Everything that an input sees, before the dead time.
  double total_rate_hz(unsigned channel) const {
    const double correlated_hz = in_pairs(channel) ? pairs.rate_hz + light.rate_hz() / 2 : 0;
    return channels[channel].rate_hz + channels[channel].dark_hz + correlated_hz;
  }
  /// The rate that the dead time leaves.
  double stored_rate_hz(unsigned channel) const {
    const double rate_hz = total_rate_hz(channel);
    return rate_hz / (1 + rate_hz * 1e-12 * static_cast<double>(channels[channel].dead_time_ps));
  }
};

inline std::vector<unsigned> active_channels_of(const Settings& settings) {
  std::vector<unsigned> active;
  for (unsigned c = 0; c < orvo::timing::kChannels; ++c) {
    if (settings.channels[c].active) active.push_back(c);
  }
  return active;
}

/// Activates these channels, at least one. The two lowest make the pairs.
inline void set_active_channels(Settings& settings, const std::vector<unsigned>& channels) {
  for (const unsigned c : channels) settings.channels[c].active = true;
  const std::vector<unsigned> active = active_channels_of(settings);
  settings.pairs.channel_a = active.front();
  settings.pairs.channel_b = active.size() > 1 ? active[1] : active.front();
}

/// No simulation goes on for longer: 1,000,000 s.
inline constexpr std::int64_t kLongestPs = 1'000'000'000'000'000'000;

}  // namespace
