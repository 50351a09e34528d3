#pragma once
// One fuzz input taken apart: settings come off the front, value by value; what is left is the payload. An input that
// has run out gives zeros, so every byte string is a valid input.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <string>
#include <vector>

namespace orvo::fuzz {

class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : left_(data, size) {}

  bool empty() const { return left_.empty(); }
  std::size_t size() const { return left_.size(); }

  std::uint8_t byte() {
    if (left_.empty()) return 0;
    const std::uint8_t first = left_.front();
    left_ = left_.subspan(1);
    return first;
  }
  bool flag() { return (byte() & 1) != 0; }

  /// `width` bytes (1 to 8), least significant first.
  std::uint64_t number(int width) {
    std::uint64_t value = 0;
    for (int shift = 0; shift < 8 * width; shift += 8) value |= std::uint64_t{byte()} << shift;
    return value;
  }
  std::uint64_t below(std::uint64_t bound) { return number(bound <= 256 ? 1 : 4) % bound; }

  /// Any 64-bit number, written in 2 to 9 bytes: small ones, and those beside a power of two or an end of the range.
  std::int64_t integer() {
    const std::uint8_t kind = byte();
    if (kind < 64) return static_cast<std::int8_t>(byte());
    if (kind < 128) return static_cast<std::int16_t>(number(2));
    if (kind < 176) return static_cast<std::int32_t>(number(4));
    if (kind < 200) return static_cast<std::int64_t>(number(8));
    const auto beside = static_cast<std::uint64_t>(static_cast<std::int8_t>(byte()));
    if (kind < 228) return static_cast<std::int64_t>((std::uint64_t{1} << (byte() & 63)) + beside);
    const auto end = kind < 242 ? std::numeric_limits<std::int64_t>::max() : std::numeric_limits<std::int64_t>::min();
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(end) + beside);
  }

  std::span<const std::uint8_t> bytes(std::size_t count) {
    const auto taken = left_.first(std::min(count, left_.size()));
    left_ = left_.subspan(taken.size());
    return taken;
  }
  std::span<const std::uint8_t> rest() { return bytes(left_.size()); }

  /// Text up to the next byte `end`, which is consumed, or up to the end of the input.
  std::string text_until(std::uint8_t end) {
    const auto found = std::find(left_.begin(), left_.end(), end);
    const auto taken = bytes(static_cast<std::size_t>(found - left_.begin()));
    byte();
    return std::string(taken.begin(), taken.end());
  }
  std::string rest_as_text() {
    const auto taken = rest();
    return std::string(taken.begin(), taken.end());
  }

 private:
  std::span<const std::uint8_t> left_;
};

}  // namespace orvo::fuzz
