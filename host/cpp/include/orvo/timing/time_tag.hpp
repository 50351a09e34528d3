#pragma once
#include <cstdint>

#include "orvo/timing/version.hpp"

namespace orvo::timing {

/// Input channels of the converter, numbered 0 to 3.
inline constexpr unsigned kChannels = 4;

/// One event: the input it arrived at, and its time in picoseconds on an axis that does not wrap. 16 bytes, of which
/// none is left undefined: equal tags are equal byte for byte, wherever tags are hashed, compared or stored as bytes.
struct TimeTag {
  constexpr TimeTag() = default;
  constexpr TimeTag(std::uint8_t tag_channel, std::int64_t tag_time_ps)
      : channel(tag_channel), time_ps(tag_time_ps) {}

  std::uint8_t channel = 0;
  std::uint8_t zero[7] = {};  ///< in place of padding
  std::int64_t time_ps = 0;

  friend constexpr bool operator==(const TimeTag& left, const TimeTag& right) {
    return left.channel == right.channel && left.time_ps == right.time_ps;
  }
};
static_assert(sizeof(TimeTag) == 16);

}  // namespace orvo::timing
