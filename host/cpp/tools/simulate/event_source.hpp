#pragma once
// Part of vq_simulate_stream_file: file-local throughout.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "orvo/timing/time_tag.hpp"
#include "simulate/light_source.hpp"
#include "simulate/random.hpp"
#include "simulate/settings.hpp"
#include "simulate/time_queue.hpp"

namespace {

/// The clicks that reach the detectors, in order of time.
///
/// Several Poisson processes together are one Poisson process of the summed rate, whose arrivals each belong to one
/// of them with the probability of its share. So one sequence of arrivals serves all backgrounds and all pairs. The
/// clicks of a pair follow its arrival by a shift that is never negative, so that only the next arrival and the
/// clicks still to come have to be merged.
class EventSource {
 public:
  EventSource(const Settings& settings, std::int64_t end_ps)
      : start_ps_(settings.start_ps),
        end_ps_(end_ps),
        channel_a_(static_cast<std::uint8_t>(settings.pairs.channel_a)),
        channel_b_(static_cast<std::uint8_t>(settings.pairs.channel_b)),
        random_(settings.seed),
        jitter_(settings.pairs.jitter_ps),
        light_jitter_(settings.light.pulse_period_ps != 0 ? settings.light.pulse_jitter_ps : 0) {
    set_shifts(settings.pairs);
    set_rates(settings);
    set_light(settings);
  }

  /// Fills `events` with the next ones; with fewer than `wanted` only at the end.
  void fill(std::vector<orvo::timing::TimeTag>& events, std::size_t wanted) {
    events.resize(wanted);
    orvo::timing::TimeTag* at = events.data();
    const orvo::timing::TimeTag* const end = at + wanted;
    Random random = random_;  // copies in registers
    std::int64_t arrival_ps = arrival_ps_;
    while (at != end) {
      if (light_.next_ps() <= std::min(arrival_ps, next_click_ps_)) {
        send_photon();
        continue;
      }
      if (next_click_ps_ <= arrival_ps) {
        if (next_click_ps_ >= end_ps_) break;
        at = take_click(at);
        continue;
      }
      if (arrival_ps >= end_ps_) break;
      const unsigned origin = draw_origin(random);
      if (origin == kPair) {
        send_pair(arrival_ps, random);
      } else {
        *at = {static_cast<std::uint8_t>(origin), arrival_ps};
        at += arrival_ps >= start_ps_;
      }
      arrival_ps += draw_gap_ps(random);
    }
    random_ = random;
    arrival_ps_ = arrival_ps;
    events.resize(static_cast<std::size_t>(at - events.data()));
  }

 private:
  static constexpr unsigned kPair = orvo::timing::kChannels;

  void set_shifts(const PairSettings& pairs) {
    const std::int64_t lead_ps = GaussianJitter::largest(pairs.jitter_ps);
    shift_a_ps_ = std::max<std::int64_t>(lead_ps - pairs.delay_ps, 0);
    shift_b_ps_ = shift_a_ps_ + pairs.delay_ps;
  }

  /// A rate in units of 0.01 Hz.
  static std::uint64_t hundredths(double rate_hz) { return static_cast<std::uint64_t>(std::llround(rate_hz * 100)); }

  void set_light(const Settings& settings) {
    const std::int64_t lead_ps = GaussianJitter::largest(settings.light.pulse_jitter_ps);
    const std::int64_t delay_ps = settings.pairs.delay_ps;
    light_shift_a_ps_ = lead_ps + std::max<std::int64_t>(-delay_ps, 0);
    light_shift_b_ps_ = light_shift_a_ps_ + delay_ps;
    const std::int64_t longest_shift_ps = std::max(light_shift_a_ps_, light_shift_b_ps_) + lead_ps;
    light_ =
        LightSource(settings.light, settings.seed, settings.start_ps, settings.start_ps - longest_shift_ps, end_ps_);
  }

