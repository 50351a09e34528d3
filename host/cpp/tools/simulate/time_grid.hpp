#pragma once
// Part of vq_simulate_stream_file: file-local throughout.
// The times that an encoding can hold. A grid rounds an event to the time that is stored for it; events in order stay
// in order.
#include <cstdint>

#include "orvo/timing/detail/coarse_fine_time.hpp"

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

/// raw64 "raw_cf": steps of 18.5 ps back from each clock edge, rounded half up; the nearest code, 0 to 180.
struct CoarseFineGrid {
  std::int64_t stored(std::int64_t time_ps) const {
    return orvo::timing::detail::CoarseFineTime::nearest(time_ps).time_ps();
  }
  double step_ps() const { return 18.5; }
};

}  // namespace
