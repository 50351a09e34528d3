#pragma once
// Counting the pairs of two sorted lists by their difference.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
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
  }

  std::uint64_t bins() const { return bins_; }
  std::uint64_t half() const { return bins_ / 2; }
  /// Modulo 2^64: the outermost centre of few, very wide bins may lie just outside.
  std::int64_t center_ps(std::uint64_t bin) const { return static_cast<std::int64_t>((bin - half()) * bin_ps_); }

 private:
  std::uint64_t bin_ps_ = 1;
  std::uint64_t bins_ = 1;
};

// Room for the sum of three 64-bit numbers, and for their product with a reciprocal.
__extension__ typedef __int128 Int128;
__extension__ typedef unsigned __int128 Uint128;

/// The readable form, for any numbers at all: two bounds that only move forward, one division for each pair.
inline void count_pairs_anywhere(std::span<const std::int64_t> a_ps, std::span<const std::int64_t> b_ps,
                                 const XcorrWindow& window, std::vector<std::int64_t>& counts) {
  const auto bin_ps = static_cast<std::uint64_t>(window.bin_ps);
  const std::uint64_t half = counts.size() / 2;
  std::size_t first = 0;  // of the B events that may pair with this A event
  std::size_t last = 0;
  for (const std::int64_t a : a_ps) {
    const Int128 center = Int128{a} + window.offset_ps;
    while (first < b_ps.size() && b_ps[first] < center - window.range_ps) ++first;
    last = std::max(last, first);
    while (last < b_ps.size() && b_ps[last] <= center + window.range_ps) ++last;
    for (std::size_t i = first; i < last; ++i) {
      const auto difference = static_cast<std::int64_t>(b_ps[i] - center);
      const auto distance = static_cast<std::uint64_t>(difference < 0 ? -difference : difference);
      const std::uint64_t steps = (distance + bin_ps / 2) / bin_ps;  // halves away from zero on both sides
      if (steps <= half) ++counts[difference < 0 ? half - steps : half + steps];
    }
  }
}

/// Finds a pair's bin without a division. `reach` is how far B lies behind the start of the window, 0 to 2 * range.
///
/// Rounding to the nearest centre is rounding down behind a shift of half a bin; only for even widths do differences
/// below zero need one picosecond less, so that halves go away from zero there, too. The shift also puts bin 0 at
/// slot 1: slot 0 and the slot behind the last bin take the pairs that round to a bin outside.
class SlotOfReach {
 public:
  SlotOfReach(const XcorrWindow& window, std::uint64_t bins)
      : widest_(2 * static_cast<std::uint64_t>(window.range_ps)),
        below_zero_(window.bin_ps % 2 == 0 ? widest_ / 2 : 0),
        shift_((bins / 2 + 1) * static_cast<std::uint64_t>(window.bin_ps) +
               static_cast<std::uint64_t>(window.bin_ps) / 2 - widest_ / 2),
        reciprocal_(((kOne - 1) / static_cast<std::uint64_t>(window.bin_ps)) + 1) {}

  /// The largest reach that pairs.
  std::uint64_t widest() const { return widest_; }

  std::uint64_t operator()(std::uint64_t reach) const {
    const std::uint64_t shifted = reach + shift_ - (reach < below_zero_ ? 1 : 0);
    return static_cast<std::uint64_t>(Uint128{shifted} * reciprocal_ >> 63);
  }

  /// The reciprocal is rounded up; its quotients are exact as long as shifted reach times width stays below 2^63.
  static bool is_exact(const XcorrWindow& window) {
    const auto bin_ps = static_cast<Uint128>(window.bin_ps);
    const Uint128 most = 2 * static_cast<Uint128>(window.range_ps) + 3 * bin_ps;
    return most * bin_ps < kOne;
  }

 private:
  static constexpr std::uint64_t kOne = std::uint64_t{1} << 63;

  std::uint64_t widest_;
  std::uint64_t below_zero_;
  std::uint64_t shift_;
  std::uint64_t reciprocal_;
};

inline constexpr std::size_t kAhead = 4;

