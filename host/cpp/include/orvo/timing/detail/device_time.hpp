#pragma once
// The converter's clock. It counts coarse periods of 3333 ps in 32 bits, so the device time of an event wraps with
// the period 3333 * 2^32 ps, about 14.3 s. Encodings that store fewer bits wrap earlier, and once more, out of step,
// when the device time does. All arithmetic here is modulo 2^64.
#include <algorithm>
#include <cstdint>

#include "orvo/timing/version.hpp"

namespace orvo::timing::detail {

inline constexpr std::uint64_t kCoarsePeriodPs = 3333;
inline constexpr std::uint64_t kCoarseCounts = std::uint64_t{1} << 32;
inline constexpr std::uint64_t kDevicePeriodPs = kCoarsePeriodPs * kCoarseCounts;
static_assert(kDevicePeriodPs == 0xD05'0000'0000 && kDevicePeriodPs == 14'315'125'997'568);

/// Time bases and anchors carry this many bits of the device time (in quanta).
inline constexpr unsigned kBaseBits = 41;
inline constexpr std::uint64_t kBaseModulus = std::uint64_t{1} << kBaseBits;

/// A rest of a gap up to this long is taken for the gap itself; see `without_wrap_step`.
inline constexpr std::uint64_t kSmallRestPs = 10'000'000'000;

/// True when a counter of the given period went from `previous` to `now` through its wrap: a step back of strictly
/// more than half a period. Smaller steps back are tags out of order.
constexpr bool wrapped(std::uint64_t previous, std::uint64_t now, std::uint64_t period) {
  return static_cast<std::int64_t>(previous - now) > static_cast<std::int64_t>(period / 2);
}
static_assert(!wrapped(0, kDevicePeriodPs - 1, kDevicePeriodPs));

/// Unwrapped time as a reference for unsigned arithmetic: times before zero count as zero.
constexpr std::uint64_t reference_ps(std::int64_t time_ps) {
  return static_cast<std::uint64_t>(std::max<std::int64_t>(time_ps, 0));
}

/// How far a time truncated to `modulus` jumps ahead when the device time wraps: the distance from the device period
/// up to the next multiple of the modulus.
constexpr std::uint64_t wrap_step_ps(std::uint64_t modulus) {
  return (kDevicePeriodPs + modulus - 1) / modulus * modulus - kDevicePeriodPs;
}
static_assert(wrap_step_ps(kBaseModulus) == 0xFB'0000'0000);

/// A forward gap that contains the device's wrap reads one wrap step too long. Returns the gap without the step when
/// what remains is small, or would carry `from_ps` to the device's wrap or beyond.
constexpr std::uint64_t without_wrap_step(std::uint64_t gap_ps, std::uint64_t from_ps, std::uint64_t step_ps) {
  if (step_ps == 0 || gap_ps <= step_ps) return gap_ps;
  const std::uint64_t rest_ps = gap_ps - step_ps;
  const bool crosses =
      from_ps % kDevicePeriodPs + rest_ps >= kDevicePeriodPs;  // wraps for rests near 2^64, on purpose
  return rest_ps <= kSmallRestPs || crosses ? rest_ps : gap_ps;
}
static_assert(without_wrap_step(0xFB'0000'0000 + 5'000, 0, 0xFB'0000'0000) == 5'000);

/// Places a time known modulo `modulus` near `near_ps`: in the reference's own lap, or in the next one when it would
/// lie strictly more than half a modulus behind.
constexpr std::uint64_t lift(std::uint64_t truncated_ps, std::uint64_t near_ps, std::uint64_t modulus) {
  const std::uint64_t lifted = truncated_ps + (near_ps - near_ps % modulus);
  return lifted + modulus / 2 < near_ps ? lifted + modulus : lifted;
}

/// `lift`, then the wrap step taken out of the gap ahead of the reference.
constexpr std::uint64_t lift_over_wrap(std::uint64_t truncated_ps, std::uint64_t near_ps, std::uint64_t modulus,
                                       std::uint64_t step_ps) {
  const std::uint64_t lifted = lift(truncated_ps, near_ps, modulus);
  return near_ps < lifted ? near_ps + without_wrap_step(lifted - near_ps, near_ps, step_ps) : lifted;
}

/// `time_ps + gap_ps` modulo 2^64.
constexpr std::int64_t add_wrapping(std::int64_t time_ps, std::uint64_t gap_ps) {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(time_ps) + gap_ps);
}

}  // namespace orvo::timing::detail
