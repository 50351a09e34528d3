#pragma once
// Where decoders put tags. A sink has four operations:
//   begin_chunk(most)   up to `most` tags of one read follow
//   add(channel, time)  one tag, channel 0 to 3
//   end_chunk()         that was all of them, or instead
//   discard_chunk()     forget every tag since begin_chunk
#include <cstddef>
#include <cstdint>
#include <vector>

#include "orvo/timing/time_tag.hpp"

namespace orvo::timing {

/// Tags in stream order.
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

}  // namespace orvo::timing
