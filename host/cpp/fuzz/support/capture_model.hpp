#pragma once
// What reading a capture must give, from the models of the three encodings.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "model/delta32_model.hpp"
#include "model/packed_model.hpp"
#include "model/raw64_model.hpp"
#include "orvo/timing/stream_file_header.hpp"
#include "orvo/timing/time_tag.hpp"

namespace orvo::fuzz {

using Tags = std::vector<timing::TimeTag>;

template <class Model>
Tags model_tags(Model model, std::span<const std::uint8_t> payload, std::size_t chunk_bytes) {
  Tags tags;
  for (std::size_t at = 0; at < payload.size(); at += chunk_bytes) {
    const Tags more = model.feed(payload.subspan(at, std::min(chunk_bytes, payload.size() - at)));
    tags.insert(tags.end(), more.begin(), more.end());
  }
  return tags;
}

inline Tags raw64_model_tags(const test::model::Header& header, std::span<const std::uint8_t> payload) {
  Tags tags;
  for (const test::model::Tag& tag : test::model::decode_raw64(header, {payload.begin(), payload.end()})) {
    tags.push_back({static_cast<std::uint8_t>(tag.channel), tag.time_ps});
  }
  return tags;
}

/// The tags of a capture that is read `chunk_bytes` (at least 1) at a time.
inline Tags model_tags(const test::model::Capture& capture, std::size_t chunk_bytes) {
  if (capture.header.stream_format == 0) return raw64_model_tags(capture.header, capture.payload);
  timing::StreamFileHeader header;
  header.mode = static_cast<timing::StreamMode>(capture.header.mode);
  header.channel_mask = static_cast<std::uint8_t>(capture.header.channel_mask);
  header.delta_bits = static_cast<std::uint8_t>(capture.header.delta_bits);
  header.quantum_ps = static_cast<std::uint16_t>(capture.header.quantum_ps);
  if (capture.header.stream_format == 1)
    return model_tags(test::model::Delta32Model(header), capture.payload, chunk_bytes);
  return model_tags(test::model::PackedModel(header), capture.payload, chunk_bytes);
}

}  // namespace orvo::fuzz