/// How many of the next `kAhead` times are below `low_ps`: sums of comparisons, because which way each goes is
/// anybody's guess.
inline std::size_t count_below(const std::int64_t* times_ps, std::int64_t low_ps) {
  return static_cast<std::size_t>(times_ps[0] < low_ps) + static_cast<std::size_t>(times_ps[1] < low_ps) +
         static_cast<std::size_t>(times_ps[2] < low_ps) + static_cast<std::size_t>(times_ps[3] < low_ps);
}

/// The fast form, for times and settings whose sums fit 64 bits. On sparse data nearly every branch of the readable
/// form is a coin toss, so here each A event takes the same steps: its first candidate is found by counting, and the
/// first two candidates are always counted, in a spare slot if they are too far. Only what remains is left to
/// branches.
inline void count_pairs_nearby(std::span<const std::int64_t> a_ps, std::span<const std::int64_t> b_ps,
                               const XcorrWindow& window, std::vector<std::int64_t>& counts) {
  constexpr std::size_t kSpare = 8;  // in turns: counting up the same slot again has to wait for the last time
  constexpr std::ptrdiff_t kMargin = 8;
  const SlotOfReach slot_of(window, counts.size());
  std::vector<std::int64_t> slots(counts.size() + 2 + kSpare);
  const std::int64_t* b = b_ps.data();
  const std::int64_t* const end = b + b_ps.size();
  std::size_t i = 0;
  for (; i < a_ps.size(); ++i) {
    const std::int64_t low_ps = a_ps[i] + (window.offset_ps - window.range_ps);
    const auto reach_of = [low_ps](std::int64_t time_ps) { return static_cast<std::uint64_t>(time_ps - low_ps); };
    if (end - b < kMargin) break;
    const std::size_t below = count_below(b, low_ps);
    b += below;
    if (below == kAhead) {
      while (end - b >= kMargin && *b < low_ps) ++b;
    }
    if (end - b < kMargin) break;
    const std::size_t spare = counts.size() + 2 + i % kSpare;
    for (std::size_t candidate = 0; candidate < 2; ++candidate) {
      const std::uint64_t reach = reach_of(b[candidate]);
      const std::uint64_t pairs = 0 - std::uint64_t{reach <= slot_of.widest()};
      ++slots[spare ^ ((spare ^ slot_of(reach)) & pairs)];
    }
    if (reach_of(b[1]) > slot_of.widest()) continue;
    for (const std::int64_t* candidate = b + 2; candidate != end; ++candidate) {
      const std::uint64_t reach = reach_of(*candidate);
      if (reach > slot_of.widest()) break;
      ++slots[slot_of(reach)];
    }
  }
  for (std::size_t bin = 0; bin < counts.size(); ++bin) counts[bin] += slots[bin + 1];
  count_pairs_anywhere(a_ps.subspan(i), b_ps.last(static_cast<std::size_t>(end - b)), window, counts);
}

/// True when sums of three such numbers fit 64 bits.
inline bool is_nearby(std::int64_t low, std::int64_t high) {
  constexpr std::int64_t kLimit = std::int64_t{1} << 60;
  return low >= -kLimit && high <= kLimit;
}

/// `counts` has one entry per bin of the window; both lists hold something and are in ascending order.
inline void count_pairs(std::span<const std::int64_t> a_ps, std::span<const std::int64_t> b_ps,
                        const XcorrWindow& window, std::vector<std::int64_t>& counts) {
  const bool nearby = is_nearby(a_ps.front(), a_ps.back()) && is_nearby(b_ps.front(), b_ps.back()) &&
                      is_nearby(window.offset_ps, window.offset_ps) && is_nearby(window.bin_ps, window.range_ps) &&
                      is_nearby(window.range_ps, window.bin_ps);
  if (nearby && SlotOfReach::is_exact(window)) {
    count_pairs_nearby(a_ps, b_ps, window, counts);
  } else {
    count_pairs_anywhere(a_ps, b_ps, window, counts);
  }
}

}  // namespace detail
}  // namespace orvo::timing
