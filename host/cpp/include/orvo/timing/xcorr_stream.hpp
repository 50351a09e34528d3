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
#include "orvo/timing/detail/stream_tails.hpp"
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
  const XcorrHistogram& histogram(std::size_t pair = 0) &;
  /// The same, of a stream that is not used any more.
  XcorrHistogram histogram(std::size_t pair = 0) && { return std::move(count_up_to_now(pair).histogram); }

  /// Tags that were left out, of the channels of any pair.
  std::uint64_t late_tags() const { return tails_.late_tags(); }
  /// Tags of a channel so far, late ones, too.
  std::uint64_t tags(std::size_t channel) const { return tails_.tags(channel); }
  /// Tags of all channels.
  std::uint64_t total() const { return tails_.total(); }
  /// Tags that are held at the moment.
  std::size_t waiting() const { return tails_.waiting(); }

  // What a `TagSink` does. `begin_chunk` throws std::bad_alloc; tags of channels that do not exist are left out.
  void begin_chunk(std::size_t most_tags) { tails_.begin_chunk(most_tags); }
  void add(unsigned channel, std::int64_t time_ps) { tails_.add(channel, time_ps); }
  /// Where the next times go, for decoders that write them there themselves.
  std::array<std::int64_t*, kChannels>& list_ends() { return tails_.list_ends(); }
  void end_chunk() {
    if (tails_.end_chunk()) settle();
  }
  void discard_chunk() {}  // times count only once `end_chunk` has committed them

 private:
  using Int128 = detail::Int128;

  struct Pair {
    explicit Pair(const XcorrPair& pair) : channels(pair), histogram(detail::empty_histogram(pair.window)) {
      if (pair.window.is_valid()) counter.emplace(pair.window, histogram.counts);
    }

    XcorrPair channels;
    XcorrHistogram histogram;
    std::optional<detail::PairCounter> counter;
    Int128 counted_ps = detail::StreamTails::kNever;  // tags of A before this one have been counted
  };

  void settle();
  void count_settled();
  Pair& count_up_to_now(std::size_t pair);
  void count(Pair& pair) const;

  detail::StreamTails tails_;
  std::deque<Pair> pairs_;  // counters hold on to their histograms, which therefore must not move
};
static_assert(TagSink<XcorrStream>);

inline XcorrStream::XcorrStream(std::span<const XcorrPair> pairs, std::int64_t reach_ps)
    : tails_(reach_ps, kSilentAfter) {
  for (const XcorrPair& pair : pairs) {
    if (pair.channel_a >= kChannels || pair.channel_b >= kChannels) {
      throw Error("XcorrStream: channels are 0 to 3", kInvalidArgument);
    }
    pairs_.emplace_back(pair);
    if (!pair.window.is_valid()) continue;
    tails_.want(pair.channel_a);
    tails_.want(pair.channel_b);
  }
}

inline void XcorrStream::take(std::span<const TimeTag> tags) {
  begin_chunk(tags.size());
  for (const TimeTag& tag : tags) add(tag.channel, tag.time_ps);
  end_chunk();
}

inline void XcorrStream::settle() {
  tails_.settle();
  count_settled();
}

inline void XcorrStream::finish() {
  tails_.finish();
  count_settled();
}

/// Counts for every tag of A that no tag of B to come can reach, and drops the tags that no pair needs any more.
inline void XcorrStream::count_settled() {
  for (Pair& pair : pairs_) {
    if (!pair.counter) continue;
    count(pair);
    const auto& [a, b, window] = pair.channels;
    tails_.counted_before(pair.counted_ps, a, b, window);
  }
  tails_.forget();
}

inline void XcorrStream::count(Pair& pair) const {
  const auto& [a, b, window] = pair.channels;
  const Int128 until_ps = tails_.countable_ps(a, b, window);
  if (until_ps <= pair.counted_ps) return;
  const std::span<const std::int64_t> a_ps = tails_.times(a);
  const auto first = std::lower_bound(a_ps.begin(), a_ps.end(), pair.counted_ps);
  const auto last = std::lower_bound(first, a_ps.end(), until_ps);
  pair.counter->count({first, last}, tails_.times(b));
  pair.counted_ps = until_ps;
}

inline XcorrStream::Pair& XcorrStream::count_up_to_now(std::size_t pair) {
  settle();
  if (pairs_[pair].counter) pairs_[pair].counter->flush();
  return pairs_[pair];
}

inline const XcorrHistogram& XcorrStream::histogram(std::size_t pair) & {
  return count_up_to_now(pair).histogram;
}

}  // namespace orvo::timing
