#pragma once
// The offset estimate while the tags go by.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <span>
#include <vector>

#include "orvo/timing/detail/stream_tails.hpp"
#include "orvo/timing/detail/wide_integer.hpp"
#include "orvo/timing/error.hpp"
#include "orvo/timing/offset_estimate.hpp"
#include "orvo/timing/tag_sink.hpp"
#include "orvo/timing/xcorr_stream.hpp"

namespace orvo::timing {

/// Estimates the delay of channel B after channel A while the tags go by: a `TagSink`. How many tags channel A has
/// must be known from an earlier pass, since the sample is spread evenly over them. If that was right and
/// `late_tags()` is 0, `offset_ps()` is, after `finish()`, that of `estimate_offset_ps` for the whole lists.
///
/// Order and memory are those of an `XcorrStream` without range and offset. Besides, the tags of the sample wait for
/// the next tag of B, and of B the last one before the first that waits.
class OffsetStream {
 public:
  /// Throws `Error` for a channel that there is not.
  OffsetStream(unsigned channel_a, unsigned channel_b, std::uint64_t tags_of_a,
               std::int64_t reach_ps = XcorrStream::kDefaultReachPs)
      : channel_a_(channel_a),
        channel_b_(channel_b),
        stride_(detail::offset_sample_stride(tags_of_a)),
        tails_(reach_ps, XcorrStream::kSilentAfter) {
    if (channel_a >= kChannels || channel_b >= kChannels) {
      throw Error("OffsetStream: channels are 0 to 3", kInvalidArgument);
    }
    tails_.want(channel_a);
    tails_.want(channel_b);
  }

  /// Takes the rest of the sample. Every tag after it is late.
  void finish() {
    tails_.finish();
    sample_settled();
  }

  /// The estimate from the sample so far; 0 without one, as where a channel has no tag.
  std::int64_t offset_ps() const { return detail::median_difference(differences_); }
  /// True when nothing that follows can change the estimate.
  bool is_complete() const { return differences_.size() == detail::kMostOffsetSamples; }

  std::uint64_t late_tags() const { return tails_.late_tags(); }
  /// Tags of a channel so far, late ones, too.
  std::uint64_t tags(std::size_t channel) const { return tails_.tags(channel); }
  std::uint64_t total() const { return tails_.total(); }
  /// Tags that are held at the moment.
  std::size_t waiting() const { return tails_.waiting() + open_.size(); }

  // What a `TagSink` does. `begin_chunk` throws std::bad_alloc; tags of channels that do not exist are left out.
  void begin_chunk(std::size_t most_tags) { tails_.begin_chunk(most_tags); }
  void add(unsigned channel, std::int64_t time_ps) { tails_.add(channel, time_ps); }
  /// Where the next times go, for decoders that write them there themselves.
  std::array<std::int64_t*, kChannels>& list_ends() { return tails_.list_ends(); }
  void end_chunk() {
    if (!tails_.end_chunk()) return;
    tails_.settle();
    sample_settled();
  }
  void discard_chunk() {}  // times count only once `end_chunk` has committed them

 private:
  using Int128 = detail::Int128;

  void sample_settled();
  void open_settled();
  void close_answered();
  Int128 predecessor_of(Int128 time_ps) const;

  unsigned channel_a_;
  unsigned channel_b_;
  std::uint64_t stride_;
  detail::StreamTails tails_;
  Int128 sampled_ps_ = detail::StreamTails::kNever;  // tags of A before this one are in the sample or skipped
  std::uint64_t to_skip_ = 0;                        // tags of A before the next one of the sample
  std::deque<std::int64_t> open_;                    // the sample's tags whose nearest B may still come
  std::vector<std::int64_t> differences_;
};
static_assert(TagSink<OffsetStream>);

inline void OffsetStream::sample_settled() {
  open_settled();
  close_answered();
  const Int128 first_ps = open_.empty() ? sampled_ps_ : Int128{open_.front()};
  tails_.need_from(channel_a_, sampled_ps_);
  tails_.accept_from(channel_a_, sampled_ps_);
  tails_.need_from(channel_b_, predecessor_of(first_ps));
  tails_.accept_from(channel_b_, tails_.settled_ps(channel_b_));
  tails_.forget();
}

/// Takes the sample's tags from those of A that no other will come before.
inline void OffsetStream::open_settled() {
  const std::span<const std::int64_t> a_ps = tails_.times(channel_a_);
  const Int128 until_ps = std::max(sampled_ps_, tails_.settled_ps(channel_a_));
  const auto first = std::lower_bound(a_ps.begin(), a_ps.end(), sampled_ps_);
  const auto events = static_cast<std::uint64_t>(std::lower_bound(first, a_ps.end(), until_ps) - first);
  std::uint64_t at = to_skip_;
  for (; at < events; at += stride_) {
    if (differences_.size() + open_.size() < detail::kMostOffsetSamples) {
      open_.push_back(first[static_cast<std::ptrdiff_t>(at)]);
    }
  }
  to_skip_ = at - events;
  sampled_ps_ = until_ps;
}

/// Finds the nearest B for each tag after which a tag of B has come, with none to come before that; at the end, for
/// all.
inline void OffsetStream::close_answered() {
  const std::span<const std::int64_t> b_ps = tails_.times(channel_b_);
  const Int128 settled_ps = tails_.settled_ps(channel_b_);
  const bool ended = settled_ps > detail::StreamTails::kAlways;
  while (!open_.empty() && !b_ps.empty()) {
    const auto successor = std::lower_bound(b_ps.begin(), b_ps.end(), open_.front());
    if (!ended && (successor == b_ps.end() || *successor > settled_ps)) return;
    differences_.push_back(detail::nearest_difference(open_.front(), b_ps));
    open_.pop_front();
  }
}

/// The last tag of B before a time, or that time.
inline OffsetStream::Int128 OffsetStream::predecessor_of(Int128 time_ps) const {
  const std::span<const std::int64_t> b_ps = tails_.times(channel_b_);
  const auto successor = std::lower_bound(b_ps.begin(), b_ps.end(), time_ps);
  return successor == b_ps.begin() ? time_ps : Int128{successor[-1]};
}

}  // namespace orvo::timing
