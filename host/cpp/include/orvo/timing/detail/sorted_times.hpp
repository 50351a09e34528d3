#pragma once
#include <algorithm>
#include <cstdint>
#include <span>
#include <vector>

namespace orvo::timing::detail {

/// Sorts times in place. Recorded times are in order, or nearly so.
inline void sort_times(std::span<std::int64_t> times_ps) {
  if (!std::is_sorted(times_ps.begin(), times_ps.end())) std::sort(times_ps.begin(), times_ps.end());
}

/// A view of a list's times in ascending order: the list itself where it is in order, else a sorted copy.
class SortedTimes {
 public:
  explicit SortedTimes(std::span<const std::int64_t> times_ps) : view_(times_ps) {
    if (std::is_sorted(times_ps.begin(), times_ps.end())) return;
    copy_.assign(times_ps.begin(), times_ps.end());
    sort_times(copy_);
    view_ = copy_;
  }
  SortedTimes(const SortedTimes&) = delete;
  SortedTimes& operator=(const SortedTimes&) = delete;

  operator std::span<const std::int64_t>() const { return view_; }

 private:
  std::vector<std::int64_t> copy_;
  std::span<const std::int64_t> view_;
};

}  // namespace orvo::timing::detail
