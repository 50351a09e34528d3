#pragma once
#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>

#include "orvo/timing/tag_sink.hpp"
#include "orvo/timing/time_tag.hpp"

namespace orvo::timing::detail {

/// A sink with a list of times for each channel, in whose room decoders may write themselves: `list_ends` says where
/// the next time of each channel goes. Each list has room for all tags of the chunk.
template <class Sink>
concept ListSink = TagSink<Sink> && requires(Sink& sink) {
  { sink.list_ends() } -> std::same_as<std::array<std::int64_t*, kChannels>&>;
};

/// The channels of a block of tags, where there are just two: `first` and the one that differs from it in `bit`.
struct TwoChannels {
  unsigned first;
  unsigned bit;

  /// For tags that all agree with one of channel `channel` but for bits set in `differing`, which is not 3.
  constexpr TwoChannels(unsigned channel, unsigned differing)
      : first(channel & (differing == 2 ? 1u : 2u)), bit(differing == 2 ? 1 : 0) {}

  constexpr unsigned second() const { return first | 1u << bit; }
};
static_assert(TwoChannels(3, 2).first == 1 && TwoChannels(3, 2).second() == 3);
static_assert(TwoChannels(3, 0).first == 2 && TwoChannels(3, 0).second() == 3);

/// Lists of two channels. A time is written to the ends of both, and only its own moves on; the next time replaces
/// the other copy. So no end is ever read back from memory, which is what decoding would wait for most.
class TwoChannelLists {
 public:
  TwoChannelLists(std::array<std::int64_t*, kChannels>& ends, TwoChannels channels)
      : ends_(ends), channels_(channels), first_(ends[channels.first]), second_(ends[channels.second()]) {}
  TwoChannelLists(const TwoChannelLists&) = delete;
  TwoChannelLists& operator=(const TwoChannelLists&) = delete;
  ~TwoChannelLists() {
    ends_[channels_.first] = first_;
    ends_[channels_.second()] = second_;
  }

  /// To the first list, or with a `which` of 1 to the second.
  void add(std::size_t which, std::int64_t time_ps) { add(which, time_ps, time_ps); }
  /// The one or the other time.
  void add(std::size_t which, std::int64_t first_ps, std::int64_t second_ps) {
    *first_ = first_ps;
    *second_ = second_ps;
    first_ += which ^ 1;
    second_ += which;
  }

 private:
  std::array<std::int64_t*, kChannels>& ends_;
  TwoChannels channels_;
  std::int64_t* first_;
  std::int64_t* second_;
};

}  // namespace orvo::timing::detail
