#pragma once
// Part of vq_simulate_stream_file: file-local throughout.
// raw64: one big-endian 64-bit word per tag, in one of two tag formats.
#include <cstddef>
#include <cstdint>
#include <span>

#include "orvo/timing/detail/device_time.hpp"
#include "orvo/timing/time_tag.hpp"
#include "simulate/byte_stores.hpp"
#include "simulate/time_grid.hpp"

namespace {

/// Word:  63 zero | 62..61 channel | 60..44 zero | 43..0 device time, ps
struct PicosecondWord {
  static constexpr std::uint64_t bits(std::uint64_t channel, std::int64_t time_ps) {
    return channel << 61 | static_cast<std::uint64_t>(time_ps) % orvo::timing::detail::kDevicePeriodPs;
  }
  /// Device periods before the time.
  static constexpr std::uint64_t lap(std::int64_t time_ps) {
    return static_cast<std::uint64_t>(time_ps) / orvo::timing::detail::kDevicePeriodPs;
  }
};
static_assert(PicosecondWord::bits(1, 0xD05'0000'0000 + 10'160) == 0x2000'0000'0000'27B0);

/// Word:  63 zero | 62..61 channel | 60..45 marker 0xA5C3 | 44..13 coarse count | 12..0 fine code
struct CoarseFineWord {
  static constexpr std::uint64_t bits(std::uint64_t channel, std::int64_t time_ps) {
    const CoarseFineTime time = CoarseFineGrid::split(time_ps);
    return channel << 61 | std::uint64_t{0xA5C3} << 45 | (time.coarse & 0xFFFF'FFFF) << 13 | time.fine;
  }
  /// Wraps of the coarse count before the time.
  static constexpr std::uint64_t lap(std::int64_t time_ps) { return CoarseFineGrid::split(time_ps).coarse >> 32; }
};
static_assert(CoarseFineWord::bits(1, 3333 - 19) == 0x34B8'6000'0000'2001);

template <class Word>
class Raw64Encoder {
 public:
  static constexpr std::size_t kMostBytesPerTag = 8;
  static constexpr std::size_t kMostBytesToStart = 0;

  /// Appends the tags, whose times the word can hold exactly, and returns the byte behind them.
  std::uint8_t* encode(std::span<const orvo::timing::TimeTag> tags, std::uint8_t* out) {
    for (const orvo::timing::TimeTag& tag : tags) out = store_be64(out, Word::bits(tag.channel, tag.time_ps));
    return out;
  }
  std::uint8_t* finish(std::uint8_t* out) { return out; }

  /// Decoded less simulated time of a channel with that first tag.
  static std::int64_t axis_ps(std::int64_t first_ps) {
    return -static_cast<std::int64_t>(Word::lap(first_ps) * orvo::timing::detail::kDevicePeriodPs);
  }
};

}  // namespace
