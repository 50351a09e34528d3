#pragma once
// What delta32 and packed_delta make of times: they carry 41 bits of them.
#include <algorithm>
#include <cstdint>
#include <optional>

#include "orvo/timing/detail/device_time.hpp"

namespace orvo::timing::detail {

/// 41 bits of the device time in units of 2^shift ps. The clock wraps when the 41 bits do, and once more, out of
/// step, when the device time does.
class TruncatedClock {
 public:
  explicit constexpr TruncatedClock(unsigned shift)
      : modulus_ps_(kBaseModulus << shift), wrap_step_ps_(detail::wrap_step_ps(modulus_ps_)) {}

  /// What the clock reads at a time.
  constexpr std::uint64_t reading_ps(std::uint64_t time_ps) const { return time_ps % kDevicePeriodPs % modulus_ps_; }
  constexpr std::uint64_t modulus_ps() const { return modulus_ps_; }
  /// Readings are below this.
  constexpr std::uint64_t lap_ps() const { return is_short() ? modulus_ps_ : kDevicePeriodPs; }
  /// How much too large a difference of two readings is when the device time has wrapped between them.
  constexpr std::uint64_t wrap_step_ps() const { return wrap_step_ps_; }
  /// A clock that does not reach a device period tells times apart only within its modulus.
  constexpr bool is_short() const { return modulus_ps_ < kDevicePeriodPs; }
  /// What a decoder whose channel is at `near_ps` makes of a base.
  constexpr std::uint64_t lifted_ps(std::uint64_t base_ps, std::uint64_t near_ps) const {
    return is_short() ? lift_over_wrap(base_ps, near_ps, modulus_ps_, wrap_step_ps_)
                      : lift(base_ps, near_ps, kDevicePeriodPs);
  }

 private:
  std::uint64_t modulus_ps_;
  std::uint64_t wrap_step_ps_;
};

/// How far the times of one channel have come in a stream of differences and bases, as given and as decoded. Between
/// the two lies a constant, which the channel's first tag fixes. All arithmetic is modulo 2^64.
///
/// Where the device time wraps, differences and bases come out one wrap step too large, as from the device, provided
/// that a decoder knows the step for what it is. It does not after a gap of more than 10 ms or past the second wrap
/// of a short clock; there they are those of a clock without the wrap.
class ChannelClock {
 public:
  bool has_started() const { return has_started_; }
  std::uint64_t last_ps() const { return last_ps_; }
  /// When the device time wraps next, or times end.
  std::uint64_t wrap_ps() const { return wrap_ps_; }
  /// Decoded less given time.
  std::uint64_t axis_ps() const { return axis_ps_; }
  std::uint64_t decoded_ps(std::uint64_t time_ps) const { return time_ps + axis_ps_; }

  /// What to store as the difference to a tag that is not earlier, if anything: the first of a few numbers that a
  /// decoder takes for that gap and that `suits`.
  template <class Suits>
  std::optional<std::uint64_t> difference_ps(const TruncatedClock& clock, std::uint64_t time_ps, Suits suits) const {
    const std::uint64_t gap_ps = time_ps - last_ps_;
    const std::uint64_t read_ps = gap_ps + clock.wrap_step_ps();
    const bool wraps = time_ps >= wrap_ps_;
    for (const std::uint64_t stored_ps : {wraps ? read_ps : gap_ps, wraps ? gap_ps : read_ps}) {
      const std::uint64_t taken_ps = without_wrap_step(stored_ps, decoded_ps(last_ps_), clock.wrap_step_ps());
      if (taken_ps == gap_ps && stored_ps >= gap_ps && suits(stored_ps)) return stored_ps;
    }
    return std::nullopt;
  }

  /// What to store as the base of a later tag, if anything.
  std::optional<std::uint64_t> base_ps(const TruncatedClock& clock, std::uint64_t time_ps) const {
    for (const std::uint64_t base_ps : {clock.reading_ps(time_ps), decoded_ps(time_ps) % clock.lap_ps()}) {
      if (clock.lifted_ps(base_ps, decoded_ps(last_ps_)) == decoded_ps(time_ps)) return base_ps;
    }
    return std::nullopt;
  }

  /// The first tag, which decodes to `time_ps` and `axis_ps`.
  void start(std::uint64_t time_ps, std::uint64_t axis_ps) {
    has_started_ = true;
    axis_ps_ = axis_ps;
    advance(time_ps);
  }
  /// Moves on to a tag.
  void advance(std::uint64_t time_ps) {
    last_ps_ = time_ps;
    if (time_ps < wrap_ps_) return;
    const std::uint64_t next_ps = (time_ps / kDevicePeriodPs + 1) * kDevicePeriodPs;
    wrap_ps_ = std::min(next_ps, kEndOfTimesPs);
  }
  /// The same for a tag before `wrap_ps()`.
  void advance_within_period(std::uint64_t time_ps) { last_ps_ = time_ps; }

 private:
  static constexpr std::uint64_t kEndOfTimesPs = std::uint64_t{1} << 63;

  bool has_started_ = false;
  std::uint64_t last_ps_ = 0;
  std::uint64_t wrap_ps_ = kDevicePeriodPs;
  std::uint64_t axis_ps_ = 0;
};

}  // namespace orvo::timing::detail
