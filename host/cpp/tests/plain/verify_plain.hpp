#pragma once
// The whole verification of a capture, put together from the plain twins: tags in one list, lists of two channels
// split from it, each sorted anew for every question. It computes all that the reports tell and writes none of them.
// The capture's header and the statistics of the histogram are the library's: they do not depend on the number of
// tags.
#include <array>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <istream>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "orvo/timing/stream_file_header.hpp"
#include "orvo/timing/stream_file_reader.hpp"
#include "orvo/timing/time_tag.hpp"
#include "orvo/timing/xcorr_histogram.hpp"
#include "plain/delta32_plain.hpp"
#include "plain/offset_estimate_plain.hpp"
#include "plain/packed_delta_plain.hpp"
#include "plain/raw64_plain.hpp"
#include "plain/xcorr_histogram_plain.hpp"

namespace orvo::test::plain {

using Tags = std::vector<timing::TimeTag>;
using Times = std::vector<std::int64_t>;

/// Decodes all of `payload`, 1 MiB at a time, and hands the tags of each read to `take`.
template <class Decoder, class Take>
void decode_stream(std::istream& payload, Decoder decoder, Take take) {
  std::vector<std::uint8_t> chunk(1'048'576);
  while (payload) {
    payload.read(reinterpret_cast<char*>(chunk.data()), static_cast<std::streamsize>(chunk.size()));
    const auto size = static_cast<std::size_t>(payload.gcount());
    if (size == 0) break;
    take(decoder.feed(std::span(chunk).first(size)));
  }
}

template <class Take>
void decode_payload(std::istream& payload, const timing::StreamFileHeader& header, Take take) {
  switch (header.stream_format) {
    case timing::StreamFormat::raw64:
      return decode_stream(payload, Raw64Decoder(header), take);
    case timing::StreamFormat::delta32:
      return decode_stream(payload, Delta32Decoder(header), take);
    case timing::StreamFormat::packed_delta:
      return decode_stream(payload, PackedDeltaDecoder(header), take);
  }
}

/// Decodes a capture file, and hands the tags of each read to `take`.
template <class Take>
void decode_file(const std::string& path, Take take) {
  timing::StreamFileReader reader;
  reader.open(path);
  std::ifstream file(path, std::ios::binary);
  file.seekg(static_cast<std::streamoff>(reader.payload_offset()));
  decode_payload(file, reader.header(), take);
}

/// All tags of a capture file.
inline Tags decode_file(const std::string& path) {
  Tags tags;
  decode_file(path, [&tags](const Tags& more) {
    for (const timing::TimeTag& tag : more) tags.push_back(tag);
  });
  return tags;
}

inline Times times_of(const Tags& tags, unsigned channel) {
  Times times;
  for (const timing::TimeTag& tag : tags) {
    if (tag.channel == channel) times.push_back(tag.time_ps);
  }
  return times;
}

struct Question {
  unsigned channel_a = 0;
  unsigned channel_b = 1;
  std::int64_t range_ps = 5000;
  std::int64_t bin_ps = 8;
  std::optional<std::int64_t> offset_ps = {};  // estimated when there is none
};

struct Findings {
  std::uint64_t decoded_tags = 0;
  std::array<std::uint64_t, 4> channel_counts{};
  std::int64_t offset_ps = 0;
  timing::XcorrHistogram histogram;
  timing::XcorrPeak peak;
  timing::XcorrMoments moments;
};

inline Findings verify(const std::string& path, const Question& question) {
  Findings found;
  Times a;
  Times b;
  {
    const Tags tags = decode_file(path);
    found.decoded_tags = tags.size();
    for (const timing::TimeTag& tag : tags) found.channel_counts[tag.channel] += 1;
    a = times_of(tags, question.channel_a);
    b = times_of(tags, question.channel_b);
  }
  found.offset_ps = question.offset_ps ? *question.offset_ps : offset_estimate_ps(a, b);
  found.histogram = xcorr_histogram<std::int64_t>(a, b, {question.range_ps, question.bin_ps, found.offset_ps});
  found.peak = found.histogram.peak();
  found.moments = timing::xcorr_moments(found.histogram);
  return found;
}

}  // namespace orvo::test::plain
