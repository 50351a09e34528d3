#pragma once
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

#include "orvo/timing/detail/time_list.hpp"

namespace orvo::timing::detail {

/// Insertion sort that gives up, with the times still all there, when they turn out to be far from sorted: after four
/// steps for each time looked at so far.
inline bool insert_in_order(std::span<std::int64_t> times_ps) {
  std::size_t steps = 0;
  for (std::size_t i = 1; i < times_ps.size(); ++i) {
    const std::int64_t time_ps = times_ps[i];
    if (times_ps[i - 1] <= time_ps) [[likely]]
      continue;
    const std::size_t first = i - std::min(i, 4 * i - steps);
    std::size_t place = i;
    for (; place > first && times_ps[place - 1] > time_ps; --place) times_ps[place] = times_ps[place - 1];
    times_ps[place] = time_ps;
    steps += i - place;
    if (place == first && place > 0) return false;
  }
  return true;
}

/// Sorts times in place. Recorded times are in order, or nearly so.
inline void sort_times(std::span<std::int64_t> times_ps) {
  if (!insert_in_order(times_ps)) std::sort(times_ps.begin(), times_ps.end());
}

/// A view of a list's times in ascending order: the list itself where it is in order, else a sorted copy.
class SortedTimes {
 public:
  explicit SortedTimes(std::span<const std::int64_t> times_ps) : view_(times_ps) {
    if (std::is_sorted(times_ps.begin(), times_ps.end())) return;
    std::memcpy(copy_.prepare(times_ps.size()), times_ps.data(), times_ps.size_bytes());
    copy_.commit(copy_.times().data() + times_ps.size());
    sort_times(copy_.times());
    view_ = copy_.times();
  }
  SortedTimes(const SortedTimes&) = delete;
  SortedTimes& operator=(const SortedTimes&) = delete;

  operator std::span<const std::int64_t>() const { return view_; }

 private:
  TimeList copy_;
  std::span<const std::int64_t> view_;
};

}  // namespace orvo::timing::detail
