#pragma once
// Two lists of times and the settings of a correlation, from a fuzz input.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "fuzz/support/input.hpp"

namespace orvo::fuzz {

/// A list of at most `most` times: each is a number, or a step from the last one, or a run of equal steps.
inline std::vector<std::int64_t> time_list(Input& input, std::size_t most) {
  std::vector<std::int64_t> times;
  std::uint64_t at = 0;
  for (std::size_t entries = input.number(2); entries > 0 && times.size() < most && !input.empty(); --entries) {
    const std::uint8_t kind = input.byte();
    const auto value = static_cast<std::uint64_t>(input.integer());
    std::size_t repeats = 1;
    if (kind % 4 == 0) {
      at = value;
    } else if (kind % 4 == 1) {
      at += value;
    } else {
      repeats = kind % 4 == 2 ? kind / 4 : std::size_t{kind} * 64;
    }
    for (; repeats > 0 && times.size() < most; --repeats) {
      if (kind % 4 >= 2) at += value;
      times.push_back(static_cast<std::int64_t>(at));
    }
  }
  return times;
}

}  // namespace orvo::fuzz
