#pragma once
#include <cstdint>

#include "orvo/timing/version.hpp"

namespace orvo::timing {

/// Which pairs count, and how finely their differences are told apart.
struct XcorrWindow {
  std::int64_t range_ps;   ///< differences from -range_ps to +range_ps, both included
  std::int64_t bin_ps;     ///< bin width
  std::int64_t offset_ps;  ///< taken off every difference

  bool is_valid() const { return range_ps >= 1 && bin_ps >= 1; }
};

}  // namespace orvo::timing
