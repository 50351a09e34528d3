#pragma once
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "orvo/timing/detail/sorted_tail.hpp"
#include "orvo/timing/detail/wide_integer.hpp"
#include "orvo/timing/time_tag.hpp"
#include "orvo/timing/xcorr_window.hpp"

namespace orvo::timing::detail {

/// What a stream's consumers share: of each channel that is wanted the tags that are still needed, in order, and how
/// far it has come. 128-bit times have room on both sides of every tag.
class StreamTails {
 public:
  static constexpr Int128 kAlways = Int128{1} << 80;  // after every time
  static constexpr Int128 kNever = -kAlways;

  StreamTails(std::int64_t reach_ps, std::uint64_t silent_after)
      : reach_ps_(std::max<std::int64_t>(reach_ps, 0)), silent_after_(silent_after) {}

  /// Keeps the tags of that channel; those of others are only counted.
  void want(unsigned channel) { channels_[channel].wanted = true; }

  void begin_chunk(std::size_t most_tags) {
    for (std::size_t c = 0; c < kChannels; ++c) end_[c] = channels_[c].tail.prepare(most_tags);
    begin_ = end_;
  }
  void add(unsigned channel, std::int64_t time_ps) {
    if (channel < kChannels) *end_[channel]++ = time_ps;
  }
  /// Where the next times go, for decoders that write them there themselves.
  std::array<std::int64_t*, kChannels>& list_ends() { return end_; }
  /// True when so many tags have come since the last call of `settle` that it pays.
  bool end_chunk();

  /// Sees how far each channel has come.
  void settle();
  /// As `settle`, when no tag will follow.
  void finish();

  std::span<const std::int64_t> times(unsigned channel) const { return channels_[channel].tail.times(); }
  /// None of the channel's tags to come is before this, but for late ones.
  Int128 settled_ps(unsigned channel) const { return channels_[channel].settled_ps; }

  /// Tags of `a` before this can be counted in a window: no tag of `b` to come pairs with them, but for late ones.
  Int128 countable_ps(unsigned a, unsigned b, const XcorrWindow& window) const {
    return std::min(settled_ps(a), settled_ps(b) - window.offset_ps - window.range_ps);
  }
  /// Tags of `a` before `counted_ps` have been counted in a window: names what it still needs and what is late.
  void counted_before(Int128 counted_ps, unsigned a, unsigned b, const XcorrWindow& window) {
    const Int128 partner_ps = counted_ps + window.offset_ps;  // of the first tag of A to come
    need_from(a, counted_ps);
    accept_from(a, counted_ps);
    need_from(b, partner_ps - window.range_ps);
    accept_from(b, partner_ps + window.range_ps);
  }

  /// From here on the channel's tags are still needed. After all were named, `forget` drops those that nobody did.
  void need_from(unsigned channel, Int128 from_ps) {
    channels_[channel].needed_ps = std::min(channels_[channel].needed_ps, from_ps);
  }
  /// Tags of the channel that are yet to come and lie before this are late.
  void accept_from(unsigned channel, Int128 from_ps) {
    channels_[channel].accepted_ps = std::max(channels_[channel].accepted_ps, from_ps);
  }
  void forget();

  std::uint64_t late_tags() const { return late_tags_; }
  std::uint64_t tags(std::size_t channel) const { return channels_[channel].tags; }
  std::uint64_t total() const;
  std::size_t waiting() const;

 private:
  static constexpr std::uint64_t kWorthSettling = 1 << 14;  // tags; counting a few at a time is slow

  struct Channel {
    bool wanted = false;
    std::uint64_t tags = 0;
    std::uint64_t silence = 0;  // wanted tags of other channels since its last one
    Int128 latest_ps = kNever;  // of its tags
    Int128 settled_ps = kNever;
    Int128 accepted_ps = kNever;
    Int128 needed_ps = kAlways;
    SortedTail tail;
  };

  Int128 reach_ps_;
  std::uint64_t silent_after_;
  std::array<Channel, kChannels> channels_;
  std::array<std::int64_t*, kChannels> begin_{};  // the running chunk's times
  std::array<std::int64_t*, kChannels> end_{};
  std::uint64_t late_tags_ = 0;
  std::uint64_t unsettled_ = 0;
};

inline bool StreamTails::end_chunk() {
  std::array<std::uint64_t, kChannels> fresh;
  std::uint64_t wanted = 0;
  for (std::size_t c = 0; c < kChannels; ++c) {
    fresh[c] = static_cast<std::uint64_t>(end_[c] - begin_[c]);
    channels_[c].tags += fresh[c];
    if (channels_[c].wanted) wanted += fresh[c];
  }
  for (std::size_t c = 0; c < kChannels; ++c) {
    Channel& channel = channels_[c];
    if (!channel.wanted) continue;  // what was written there is written over
    late_tags_ += channel.tail.commit(end_[c], channel.accepted_ps);
    channel.silence = fresh[c] == 0 ? channel.silence + wanted : 0;
    if (channel.tail.size() != 0)
      channel.latest_ps = std::max(channel.latest_ps, Int128{channel.tail.times().back()});
  }
  unsettled_ += wanted;
  return unsettled_ >= kWorthSettling;
}

inline void StreamTails::settle() {
  unsettled_ = 0;
  Int128 latest_ps = kNever;
  for (const Channel& channel : channels_) latest_ps = std::max(latest_ps, channel.latest_ps);
  for (Channel& channel : channels_) {
    const bool silent = channel.silence >= silent_after_;
    channel.settled_ps = std::max(channel.settled_ps, (silent ? latest_ps : channel.latest_ps) - reach_ps_);
  }
}

inline void StreamTails::finish() {
  unsettled_ = 0;
  for (Channel& channel : channels_) channel.settled_ps = 2 * kAlways;  // before which every window ends
}

inline void StreamTails::forget() {
  for (Channel& channel : channels_) {
    channel.tail.drop_before(channel.needed_ps);
    channel.needed_ps = kAlways;
  }
}

inline std::uint64_t StreamTails::total() const {
  std::uint64_t sum = 0;
  for (const Channel& channel : channels_) sum += channel.tags;
  return sum;
}

inline std::size_t StreamTails::waiting() const {
  std::size_t sum = 0;
  for (const Channel& channel : channels_) sum += channel.tail.size();
  return sum;
}

}  // namespace orvo::timing::detail
