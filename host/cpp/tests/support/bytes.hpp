#pragma once
// Byte strings, and the words and files that tests build from the capture format by hand.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace orvo::test {

using Bytes = std::vector<std::uint8_t>;

inline Bytes bytes(std::initializer_list<int> values) {
  Bytes out;
  for (const int value : values) out.push_back(static_cast<std::uint8_t>(value));
  return out;
}

inline Bytes text_bytes(std::string_view text) {
  return Bytes(text.begin(), text.end());
}

// Captures are made by this and by `big_endian`: iterators would cost tests that are not optimised dearly.
inline Bytes& operator+=(Bytes& left, const Bytes& right) {
  const std::size_t left_size = left.size();
  const std::size_t right_size = right.size();
  left.resize(left_size + right_size);
  if (right_size > 0) std::memcpy(left.data() + left_size, right.data(), right_size);
  return left;
}

inline Bytes operator+(Bytes left, const Bytes& right) {
  left += right;
  return left;
}

/// `width` bytes of `value`, most significant first.
inline Bytes big_endian(std::uint64_t value, int width) {
  Bytes out(static_cast<std::size_t>(width));
  std::uint8_t* at = out.data();
  while (width > 0) *at++ = static_cast<std::uint8_t>(value >> 8 * --width);
  return out;
}

/// `width` bytes of `value`, least significant first.
inline Bytes little_endian(std::uint64_t value, int width) {
  Bytes out;
  for (int shift = 0; shift < 8 * width; shift += 8) out.push_back(static_cast<std::uint8_t>(value >> shift));
  return out;
}

/// raw64 word, picosecond form: channel at bit 61, time in bits 43..0.
constexpr std::uint64_t ps_word(std::uint64_t channel, std::uint64_t time_ps) {
  return channel << 61 | time_ps;
}

/// raw64 word, coarse/fine form: channel at bit 61, marker 0xA5C3 at bit 45, coarse count at bit 13, fine code.
constexpr std::uint64_t cf_word(std::uint64_t channel, std::uint64_t coarse, std::uint64_t fine) {
  return channel << 61 | std::uint64_t{0xA5C3} << 45 | coarse << 13 | fine;
}

inline Bytes ps_record(unsigned channel, std::uint64_t time_ps) {
  return big_endian(ps_word(channel, time_ps), 8);
}

inline Bytes cf_record(unsigned channel, std::uint32_t coarse, unsigned fine) {
  return big_endian(cf_word(channel, coarse, fine), 8);
}

/// A whole capture file: magic, little-endian header length, header text, payload.
inline Bytes capture_bytes(std::string_view header_json, const Bytes& payload, std::string_view magic = "TAGCAP1\n") {
  return text_bytes(magic) + little_endian(header_json.size(), 4) + text_bytes(header_json) + payload;
}

}  // namespace orvo::test
