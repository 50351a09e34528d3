#pragma once
// Numbers in which no sum of 64-bit times overflows.
#include <algorithm>
#include <cstdint>
#include <limits>

namespace orvo::test::reference {

__extension__ typedef __int128 Wide;

/// The value itself, or the end of the 64-bit range that it lies beyond.
inline std::int64_t in_64_bits(Wide value) {
  const Wide lowest = std::numeric_limits<std::int64_t>::min();
  const Wide highest = std::numeric_limits<std::int64_t>::max();
  return static_cast<std::int64_t>(std::clamp(value, lowest, highest));
}

inline bool fits_64_bits(Wide value) {
  return value == in_64_bits(value);
}

}  // namespace orvo::test::reference
