#pragma once
// Feeding a decoder with the reference beside it: what a test feeds holds both to the same tags, states and lines.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <span>
#include <sstream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "orvo/timing/stream_decoder.hpp"
#include "reference/capture_file.hpp"
#include "support/as_reference.hpp"
#include "support/decoder_state.hpp"
#include "support/stream_feeding.hpp"

namespace orvo::test {

/// What the decoder and the reference made of one chunk.
struct Compared {
  Tags tags;                       // the decoder's
  std::vector<std::string> lines;  // of the packed debug log, as the reference has them
  std::string apart;               // where the two differ; empty when they do not
};

/// What `action` writes to standard error, where it also arrives.
template <class Action>
std::string overheard(Action action) {
  std::ostringstream text;
  std::streambuf* const standard_error = std::cerr.rdbuf(text.rdbuf());
  action();
  std::cerr.rdbuf(standard_error);
  std::cerr << text.str();
  return text.str();
}

/// The lines as the decoder's debug log writes them: nothing while it is off.
inline std::string as_logged(const std::vector<std::string>& lines) {
  std::string text;
  if (std::getenv("ORVO_PACKED_DEBUG") == nullptr) return text;
  for (const std::string& line : lines) text += "packed-decoder: " + line + "\n";
  return text;
}

/// Decodes the next chunk with a reference that starts where the decoder stands.
template <class Reference>
Compared compare_chunk(timing::StreamDecoder& decoder, Reference expected, std::span<const std::uint8_t> chunk) {
  constexpr bool kWritesLines = std::is_same_v<Reference, reference::PackedDeltaDecoder>;
  put_in_state_of(decoder, expected);
  const auto lines_before = static_cast<std::ptrdiff_t>(decoder.pk_debug_lines);
  if constexpr (kWritesLines) expected.lines.resize(decoder.pk_debug_lines);
  const reference::Tags expected_tags = expected.feed(chunk);

  Compared out;
  if constexpr (kWritesLines) out.lines.assign(expected.lines.begin() + lines_before, expected.lines.end());
  const std::string log = overheard([&] { out.tags = decoder.feed(chunk); });
  out.apart = first_difference(as_reference(out.tags), expected_tags) + difference(decoder, expected);
  if (log != as_logged(out.lines)) out.apart += " lines";
  return out;
}

/// The same with the reference of the encoding that the header names.
inline Compared compare_chunk(timing::StreamDecoder& decoder, std::span<const std::uint8_t> chunk) {
  return reference::with_decoder(as_reference(decoder.header),
                                 [&](const auto& expected) { return compare_chunk(decoder, expected, chunk); });
}

/// The tags of one chunk, as one read of a file brings it. Fails the test where decoder and reference part.
inline Tags feed(timing::StreamDecoder& decoder, std::span<const std::uint8_t> chunk) {
  Compared compared = compare_chunk(decoder, chunk);
  EXPECT_EQ(compared.apart, "") << "decoder and reference";
  return std::move(compared.tags);
}

/// All of `payload` in chunks of `chunk_bytes`, the last one shorter.
inline Tags feed_in_chunks(timing::StreamDecoder& decoder, const Bytes& payload, std::size_t chunk_bytes) {
  return in_chunks(payload, chunk_bytes, [&](std::span<const std::uint8_t> chunk) { return feed(decoder, chunk); });
}

}  // namespace orvo::test
