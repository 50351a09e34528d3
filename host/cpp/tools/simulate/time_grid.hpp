#pragma once
// Part of vq_simulate_stream_file: file-local throughout.
// The times that an encoding can hold. A grid rounds an event to the time that is stored for it; events in order stay
// in order.
#include <cstdint>

#include "orvo/timing/detail/device_time.hpp"

namespace {

/// Whole picoseconds: raw64 "ps" and delta32.
struct PicosecondGrid {
  std::int64_t stored(std::int64_t time_ps) const { return time_ps; }
  double step_ps() const { return 1; }
};

/// packed_delta: the multiple of 2^shift ps at or before the event.
struct QuantumGrid {
  unsigned shift = 0;
  std::int64_t stored(std::int64_t time_ps) const { return time_ps >> shift << shift; }
  double step_ps() const { return static_cast<double>(std::int64_t{1} << shift); }
};

/// A time in raw64 "raw_cf": the clock edge at or after the event, less the fine time of a code.
struct CoarseFineTime {
  std::uint64_t coarse;
  std::uint64_t fine;

  constexpr std::int64_t time_ps() const {
    return static_cast<std::int64_t>(coarse * orvo::timing::detail::kCoarsePeriodPs - (37 * fine + 1) / 2);
  }
};

/// raw64 "raw_cf": steps of 18.5 ps back from each clock edge, rounded half up; the nearest code, 0 to 180.
struct CoarseFineGrid {
  static constexpr CoarseFineTime split(std::int64_t time_ps) {
    constexpr std::uint64_t kPeriod = orvo::timing::detail::kCoarsePeriodPs;
    const auto time = static_cast<std::uint64_t>(time_ps);
    const std::uint64_t coarse = (time + kPeriod - 1) / kPeriod;
    return {coarse, (2 * (coarse * kPeriod - time) + 18) / 37};
  }
  std::int64_t stored(std::int64_t time_ps) const { return split(time_ps).time_ps(); }
  double step_ps() const { return 18.5; }
};
static_assert(CoarseFineGrid::split(3333).time_ps() == 3333 && CoarseFineGrid::split(3323).time_ps() == 3333 - 19);
static_assert(CoarseFineGrid::split(3334).fine == 180 && CoarseFineGrid::split(3334).time_ps() == 2 * 3333 - 3330);

}  // namespace
