#pragma once
// Counting the pairs of two sorted lists by their difference.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "orvo/timing/detail/bin_layout.hpp"
#include "orvo/timing/detail/delay_binning.hpp"
#include "orvo/timing/detail/interleaved_pair_counter.hpp"
#include "orvo/timing/detail/wide_integer.hpp"

namespace orvo::timing::detail {

/// Counts `pairs` of one difference in the bin whose centre is nearest, if there is one.
inline void add_difference(std::int64_t difference, std::int64_t pairs, std::uint64_t bin_ps,
                           std::vector<std::int64_t>& counts) {
  const std::uint64_t half = counts.size() / 2;
  const auto distance = static_cast<std::uint64_t>(difference < 0 ? -difference : difference);
  const std::uint64_t steps = (distance + bin_ps / 2) / bin_ps;  // halves away from zero on both sides
  if (steps <= half) counts[difference < 0 ? half - steps : half + steps] += pairs;
}

/// The readable form, for any numbers at all: two bounds that only move forward, one division for each pair.
inline void count_pairs_anywhere(std::span<const std::int64_t> a_ps, std::span<const std::int64_t> b_ps,
                                 const XcorrWindow& window, std::vector<std::int64_t>& counts) {
  if (a_ps.empty()) return;
  const auto bin_ps = static_cast<std::uint64_t>(window.bin_ps);
  // Of the B events, those that may pair with this A event.
  auto first = std::lower_bound(b_ps.begin(), b_ps.end(), Int128{a_ps.front()} + window.offset_ps - window.range_ps);
  auto last = first;
  for (const std::int64_t a : a_ps) {
    const Int128 center = Int128{a} + window.offset_ps;
    while (first != b_ps.end() && *first < center - window.range_ps) ++first;
    last = std::max(last, first);
    while (last != b_ps.end() && *last <= center + window.range_ps) ++last;
    for (auto b = first; b != last; ++b) {
      add_difference(static_cast<std::int64_t>(*b - center), 1, bin_ps, counts);
    }
  }
}

/// The fast form and, for the events it leaves, the readable one.
template <class Counter>
void count_pairs_interleaved(std::span<const std::int64_t> a_ps, std::span<const std::int64_t> b_ps,
                             const XcorrWindow& window, Counter counter, std::vector<std::int64_t>& counts) {
  const std::int64_t first_a_ps = window.range_ps - window.offset_ps;  // whose window starts at 0
  const auto a_below =
      static_cast<std::size_t>(std::lower_bound(a_ps.begin(), a_ps.end(), first_a_ps) - a_ps.begin());
  const auto b_below = static_cast<std::size_t>(std::lower_bound(b_ps.begin(), b_ps.end(), 0) - b_ps.begin());
  const std::size_t counted_below = counter.count(a_ps.first(a_below), b_ps.first(b_below));
  const std::size_t counted_above = counter.count(a_ps.subspan(a_below), b_ps.subspan(b_below));
  count_pairs_anywhere(a_ps.first(a_below).subspan(counted_below), b_ps, window, counts);
  count_pairs_anywhere(a_ps.subspan(a_below + counted_above), b_ps, window, counts);
}

/// True when sums of four such numbers fit 64 bits.
inline bool is_nearby(std::int64_t low, std::int64_t high) {
  constexpr std::int64_t kLimit = std::int64_t{1} << 60;
  return low >= -kLimit && high <= kLimit;
}

/// Counts the pairs of one window, in as many pairs of lists as there are.
class PairCounter {
 public:
  /// `counts` has one entry per bin of the valid window. It stays with its owner, and counts may wait for `flush`.
  PairCounter(const XcorrWindow& window, std::vector<std::int64_t>& counts)
      : window_(window), binning_(window, counts.size()), wide_binning_(window, counts.size()), counts_(counts) {}

  /// Both lists are in ascending order.
  void count(std::span<const std::int64_t> a_ps, std::span<const std::int64_t> b_ps) {
    if (a_ps.empty() || b_ps.empty()) return;
    const bool nearby = is_nearby(a_ps.front(), a_ps.back()) && is_nearby(b_ps.front(), b_ps.back()) &&
                        is_nearby(window_.offset_ps, window_.offset_ps);
    if (nearby && binning_.is_exact()) {
      count_pairs_interleaved(a_ps, b_ps, window_, InterleavedPairCounter(window_, binning_, slots()), counts_);
    } else if (nearby && wide_binning_.is_exact()) {
      count_pairs_interleaved(a_ps, b_ps, window_, InterleavedPairCounter(window_, wide_binning_, slots()), counts_);
    } else {
      count_pairs_anywhere(a_ps, b_ps, window_, counts_);
    }
  }

  /// Every pair so far is now in the bins.
  void flush() {
    if (slots_) slots_->flush();
  }

 private:
  SlotCounts& slots() { return slots_ ? *slots_ : slots_.emplace(counts_); }

  XcorrWindow window_;
  DelayBinning<std::uint64_t> binning_;
  DelayBinning<Uint128> wide_binning_;
  std::vector<std::int64_t>& counts_;
  std::optional<SlotCounts> slots_;
};

/// `counts` has one entry per bin of the window; both lists are in ascending order.
inline void count_pairs(std::span<const std::int64_t> a_ps, std::span<const std::int64_t> b_ps,
                        const XcorrWindow& window, std::vector<std::int64_t>& counts) {
  PairCounter counter(window, counts);
  counter.count(a_ps, b_ps);
  counter.flush();
}

}  // namespace orvo::timing::detail
