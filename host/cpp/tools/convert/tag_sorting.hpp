#pragma once
// Part of vq_convert_stream_file: file-local throughout.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <string>
#include <vector>

#include "orvo/timing/error.hpp"
#include "orvo/timing/time_tag.hpp"

namespace {

/// Brings tags into order that are late by no more than a reach, holding back those that others may still precede.
/// Tags of the same time stay in the order they came in.
class TagSorting {
 public:
  explicit TagSorting(std::int64_t reach_ps) : reach_ps_(reach_ps) {}

  /// The tags that are in their place now, valid until the next call. Throws `Error` for one that is later than the
  /// reach allows.
  std::span<const orvo::timing::TimeTag> add(std::span<const orvo::timing::TimeTag> tags) {
    tags_.erase(tags_.begin(), tags_.begin() + static_cast<std::ptrdiff_t>(given_));
    given_ = 0;
    const std::size_t held = tags_.size();
    tags_.insert(tags_.end(), tags.begin(), tags.end());
    for (const orvo::timing::TimeTag& tag : tags) {
      if (tag.time_ps < last_given_ps_) refuse(tag);
      latest_ps_ = std::max(latest_ps_, tag.time_ps);
    }
    sort_from(held);
    const std::int64_t safe_ps = latest_ps_ < std::numeric_limits<std::int64_t>::min() + reach_ps_
                                     ? std::numeric_limits<std::int64_t>::min()
                                     : latest_ps_ - reach_ps_;
    const auto end = std::upper_bound(
        tags_.begin(), tags_.end(), safe_ps,
        [](std::int64_t time_ps, const orvo::timing::TimeTag& tag) { return time_ps < tag.time_ps; });
    return give(static_cast<std::size_t>(end - tags_.begin()));
  }

  /// The rest.
  std::span<const orvo::timing::TimeTag> finish() {
    tags_.erase(tags_.begin(), tags_.begin() + static_cast<std::ptrdiff_t>(given_));
    given_ = 0;
    return give(tags_.size());
  }

 private:
  std::span<const orvo::timing::TimeTag> give(std::size_t count) {
    given_ = count;
    if (count != 0) last_given_ps_ = tags_[count - 1].time_ps;
    return std::span(tags_).first(count);
  }

  /// Late tags are few and a little late: each moves to its place, unless that comes to too many steps.
  void sort_from(std::size_t held) {
    std::size_t steps = 4 * tags_.size();
    for (std::size_t i = std::max<std::size_t>(held, 1); i < tags_.size(); ++i) {
      if (tags_[i - 1].time_ps <= tags_[i].time_ps) continue;
      const orvo::timing::TimeTag tag = tags_[i];
      std::size_t at = i;
      for (; at != 0 && tags_[at - 1].time_ps > tag.time_ps && steps != 0; --at, --steps) tags_[at] = tags_[at - 1];
      tags_[at] = tag;
      if (steps == 0) return std::stable_sort(tags_.begin(), tags_.end(), earlier);
    }
  }
  static bool earlier(const orvo::timing::TimeTag& a, const orvo::timing::TimeTag& b) {
    return a.time_ps < b.time_ps;
  }

  [[noreturn]] void refuse(const orvo::timing::TimeTag& tag) const {
    throw orvo::timing::Error("--sort: channel " + std::to_string(tag.channel) + " at " +
                                  std::to_string(tag.time_ps) + " ps comes after tags up to " +
                                  std::to_string(latest_ps_) + " ps: a longer reach is needed",
                              orvo::timing::kInvalidArgument);
  }

  std::int64_t reach_ps_;
  std::vector<orvo::timing::TimeTag> tags_;  // in order; the first `given_` are given away
  std::size_t given_ = 0;
  std::int64_t latest_ps_ = std::numeric_limits<std::int64_t>::min();
  std::int64_t last_given_ps_ = std::numeric_limits<std::int64_t>::min();
};

}  // namespace
