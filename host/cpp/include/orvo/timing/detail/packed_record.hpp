#pragma once
// packed_delta records: `delta_bits` + 3 bits each, without gaps, most significant bit first, starting at any bit.
//
//   | channel (2) | flag (1) | payload (delta_bits) |
//
//   flag 0                      data: time since the last data record of the channel, in quanta
//   flag 1, payload not all 1   overflow: adds payload * 2^delta_bits quanta to the channel's next data record
//   flag 1, payload all 1       sync start: the next words on this channel spell an absolute time
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "orvo/timing/detail/byte_order.hpp"
#include "orvo/timing/detail/device_time.hpp"
#include "orvo/timing/stream_file_header.hpp"
#include "orvo/timing/time_tag.hpp"

namespace orvo::timing::detail {

/// What `delta_bits` fixes.
struct PackedLayout {
  std::uint32_t delta_bits;  ///< 1 to 31

  constexpr std::uint32_t width() const { return delta_bits + 3; }
  constexpr std::uint32_t all_ones() const {
    return static_cast<std::uint32_t>((std::uint64_t{1} << delta_bits) - 1);
  }
  /// Data records that spell a sync sequence's time: enough for its 41 bits.
  constexpr std::int32_t sync_words() const {
    return static_cast<std::int32_t>((delta_bits + kBaseBits - 1) / delta_bits);
  }
};
static_assert(PackedLayout{16}.sync_words() == 3 && PackedLayout{8}.sync_words() == 6);

struct PackedRecord {
  unsigned channel;
  bool flag;
  std::uint32_t payload;
};

// The record in the high bits of `word`.

constexpr unsigned leading_channel(std::uint64_t word) {
  return static_cast<unsigned>(word >> 62);
}
constexpr bool leading_flag(std::uint64_t word) {
  return (word >> 61 & 1) != 0;
}
constexpr std::uint32_t leading_payload(std::uint64_t word, PackedLayout layout) {
  return static_cast<std::uint32_t>(word >> (64 - layout.width())) & layout.all_ones();
}
constexpr PackedRecord leading_packed_record(std::uint64_t word, PackedLayout layout) {
  return {leading_channel(word), leading_flag(word), leading_payload(word, layout)};
}

/// The record in the low bits of `bits`.
constexpr PackedRecord packed_record(std::uint64_t bits, PackedLayout layout) {
  return leading_packed_record(bits << (64 - layout.width()), layout);
}
static_assert(packed_record(0b10'1'0000'0011, {8}).channel == 2 && packed_record(0b10'1'0000'0011, {8}).payload == 3);

/// `width` bits (1 to 34) from stream bit `position` of `bytes`, which holds them all.
inline std::uint64_t bit_field(const std::uint8_t* bytes, std::size_t size, std::uint64_t position,
                               std::uint32_t width) {
  const auto first = static_cast<std::size_t>(position / 8);
  std::uint64_t word = 0;
  if (size - first >= 8) {
    word = load_be64(bytes + first);
  } else {
    std::uint8_t tail[8] = {};
    std::memcpy(tail, bytes + first, size - first);
    word = load_be64(tail);
  }
  return word << (position % 8) >> (64 - width);
}

/// Channels that the header calls active; a mask without any means all.
constexpr unsigned active_channels(const StreamFileHeader& header) {
  return header.channel_mask == 0 ? 0x0Fu : header.channel_mask & 0x0Fu;
}

constexpr bool is_active(unsigned mask, unsigned channel) {
  return (mask >> channel & 1) != 0;
}

}  // namespace orvo::timing::detail