  void set_rates(const Settings& settings) {
    std::uint64_t sum = hundredths(settings.pairs.rate_hz);
    for (const ChannelSettings& channel : settings.channels) sum += hundredths(channel.rate_hz + channel.dark_hz);
    if (sum == 0) {
      arrival_ps_ = end_ps_;
      return;
    }
    std::uint64_t below = 0;
    for (unsigned c = 0; c < orvo::timing::kChannels; ++c) {
      below += hundredths(settings.channels[c].rate_hz + settings.channels[c].dark_hz);
      origin_ends_[c] = static_cast<std::uint64_t>((Uint128{below} << 63) / sum);
    }
    if (sum < 10'000) gap_fraction_bits_ = 8;  // gaps of seconds, which need the bits
    mean_gap_ = static_cast<std::uint64_t>((Uint128{100'000'000'000'000} << gap_fraction_bits_) / sum);
    // A pair that arrived before the start may have its later click after it.
    const std::int64_t longest_shift_ps =
        std::max(shift_a_ps_, shift_b_ps_) + GaussianJitter::largest(settings.pairs.jitter_ps);
    arrival_ps_ = start_ps_ - longest_shift_ps + draw_gap_ps(random_);
  }

  /// A channel for its background, `kPair` for a pair.
  unsigned draw_origin(Random& random) const {
    const std::uint64_t draw = random.next() >> 1;
    unsigned origin = 0;
    for (const std::uint64_t end : origin_ends_) origin += draw >= end;
    return origin;
  }

  std::int64_t draw_gap_ps(Random& random) const {
    const unsigned fraction_bits = kExponentialFractionBits + gap_fraction_bits_;
    const Uint128 gap = Uint128{exponential(random)} * mean_gap_ + (Uint128{1} << (fraction_bits - 1));
    return static_cast<std::int64_t>(gap >> fraction_bits);
  }

  void send_pair(std::int64_t arrival_ps, Random& random) {
    clicks_a_.push(arrival_ps + shift_a_ps_);
    clicks_b_.push(arrival_ps + shift_b_ps_ + jitter_.next(random));
    next_click_ps_ = std::min(clicks_a_.front(), clicks_b_.front());
  }

  /// A photon goes to either channel.
  void send_photon() {
    Random& random = light_.random();
    const bool to_a = random.next() >> 63 != 0;
    const std::int64_t shift_ps = (to_a ? light_shift_a_ps_ : light_shift_b_ps_) + light_jitter_.next(random);
    (to_a ? clicks_a_ : clicks_b_).push(light_.next_ps() + shift_ps);
    next_click_ps_ = std::min(clicks_a_.front(), clicks_b_.front());
    light_.advance();
  }

  /// Stores the next click of a pair or of a photon, and returns the place after it.
  orvo::timing::TimeTag* take_click(orvo::timing::TimeTag* at) {
    const bool is_a = clicks_a_.front() == next_click_ps_;
    (is_a ? clicks_a_ : clicks_b_).pop();
    *at = {is_a ? channel_a_ : channel_b_, next_click_ps_};
    at += next_click_ps_ >= start_ps_;
    next_click_ps_ = std::min(clicks_a_.front(), clicks_b_.front());
    return at;
  }

  std::int64_t start_ps_;
  std::int64_t end_ps_;
  std::uint8_t channel_a_;
  std::uint8_t channel_b_;
  std::int64_t shift_a_ps_ = 0;
  std::int64_t shift_b_ps_ = 0;
  std::array<std::uint64_t, orvo::timing::kChannels> origin_ends_{};  // in units of 2^-63
  unsigned gap_fraction_bits_ = 28;
  std::uint64_t mean_gap_ = 0;  // ps, in units of 2^-gap_fraction_bits_
  Random random_;
  GaussianJitter jitter_;
  GaussianJitter light_jitter_;
  LightSource light_;
  std::int64_t light_shift_a_ps_ = 0;
  std::int64_t light_shift_b_ps_ = 0;
  std::int64_t arrival_ps_ = 0;
  TimeQueue clicks_a_;
  TimeQueue clicks_b_;
  std::int64_t next_click_ps_ = TimeQueue::kNever;
};

}  // namespace
