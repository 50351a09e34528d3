#pragma once
// The state of the product's decoder and that of a reference decoder, field by field: to compare the two, and to
// start the one where the other stands.
#include <algorithm>
#include <string>
#include <type_traits>

#include "orvo/timing/stream_decoder.hpp"
#include "reference/delta32.hpp"
#include "reference/packed_delta.hpp"
#include "reference/raw64.hpp"

namespace orvo::test {

/// Hands the decoder's name, its member and the reference's member of each field to `action`, the waiting bytes
/// aside.
template <class Action>
void for_each_field(std::type_identity<reference::Raw64Decoder>, Action action) {
  using Decoder = timing::StreamDecoder;
  using Reference = reference::Raw64Decoder;
  action("raw64_prev", &Decoder::raw64_prev, &Reference::previous);
  action("raw64_prev_valid", &Decoder::raw64_prev_valid, &Reference::previous_valid);
  action("raw64_epoch", &Decoder::raw64_epoch, &Reference::epoch);
}

template <class Action>
void for_each_field(std::type_identity<reference::Delta32Decoder>, Action action) {
  using Decoder = timing::StreamDecoder;
  using Reference = reference::Delta32Decoder;
  action("d32_last_time", &Decoder::d32_last_time, &Reference::last_time);
  action("d32_has_time", &Decoder::d32_has_time, &Reference::has_time);
  action("d32_synced", &Decoder::d32_synced, &Reference::synced);
  action("d32_frame_state", &Decoder::d32_frame_state, &Reference::frame_state);
  action("d32_base_low", &Decoder::d32_base_low, &Reference::base_low);
  action("d32_base", &Decoder::d32_base, &Reference::base);
  action("d32_base_valid", &Decoder::d32_base_valid, &Reference::base_valid);
  action("d32_extension", &Decoder::d32_extension, &Reference::extension);
}

template <class Action>
void for_each_field(std::type_identity<reference::PackedDeltaDecoder>, Action action) {
  using Decoder = timing::StreamDecoder;
  using Reference = reference::PackedDeltaDecoder;
  action("bit_offset", &Decoder::bit_offset, &Reference::bit_offset);
  action("packed_locked", &Decoder::packed_locked, &Reference::locked);
  action("pk_last_time", &Decoder::pk_last_time, &Reference::last_time);
  action("pk_has_time", &Decoder::pk_has_time, &Reference::has_time);
  action("pk_overflow", &Decoder::pk_overflow, &Reference::overflow);
  action("pk_emitted_time", &Decoder::pk_emitted_time, &Reference::emitted_time);
  action("pk_has_emitted", &Decoder::pk_has_emitted, &Reference::has_emitted);
  action("pk_sync_left", &Decoder::pk_sync_left, &Reference::sync_left);
  action("pk_sync_channel", &Decoder::pk_sync_channel, &Reference::sync_channel);
  action("pk_sync_value", &Decoder::pk_sync_value, &Reference::sync_value);
  action("pk_sync_bits", &Decoder::pk_sync_bits, &Reference::sync_bits);
  action("pk_anchor_channel", &Decoder::pk_anchor_channel, &Reference::anchor_channel);
  action("pk_anchor_base", &Decoder::pk_anchor_base, &Reference::anchor_base);
}

/// The names of the decoder's members that are not as expected; empty when all are.
template <class Reference>
std::string difference(const timing::StreamDecoder& decoder, const Reference& expected) {
  const bool same_bytes = std::equal(decoder.pending_bytes.begin(), decoder.pending_bytes.end(),
                                     expected.pending.begin(), expected.pending.end());
  std::string names = same_bytes ? "" : " pending_bytes";
  for_each_field(std::type_identity<Reference>(), [&](const char* name, auto member, auto counterpart) {
    if (!(decoder.*member == expected.*counterpart)) names += std::string(" ") + name;
  });
  return names;
}

/// Puts a reference decoder where `decoder` stands.
template <class Reference>
void put_in_state_of(const timing::StreamDecoder& decoder, Reference& out) {
  out.pending.assign(decoder.pending_bytes.begin(), decoder.pending_bytes.end());
  for_each_field(std::type_identity<Reference>(),
                 [&](const char*, auto member, auto counterpart) { out.*counterpart = decoder.*member; });
}

}  // namespace orvo::test
