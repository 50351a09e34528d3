#pragma once
// Part of vq_simulate_stream_file: file-local throughout.
#include <cstdint>

namespace {

/// Stores the word most significant byte first, and returns the byte behind it.
inline std::uint8_t* store_be32(std::uint8_t* at, std::uint32_t word) {
  for (unsigned i = 0; i < 4; ++i) at[i] = static_cast<std::uint8_t>(word >> (24 - 8 * i));
  return at + 4;
}

inline std::uint8_t* store_be64(std::uint8_t* at, std::uint64_t word) {
  for (unsigned i = 0; i < 8; ++i) at[i] = static_cast<std::uint8_t>(word >> (56 - 8 * i));
  return at + 8;
}

}  // namespace
