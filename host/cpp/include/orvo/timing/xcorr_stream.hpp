#pragma once
// Cross-correlation while the tags go by: of captures of any size, and of live data.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "orvo/timing/detail/pair_counting.hpp"
#include "orvo/timing/detail/sorted_tail.hpp"
#include "orvo/timing/detail/wide_integer.hpp"
#include "orvo/timing/error.hpp"
#include "orvo/timing/tag_sink.hpp"
#include "orvo/timing/time_tag.hpp"
#include "orvo/timing/xcorr_histogram.hpp"

namespace orvo::timing {

/// Two channels to correlate. They may be the same: then each tag also pairs with itself.
struct XcorrPair {
  unsigned channel_a = 0;
  unsigned channel_b = 1;
  XcorrWindow window{5000, 8, 0};
};

/// Histograms of one or more pairs of channels, counted while the tags go by. It is a `TagSink`, so
/// `StreamFileReader::decode_next_chunk` can decode straight into it; `take` does for tags that are there already. A
/// piece of the stream may be of any length. As long as `late_tags()` is 0, the counts after `finish()` are those of
/// `xcorr_histogram` over all tags of the two channels, however the stream was cut.
///
/// **Order.** The tags of a piece may be in any order. A tag that is at most `reach_ps` before the latest one of all
/// earlier pieces is always counted; one that is later still may find that its partners have been forgotten. It is
/// then left out and counted in `late_tags()`, and it is for the caller to go on without it or to start over.
///
/// **Memory**, 8 bytes a tag. A tag of A waits until B is `offset_ps + range_ps + reach_ps` past it, a tag of B until
/// A is `range_ps + reach_ps - offset_ps` past it. Where the channels go by side by side, these are the tags of as
/// much time as reach, two ranges and the offset. Where one is behind the other in the stream, it is the tags of that
/// distance, too. A channel without a tag in `kSilentAfter` tags of the others is taken to be as far as the latest of
/// them: nothing waits for a channel that has fallen silent, and when it comes back, it must be where the others are.
/// Besides, there is room for the tags of the longest piece, twice; bins take 20 bytes each.
class XcorrStream {
 public:
  static constexpr std::int64_t kDefaultReachPs = 100'000'000;
  static constexpr std::uint64_t kSilentAfter = std::uint64_t{1} << 18;

  /// A range or bin width below 1 gives a histogram of one bin, without counts. A reach below 0 counts as 0. Throws
  /// `Error` for a channel that there is not, and the standard library's exceptions for more bins than a vector or
  /// the memory can hold.
  explicit XcorrStream(std::span<const XcorrPair> pairs, std::int64_t reach_ps = kDefaultReachPs);
  explicit XcorrStream(const XcorrPair& pair, std::int64_t reach_ps = kDefaultReachPs)
      : XcorrStream(std::span(&pair, 1), reach_ps) {}

  /// A piece of the stream, of any channels.
  void take(std::span<const TimeTag> tags);

  /// Counts what still waits. Every tag after it is late.
  void finish();

  /// The counts so far, of the pair of that index. Of the tags that still wait, none or some are counted in. Valid
  /// until the next call of anything.
  const XcorrHistogram& histogram(std::size_t pair = 0);

  /// Tags that were left out, of the channels of any pair.
  std::uint64_t late_tags() const { return late_tags_; }
  /// Tags of a channel so far, late ones, too.
  std::uint64_t tags(std::size_t channel) const { return channels_[channel].tags; }
  /// Tags of all channels.
  std::uint64_t total() const;
  /// Tags that are held at the moment.
  std::size_t waiting() const;

  // What a `TagSink` does. `begin_chunk` throws std::bad_alloc; tags of channels that do not exist are left out.
  void begin_chunk(std::size_t most_tags) {
    for (std::size_t c = 0; c < kChannels; ++c) end_[c] = channels_[c].tail.prepare(most_tags);
    begin_ = end_;
  }
  void add(unsigned channel, std::int64_t time_ps) {
    if (channel < kChannels) *end_[channel]++ = time_ps;
  }
  void end_chunk();
  void discard_chunk() {}  // times count only once `end_chunk` has committed them

 private:
  using Int128 = detail::Int128;
  static constexpr Int128 kAlways = Int128{1} << 80;  // after every time
  static constexpr Int128 kNever = -kAlways;
  static constexpr std::uint64_t kWorthCounting = 1 << 14;  // tags; counting a few at a time is slow

  struct Channel {
    bool paired = false;
    std::uint64_t tags = 0;
    std::uint64_t silence = 0;    // tags of other channels since its last one
    Int128 latest_ps = kNever;    // of its tags
    Int128 settled_ps = kNever;   // none will come before this, other than late ones
    Int128 accepted_ps = kNever;  // from here on, a tag's partners are all there
    detail::SortedTail tail;
  };
  struct Pair {
    Pair(const XcorrPair& from, bool valid) : pair(from), histogram(detail::empty_histogram(from.window)) {
      if (valid) counter.emplace(from.window, histogram.counts);
    }

    XcorrPair pair;
    XcorrHistogram histogram;
    std::optional<detail::PairCounter> counter;
    Int128 counted_ps = kNever;  // tags of A before this one have been counted
  };

  void settle();
  void count(Pair& pair) const;
  void forget();

