#pragma once
// Encoding and decoding again, for the tests of the encoders.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "orvo/timing/stream_decoder.hpp"
#include "simulate/random.hpp"
#include "support/stream_feeding.hpp"

namespace {

using namespace orvo::test;

/// The whole payload of the tags, encoded in blocks.
template <class Encoder>
Bytes encoded(Encoder encoder, const Tags& tags, std::size_t block = 1000) {
  Bytes payload;
  Bytes buffer(Encoder::kMostBytesToStart + block * Encoder::kMostBytesPerTag + 8);
  const auto take = [&](std::uint8_t* end) { payload.insert(payload.end(), buffer.data(), end); };
  for (std::size_t at = 0; at < tags.size(); at += block) {
    take(encoder.encode(std::span(tags).subspan(at, std::min(block, tags.size() - at)), buffer.data()));
  }
  take(encoder.finish(buffer.data()));
  return payload;
}

/// What a decoder makes of it, in reads of 1 MiB; every channel's times moved by what the encoder says they are
/// behind.
template <class Encoder>
Tags decoded_again(const orvo::timing::StreamFileHeader& header, const Encoder& encoder, const Tags& tags) {
  orvo::timing::StreamDecoder decoder(header);
  Tags decoded = feed_in_chunks(decoder, encoded(encoder, tags), std::size_t{1} << 20);
  std::int64_t axis_ps[4] = {};
  bool seen[4] = {};
  for (const auto& tag : tags) {
    if (!seen[tag.channel]) axis_ps[tag.channel] = encoder.axis_ps(tag.time_ps);
    seen[tag.channel] = true;
  }
  for (auto& tag : decoded) tag.time_ps -= axis_ps[tag.channel];
  return decoded;
}

/// Tags of all four channels in turn, with gaps of 0 to `largest_gap_ps` but no time twice on a channel; multiples of
/// 2^shift ps. The gaps are as often short as long.
inline Tags random_tags(std::uint64_t seed, std::size_t count, std::int64_t start_ps, std::int64_t largest_gap_ps,
                        unsigned shift = 0) {
  Random random(seed);
  Tags tags;
  std::int64_t time_ps = start_ps >> shift << shift;
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint64_t size = random.next() >> random.below(64);
    const auto largest = static_cast<std::uint64_t>(largest_gap_ps);
    time_ps += static_cast<std::int64_t>(size < largest ? size : random.below(largest)) >> shift << shift;
    if (i % 4 == 0) time_ps += std::int64_t{1} << shift;
    tags.push_back(tag(static_cast<unsigned>(i % 4), time_ps));
  }
  return tags;
}

}  // namespace
