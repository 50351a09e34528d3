#pragma once
// Where decoders put tags. Decoding is a template over its sink, so that lists per channel, counters and correlators
// take each tag as it is decoded, without a copy in between.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "orvo/timing/time_tag.hpp"

namespace orvo::timing {

/// What a sink does, in this order for each chunk of payload that yields tags or may:
///
/// - `begin_chunk(most_tags)`: a chunk begins. At most `most_tags` tags follow before its end, so that a sink may
///   make room once; usually far fewer come, so memory should not be written to in advance.
/// - `add(channel, time_ps)`: one tag, in stream order. `channel` is 0 to 3; `time_ps` is in picoseconds on an axis
///   that does not wrap. Times of a channel ascend but for late tags.
/// - then one of the two: `end_chunk()`: every tag of the chunk was added and stands.
/// - `discard_chunk()`: every tag since `begin_chunk` was noise and must be forgotten. Only packed_delta does this,
///   when a chunk shows at its end that the records were read from a wrong bit.
///
/// A chunk of payload that cannot yield tags may pass without a call. What a sink throws passes through the decoder,
/// which must not be used afterwards.
///
/// A sink that counts tags:
///
///     struct TagCounter {
///       void begin_chunk(std::size_t) { counted_before = count; }
///       void add(unsigned, std::int64_t) { ++count; }
///       void end_chunk() {}
///       void discard_chunk() { count = counted_before; }
///
///       std::uint64_t count = 0;
///       std::uint64_t counted_before = 0;
///     };
template <class Sink>
concept TagSink = requires(Sink& sink, std::size_t most_tags, unsigned channel, std::int64_t time_ps) {
  sink.begin_chunk(most_tags);
  sink.add(channel, time_ps);
  sink.end_chunk();
  sink.discard_chunk();
};

/// The sink that appends to a list of tags, which must outlive it.
class TagList {
 public:
  explicit TagList(std::vector<TimeTag>& tags) : tags_(tags) {}

  void begin_chunk(std::size_t) { chunk_begin_ = tags_.size(); }
  void add(unsigned channel, std::int64_t time_ps) {
    // Member by member: a whole tag would be read back before the writes of its members have arrived.
    TimeTag& tag = tags_.emplace_back();
    tag.channel = static_cast<std::uint8_t>(channel);
    tag.time_ps = time_ps;
  }
  void end_chunk() {}
  void discard_chunk() { tags_.resize(chunk_begin_); }

 private:
  std::vector<TimeTag>& tags_;
  std::size_t chunk_begin_ = 0;
};
static_assert(TagSink<TagList>);

}  // namespace orvo::timing
