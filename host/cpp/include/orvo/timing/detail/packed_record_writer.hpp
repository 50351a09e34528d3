#pragma once
#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "orvo/timing/byte_queue.hpp"
#include "orvo/timing/detail/bit_writer.hpp"
#include "orvo/timing/detail/packed_record.hpp"

namespace orvo::timing::detail {

/// An absolute time: what the sync words say, and what the anchor's own record adds, in quanta.
struct PackedAnchor {
  std::uint64_t base;
  std::uint64_t more = 0;
};

/// Writes packed_delta records.
class PackedRecordWriter {
 public:
  /// Bytes that `put_plain` may write, slack included.
  static constexpr std::size_t kPlainBytes = BitWriter::kMostBits / 8 + BitWriter::kSlackBytes;

  explicit PackedRecordWriter(PackedLayout layout)
      : delta_bits_(layout.delta_bits), sync_words_(static_cast<unsigned>(layout.sync_words())) {}

  /// An overflow record's payload is anything but all ones.
  std::uint64_t largest_overflow() const { return ones(delta_bits_) - 1; }
  /// Overflow records of a difference; more than any limit for one that they cannot say.
  std::uint64_t overflow_records(std::uint64_t quanta) const {
    const std::uint64_t units = quanta >> delta_bits_;
    if (units == 0) return 0;
    return largest_overflow() == 0 ? UINT64_MAX : (units - 1) / largest_overflow() + 1;
  }
  std::uint64_t anchor_records() const { return sync_words_ + 2; }
  /// The longest difference of `put_plain`: with one overflow record if two records can be put at once.
  std::uint64_t most_plain_quanta() const {
    return 2 * width() <= BitWriter::kMostBits ? largest_overflow() << delta_bits_ | ones(delta_bits_)
                                               : ones(delta_bits_);
  }

  /// Where `put_plain` writes.
  void move_to(std::uint8_t* out) { bits_.move_to(out); }
  const std::uint8_t* at() const { return bits_.at(); }
  unsigned waiting_bits() const { return bits_.waiting(); }
  /// A difference of at most `most_plain_quanta()`: an overflow record or none, and the data record, in one go: which
  /// it is cannot be foreseen.
  void put_plain(unsigned channel, std::uint64_t quanta) {
    const std::uint64_t units = quanta >> delta_bits_;
    const std::uint64_t overflow = units == 0 ? 0 : flagged(channel, units) << width();
    bits_.put(overflow | data(channel, quanta & ones(delta_bits_)), units == 0 ? width() : 2 * width());
  }

  /// A difference of any length, with the overflow records that it takes.
  void append_difference(unsigned channel, std::uint64_t quanta, ByteQueue& payload) {
    for (std::uint64_t units = quanta >> delta_bits_; units != 0;) {
      const std::uint64_t part = std::min(units, largest_overflow());
      append(flagged(channel, part), width(), payload);
      units -= part;
    }
    append(data(channel, quanta & ones(delta_bits_)), width(), payload);
  }

  void append_anchor(unsigned channel, const PackedAnchor& anchor, ByteQueue& payload) {
    append(flagged(channel, ones(delta_bits_)), width(), payload);
    std::uint64_t base = anchor.base;
    for (unsigned word = 0; word < sync_words_; ++word, base >>= delta_bits_) {
      append(data(channel, base & ones(delta_bits_)), width(), payload);
    }
    append_difference(channel, anchor.more, payload);
  }

  /// What comes before the first record that counts: bits of 1, and at least `bytes` of overflow records of 0.
  void append_lead_in(unsigned channel, unsigned start_bit, std::size_t bytes, ByteQueue& payload) {
    if (start_bit != 0) append(ones(start_bit), start_bit, payload);
    for (std::size_t bits = 0; bits < 8 * bytes; bits += width()) append(flagged(channel, 0), width(), payload);
  }

  /// Fills the last byte with the beginning of a sync start. Should it be all of one: that is no tag, and on an
  /// active channel costs nothing.
  void fill_byte(unsigned channel, ByteQueue& payload) {
    const unsigned missing = (8 - bits_.waiting()) % 8;
    const std::uint64_t filler = flagged(channel, ones(delta_bits_)) << 8 | ones(8);
    if (missing != 0) append(filler >> (width() + 8 - missing), missing, payload);
  }

 private:
  static std::uint64_t ones(unsigned count) { return (std::uint64_t{1} << count) - 1; }
  unsigned width() const { return delta_bits_ + 3; }
  std::uint64_t data(std::uint64_t channel, std::uint64_t payload) const {
    return channel << (delta_bits_ + 1) | payload;
  }
  std::uint64_t flagged(std::uint64_t channel, std::uint64_t payload) const {
    return data(channel, std::uint64_t{1} << delta_bits_ | payload);
  }

  void append(std::uint64_t value, unsigned bits, ByteQueue& payload) {
    std::uint8_t* const begin = payload.prepare(kPlainBytes);
    bits_.move_to(begin);
    bits_.put(value, bits);
    payload.commit(static_cast<std::size_t>(bits_.at() - begin));
  }

  unsigned delta_bits_;
  unsigned sync_words_;
  BitWriter bits_;
};

}  // namespace orvo::timing::detail
