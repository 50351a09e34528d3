#pragma once
// Loads and stores spelled as shifts: GCC and Clang make one instruction of each.
#include <array>
#include <bit>
#include <cstdint>
#include <cstring>

#include "orvo/timing/version.hpp"

namespace orvo::timing::detail {

constexpr std::uint32_t load_be32(const std::uint8_t* p) {
  return std::uint32_t{p[0]} << 24 | std::uint32_t{p[1]} << 16 | std::uint32_t{p[2]} << 8 | std::uint32_t{p[3]};
}

constexpr std::uint64_t load_be64(const std::uint8_t* p) {
  return std::uint64_t{p[0]} << 56 | std::uint64_t{p[1]} << 48 | std::uint64_t{p[2]} << 40 |
         std::uint64_t{p[3]} << 32 | std::uint64_t{p[4]} << 24 | std::uint64_t{p[5]} << 16 |
         std::uint64_t{p[6]} << 8 | std::uint64_t{p[7]};
}

/// In whatever order this machine has: for comparing words with each other.
inline std::uint32_t load_native32(const std::uint8_t* p) {
  std::uint32_t word = 0;
  std::memcpy(&word, p, sizeof word);
  return word;
}

/// The same.
inline std::uint64_t load_native64(const std::uint8_t* p) {
  std::uint64_t word = 0;
  std::memcpy(&word, p, sizeof word);
  return word;
}

/// What `load_be32` gives where `load_native32` gives `word`.
constexpr std::uint32_t be32_of_native(std::uint32_t word) {
  return load_be32(std::bit_cast<std::array<std::uint8_t, 4>>(word).data());
}

/// What `load_be64` gives where `load_native64` gives `word`.
constexpr std::uint64_t be64_of_native(std::uint64_t word) {
  return load_be64(std::bit_cast<std::array<std::uint8_t, 8>>(word).data());
}

constexpr std::uint32_t load_le32(const std::uint8_t* p) {
  return std::uint32_t{p[3]} << 24 | std::uint32_t{p[2]} << 16 | std::uint32_t{p[1]} << 8 | std::uint32_t{p[0]};
}

/// Stores the word most significant byte first, and returns the byte after it.
constexpr std::uint8_t* store_be32(std::uint8_t* at, std::uint32_t word) {
  for (unsigned i = 0; i < 4; ++i) at[i] = static_cast<std::uint8_t>(word >> (24 - 8 * i));
  return at + 4;
}

constexpr std::uint8_t* store_be64(std::uint8_t* at, std::uint64_t word) {
  for (unsigned i = 0; i < 8; ++i) at[i] = static_cast<std::uint8_t>(word >> (56 - 8 * i));
  return at + 8;
}

constexpr std::array<std::uint8_t, 4> le32_bytes(std::uint32_t value) {
  return {static_cast<std::uint8_t>(value), static_cast<std::uint8_t>(value >> 8),
          static_cast<std::uint8_t>(value >> 16), static_cast<std::uint8_t>(value >> 24)};
}

}  // namespace orvo::timing::detail
