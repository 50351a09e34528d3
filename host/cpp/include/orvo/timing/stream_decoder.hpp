#pragma once
// The complete decoder: its state and the three encodings.
#include <cstdint>
#include <span>
#include <vector>

#include "orvo/timing/detail/delta32.hpp"
#include "orvo/timing/detail/packed_debug_log.hpp"
#include "orvo/timing/detail/packed_delta.hpp"
#include "orvo/timing/detail/raw64.hpp"
#include "orvo/timing/payload_observer.hpp"
#include "orvo/timing/stream_decoder_state.hpp"
#include "orvo/timing/tag_sink.hpp"

namespace orvo::timing {

namespace detail {

/// Decodes what was appended to the pending bytes, in the encoding that the header names; an unknown one yields
/// nothing, and its bytes stay pending.
template <TagSink Sink, PayloadObserver Observer>
void decode_pending(StreamDecoder& decoder, Sink& sink, Observer& observer) {
  switch (decoder.header.stream_format) {
    case StreamFormat::raw64:
      return decode_raw64(decoder, sink, observer);
    case StreamFormat::delta32:
      return decode_delta32(decoder, sink, observer);
    case StreamFormat::packed_delta:
      return decode_packed_delta(decoder, sink, observer);
  }
}

/// The same with the debug log for an observer.
template <TagSink Sink>
void decode_pending(StreamDecoder& decoder, Sink& sink) {
  PackedDebugLog log(decoder);
  decode_pending(decoder, sink, log);
}

}  // namespace detail

template <TagSink Sink>
void StreamDecoder::feed(std::span<const std::uint8_t> bytes, Sink& sink) {
  pending_bytes.append(bytes.data(), bytes.size());
  detail::decode_pending(*this, sink);
}

template <TagSink Sink, PayloadObserver Observer>
void StreamDecoder::feed(std::span<const std::uint8_t> bytes, Sink& sink, Observer& observer) {
  pending_bytes.append(bytes.data(), bytes.size());
  detail::decode_pending(*this, sink, observer);
}

inline std::vector<TimeTag> StreamDecoder::feed(std::span<const std::uint8_t> bytes) {
  std::vector<TimeTag> tags;
  TagList list(tags);
  feed(bytes, list);
  return tags;
}

inline std::vector<TimeTag> StreamDecoder::feed_raw64() {
  std::vector<TimeTag> tags;
  TagList list(tags);
  NoObserver nobody;
  detail::decode_raw64(*this, list, nobody);
  return tags;
}

inline std::vector<TimeTag> StreamDecoder::feed_delta32() {
  std::vector<TimeTag> tags;
  TagList list(tags);
  NoObserver nobody;
  detail::decode_delta32(*this, list, nobody);
  return tags;
}

inline std::vector<TimeTag> StreamDecoder::feed_packed_delta() {
  std::vector<TimeTag> tags;
  TagList list(tags);
  detail::PackedDebugLog log(*this);
  detail::decode_packed_delta(*this, list, log);
  return tags;
}

}  // namespace orvo::timing
