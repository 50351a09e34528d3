#pragma once
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <span>

#include "orvo/timing/chance_pairs.hpp"
#include "orvo/timing/xcorr_stream.hpp"

namespace orvo::timing::python {

/// A streaming correlator that threads may share, and that remembers where the channels begin and end.
class SharedXcorrStream {
 public:
  SharedXcorrStream(std::span<const XcorrPair> pairs, std::int64_t reach_ps) : stream_(pairs, reach_ps) {}

  std::mutex& mutex() { return mutex_; }
  // All that follows with the mutex held.
  XcorrStream& stream() { return stream_; }
  const ChannelExtent& extent(unsigned channel) const { return extents_[channel]; }

  // What a `TagSink` does.
  void begin_chunk(std::size_t most_tags) {
    stream_.begin_chunk(most_tags);
    running_ = extents_;
  }
  void add(unsigned channel, std::int64_t time_ps) {
    stream_.add(channel, time_ps);
    if (channel < kChannels) running_[channel].add(time_ps);
  }
  void end_chunk() {
    extents_ = running_;
    stream_.end_chunk();
  }
  void discard_chunk() { stream_.discard_chunk(); }

 private:
  std::mutex mutex_;
  XcorrStream stream_;
  std::array<ChannelExtent, kChannels> extents_{};
  std::array<ChannelExtent, kChannels> running_{};
};
static_assert(TagSink<SharedXcorrStream>);

}  // namespace orvo::timing::python
