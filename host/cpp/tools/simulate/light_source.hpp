#pragma once
// Part of vq_simulate_stream_file: file-local throughout.
#include <cmath>
#include <cstdint>
#include <limits>

#include "orvo/timing/detail/wide_integer.hpp"
#include "simulate/random.hpp"
#include "simulate/settings.hpp"

namespace {

/// When the photons of a light source leave it, one after the other.
///
/// Pulses: the photons of all pulses in a row are a Poisson process whose time is counted in pulses. What falls
/// between two whole numbers belongs to one pulse, and each has a Poisson number. An emitter gives the first of them
/// only.
///
/// Continuous light of an emitter: it waits to be excited, then for its photon. Both waits are exponential, and no
/// two photons come at once: with the rates 1 / e and 1 / l of the two, there are 1 - exp(-(1 / e + 1 / l) t) times
/// as many pairs of photons t apart as of unrelated ones.
class LightSource {
 public:
  static constexpr std::int64_t kNever = std::numeric_limits<std::int64_t>::max();

  /// No light.
  LightSource() = default;

  /// Pulses come at multiples of the period from `start_ps`, also before it, from `first_ps` on.
  LightSource(const LightSettings& light, std::uint64_t seed, std::int64_t start_ps, std::int64_t first_ps,
              std::int64_t end_ps)
      : light_(light), random_(seed ^ kStream), end_ps_(end_ps) {
    if (light.rate_hz() == 0) return;
    if (light.pulse_period_ps != 0) {
      origin_ps_ = start_ps - ((start_ps - first_ps) / light.pulse_period_ps + 1) * light.pulse_period_ps;
      photons_ = static_cast<std::uint64_t>(std::llround(light.photons * kPhotonUnits));
    } else {
      next_ps_ = first_ps;
      excitation_ps_ = static_cast<std::uint64_t>(std::llround(light.excitation_ps()));
    }
    advance();
  }

  /// When the next photon leaves; `kNever` when none does before the end.
  std::int64_t next_ps() const { return next_ps_; }

  /// Goes on to the photon after that.
  void advance() {
    if (light_.pulse_period_ps != 0) {
      next_pulse_photon();
    } else {
      next_ps_ += scaled(excitation_ps_) + scaled(static_cast<std::uint64_t>(light_.lifetime_ps));
    }
    if (next_ps_ >= end_ps_) next_ps_ = kNever;
  }

  Random& random() { return random_; }

 private:
  static constexpr std::uint64_t kStream = 0x1157'0000'0000'0000;  // other numbers than those of pairs and background
  static constexpr double kPhotonUnits = 10'000;

  /// An exponential number of that mean.
  std::int64_t scaled(std::uint64_t mean) {
    return static_cast<std::int64_t>(Uint128{exponential(random_)} * mean >> kExponentialFractionBits);
  }

  void next_pulse_photon() {
    const Uint128 pulse_before = pulses_ >> kExponentialFractionBits;
    do {
      pulses_ += Uint128{exponential(random_)} * static_cast<std::uint64_t>(kPhotonUnits) / photons_;
    } while (light_.kind == Light::emitter && has_photon_ && pulses_ >> kExponentialFractionBits == pulse_before);
    has_photon_ = true;
    const auto pulse = static_cast<std::int64_t>(pulses_ >> kExponentialFractionBits);
    next_ps_ = pulse > (end_ps_ - origin_ps_) / light_.pulse_period_ps ? kNever
                                                                       : origin_ps_ + pulse * light_.pulse_period_ps;
  }

  LightSettings light_;
  Random random_{0};
  std::int64_t end_ps_ = 0;
  std::int64_t origin_ps_ = 0;  // of the first pulse
  Uint128 pulses_ = 0;          // from there, in units of 2^-58
  std::uint64_t photons_ = 1;   // of a pulse, in units of 1 / 10000
  std::uint64_t excitation_ps_ = 0;
  bool has_photon_ = false;
  std::int64_t next_ps_ = kNever;
};

}  // namespace
