#pragma once
// Part of vq_verify_stream_file_xcorr: file-local throughout.
#include <algorithm>
#include <cstdint>
#include <vector>

#include "orvo/timing/channel_times.hpp"
#include "orvo/timing/stream_file_reader.hpp"
#include "orvo/timing/time_tag.hpp"

namespace {

/// Decodes the capture to its end, or to its first `max_tags` tags when that is not 0.
inline orvo::timing::ChannelTimes collect_tags(orvo::timing::StreamFileReader& reader, std::uint64_t max_tags) {
  constexpr std::uint64_t kTagsPerCall = 65'536;
  constexpr std::uint64_t kBytesPerRead = 1'048'576;
  orvo::timing::ChannelTimes times;
  if (max_tags == 0) {
    while (reader.decode_next_chunk(kBytesPerRead, times)) {
    }
    return times;
  }
  while (times.total() < max_tags) {
    const std::vector<orvo::timing::TimeTag> tags =
        reader.decode_next_tags(std::min(max_tags - times.total(), kTagsPerCall), kBytesPerRead);
    if (tags.empty()) break;
    times.begin_chunk(tags.size());
    for (const orvo::timing::TimeTag& tag : tags) times.add(tag.channel, tag.time_ps);
    times.end_chunk();
  }
  return times;
}

}  // namespace
