#pragma once
#include <cstdint>

namespace orvo::timing {

/// Input channels of the converter, numbered 0 to 3.
inline constexpr unsigned kChannels = 4;

/// One event: the input it arrived at, and its time in picoseconds on an axis that does not wrap.
struct TimeTag {
  std::uint8_t channel = 0;
  std::int64_t time_ps = 0;

  friend bool operator==(const TimeTag&, const TimeTag&) = default;
};

}  // namespace orvo::timing
