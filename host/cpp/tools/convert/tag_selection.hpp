#pragma once
// Part of vq_convert_stream_file: file-local throughout.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <string>

#include "convert/settings.hpp"
#include "orvo/timing/error.hpp"
#include "orvo/timing/time_tag.hpp"

namespace {

/// Takes tags out of a stream, in place.
class TagSelection {
 public:
  explicit TagSelection(const SelectionSettings& settings) : settings_(settings), skip_(settings.skip_tags) {}

  /// The tags taken of the next ones, at the front of their storage.
  std::span<orvo::timing::TimeTag> take(std::span<orvo::timing::TimeTag> tags) {
    if (tags.empty()) return tags;
    if (!started_) start(tags.front().time_ps);
    tags = within(tags);
    const std::size_t skipped = static_cast<std::size_t>(std::min<std::uint64_t>(skip_, tags.size()));
    skip_ -= skipped;
    tags = tags.subspan(skipped);
    const std::uint64_t left = settings_.most_tags - taken_;
    tags = tags.first(static_cast<std::size_t>(std::min<std::uint64_t>(left, tags.size())));
    taken_ += tags.size();
    return tags;
  }

  /// True when no later tag can be taken: there are enough, or a whole read lay more than a second past the end.
  bool is_done() const { return taken_ == settings_.most_tags || past_end_; }

 private:
  static constexpr std::int64_t kLatestPs = 1'000'000'000'000;

  void start(std::int64_t first_ps) {
    started_ = true;
    constexpr std::int64_t kMostPs = std::numeric_limits<std::int64_t>::max();
    const auto at = [first_ps](std::int64_t time_ps) {
      return first_ps > 0 && time_ps > kMostPs - first_ps ? kMostPs : first_ps + time_ps;
    };
    if (settings_.from_ps) begin_ps_ = at(*settings_.from_ps);
    if (settings_.to_ps) end_ps_ = at(*settings_.to_ps);
    has_window_ = settings_.from_ps || settings_.to_ps;
  }

  std::span<orvo::timing::TimeTag> within(std::span<orvo::timing::TimeTag> tags) {
    if (settings_.channels == 0xF && !has_window_) return tags;
    std::size_t kept = 0;
    bool past_end = settings_.to_ps.has_value() && end_ps_ <= std::numeric_limits<std::int64_t>::max() - kLatestPs;
    for (const orvo::timing::TimeTag tag : tags) {
      past_end = past_end && tag.time_ps >= end_ps_ + kLatestPs;
      tags[kept] = tag;
      kept += (settings_.channels >> tag.channel & 1) != 0 && tag.time_ps >= begin_ps_ &&
              (tag.time_ps < end_ps_ || !settings_.to_ps);
    }
    past_end_ = past_end;
    return tags.first(kept);
  }

  SelectionSettings settings_;
  bool started_ = false;
  bool has_window_ = false;
  std::int64_t begin_ps_ = std::numeric_limits<std::int64_t>::min();
  std::int64_t end_ps_ = std::numeric_limits<std::int64_t>::max();
  std::uint64_t skip_;
  std::uint64_t taken_ = 0;
  bool past_end_ = false;
};

/// Moves tags in time, and to other channels.
inline void change_tags(const ChangeSettings& settings, std::span<orvo::timing::TimeTag> tags) {
  static constexpr ChangeSettings kNone;
  if (settings.shift_ps == kNone.shift_ps && settings.channel == kNone.channel) return;
  for (orvo::timing::TimeTag& tag : tags) {
    if (__builtin_add_overflow(tag.time_ps, settings.shift_ps[tag.channel], &tag.time_ps)) {
      throw orvo::timing::Error(
          "--shift: moves channel " + std::to_string(tag.channel) + " past the end of all times",
          orvo::timing::kInvalidArgument);
    }
    tag.channel = settings.channel[tag.channel];
  }
}

}  // namespace