  Int128 reach_ps_;
  std::array<Channel, kChannels> channels_;
  std::deque<Pair> pairs_;  // counters hold on to their histograms, which therefore must not move
  std::array<std::int64_t*, kChannels> begin_{};  // the running chunk's times
  std::array<std::int64_t*, kChannels> end_{};
  std::uint64_t late_tags_ = 0;
  std::uint64_t unsettled_ = 0;  // tags since `settle`
};

static_assert(TagSink<XcorrStream>);

inline XcorrStream::XcorrStream(std::span<const XcorrPair> pairs, std::int64_t reach_ps)
    : reach_ps_(std::max<std::int64_t>(reach_ps, 0)) {
  for (const XcorrPair& pair : pairs) {
    if (pair.channel_a >= kChannels || pair.channel_b >= kChannels) {
      throw Error("XcorrStream: channels are 0 to 3", kInvalidArgument);
    }
    pairs_.emplace_back(pair, pair.window.is_valid());
    if (!pair.window.is_valid()) continue;
    channels_[pair.channel_a].paired = true;
    channels_[pair.channel_b].paired = true;
  }
}

inline void XcorrStream::take(std::span<const TimeTag> tags) {
  begin_chunk(tags.size());
  for (const TimeTag& tag : tags) add(tag.channel, tag.time_ps);
  end_chunk();
}

inline void XcorrStream::end_chunk() {
  std::array<std::uint64_t, kChannels> fresh;
  std::uint64_t paired = 0;
  for (std::size_t c = 0; c < kChannels; ++c) {
    fresh[c] = static_cast<std::uint64_t>(end_[c] - begin_[c]);
    channels_[c].tags += fresh[c];
    if (channels_[c].paired) paired += fresh[c];
  }
  for (std::size_t c = 0; c < kChannels; ++c) {
    Channel& channel = channels_[c];
    if (!channel.paired) continue;  // what was written there is written over
    late_tags_ += channel.tail.commit(end_[c], channel.accepted_ps);
    channel.silence = fresh[c] == 0 ? channel.silence + paired : 0;
    if (channel.tail.size() != 0)
      channel.latest_ps = std::max(channel.latest_ps, Int128{channel.tail.times().back()});
  }
  unsettled_ += paired;
  if (unsettled_ >= kWorthCounting) settle();
}

/// Counts for every tag of A that no tag of B to come can reach.
inline void XcorrStream::settle() {
  unsettled_ = 0;
  Int128 latest_ps = kNever;
  for (const Channel& channel : channels_) latest_ps = std::max(latest_ps, channel.latest_ps);
  for (Channel& channel : channels_) {
    const bool silent = channel.silence >= kSilentAfter;
    channel.settled_ps = std::max(channel.settled_ps, (silent ? latest_ps : channel.latest_ps) - reach_ps_);
  }
  for (Pair& pair : pairs_) {
    if (pair.counter) count(pair);
  }
  forget();
}

inline void XcorrStream::count(Pair& pair) const {
  const Channel& a = channels_[pair.pair.channel_a];
  const Channel& b = channels_[pair.pair.channel_b];
  const XcorrWindow& window = pair.pair.window;
  const Int128 until_ps = std::min(a.settled_ps, b.settled_ps - window.offset_ps - window.range_ps);
  if (until_ps <= pair.counted_ps) return;
  const std::span<const std::int64_t> times = a.tail.times();
  const auto first = std::lower_bound(times.begin(), times.end(), pair.counted_ps);
  const auto last = std::lower_bound(first, times.end(), until_ps);
  pair.counter->count({first, last}, b.tail.times());
  pair.counted_ps = until_ps;
}

/// Drops the tags that no pair needs any more.
inline void XcorrStream::forget() {
  std::array<Int128, kChannels> needed_ps;
  needed_ps.fill(kAlways);
  const auto need = [&](unsigned channel, Int128 from_ps, Int128 accepted_ps) {
    needed_ps[channel] = std::min(needed_ps[channel], from_ps);
    channels_[channel].accepted_ps = std::max(channels_[channel].accepted_ps, accepted_ps);
  };
  for (const Pair& pair : pairs_) {
    if (!pair.counter) continue;
    const Int128 partner_ps = pair.counted_ps + pair.pair.window.offset_ps;  // of the first tag of A to come
    need(pair.pair.channel_a, pair.counted_ps, pair.counted_ps);
    need(pair.pair.channel_b, partner_ps - pair.pair.window.range_ps, partner_ps + pair.pair.window.range_ps);
  }
  for (std::size_t c = 0; c < kChannels; ++c) channels_[c].tail.drop_before(needed_ps[c]);
}

inline void XcorrStream::finish() {
  for (Channel& channel : channels_) channel.settled_ps = 2 * kAlways;  // before which lies the end of every window
  settle();
}

inline const XcorrHistogram& XcorrStream::histogram(std::size_t pair) {
  settle();
  if (pairs_[pair].counter) pairs_[pair].counter->flush();
  return pairs_[pair].histogram;
}

inline std::uint64_t XcorrStream::total() const {
  std::uint64_t sum = 0;
  for (const Channel& channel : channels_) sum += channel.tags;
  return sum;
}

inline std::size_t XcorrStream::waiting() const {
  std::size_t sum = 0;
  for (const Channel& channel : channels_) sum += channel.tail.size();
  return sum;
}

}  // namespace orvo::timing
