#pragma once
// Encoding and decoding again, for the tests of the encoders.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

#include "orvo/timing/byte_queue.hpp"
#include "orvo/timing/stream_decoder.hpp"
#include "orvo/timing/tag_encoder.hpp"
#include "support/delta32_payload.hpp"
#include "support/random.hpp"
#include "support/stream_feeding.hpp"

namespace orvo::test {

/// The whole payload of the tags, encoded in blocks.
template <class Encoder>
Bytes encoded(Encoder& encoder, const Tags& tags, std::size_t block = 1000) {
  timing::ByteQueue payload;
  for (std::size_t at = 0; at < tags.size(); at += block) {
    encoder.encode(std::span(tags).subspan(at, std::min(block, tags.size() - at)), payload);
  }
  encoder.finish(payload);
  return Bytes(payload.begin(), payload.end());
}

inline Bytes encoded(const timing::StreamFileHeader& header, const Tags& tags,
                     const timing::EncoderSettings& settings = {}, std::size_t block = 1000) {
  timing::TagEncoder encoder(header, settings);
  return encoded(encoder, tags, block);
}

inline Tags decoded(const timing::StreamFileHeader& header, const Bytes& payload) {
  timing::StreamDecoder decoder(header);
  return in_chunks(payload, std::size_t{1} << 20, [&](auto chunk) { return decoder.feed(chunk); });
}

/// What a decoder makes of the encoded tags, in reads of 1 MiB; every channel's times moved by what the encoder says
/// they are off.
inline Tags decoded_again(const timing::StreamFileHeader& header, const Tags& tags,
                          const timing::EncoderSettings& settings = {}) {
  timing::TagEncoder encoder(header, settings);
  Tags again = decoded(header, encoded(encoder, tags));
  for (auto& tag : again) tag.time_ps -= encoder.axis_ps(tag.channel);
  return again;
}

inline timing::StreamFileHeader raw64_header(const char* tag_format = "ps") {
  timing::StreamFileHeader header;
  header.stream_format = timing::StreamFormat::raw64;
  header.raw64_tag_format = tag_format;
  return header;
}

struct PackedForm {
  unsigned delta_bits = 16;
  unsigned quantum_ps = 1;
  unsigned channel_mask = 15;
  timing::StreamMode mode = timing::StreamMode::external;
};

inline timing::StreamFileHeader packed_header(const PackedForm& form) {
  timing::StreamFileHeader header;
  header.mode = form.mode;
  header.channel_mask = static_cast<std::uint8_t>(form.channel_mask);
  header.delta_bits = static_cast<std::uint8_t>(form.delta_bits);
  header.quantum_ps = static_cast<std::uint16_t>(form.quantum_ps);
  return header;
}

/// Tags of all four channels in turn, with gaps of 0 to `largest_gap_ps` but no time twice on a channel; multiples of
/// 2^shift ps. The gaps are as often short as long.
inline Tags tags_in_turn(std::uint64_t seed, std::size_t count, std::int64_t start_ps, std::int64_t largest_gap_ps,
                         unsigned shift = 0) {
  Random random(seed);
  Tags tags;
  std::int64_t time_ps = start_ps >> shift << shift;
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint64_t size = random.bits() >> random.below(64);
    const auto largest = static_cast<std::uint64_t>(largest_gap_ps);
    time_ps += static_cast<std::int64_t>(size < largest ? size : random.below(largest)) >> shift << shift;
    if (i % 4 == 0) time_ps += std::int64_t{1} << shift;
    tags.push_back(tag(static_cast<unsigned>(i % 4), time_ps));
  }
  return tags;
}

}  // namespace orvo::test
