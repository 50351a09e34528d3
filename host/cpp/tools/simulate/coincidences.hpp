#pragma once
// Part of vq_simulate_stream_file: file-local throughout.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <vector>

#include "orvo/timing/detail/wide_integer.hpp"
#include "orvo/timing/time_tag.hpp"
#include "simulate/settings.hpp"

namespace {

using orvo::timing::detail::Int128;

/// Sums over coincidences: pairs of tags whose difference B - A, the delay removed, lies within the range.
struct CoincidenceSums {
  std::uint64_t count = 0;
  Int128 difference_ps = 0;
  Int128 square_ps2 = 0;

  double mean_ps() const { return count == 0 ? 0 : static_cast<double>(difference_ps) / static_cast<double>(count); }
  /// Standard deviation about the mean.
  double rms_ps() const {
    if (count == 0) return 0;
    return std::sqrt(static_cast<double>(square_ps2) / static_cast<double>(count) - mean_ps() * mean_ps());
  }
};

/// Times in order that wait at the front of storage that is never cleared.
class WaitingTimes {
 public:
  std::size_t size() const { return size_; }
  std::int64_t* begin() { return storage_.data(); }
  std::int64_t* end() { return storage_.data() + size_; }

  /// The end of the times, where `count` more may be written before `extend_to` says how many there are.
  std::int64_t* room_for(std::size_t count) {
    if (storage_.size() < size_ + count) storage_.resize(size_ + count);
    return end();
  }
  void extend_to(const std::int64_t* new_end) { size_ = static_cast<std::size_t>(new_end - storage_.data()); }
  /// Forgets all times before `first`.
  void drop_before(const std::int64_t* first) {
    const std::int64_t* const last = end();
    extend_to(std::copy(first, last, begin()));
  }

 private:
  std::vector<std::int64_t> storage_;
  std::size_t size_ = 0;
};

/// Counts every coincidence while the tags go by, block by block.
///
/// Deliberate: `XcorrStream` counts the same pairs, but this is the answer that its counts are checked against.
/// Nothing is shared: sums of exact differences instead of bins, and a walk along B through A instead of along A
/// through B.
///
/// The tags of A are taken as later by the delay. Both sequences being in order, the partners of the tags of B begin
/// at a tag of A that only moves forward. A tag of B waits until all of A that can reach it has come.
class CoincidenceCounter {
 public:
  explicit CoincidenceCounter(const PairSettings& pairs) : pairs_(pairs) {}

  /// Tags in order of time, none before those of the last call.
  void add(std::span<const orvo::timing::TimeTag> tags) {
    if (tags.empty()) return;
    split(tags);
    count(tags.back().time_ps);
  }

  /// Counts what still waits; no tags may follow.
  void finish() { count(kForever); }

  const CoincidenceSums& sums() const { return sums_; }
  /// Tags that may still find partners.
  std::size_t waiting() const { return a_ps_.size() + b_ps_.size(); }

 private:
  static constexpr std::int64_t kForever = std::numeric_limits<std::int64_t>::max() / 2;

  /// Appends the tags of both channels to their lists. Every tag is written to both, and only counted where it
  /// belongs.
  void split(std::span<const orvo::timing::TimeTag> tags) {
    std::int64_t* a = a_ps_.room_for(tags.size());
    std::int64_t* b = b_ps_.room_for(tags.size());
    for (const orvo::timing::TimeTag& tag : tags) {
      *a = tag.time_ps + pairs_.delay_ps;
      *b = tag.time_ps;
      a += tag.channel == pairs_.channel_a;
      b += tag.channel == pairs_.channel_b;
    }
    a_ps_.extend_to(a);
    b_ps_.extend_to(b);
  }

  /// Counts for every tag of B that no tag of A from `now_ps` on can reach.
  void count(std::int64_t now_ps) {
    const std::int64_t range_ps = pairs_.range_ps;
    const std::int64_t* const ready =
        std::lower_bound(b_ps_.begin(), b_ps_.end(), now_ps + pairs_.delay_ps - range_ps);
    *a_ps_.room_for(1) = kForever;
    const std::int64_t* a = a_ps_.begin();
    for (const std::int64_t* b = b_ps_.begin(); b != ready;) {
      const std::int64_t inside_ps = *a - (*b - range_ps);  // below 0: too early for this one and all to come
      if (static_cast<std::uint64_t>(inside_ps) <= 2 * static_cast<std::uint64_t>(range_ps)) tally(a, *b);
      a += inside_ps < 0;
      b += inside_ps >= 0;
    }
    b_ps_.drop_before(ready);
    // A tag of A that even the next one of B is too late for has had its chance.
    const std::int64_t next_b_ps = b_ps_.size() == 0 ? now_ps : *b_ps_.begin();
    a_ps_.drop_before(std::lower_bound(a_ps_.begin(), a_ps_.end(), next_b_ps - range_ps));
  }

  /// `first`: the first tag of A within reach of the tag of B; `kForever` ends the list.
  void tally(const std::int64_t* first, std::int64_t b_ps) {
    for (; *first <= b_ps + pairs_.range_ps; ++first) {
      const std::int64_t difference_ps = b_ps - *first;
      ++sums_.count;
      sums_.difference_ps += difference_ps;
      sums_.square_ps2 += Int128{difference_ps} * difference_ps;
    }
  }

  PairSettings pairs_;
  WaitingTimes a_ps_;
  WaitingTimes b_ps_;
  CoincidenceSums sums_;
};

}  // namespace
