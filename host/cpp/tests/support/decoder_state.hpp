#pragma once
// The state of the product's decoder beside that of a reference decoder.
#include <algorithm>
#include <string>

#include "orvo/timing/stream_decoder.hpp"
#include "reference/delta32.hpp"
#include "reference/packed_delta.hpp"
#include "reference/raw64.hpp"

namespace orvo::test {

/// Collects the names of what differs.
class Differences {
 public:
  template <class A, class B>
  Differences& compare(const char* name, const A& a, const B& b) {
    if (!(a == b)) names_ += std::string(" ") + name;
    return *this;
  }
  template <class A, class B>
  Differences& compare_bytes(const A& a, const B& b) {
    if (!std::equal(a.begin(), a.end(), b.begin(), b.end())) names_ += " pending_bytes";
    return *this;
  }
  std::string names() const { return names_; }

 private:
  std::string names_;
};

/// The names of the decoder's members that are not as expected; empty when all are.
inline std::string difference(const timing::StreamDecoder& decoder, const reference::Raw64Decoder& expected) {
  return Differences()
      .compare_bytes(decoder.pending_bytes, expected.pending)
      .compare("raw64_prev", decoder.raw64_prev, expected.previous)
      .compare("raw64_prev_valid", decoder.raw64_prev_valid, expected.previous_valid)
      .compare("raw64_epoch", decoder.raw64_epoch, expected.epoch)
      .names();
}

inline std::string difference(const timing::StreamDecoder& decoder, const reference::Delta32Decoder& expected) {
  return Differences()
      .compare_bytes(decoder.pending_bytes, expected.pending)
      .compare("d32_last_time", decoder.d32_last_time, expected.last_time)
      .compare("d32_has_time", decoder.d32_has_time, expected.has_time)
      .compare("d32_synced", decoder.d32_synced, expected.synced)
      .compare("d32_frame_state", decoder.d32_frame_state, expected.frame_state)
      .compare("d32_base_low", decoder.d32_base_low, expected.base_low)
      .compare("d32_base", decoder.d32_base, expected.base)
      .compare("d32_base_valid", decoder.d32_base_valid, expected.base_valid)
      .compare("d32_extension", decoder.d32_extension, expected.extension)
      .names();
}

inline std::string difference(const timing::StreamDecoder& decoder, const reference::PackedDeltaDecoder& expected) {
  return Differences()
      .compare_bytes(decoder.pending_bytes, expected.pending)
      .compare("bit_offset", decoder.bit_offset, expected.bit_offset)
      .compare("packed_locked", decoder.packed_locked, expected.locked)
      .compare("pk_last_time", decoder.pk_last_time, expected.last_time)
      .compare("pk_has_time", decoder.pk_has_time, expected.has_time)
      .compare("pk_overflow", decoder.pk_overflow, expected.overflow)
      .compare("pk_emitted_time", decoder.pk_emitted_time, expected.emitted_time)
      .compare("pk_has_emitted", decoder.pk_has_emitted, expected.has_emitted)
      .compare("pk_sync_left", decoder.pk_sync_left, expected.sync_left)
      .compare("pk_sync_channel", decoder.pk_sync_channel, expected.sync_channel)
      .compare("pk_sync_value", decoder.pk_sync_value, expected.sync_value)
      .compare("pk_sync_bits", decoder.pk_sync_bits, expected.sync_bits)
      .compare("pk_anchor_channel", decoder.pk_anchor_channel, expected.anchor_channel)
      .compare("pk_anchor_base", decoder.pk_anchor_base, expected.anchor_base)
      .names();
}

}  // namespace orvo::test
