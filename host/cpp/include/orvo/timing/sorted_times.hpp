#pragma once
#include <algorithm>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <utility>
#include <vector>

#include "orvo/timing/detail/time_list.hpp"

namespace orvo::timing {

namespace detail {

/// True when the times ascend. Without a branch for each, so that compilers compare several at once: modulo 2^64, a
/// step back is a long one, and so few short ones do not come around to where they began.
inline bool is_ascending(std::span<const std::int64_t> times_ps) {
  constexpr std::size_t kBlock = 128;
  constexpr std::uint64_t kLongStep = std::uint64_t{1} << 55;
  const std::int64_t* at = times_ps.data();
  std::size_t left = times_ps.size();
  for (; left > kBlock; left -= kBlock, at += kBlock) {
    std::uint64_t steps = 0;  // their bits
#pragma GCC unroll 4
    for (std::size_t i = 0; i < kBlock; ++i) {
      steps |= static_cast<std::uint64_t>(at[i + 1]) - static_cast<std::uint64_t>(at[i]);
    }
    const bool ascends = steps < kLongStep && at[0] <= at[kBlock];
    if (!ascends && !std::is_sorted(at, at + kBlock + 1)) return false;
  }
  return std::is_sorted(at, at + left);
}

/// Where ascending runs of times begin, and the end. Times that are late by a few places are moved to theirs; a step
/// back farther than that begins a run. Empty when the times are in disorder: so many steps back, or runs so short,
/// that a sort of everything costs less than going on. The times are all there in any case.
inline std::vector<std::size_t> ascending_runs(std::span<std::int64_t> times_ps) {
  constexpr std::size_t kFewPlaces = 32;
  std::vector<std::size_t> starts{0};
  std::size_t steps = 0;
  for (std::size_t i = 1; i < times_ps.size(); ++i) {
    const std::int64_t time_ps = times_ps[i];
    if (times_ps[i - 1] <= time_ps) [[likely]]
      continue;
    const std::size_t first = std::max(starts.back(), i - std::min(i, kFewPlaces));
    std::size_t place = i - 1;
    while (place > first && times_ps[place - 1] > time_ps) --place;
    steps += i - place;
    if (steps > 4 * i || starts.size() > 8 + i / 1024) return {};
    if (place == first && first > starts.back()) {
      starts.push_back(i);
      continue;
    }
    for (std::size_t to = i; to > place; --to) times_ps[to] = times_ps[to - 1];
    times_ps[place] = time_ps;
  }
  starts.push_back(times_ps.size());
  return starts;
}

/// Merges neighbouring runs in pairs until one is left.
inline void merge_runs(std::span<std::int64_t> times_ps, std::vector<std::size_t> starts) {
  const auto at = [&](std::size_t run) { return times_ps.begin() + static_cast<std::ptrdiff_t>(starts[run]); };
  while (starts.size() > 2) {
    std::size_t kept = 1;
    for (std::size_t run = 0; run + 1 < starts.size(); run += 2) {
      const std::size_t after = std::min(run + 2, starts.size() - 1);
      std::inplace_merge(at(run), at(run + 1), at(after));
      starts[kept++] = starts[after];
    }
    starts.resize(kept);
  }
}

}  // namespace detail

/// Lists of times as they are passed around: a span, or whatever one can be made of.
template <class Times>
concept ContiguousTimes = std::convertible_to<const Times&, std::span<const std::int64_t>>;

/// Sorts times in place: what the functions for sorted lists ask for. Fast where times are in order or nearly so, as
/// recorded ones are, or start anew where a recording was taken up again; never slower than std::sort by much.
inline void sort_times(std::span<std::int64_t> times_ps) {
  if (detail::is_ascending(times_ps)) return;
  std::vector<std::size_t> runs = detail::ascending_runs(times_ps);
  if (runs.empty()) {
    std::sort(times_ps.begin(), times_ps.end());
  } else {
    detail::merge_runs(times_ps, std::move(runs));
  }
}

/// A view of a list's times in ascending order: the list itself where it is in order, else a sorted copy.
class SortedTimes {
 public:
  explicit SortedTimes(std::span<const std::int64_t> times_ps) : view_(times_ps) {
    if (detail::is_ascending(times_ps)) return;
    std::memcpy(copy_.prepare(times_ps.size()), times_ps.data(), times_ps.size_bytes());
    copy_.commit(copy_.times().data() + times_ps.size());
    sort_times(copy_.times());
    view_ = copy_.times();
  }
  SortedTimes(const SortedTimes&) = delete;
  SortedTimes& operator=(const SortedTimes&) = delete;

  operator std::span<const std::int64_t>() const { return view_; }

 private:
  detail::TimeList copy_;
  std::span<const std::int64_t> view_;
};

}  // namespace orvo::timing
