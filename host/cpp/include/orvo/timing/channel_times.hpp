#pragma once
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "orvo/timing/detail/time_list.hpp"
#include "orvo/timing/tag_sink.hpp"
#include "orvo/timing/time_tag.hpp"

namespace orvo::timing {

/// The times of each channel, picoseconds, in stream order: a sink for `StreamFileReader::decode_next_chunk`, and the
/// fastest way to hold a capture, at 8 bytes a tag.
class ChannelTimes {
 public:
  std::size_t size(std::size_t channel) const { return lists_[channel].size(); }
  std::span<const std::int64_t> operator[](std::size_t channel) const { return lists_[channel].times(); }
  std::span<std::int64_t> operator[](std::size_t channel) { return lists_[channel].times(); }

  /// Tags of all channels.
  std::uint64_t total() const {
    std::uint64_t sum = 0;
    for (const detail::TimeList& list : lists_) sum += list.size();
    return sum;
  }

  // What a `TagSink` does. `begin_chunk` throws std::bad_alloc; tags of channels that do not exist are left out.
  void begin_chunk(std::size_t most_tags) {
    for (std::size_t c = 0; c < kChannels; ++c) end_[c] = lists_[c].prepare(most_tags);
  }
  void add(unsigned channel, std::int64_t time_ps) {
    if (channel < kChannels) *end_[channel]++ = time_ps;
  }
  /// Where the next times go, for decoders that write them there themselves.
  std::array<std::int64_t*, kChannels>& list_ends() { return end_; }
  void end_chunk() {
    for (std::size_t c = 0; c < kChannels; ++c) lists_[c].commit(end_[c]);
  }
  void discard_chunk() {}  // times count only once `end_chunk` has committed them

 private:
  std::array<detail::TimeList, kChannels> lists_;
  std::array<std::int64_t*, kChannels> end_{};  // where the running chunk's next time goes
};
static_assert(TagSink<ChannelTimes>);

}  // namespace orvo::timing
