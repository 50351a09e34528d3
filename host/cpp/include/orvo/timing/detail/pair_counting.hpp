#pragma once
// Counting the pairs of two sorted lists by their difference.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <vector>

#include "orvo/timing/detail/sorted_times.hpp"

namespace orvo::timing {

/// Which pairs count, and how finely their differences are told apart.
struct XcorrWindow {
  std::int64_t range_ps;   ///< differences from -range_ps to +range_ps, both included
  std::int64_t bin_ps;     ///< bin width
  std::int64_t offset_ps;  ///< taken off every difference

  bool is_valid() const { return range_ps >= 1 && bin_ps >= 1; }
};

namespace detail {

/// The bins of a window: an odd number of them, the middle one centred on 0.
class BinLayout {
 public:
  explicit BinLayout(const XcorrWindow& window) {
    if (!window.is_valid()) return;
    bin_ps_ = static_cast<std::uint64_t>(window.bin_ps);
    const std::uint64_t both_sides = 2 * static_cast<std::uint64_t>(window.range_ps);
    bins_ = (both_sides / bin_ps_ + (both_sides % bin_ps_ != 0 ? 1 : 0)) | 1;
    if (half() > static_cast<std::uint64_t>(INT64_MAX) / bin_ps_) {
      throw std::overflow_error("xcorr_histogram: bin centres outside 64 bits");
    }
  }

  std::uint64_t bins() const { return bins_; }
  std::uint64_t half() const { return bins_ / 2; }
  std::int64_t center_ps(std::uint64_t bin) const { return static_cast<std::int64_t>((bin - half()) * bin_ps_); }

 private:
  std::uint64_t bin_ps_ = 1;
  std::uint64_t bins_ = 1;
};

// Room for the sum of three 64-bit numbers.
__extension__ typedef __int128 Int128;

/// Counts every pair whose difference, less the offset, lies in the window, at the bin nearest to it. `Integer` must
/// hold the sums of times, offset and range.
template <class Integer>
void count_pairs_in(std::span<const std::int64_t> a_ps, std::span<const std::int64_t> b_ps, const XcorrWindow& window,
                    std::vector<std::int64_t>& counts) {
  const auto bin_ps = static_cast<std::uint64_t>(window.bin_ps);
  const std::uint64_t half_bin_ps = bin_ps / 2;
  const std::uint64_t half = counts.size() / 2;
  std::size_t first = 0;  // of the B events that may pair with this A event: both bounds only move forward
  std::size_t last = 0;
  for (const std::int64_t a : a_ps) {
    const Integer center = Integer{a} + window.offset_ps;
    while (first < b_ps.size() && b_ps[first] < center - window.range_ps) ++first;
    last = std::max(last, first);
    while (last < b_ps.size() && b_ps[last] <= center + window.range_ps) ++last;
    for (std::size_t i = first; i < last; ++i) {
      const auto difference = static_cast<std::int64_t>(b_ps[i] - center);
      // Rounded to the nearest bin, halves away from zero on both sides.
      const bool negative = difference < 0;
      const std::uint64_t magnitude =
          negative ? 0 - static_cast<std::uint64_t>(difference) : static_cast<std::uint64_t>(difference);
      const std::uint64_t steps = (magnitude + half_bin_ps) / bin_ps;
      if (steps <= half) ++counts[negative ? half - steps : half + steps];
    }
  }
}

inline bool fits_64_bits(std::span<const std::int64_t> sorted_ps) {
  constexpr std::int64_t kLimit = std::int64_t{1} << 60;
  return sorted_ps.front() >= -kLimit && sorted_ps.back() <= kLimit;
}

/// `counts` has one entry per bin of the window; both lists hold something and are in ascending order.
inline void count_pairs(std::span<const std::int64_t> a_ps, std::span<const std::int64_t> b_ps,
                        const XcorrWindow& window, std::vector<std::int64_t>& counts) {
  const std::int64_t settings[] = {std::min(window.offset_ps, std::int64_t{0}),
                                   std::max({window.offset_ps, window.range_ps, window.bin_ps})};
  if (fits_64_bits(a_ps) && fits_64_bits(b_ps) && fits_64_bits(settings)) {
    count_pairs_in<std::int64_t>(a_ps, b_ps, window, counts);
  } else {
    count_pairs_in<Int128>(a_ps, b_ps, window, counts);
  }
}

}  // namespace detail
}  // namespace orvo::timing
