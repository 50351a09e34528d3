#pragma once
#include <cstddef>
#include <cstdint>

#include "orvo/timing/detail/byte_order.hpp"

namespace orvo::timing::detail {

/// A stream of bits, most significant first, stored where `move_to` points. Up to 7 bits wait for their byte to fill.
class BitWriter {
 public:
  /// Bytes after those written that `put` may overwrite.
  static constexpr std::size_t kSlackBytes = 8;
  static constexpr unsigned kMostBits = 56;

  void move_to(std::uint8_t* at) { at_ = at; }
  /// After the last full byte.
  std::uint8_t* at() const { return at_; }
  /// Bits that wait for their byte to fill, 0 to 7.
  unsigned waiting() const { return bits_; }

  /// The `width` bits of `value`, 1 to `kMostBits`.
  void put(std::uint64_t value, unsigned width) {
    waiting_ |= value << (64 - bits_ - width);
    store_be64(at_, waiting_);
    bits_ += width;
    at_ += bits_ / 8;
    waiting_ <<= bits_ / 8 * 8;  // 56 at the most
    bits_ %= 8;
  }

 private:
  std::uint8_t* at_ = nullptr;
  std::uint64_t waiting_ = 0;  // the topmost `bits_` bits
  unsigned bits_ = 0;
};

}  // namespace orvo::timing::detail
