#pragma once
// Part of vq_verify_stream_file_xcorr: file-local throughout.
#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "orvo/timing/stream_file_reader.hpp"
#include "orvo/timing/time_tag.hpp"

namespace {

/// Times of each channel, picoseconds, in stream order.
struct CollectedTags {
  std::array<std::vector<std::int64_t>, orvo::timing::kChannels> times_ps;
  std::uint64_t decoded = 0;  ///< tags of any channel

  std::uint64_t count(std::size_t channel) const { return times_ps[channel].size(); }
};

/// Decodes the capture to its end, or to its first `max_tags` tags when that is not 0.
inline CollectedTags collect_tags(orvo::timing::StreamFileReader& reader, std::uint64_t max_tags) {
  constexpr std::uint64_t kTagsPerCall = 65'536;
  constexpr std::uint64_t kBytesPerRead = 1'048'576;
  CollectedTags collected;
  while (max_tags == 0 || collected.decoded < max_tags) {
    const std::uint64_t limit = max_tags == 0 ? kTagsPerCall : std::min(max_tags - collected.decoded, kTagsPerCall);
    const std::vector<orvo::timing::TimeTag> tags = reader.decode_next_tags(limit, kBytesPerRead);
    if (tags.empty()) break;
    for (const orvo::timing::TimeTag& tag : tags) {
      if (tag.channel < orvo::timing::kChannels) collected.times_ps[tag.channel].push_back(tag.time_ps);
    }
    collected.decoded += tags.size();
  }
  return collected;
}

}  // namespace
