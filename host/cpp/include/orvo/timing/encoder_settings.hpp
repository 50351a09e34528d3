#pragma once
#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>

#include "orvo/timing/error.hpp"
#include "orvo/timing/time_tag.hpp"

namespace orvo::timing {

/// What an encoder is asked for beside the header that names the encoding. The defaults lose nothing.
struct EncoderSettings {
  /// delta32, packed_delta: tags of a channel from one time base or anchor to the next; 0 counts as 1.
  std::uint64_t anchor_every = 1'000;
  /// Moves a time that the encoding cannot hold to the nearest that it can. Without it such a time is an error.
  bool round = false;
  /// packed_delta: bits of 1 before the first record, 0 to 7.
  unsigned start_bit = 0;
  /// As the device does it: each channel starts at what the clock reads at its first tag, so that channels may end up
  /// whole laps apart. Without it that is an error.
  bool channel_axes = false;
};

/// What `EncoderSettings::round` did.
struct Rounding {
  std::uint64_t tags = 0;       ///< moved
  std::int64_t largest_ps = 0;  ///< how far at the most

  void add(std::int64_t from_ps, std::int64_t to_ps) {
    if (from_ps == to_ps) return;
    ++tags;
    largest_ps = std::max(largest_ps, from_ps < to_ps ? to_ps - from_ps : from_ps - to_ps);
  }
};

namespace detail {

/// Every refusal of a tag names its channel and its time.
[[noreturn]] inline void refuse_tag(std::string_view encoder, const TimeTag& tag, std::string_view why) {
  throw Error(std::string(encoder) + ": channel " + std::to_string(tag.channel) + " at " +
                  std::to_string(tag.time_ps) + " ps: " + std::string(why),
              kInvalidArgument);
}

}  // namespace detail

}  // namespace orvo::timing
