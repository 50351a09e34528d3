#pragma once
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

#include "orvo/timing/detail/time_list.hpp"
#include "orvo/timing/detail/wide_integer.hpp"
#include "orvo/timing/sorted_times.hpp"

namespace orvo::timing::detail {

/// The times of one channel that are still needed, in ascending order. They come in at the back, perhaps a little
/// late, and go at the front; the storage is used again and again, and so stays in the processor's cache.
class SortedTail {
 public:
  std::size_t size() const { return list_.size() - begin_; }
  std::span<const std::int64_t> times() const { return list_.times().subspan(begin_); }

  /// Room for `count` more times, to be written there and then announced with `commit`. Throws std::bad_alloc.
  std::int64_t* prepare(std::size_t count) { return list_.prepare(count); }

  /// Puts the new times, which end at `end`, in their places. Those before `from_ps` are left out; returns how many.
  std::size_t commit(const std::int64_t* end, Int128 from_ps) {
    const std::size_t held = list_.size();
    list_.commit(end);
    const std::span<std::int64_t> fresh = list_.times().subspan(held);
    if (fresh.empty()) return 0;
    sort_times(fresh);
    const auto first = std::lower_bound(fresh.begin(), fresh.end(), from_ps);
    const auto late = static_cast<std::size_t>(first - fresh.begin());
    if (late != 0) {
      std::memmove(fresh.data(), fresh.data() + late, (fresh.size() - late) * sizeof(std::int64_t));
      list_.commit(fresh.data() + (fresh.size() - late));
    }
    merge_from(held);
    return late;
  }

  /// Forgets every time before `from_ps`.
  void drop_before(Int128 from_ps) {
    const std::span<const std::int64_t> held = times();
    begin_ += static_cast<std::size_t>(std::lower_bound(held.begin(), held.end(), from_ps) - held.begin());
    const std::size_t kept = size();
    if (begin_ < kept) return;  // moving pays once as many have gone
    std::int64_t* const data = list_.times().data();
    if (kept != 0) std::memmove(data, data + begin_, kept * sizeof(std::int64_t));
    list_.commit(data + kept);
    begin_ = 0;
  }

 private:
  /// The times from `middle` on are in order, as are those before.
  void merge_from(std::size_t middle) {
    const std::span<std::int64_t> all = list_.times().subspan(begin_);
    const auto fresh = all.begin() + static_cast<std::ptrdiff_t>(middle - begin_);
    if (fresh == all.begin() || fresh == all.end() || fresh[-1] <= *fresh) return;
    std::inplace_merge(std::upper_bound(all.begin(), fresh, *fresh), fresh, all.end());
  }

  TimeList list_;
  std::size_t begin_ = 0;  // the first time that is still needed
};

}  // namespace orvo::timing::detail
