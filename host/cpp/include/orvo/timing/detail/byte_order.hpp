#pragma once
// Loads and stores spelled as shifts: GCC and Clang make one instruction of each.
#include <array>
#include <cstdint>

namespace orvo::timing::detail {

constexpr std::uint32_t load_be32(const std::uint8_t* p) {
  return std::uint32_t{p[0]} << 24 | std::uint32_t{p[1]} << 16 | std::uint32_t{p[2]} << 8 | std::uint32_t{p[3]};
}

constexpr std::uint64_t load_be64(const std::uint8_t* p) {
  return std::uint64_t{p[0]} << 56 | std::uint64_t{p[1]} << 48 | std::uint64_t{p[2]} << 40 |
         std::uint64_t{p[3]} << 32 | std::uint64_t{p[4]} << 24 | std::uint64_t{p[5]} << 16 |
         std::uint64_t{p[6]} << 8 | std::uint64_t{p[7]};
}

constexpr std::uint32_t load_le32(const std::uint8_t* p) {
  return std::uint32_t{p[3]} << 24 | std::uint32_t{p[2]} << 16 | std::uint32_t{p[1]} << 8 | std::uint32_t{p[0]};
}

constexpr std::array<std::uint8_t, 4> le32_bytes(std::uint32_t value) {
  return {static_cast<std::uint8_t>(value), static_cast<std::uint8_t>(value >> 8),
          static_cast<std::uint8_t>(value >> 16), static_cast<std::uint8_t>(value >> 24)};
}

}  // namespace orvo::timing::detail
