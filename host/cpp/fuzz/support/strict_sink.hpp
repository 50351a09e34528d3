#pragma once
// A sink (see tag_sink.hpp) that holds decoders to the protocol: tags come inside a chunk only, never more of
// them than were announced, and a chunk that begins is ended or discarded, once.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "fuzz/support/require.hpp"
#include "orvo/timing/stream_decoder.hpp"
#include "orvo/timing/time_tag.hpp"

namespace orvo::fuzz {

class StrictSink {
 public:
  void begin_chunk(std::size_t most_tags) {
    require(!in_chunk_, "no chunk begins inside another");
    in_chunk_ = true;
    begin_ = tags_.size();
    most_tags_ = most_tags;
  }
  void add(unsigned channel, std::int64_t time_ps) {
    require(in_chunk_, "tags come inside a chunk");
    require(channel < timing::kChannels, "a tag is of a channel that there is");
    require(tags_.size() - begin_ < most_tags_, "no more tags come than were announced");
    tags_.push_back({static_cast<std::uint8_t>(channel), time_ps});
  }
  void end_chunk() {
    require(in_chunk_, "only a chunk that has begun ends");
    in_chunk_ = false;
  }
  void discard_chunk() {
    require(in_chunk_, "only a chunk that has begun is discarded");
    in_chunk_ = false;
    tags_.resize(begin_);
  }

  /// All tags of whole chunks.
  const std::vector<timing::TimeTag>& tags() const {
    require(!in_chunk_, "no chunk is left without an end");
    return tags_;
  }

 private:
  std::vector<timing::TimeTag> tags_;
  std::size_t begin_ = 0;  // of the running chunk
  std::size_t most_tags_ = 0;
  bool in_chunk_ = false;
};

/// What `feed_...` gives, by way of a strict sink.
inline std::vector<timing::TimeTag> strict_feed(timing::StreamDecoder& decoder) {
  StrictSink sink;
  timing::detail::decode_pending(decoder, sink);
  return sink.tags();
}

}  // namespace orvo::fuzz
