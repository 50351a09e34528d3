#pragma once
#include <algorithm>
#include <cstdint>

#include "orvo/timing/detail/device_time.hpp"

namespace orvo::timing::detail {

/// A time in raw64 "raw_cf": the clock edge at or after the event, less the fine time of a code. Codes stand for
/// steps of 18.5 ps back from the edge, rounded half up; those from 181 on for 3332 ps.
struct CoarseFineTime {
  static constexpr std::uint64_t kLongestFinePs = kCoarsePeriodPs - 1;
  static constexpr std::uint64_t kLongestFineCode = 181;

  std::uint64_t coarse;
  std::uint64_t fine;

  constexpr std::int64_t time_ps() const {
    const std::uint64_t fine_ps = std::min((37 * fine + 1) / 2, kLongestFinePs);
    return static_cast<std::int64_t>(coarse * kCoarsePeriodPs - fine_ps);
  }

  /// The edge, and of the codes 0 to 180 the nearest. For times from -3332 ps on.
  static constexpr CoarseFineTime nearest(std::int64_t time_ps) {
    const auto time = static_cast<std::uint64_t>(time_ps);
    const std::uint64_t coarse = (time + kCoarsePeriodPs - 1) / kCoarsePeriodPs;
    return {coarse, (2 * (coarse * kCoarsePeriodPs - time) + 18) / 37};
  }
  /// The same with code 181 for what only that says exactly.
  static constexpr CoarseFineTime exact_or_nearest(std::int64_t time_ps) {
    const CoarseFineTime split = nearest(time_ps);
    const bool longest = split.coarse * kCoarsePeriodPs - static_cast<std::uint64_t>(time_ps) == kLongestFinePs;
    return longest ? CoarseFineTime{split.coarse, kLongestFineCode} : split;
  }
};
static_assert(CoarseFineTime::nearest(3333).time_ps() == 3333);
static_assert(CoarseFineTime::nearest(3323).time_ps() == 3333 - 19);
static_assert(CoarseFineTime::nearest(3334).fine == 180 &&
              CoarseFineTime::nearest(3334).time_ps() == 2 * 3333 - 3330);
static_assert(CoarseFineTime::exact_or_nearest(3334).time_ps() == 3334);
static_assert(CoarseFineTime::exact_or_nearest(-3332).coarse == 0);

}  // namespace orvo::timing::detail
