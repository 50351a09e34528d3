#pragma once
// delta32: big-endian 32-bit words, an event carrying the time since the last event of its channel.
//
//   31 control | 30..29 channel, or kind of control word | 28..25 type | 24..0 payload
//
// The first event of a channel, and each `anchor_every`th after it, stands after a sync word and a time base.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "orvo/timing/byte_queue.hpp"
#include "orvo/timing/detail/byte_order.hpp"
#include "orvo/timing/detail/truncated_clock.hpp"
#include "orvo/timing/encoder_settings.hpp"
#include "orvo/timing/stream_file_header.hpp"
#include "orvo/timing/time_tag.hpp"

namespace orvo::timing {

/// Tags to delta32 payload. What decodes again is each tag as it was, plus `axis_ps`. That is 0 when the first tag
/// lies within the first 2^41 ps (2.2 s); a later one decodes to what 41 bits of the device time read then, since
/// time bases have no more. Refused, as `Error` with the tag's channel and time, are a tag earlier than its channel's
/// last, a first tag of a channel that no base reaches (2.2 s after the capture's start), and a gap that decoders
/// take for the device's wrap (1.078 to 1.088 s) or that takes more than 65536 extension words (40 hours).
class Delta32Encoder {
 public:
  explicit Delta32Encoder(const StreamFileHeader&, const EncoderSettings& settings = {})
      : anchor_every_(std::max<std::uint64_t>(settings.anchor_every, 1)), channel_axes_(settings.channel_axes) {}

  /// Appends the words of the tags to `payload`. Of tags that end in an error those before it are appended.
  void encode(std::span<const TimeTag> tags, ByteQueue& payload) {
    constexpr std::size_t kBlock = 4096;
    while (!tags.empty()) {
      const std::size_t count = std::min(tags.size(), kBlock);
      std::uint8_t* const begin = payload.prepare(4 * count);
      const std::size_t done = encode_plain(tags.first(count), begin);
      payload.commit(4 * done);
      tags = tags.subspan(done);
      if (done == count) continue;
      encode_at_length(tags.front(), payload);
      tags = tags.subspan(1);
    }
  }
  /// Nothing is left over at the end.
  void finish(ByteQueue&) {}

  /// Decoded less given time of a channel's tags; 0 as long as it has none.
  std::int64_t axis_ps(unsigned channel) const {
    return static_cast<std::int64_t>(channels_[channel].clock.axis_ps());
  }
  /// Every picosecond can be said.
  Rounding rounding() const { return {}; }

 private:
  static constexpr unsigned kPayloadBits = 25;
  static constexpr std::uint64_t kPayload = (1u << kPayloadBits) - 1;
  static constexpr std::uint32_t kEvent = 0x1400'0000;
  static constexpr std::uint32_t kExtension = 0x8A00'0000;
  static constexpr std::uint64_t kMostExtension = 0xFFFF;
  static constexpr std::uint64_t kMostExtensionWords = 65'536;
  static constexpr std::uint32_t kBaseLow = 0xAA00'0000;
  static constexpr std::uint32_t kBaseHigh = 0xCA00'0000;
  static constexpr std::uint32_t kSync = 0xEB5A'55AA;
  static constexpr detail::TruncatedClock kClock{0};

  struct Channel {
    detail::ChannelClock clock;
    std::uint64_t until_base = 0;  // tags, also 0 before the first one
  };
  /// A time base, and how long after it its event is.
  struct Base {
    std::uint64_t base_ps;
    std::uint64_t delta_ps;
  };

  /// The tags up to the first that takes more than its own word. Returns how many.
  std::size_t encode_plain(std::span<const TimeTag> tags, std::uint8_t* out) {
    std::array<Channel, kChannels> channels = channels_;  // a copy that stores to `out` cannot change
    std::size_t done = 0;
    for (; done < tags.size(); ++done) {
      const TimeTag& tag = tags[done];
      if (tag.channel >= kChannels) break;
      Channel& channel = channels[tag.channel];
      const auto time_ps = static_cast<std::uint64_t>(tag.time_ps);
      const std::uint64_t gap_ps = time_ps - channel.clock.last_ps();
      if (channel.until_base == 0 || gap_ps > kPayload || time_ps >= channel.clock.wrap_ps()) break;
      channel.clock.advance_within_period(time_ps);
      out = store_event(tag.channel, gap_ps, out);
      --channel.until_base;
    }
    channels_ = channels;
    return done;
  }

  static std::uint8_t* store_event(unsigned channel, std::uint64_t delta_ps, std::uint8_t* out) {
    return detail::store_be32(out, kEvent | channel << 29 | static_cast<std::uint32_t>(delta_ps & kPayload));
  }

