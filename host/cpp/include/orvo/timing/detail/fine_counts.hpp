#pragma once
#include <cstddef>
#include <cstdint>
#include <vector>

#include "orvo/timing/detail/pair_counting.hpp"
#include "orvo/timing/detail/wide_integer.hpp"
#include "orvo/timing/xcorr_histogram.hpp"
#include "orvo/timing/xcorr_window.hpp"

namespace orvo::timing::detail {

/// True when every pair of `window` is one of the window `fine`, whose bins tell single picoseconds apart.
inline bool fine_counts_cover(const XcorrWindow& fine, const XcorrWindow& window) {
  const Int128 shift = Int128{fine.offset_ps} - window.offset_ps;
  return fine.is_valid() && window.is_valid() && fine.bin_ps == 1 &&
         (shift < 0 ? -shift : shift) + window.range_ps <= fine.range_ps;
}

/// Adds up bins of 1 ps to those of a window that they cover: the same counts, to the pair, as from the times.
inline void add_up_fine_counts(const XcorrHistogram& fine, const XcorrWindow& fine_window, const XcorrWindow& window,
                               std::vector<std::int64_t>& counts) {
  const std::int64_t shift = fine_window.offset_ps - window.offset_ps;
  for (std::size_t i = 0; i < fine.counts.size(); ++i) {
    const std::int64_t difference = fine.bin_center_ps[i] + shift;
    if (fine.counts[i] == 0 || difference < -window.range_ps || difference > window.range_ps) continue;
    add_difference(difference, fine.counts[i], static_cast<std::uint64_t>(window.bin_ps), counts);
  }
}

}  // namespace orvo::timing::detail
