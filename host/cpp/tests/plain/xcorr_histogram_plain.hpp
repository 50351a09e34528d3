#pragma once
// The histogram as it is defined: both lists copied and sorted, two binary searches for each A event, one division
// for each pair. Sums cannot overflow in 128 bits; 64 bits, as one would first take them, do for recorded times.
#include <algorithm>
#include <cstdint>
#include <vector>

#include "orvo/timing/xcorr_histogram.hpp"

namespace orvo::test::plain {

__extension__ typedef __int128 Wide;

/// Counts into a histogram whose bins are laid out already.
template <class Integer = Wide>
void count_pairs(const std::vector<std::int64_t>& a_ps, const std::vector<std::int64_t>& b_ps,
                 const timing::XcorrWindow& window, timing::XcorrHistogram& histogram) {
  std::vector<std::int64_t> a_sorted = a_ps;
  std::vector<std::int64_t> b_sorted = b_ps;
  std::sort(a_sorted.begin(), a_sorted.end());
  std::sort(b_sorted.begin(), b_sorted.end());
  const Integer half_bin = window.bin_ps / 2;
  const auto bins = static_cast<Integer>(histogram.counts.size());
  for (const std::int64_t a : a_sorted) {
    const Integer low = Integer{a} + window.offset_ps - window.range_ps;
    const Integer high = Integer{a} + window.offset_ps + window.range_ps;
    const auto first = std::lower_bound(b_sorted.begin(), b_sorted.end(), low);
    const auto last = std::upper_bound(first, b_sorted.end(), high);
    for (auto b = first; b != last; ++b) {
      const Integer d = Integer{*b} - a - window.offset_ps;
      const Integer k = d >= 0 ? (d + half_bin) / window.bin_ps : -((half_bin - d) / window.bin_ps);
      const Integer index = bins / 2 + k;
      if (index >= 0 && index < bins) ++histogram.counts[static_cast<std::size_t>(index)];
    }
  }
}

template <class Integer = Wide>
timing::XcorrHistogram xcorr_histogram(const std::vector<std::int64_t>& a_ps, const std::vector<std::int64_t>& b_ps,
                                       const timing::XcorrWindow& window) {
  if (window.range_ps < 1 || window.bin_ps < 1) return {{0}, {0}};
  const Integer quotient = (2 * Integer{window.range_ps} + window.bin_ps - 1) / window.bin_ps;
  const auto half = static_cast<std::int64_t>(quotient / 2);
  timing::XcorrHistogram histogram;
  for (std::int64_t i = -half; i <= half; ++i) {
    histogram.bin_center_ps.push_back(window.bin_ps * i);
    histogram.counts.push_back(0);
  }
  count_pairs<Integer>(a_ps, b_ps, window, histogram);
  return histogram;
}

}  // namespace orvo::test::plain
