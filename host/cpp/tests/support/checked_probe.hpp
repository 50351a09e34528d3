#pragma once
// The search for packed alignments with the reference's beside it.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "orvo/timing/stream_decoder.hpp"
#include "reference/packed_alignment.hpp"
#include "support/as_reference.hpp"
#include "support/bytes.hpp"
#include "support/checked_feeding.hpp"
#include "support/decoder_state.hpp"
#include "support/packed_payload.hpp"

namespace orvo::test {

inline constexpr timing::PackedAlignment kNotFound = {};

constexpr timing::PackedAlignment at(std::uint64_t drop_bytes, std::uint64_t bit_offset) {
  return {true, drop_bytes, bit_offset};
}

/// What the decoder and the reference found in the same bytes.
struct ComparedSearch {
  timing::PackedAlignment found;  // the decoder's
  reference::AlignmentAnswer expected;
  std::string apart;  // where the two differ; empty when they do not
};

inline ComparedSearch compare_search(const PackedSetup& setup, const Bytes& payload) {
  timing::StreamDecoder decoder = packed_decoder(setup);
  decoder.pending_bytes.append(payload.data(), payload.size());
  reference::PackedDeltaDecoder before(as_reference(decoder.header));
  put_in_state_of(decoder, before);
  const auto delta_bits = static_cast<std::int32_t>(setup.delta_bits);

  ComparedSearch out;
  out.expected = reference::search_alignment({.channel_mask = static_cast<std::uint8_t>(setup.channel_mask),
                                              .internal = setup.mode == timing::StreamMode::internal,
                                              .delta_bits = delta_bits,
                                              .width = delta_bits + 3,
                                              .bytes = payload});
  const std::string log = overheard([&] { out.found = decoder.probe_packed_alignment(delta_bits, delta_bits + 3); });
  const timing::PackedAlignment expected = {out.expected.found, out.expected.drop_bytes, out.expected.bit_offset};
  if (out.found != expected) out.apart += " answer";
  const bool refuses = !out.expected.reject_line.empty();
  const std::string expected_log = refuses ? as_logged({out.expected.reject_line}) : "";
  if (log != expected_log || decoder.pk_debug_lines != (log.empty() ? 0 : 1)) out.apart += " lines";
  out.apart += difference(decoder, before);
  return out;
}

/// What the search finds in a payload. Fails the test where decoder and reference part.
inline timing::PackedAlignment probe(const PackedSetup& setup, const Bytes& payload) {
  const ComparedSearch compared = compare_search(setup, payload);
  EXPECT_EQ(compared.apart, "") << "decoder and reference";
  return compared.found;
}

}  // namespace orvo::test
