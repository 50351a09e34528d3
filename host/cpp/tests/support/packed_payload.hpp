#pragma once
// packed_delta payloads by hand: records without gaps, most significant bit first.
//
//   2 bits channel | 1 bit flag | d bits payload
//
// A flag with all payload bits set starts a sync sequence: the channel's time in quanta follows in (d + 40) / d data
// records of d bits, least significant piece first. The channel's next data record is its anchor.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "orvo/timing/stream_decoder.hpp"
#include "support/bytes.hpp"

namespace orvo::test {

class PackedWriter {
 public:
  explicit PackedWriter(unsigned delta_bits) : delta_bits_(delta_bits) {}

  /// The low `width` bits of `value`, most significant first.
  PackedWriter& bits(std::uint64_t value, unsigned width) {
    while (width > 0) {
      if (bit_count_ % 8 == 0) bytes_.push_back(0);
      const auto room = static_cast<unsigned>(8 - bit_count_ % 8);
      const unsigned taken = std::min(room, width);
      const std::uint64_t part = value >> (width - taken) & ((1u << taken) - 1);
      bytes_.back() = static_cast<std::uint8_t>(bytes_.back() | part << (room - taken));
      bit_count_ += taken;
      width -= taken;
    }
    return *this;
  }
  PackedWriter& ones(unsigned count) {
    for (; count > 0; --count) bits(1, 1);
    return *this;
  }
  PackedWriter& zeros(unsigned count) {
    for (; count > 0; --count) bits(0, 1);
    return *this;
  }

  /// Any record.
  PackedWriter& record(unsigned channel, bool flag, std::uint64_t payload) {
    ++records_;
    return bits(channel, 2).bits(flag ? 1 : 0, 1).bits(payload, delta_bits_);
  }
  PackedWriter& data(unsigned channel, std::uint64_t quanta) { return record(channel, false, quanta); }
  PackedWriter& overflow(unsigned channel, std::uint64_t units) { return record(channel, true, units); }
  PackedWriter& sync_start(unsigned channel) { return record(channel, true, all_ones()); }

  /// Sync start and the pieces of `quanta`; bits above the last piece are lost.
  PackedWriter& sync(unsigned channel, std::uint64_t quanta) {
    sync_start(channel);
    for (unsigned piece = 0; piece < sync_words(); ++piece) {
      data(channel, quanta & all_ones());
      quanta >>= delta_bits_;
    }
    return *this;
  }
  /// A whole anchor: the sync sequence of `quanta`, then the anchor record with a difference of 0.
  PackedWriter& anchor(unsigned channel, std::uint64_t quanta) { return sync(channel, quanta).data(channel, 0); }

  /// A difference of any size: as few overflow records as it takes, then the data record.
  PackedWriter& gap(unsigned channel, std::uint64_t quanta) {
    const std::uint64_t largest = all_ones() - 1;
    for (std::uint64_t units = quanta >> delta_bits_; units != 0;) {
      const std::uint64_t part = units < largest ? units : largest;
      overflow(channel, part);
      units -= part;
    }
    return data(channel, quanta & all_ones());
  }

  /// The same, but nothing and false where that takes more than ten overflow records.
  bool short_gap(unsigned channel, std::uint64_t quanta) {
    if (quanta >> delta_bits_ > 10 * (all_ones() - 1)) return false;
    gap(channel, quanta);
    return true;
  }

  /// Fills the last byte with the first bits of overflow records of nothing: whatever else stood there could be taken
  /// for a record.
  PackedWriter& fill_byte(unsigned channel) {
    const std::uint64_t record = std::uint64_t{channel} << (delta_bits_ + 1) | std::uint64_t{1} << delta_bits_;
    for (unsigned left = delta_bits_ + 2; bit_count_ % 8 != 0; left = left == 0 ? delta_bits_ + 2 : left - 1) {
      bits(record >> left, 1);
    }
    return *this;
  }

  /// Overflow records that add nothing, for more than 8 bytes: a decoder that reads whole words, or many records at a
  /// time, meets the records before them away from the end of the chunk.
  PackedWriter& tail(unsigned channel) {
    for (unsigned bit = 0; bit < 72; bit += delta_bits_ + 3) overflow(channel, 0);
    return *this;
  }

  unsigned sync_words() const { return (delta_bits_ + 40) / delta_bits_; }
  std::size_t records() const { return records_; }
  std::size_t bit_count() const { return bit_count_; }
  /// The bytes so far, the last one filled up with zero bits.
  const Bytes& bytes() const { return bytes_; }

 private:
  std::uint64_t all_ones() const { return (std::uint64_t{1} << delta_bits_) - 1; }

  unsigned delta_bits_;
  Bytes bytes_;
  std::size_t bit_count_ = 0;
  std::size_t records_ = 0;
};

/// Bits written as "0" and "1"; blanks are for the eye. The last byte is filled with zeros.
inline Bytes bit_text(std::string_view text) {
  Bytes out;
  unsigned used = 0;
  for (const char bit : text) {
    if (bit == ' ') continue;
    if (used % 8 == 0) out.push_back(0);
    if (bit == '1') out.back() = static_cast<std::uint8_t>(out.back() | 0x80u >> used % 8);
    ++used;
  }
  return out;
}

/// The header of a packed capture; a quantum of 1 ps unless the test says otherwise.
struct PackedSetup {
  timing::StreamMode mode = timing::StreamMode::external;
  unsigned channel_mask = 0xF;
  unsigned delta_bits = 16;
  unsigned quantum_ps = 1;
};

inline timing::StreamDecoder packed_decoder(const PackedSetup& setup) {
  timing::StreamFileHeader header;
  header.stream_format = timing::StreamFormat::packed_delta;
  header.mode = setup.mode;
  header.channel_mask = static_cast<std::uint8_t>(setup.channel_mask);
  header.delta_bits = static_cast<std::uint8_t>(setup.delta_bits);
  header.quantum_ps = static_cast<std::uint16_t>(setup.quantum_ps);
  return timing::StreamDecoder(header);
}

/// A decoder that holds the lock on bit 0 of the next byte fed.
inline timing::StreamDecoder locked_decoder(const PackedSetup& setup) {
  timing::StreamDecoder decoder = packed_decoder(setup);
  decoder.packed_locked = true;
  return decoder;
}

/// A locked decoder whose `channel` was last at `time_ps`.
inline timing::StreamDecoder running_decoder(const PackedSetup& setup, unsigned channel, std::int64_t time_ps) {
  timing::StreamDecoder decoder = locked_decoder(setup);
  decoder.pk_last_time[channel] = time_ps;
  decoder.pk_has_time[channel] = true;
  return decoder;
}

}  // namespace orvo::test
