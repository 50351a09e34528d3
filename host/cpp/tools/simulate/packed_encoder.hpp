#pragma once
// Part of vq_simulate_stream_file: file-local throughout.
// packed_delta: records of `delta_bits` + 3 bits without gaps, most significant bit first.
//
//   | channel (2) | flag (1) | payload (delta_bits) |
//
// The first tag of a channel, and each `anchor_every`th after it, is an anchor: a sync start, the words of the time
// in quanta, and a data record of 0. So is a tag behind a gap that would take as many overflow records.
//
// A stream starts with overflow records of 0, which mean nothing. Decoders look for the start in the first 65 bytes
// and prefer the one with most tags in the 64 KiB behind it; where anchors are dense that is a late one, which must
// not cost the first tags.
#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>

#include "orvo/timing/time_tag.hpp"
#include "simulate/bit_writer.hpp"
#include "simulate/settings.hpp"
#include "simulate/truncated_clock.hpp"

namespace {

class PackedEncoder {
 public:
  /// 43 records of 4 bits, the longest anchor there is.
  static constexpr std::size_t kMostBytesPerTag = 22;
  /// What comes before the first tag, at the most.
  static constexpr std::size_t kMostBytesToStart = 80;

  explicit PackedEncoder(const Settings& settings)
      : delta_bits_(settings.delta_bits),
        shift_(settings.quantum_shift()),
        sync_words_((settings.delta_bits + 40) / settings.delta_bits),
        anchor_every_(settings.anchor_every),
        start_bit_(settings.start_bit),
        clock_(settings.quantum_shift()) {
    if (2 * width() <= BitWriter::kMostBits) most_units_at_once_ = largest_overflow();
    while (!settings.channels[any_active_channel_].active) ++any_active_channel_;
  }

  /// Appends the tags, whole quanta and each at most a second behind the last one of its channel. Returns the byte
  /// behind those that are full; the last one waits for the next call.
  std::uint8_t* encode(std::span<const orvo::timing::TimeTag> tags, std::uint8_t* out) {
    BitWriter bits = bits_;  // a copy in registers
    bits.move_to(out);
    if (!has_started_) bits = start(bits);
    for (const orvo::timing::TimeTag& tag : tags) {
      Channel& channel = channels_[tag.channel];
      const auto time_ps = static_cast<std::uint64_t>(tag.time_ps);
      const std::uint64_t quanta = (time_ps - channel.clock.last_ps()) >> shift_;
      const std::uint64_t units = quanta >> delta_bits_;
      if (channel.until_anchor == 0 || time_ps >= channel.clock.wrap_ps() || units > most_units_at_once_) {
        bits = encode_at_length({tag.channel, time_ps}, bits);
      } else {
        channel.clock.advance_within_period(time_ps);
        // An overflow record or none, and the data record, in one go: which it is cannot be foreseen.
        const std::uint64_t overflow = units == 0 ? 0 : flagged(tag.channel, units) << width();
        bits.put(overflow | data(tag.channel, quanta & ones(delta_bits_)), units == 0 ? width() : 2 * width());
      }
      --channel.until_anchor;
    }
    bits_ = bits;
    return bits.at();
  }

  /// Fills the last byte with the beginning of a sync start. Should it be all of one: that is no tag, and on an
  /// active channel costs nothing.
  std::uint8_t* finish(std::uint8_t* out) {
    bits_.move_to(out);
    const unsigned missing = (8 - bits_.waiting()) % 8;
    const std::uint64_t filler = flagged(any_active_channel_, ones(delta_bits_)) << 8 | ones(8);
    if (missing != 0) bits_.put(filler >> (width() + 8 - missing), missing);
    return bits_.at();
  }

  /// Decoded less simulated time of a channel with that first tag.
  std::int64_t axis_ps(std::int64_t first_ps) const {
    return static_cast<std::int64_t>(clock_.reading_ps(static_cast<std::uint64_t>(first_ps))) - first_ps;
  }

 private:
  struct Event {
    unsigned channel;
    std::uint64_t time_ps;
  };
  struct Channel {
    ChannelClock clock;
    std::uint64_t until_anchor = 0;
  };

  static constexpr std::size_t kLeadInBytes = 65;

  static std::uint64_t ones(unsigned count) { return (std::uint64_t{1} << count) - 1; }
  unsigned width() const { return delta_bits_ + 3; }
  std::uint64_t data(std::uint64_t channel, std::uint64_t payload) const {
    return channel << (delta_bits_ + 1) | payload;
  }
  std::uint64_t flagged(std::uint64_t channel, std::uint64_t payload) const {
    return data(channel, std::uint64_t{1} << delta_bits_ | payload);
  }

  BitWriter start(BitWriter bits) {
    has_started_ = true;
    if (start_bit_ != 0) bits.put(ones(start_bit_), start_bit_);
    for (std::size_t written = 0; written < 8 * kLeadInBytes; written += width()) {
      bits.put(flagged(any_active_channel_, 0), width());
    }
    return bits;
  }

  /// A tag at a wrap, with an anchor, or with more than one overflow record.
  BitWriter encode_at_length(const Event& event, BitWriter bits) {
    Channel& channel = channels_[event.channel];
    const std::uint64_t quanta = channel.clock.difference_ps(clock_, event.time_ps) >> shift_;
    if (channel.until_anchor == 0 || overflows_too_far(quanta)) {
      channel.until_anchor = anchor_every_;
      bits = put_anchor(event.channel, channel.clock.base_ps(clock_, event.time_ps) >> shift_, bits);
    } else {
      bits = put_difference(event.channel, quanta, bits);
    }
    channel.clock.advance(clock_, event.time_ps);
    return bits;
  }

  /// An overflow record's payload is anything but all ones.
  std::uint64_t largest_overflow() const { return ones(delta_bits_) - 1; }
  /// True when the bits above the payload take more records than an anchor, or no record can carry them.
  bool overflows_too_far(std::uint64_t quanta) const {
    return quanta >> delta_bits_ > largest_overflow() * (sync_words_ + 1);
  }

  BitWriter put_difference(unsigned channel, std::uint64_t quanta, BitWriter bits) const {
    for (std::uint64_t units = quanta >> delta_bits_; units != 0;) {
      const std::uint64_t part = std::min(units, largest_overflow());
      bits.put(flagged(channel, part), width());
      units -= part;
    }
    bits.put(data(channel, quanta & ones(delta_bits_)), width());
    return bits;
  }

  BitWriter put_anchor(unsigned channel, std::uint64_t quanta, BitWriter bits) const {
    bits.put(flagged(channel, ones(delta_bits_)), width());
    for (unsigned word = 0; word < sync_words_; ++word, quanta >>= delta_bits_) {
      bits.put(data(channel, quanta & ones(delta_bits_)), width());
    }
    bits.put(data(channel, 0), width());
    return bits;
  }

  unsigned delta_bits_;
  unsigned shift_;
  unsigned sync_words_;
  std::uint64_t most_units_at_once_ = 0;
  std::uint64_t anchor_every_;
  unsigned start_bit_;
  unsigned any_active_channel_ = 0;
  bool has_started_ = false;
  TruncatedClock clock_;
  BitWriter bits_;
  std::array<Channel, orvo::timing::kChannels> channels_{};
};

}  // namespace
