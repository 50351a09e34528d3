#pragma once
// Part of vq_simulate_stream_file: file-local throughout.
#include <cstdint>

#include "orvo/timing/detail/device_time.hpp"

namespace {

/// The clock behind delta32 and packed_delta: 41 bits of the device time in units of 2^shift ps. It wraps when the 41
/// bits do, and once more, out of step, when the device time does.
class TruncatedClock {
 public:
  explicit constexpr TruncatedClock(unsigned shift)
      : modulus_ps_(orvo::timing::detail::kBaseModulus << shift),
        wrap_step_ps_(orvo::timing::detail::wrap_step_ps(modulus_ps_)) {}

  /// What the clock reads at a time.
  constexpr std::uint64_t reading_ps(std::uint64_t time_ps) const {
    return time_ps % orvo::timing::detail::kDevicePeriodPs % modulus_ps_;
  }
  constexpr std::uint64_t modulus_ps() const { return modulus_ps_; }
  /// How much too large a difference of two readings is when the device time has wrapped between them.
  constexpr std::uint64_t wrap_step_ps() const { return wrap_step_ps_; }
  /// A clock that does not reach a device period tells times apart only within its modulus.
  constexpr bool is_short() const { return modulus_ps_ < orvo::timing::detail::kDevicePeriodPs; }

 private:
  std::uint64_t modulus_ps_;
  std::uint64_t wrap_step_ps_;
};

/// How far the times of one channel have come in a stream of differences and bases, simulated and decoded.
///
/// A decoder starts from the clock's reading at the channel's first tag and counts on from there, so that its times
/// stay a constant behind the simulated ones. Where the device time wraps, differences and bases come out one wrap
/// step too large, as from the device, provided that a decoder knows the step for what it is. It does not after a gap
/// of more than 10 ms or past the second wrap of a short clock; there they are those of a clock without the wrap.
/// Gaps are at most a second, which is less than any wrap step.
class ChannelClock {
 public:
  bool has_started() const { return has_started_; }
  std::uint64_t last_ps() const { return last_ps_; }
  /// When the device time wraps next.
  std::uint64_t wrap_ps() const { return wrap_ps_; }

  /// What to store as the difference to a later tag.
  std::uint64_t difference_ps(const TruncatedClock& clock, std::uint64_t time_ps) const {
    using orvo::timing::detail::without_wrap_step;
    const std::uint64_t gap_ps = time_ps - last_ps_;
    if (time_ps < wrap_ps_) return gap_ps;
    const std::uint64_t read_ps = gap_ps + clock.wrap_step_ps();
    return without_wrap_step(read_ps, decoded_ps(last_ps_), clock.wrap_step_ps()) == gap_ps ? read_ps : gap_ps;
  }

  /// What to store as the base of a tag, the first or a later one.
  std::uint64_t base_ps(const TruncatedClock& clock, std::uint64_t time_ps) const {
    using orvo::timing::detail::lift_over_wrap;
    const std::uint64_t reading_ps = clock.reading_ps(time_ps);
    if (!has_started_ || !clock.is_short()) return reading_ps;
    const std::uint64_t lifted_ps =
        lift_over_wrap(reading_ps, decoded_ps(last_ps_), clock.modulus_ps(), clock.wrap_step_ps());
    return lifted_ps == decoded_ps(time_ps) ? reading_ps : decoded_ps(time_ps) % clock.modulus_ps();
  }

  /// Moves on to a tag, the first or a later one.
  void advance(const TruncatedClock& clock, std::uint64_t time_ps) {
    if (!has_started_) axis_ps_ = clock.reading_ps(time_ps) - time_ps;
    has_started_ = true;
    last_ps_ = time_ps;
    if (time_ps >= wrap_ps_) wrap_ps_ += (time_ps - wrap_ps_) / kPeriodPs * kPeriodPs + kPeriodPs;
  }
  /// The same for a later tag before `wrap_ps()`.
  void advance_within_period(std::uint64_t time_ps) { last_ps_ = time_ps; }

 private:
  static constexpr std::uint64_t kPeriodPs = orvo::timing::detail::kDevicePeriodPs;
  std::uint64_t decoded_ps(std::uint64_t time_ps) const { return time_ps + axis_ps_; }

  bool has_started_ = false;
  std::uint64_t last_ps_ = 0;
  std::uint64_t wrap_ps_ = kPeriodPs;
  std::uint64_t axis_ps_ = 0;  // decoded less simulated time, modulo 2^64
};

}  // namespace
