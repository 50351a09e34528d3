#pragma once
// The models with the product's decoder beside them: every chunk goes to both, and both must be in the same state
// afterwards.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "model/delta32_model.hpp"
#include "model/packed_model.hpp"
#include "model/stream_generators.hpp"
#include "orvo/timing/stream_decoder.hpp"
#include "orvo/timing/stream_file_header.hpp"
#include "orvo/timing/time_tag.hpp"

namespace orvo::test::model {

/// The names of the members that differ between the two; empty when none does.
inline std::string difference(const timing::StreamDecoder& decoder, const Delta32Model& model) {
  std::string out;
  const auto compare = [&out](const char* name, bool equal) {
    out += equal ? std::string() : std::string(" ") + name;
  };
  compare("pending_bytes", std::equal(decoder.pending_bytes.begin(), decoder.pending_bytes.end(),
                                      model.pending.begin(), model.pending.end()));
  compare("d32_last_time", decoder.d32_last_time == model.last_time);
  compare("d32_has_time", decoder.d32_has_time == model.has_time);
  compare("d32_synced", decoder.d32_synced == model.synced);
  compare("d32_frame_state", decoder.d32_frame_state == model.frame_state);
  compare("d32_base_low", decoder.d32_base_low == model.base_low);
  compare("d32_base", decoder.d32_base == model.base);
  compare("d32_base_valid", decoder.d32_base_valid == model.base_valid);
  compare("d32_extension", decoder.d32_extension == model.extension);
  return out;
}

/// The same for packed_delta.
inline std::string difference(const timing::StreamDecoder& decoder, const PackedModel& model) {
  std::string out;
  const auto compare = [&out](const char* name, bool equal) {
    out += equal ? std::string() : std::string(" ") + name;
  };
  compare("pending_bytes", std::equal(decoder.pending_bytes.begin(), decoder.pending_bytes.end(),
                                      model.pending.begin(), model.pending.end()));
  compare("bit_offset", decoder.bit_offset == model.bit_offset);
  compare("packed_locked", decoder.packed_locked == model.locked);
  compare("pk_last_time", decoder.pk_last_time == model.last_time);
  compare("pk_has_time", decoder.pk_has_time == model.has_time);
  compare("pk_overflow", decoder.pk_overflow == model.overflow);
  compare("pk_emitted_time", decoder.pk_emitted_time == model.emitted_time);
  compare("pk_has_emitted", decoder.pk_has_emitted == model.has_emitted);
  compare("pk_sync_left", decoder.pk_sync_left == model.sync_left);
  compare("pk_sync_channel", decoder.pk_sync_channel == model.sync_channel);
  compare("pk_sync_value", decoder.pk_sync_value == model.sync_value);
  compare("pk_sync_bits", decoder.pk_sync_bits == model.sync_bits);
  compare("pk_anchor_channel", decoder.pk_anchor_channel == model.anchor_channel);
  compare("pk_anchor_base", decoder.pk_anchor_base == model.anchor_base);
  return out;
}

class CheckedDelta32 : public Delta32Model {
 public:
  explicit CheckedDelta32(const timing::StreamFileHeader& header) : Delta32Model(header), decoder_(header) {}

  /// The model's tags. Fails the test, and fills `apart`, when the decoder's are others or its state is.
  std::vector<timing::TimeTag> feed(std::span<const std::uint8_t> chunk) {
    const std::vector<timing::TimeTag> tags = Delta32Model::feed(chunk);
    decoder_.pending_bytes.append(chunk.data(), chunk.size());
    apart = first_difference(decoder_.feed_delta32(), tags);
    apart += difference(decoder_, *this);
    EXPECT_EQ(apart, "");
    return tags;
  }

  std::string apart;

 private:
  timing::StreamDecoder decoder_;
};

class CheckedPacked : public PackedModel {
 public:
  explicit CheckedPacked(const timing::StreamFileHeader& header) : PackedModel(header), decoder_(header) {}

  /// The model's tags. Fails the test, and fills `apart`, when the decoder's are others or its state is.
  std::vector<timing::TimeTag> feed(std::span<const std::uint8_t> chunk) {
    const std::vector<timing::TimeTag> tags = PackedModel::feed(chunk);
    decoder_.pending_bytes.append(chunk.data(), chunk.size());
    apart = first_difference(decoder_.feed_packed_delta(), tags);
    apart += difference(decoder_, *this);
    EXPECT_EQ(apart, "");
    return tags;
  }

  std::string apart;

 private:
  timing::StreamDecoder decoder_;
};

}  // namespace orvo::test::model
