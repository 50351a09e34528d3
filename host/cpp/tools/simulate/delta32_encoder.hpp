#pragma once
// Part of vq_simulate_stream_file: file-local throughout.
// delta32: big-endian 32-bit words, an event carrying the time since the last event of its channel.
//
//   31 control | 30..29 channel, or kind of control word | 28..25 type | 24..0 payload
//
// The first event of a channel, and each `anchor_every`th after it, stands behind a sync word and a time base.
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "orvo/timing/time_tag.hpp"
#include "simulate/byte_stores.hpp"
#include "simulate/truncated_clock.hpp"

namespace {

class Delta32Encoder {
 public:
  /// A sync word, both halves of a base and the event itself.
  static constexpr std::size_t kMostBytesPerTag = 16;
  static constexpr std::size_t kMostBytesToStart = 0;

  explicit Delta32Encoder(std::uint64_t anchor_every) : anchor_every_(anchor_every) {}

  /// Appends the tags, each at most a second behind the last one of its channel, and returns the byte behind them.
  std::uint8_t* encode(std::span<const orvo::timing::TimeTag> tags, std::uint8_t* out) {
    for (const orvo::timing::TimeTag& tag : tags) {
      Channel& channel = channels_[tag.channel];
      const auto time_ps = static_cast<std::uint64_t>(tag.time_ps);
      const std::uint64_t gap_ps = time_ps - channel.clock.last_ps();
      if (channel.until_base == 0 || gap_ps > kPayload || time_ps >= channel.clock.wrap_ps()) {
        out = encode_at_length({tag.channel, time_ps}, out);
      } else {
        channel.clock.advance_within_period(time_ps);
        out = store_event(tag.channel, gap_ps, out);
      }
      --channel.until_base;
    }
    return out;
  }
  std::uint8_t* finish(std::uint8_t* out) { return out; }

  /// Decoded less simulated time of a channel with that first tag.
  static std::int64_t axis_ps(std::int64_t first_ps) {
    return static_cast<std::int64_t>(kClock.reading_ps(static_cast<std::uint64_t>(first_ps))) - first_ps;
  }

 private:
  static constexpr unsigned kPayloadBits = 25;
  static constexpr std::uint64_t kPayload = (1u << kPayloadBits) - 1;
  static constexpr std::uint32_t kEvent = 0x1400'0000;
  static constexpr std::uint32_t kExtension = 0x8A00'0000;
  static constexpr std::uint32_t kBaseLow = 0xAA00'0000;
  static constexpr std::uint32_t kBaseHigh = 0xCA00'0000;
  static constexpr std::uint32_t kSync = 0xEB5A'55AA;
  static constexpr TruncatedClock kClock{0};

  struct Event {
    unsigned channel;
    std::uint64_t time_ps;
  };
  struct Channel {
    ChannelClock clock;
    std::uint64_t until_base = 0;
  };

  static std::uint8_t* store_event(unsigned channel, std::uint64_t delta_ps, std::uint8_t* out) {
    return store_be32(out, kEvent | channel << 29 | static_cast<std::uint32_t>(delta_ps & kPayload));
  }

  /// An event that takes more than its own word.
  std::uint8_t* encode_at_length(const Event& event, std::uint8_t* out) {
    Channel& channel = channels_[event.channel];
    std::uint64_t delta_ps = 0;
    if (channel.until_base == 0) {
      channel.until_base = anchor_every_;
      out = store_base(channel.clock.base_ps(kClock, event.time_ps), out);
    } else {
      // Even with a wrap step less than 2^41 ps: the extension's 16 bits do.
      delta_ps = channel.clock.difference_ps(kClock, event.time_ps);
      const auto extension = static_cast<std::uint32_t>(delta_ps >> kPayloadBits);
      if (extension != 0) out = store_be32(out, kExtension | extension);
    }
    channel.clock.advance(kClock, event.time_ps);
    return store_event(event.channel, delta_ps, out);
  }

  static std::uint8_t* store_base(std::uint64_t base_ps, std::uint8_t* out) {
    out = store_be32(out, kSync);
    out = store_be32(out, kBaseLow | static_cast<std::uint32_t>(base_ps & kPayload));
    return store_be32(out, kBaseHigh | static_cast<std::uint32_t>(base_ps >> kPayloadBits));
  }

  std::uint64_t anchor_every_;
  std::array<Channel, orvo::timing::kChannels> channels_{};
};

}  // namespace
