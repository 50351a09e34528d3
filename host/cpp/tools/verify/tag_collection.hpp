#pragma once
// Part of vq_verify_stream_file_xcorr: file-local throughout.
#include <algorithm>
#include <cstdint>
#include <vector>

#include "orvo/timing/channel_times.hpp"
#include "orvo/timing/stream_file_reader.hpp"
#include "orvo/timing/tag_sink.hpp"
#include "orvo/timing/time_tag.hpp"

namespace {

/// Decodes the next piece of the capture into `sink`, which knows its `total()`: up to the end, or until it has the
/// first `max_tags` tags when that is not 0. False when there was none left.
template <orvo::timing::TagSink Sink>
bool decode_piece(orvo::timing::StreamFileReader& reader, std::uint64_t max_tags, Sink& sink) {
  constexpr std::uint64_t kTagsPerCall = 65'536;
  constexpr std::uint64_t kBytesPerRead = 1'048'576;
  if (max_tags == 0) return reader.decode_next_chunk(kBytesPerRead, sink);
  if (sink.total() >= max_tags) return false;
  const std::vector<orvo::timing::TimeTag> tags =
      reader.decode_next_tags(std::min(max_tags - sink.total(), kTagsPerCall), kBytesPerRead);
  sink.begin_chunk(tags.size());
  for (const orvo::timing::TimeTag& tag : tags) sink.add(tag.channel, tag.time_ps);
  sink.end_chunk();
  return !tags.empty();
}

/// The whole capture, or its first `max_tags` tags when that is not 0.
inline orvo::timing::ChannelTimes collect_tags(orvo::timing::StreamFileReader& reader, std::uint64_t max_tags) {
  orvo::timing::ChannelTimes times;
  while (decode_piece(reader, max_tags, times)) {
  }
  return times;
}

}  // namespace
