#pragma once
#include <cstdio>
#include <cstdlib>

namespace orvo::fuzz {

/// Ends the program, which the fuzzer and the replay both take for a finding, unless the property holds.
inline void require(bool holds, const char* property) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", property);
  std::abort();
}

}  // namespace orvo::fuzz