  void encode_at_length(const TimeTag& tag, ByteQueue& payload) {
    if (tag.channel >= kChannels) refuse(tag, "there are channels 0 to 3");
    if (tag.time_ps < 0) refuse(tag, "the time lies before the axis, which starts at 0");
    Channel& channel = channels_[tag.channel];
    const auto time_ps = static_cast<std::uint64_t>(tag.time_ps);
    if (!channel.clock.has_started()) {
      append_base(tag.channel, first_base(tag), payload);
    } else {
      if (time_ps < channel.clock.last_ps()) refuse(tag, "it is earlier than its channel's last tag");
      append_later(tag, payload);
      channel.clock.advance(time_ps);
    }
    --channel.until_base;
  }

  Base first_base(const TimeTag& tag) {
    const auto time_ps = static_cast<std::uint64_t>(tag.time_ps);
    if (!has_axis_ || channel_axes_) axis_ps_ = kClock.reading_ps(time_ps) - time_ps;
    has_axis_ = true;
    const std::uint64_t decoded_ps = time_ps + axis_ps_;  // huge for a tag before the axis
    const std::uint64_t base_ps = std::min(decoded_ps, kClock.modulus_ps() - 1);
    if (decoded_ps - base_ps > kPayload) {
      refuse(tag, "the channel's first tag lies on another lap of the time bases, 2^41 ps, than the capture's");
    }
    channels_[tag.channel].clock.start(time_ps, axis_ps_);
    return {base_ps, decoded_ps - base_ps};
  }

  void append_later(const TimeTag& tag, ByteQueue& payload) {
    Channel& channel = channels_[tag.channel];
    const auto time_ps = static_cast<std::uint64_t>(tag.time_ps);
    // Decoders drop an event on a base that is not later than the last one.
    const bool may_have_base = time_ps > channel.clock.last_ps();
    const bool wants_base = channel.until_base == 0;
    std::optional<Base> base;
    if (wants_base && may_have_base) base = later_base(channel.clock, time_ps);
    if (base) return append_base(tag.channel, *base, payload);
    const auto suits = [](std::uint64_t gap_ps) {
      return gap_ps >> kPayloadBits <= kMostExtension * kMostExtensionWords;
    };
    if (const auto gap_ps = channel.clock.difference_ps(kClock, time_ps, suits)) {
      channel.until_base = std::max<std::uint64_t>(channel.until_base, 1);
      return append_gap(tag.channel, *gap_ps, payload);
    }
    base = later_base(channel.clock, time_ps);
    if (base) return append_base(tag.channel, *base, payload);
    refuse(tag,
           "decoders would misplace it: a gap of 1.078 to 1.088 s reads as one with a wrap of the device time "
           "in it, and one of 40 hours is too long");
  }

  /// The event's own time as its base, or, where decoders would take the wrap step out of that, one just before it.
  static std::optional<Base> later_base(const detail::ChannelClock& clock, std::uint64_t time_ps) {
    for (const std::uint64_t delta_ps : {std::uint64_t{0}, kPayload}) {
      if (time_ps - delta_ps < clock.last_ps() || time_ps < delta_ps) continue;
      if (const auto base_ps = clock.base_ps(kClock, time_ps - delta_ps)) return Base{*base_ps, delta_ps};
    }
    return std::nullopt;
  }

  void append_base(unsigned channel, const Base& base, ByteQueue& payload) {
    constexpr std::size_t kBytes = 16;
    std::uint8_t* out = payload.prepare(kBytes);
    out = detail::store_be32(out, kSync);
    out = detail::store_be32(out, kBaseLow | static_cast<std::uint32_t>(base.base_ps & kPayload));
    out = detail::store_be32(out, kBaseHigh | static_cast<std::uint32_t>(base.base_ps >> kPayloadBits));
    store_event(channel, base.delta_ps, out);
    payload.commit(kBytes);
    channels_[channel].until_base = anchor_every_;
  }

  static void append_gap(unsigned channel, std::uint64_t gap_ps, ByteQueue& payload) {
    const auto append = [&payload](std::uint32_t word) {
      detail::store_be32(payload.prepare(4), word);
      payload.commit(4);
    };
    for (std::uint64_t units = gap_ps >> kPayloadBits; units != 0;) {
      const std::uint64_t part = std::min(units, kMostExtension);
      append(kExtension | static_cast<std::uint32_t>(part));
      units -= part;
    }
    store_event(channel, gap_ps, payload.prepare(4));
    payload.commit(4);
  }

  [[noreturn]] static void refuse(const TimeTag& tag, std::string_view why) {
    detail::refuse_tag("Delta32Encoder", tag, why);
  }

  std::uint64_t anchor_every_;
  bool channel_axes_;
  bool has_axis_ = false;
  std::uint64_t axis_ps_ = 0;  // of the channel that started last
  std::array<Channel, kChannels> channels_{};
};

}  // namespace orvo::timing
