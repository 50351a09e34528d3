// packed_delta: tags, state and diagnostic lines are those of the reference under equal chunking.
//
//   form | packed header (4) | chunk sizes (6) | payload, or, with bit 0 of the form, a script of records
#include <stdlib.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <iostream>
#include <span>
#include <sstream>
#include <string>

#include "fuzz/support/fresh_decoder.hpp"
#include "fuzz/support/input.hpp"
#include "fuzz/support/packed_settings.hpp"
#include "fuzz/support/require.hpp"
#include "fuzz/support/strict_sink.hpp"
#include "orvo/timing/stream_decoder.hpp"
#include "reference/packed_delta.hpp"
#include "support/as_reference.hpp"
#include "support/decoder_state.hpp"

namespace {

using orvo::fuzz::Input;
using orvo::fuzz::require;
using orvo::test::reference::PackedDeltaDecoder;
using orvo::timing::StreamDecoder;

/// Enough for the balance of a chunk's 4096 tags.
constexpr std::size_t kMostBytes = 2500;
/// The reference's alignment search is slow: an input ends when it has searched through this many bytes, by
/// bits 3 and 4 of the form.
constexpr std::size_t kMostSearchedBytes[] = {30, 50, 100, 600};

/// What is written to standard error while it lives.
class CapturedLines {
 public:
  CapturedLines() : before_(std::cerr.rdbuf(text_.rdbuf())) {}
  CapturedLines(const CapturedLines&) = delete;
  CapturedLines& operator=(const CapturedLines&) = delete;
  ~CapturedLines() { std::cerr.rdbuf(before_); }

  std::string text() const { return text_.str(); }

 private:
  std::ostringstream text_;
  std::streambuf* before_;
};

void require_same_state(const StreamDecoder& decoder, const PackedDeltaDecoder& expected) {
  require(orvo::test::difference(decoder, expected).empty(), "the decoder stands where its reference stands");
  require(!decoder.packed_locked || decoder.bit_offset < 8, "the bit offset lies in the first byte");
}

std::string with_prefix(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) text += "packed-decoder: " + line + "\n";
  return text;
}

/// The diagnostic lines are compared, too.
[[maybe_unused]] const int kLinesAreOn = ::setenv("ORVO_PACKED_DEBUG", "", 1);

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const std::uint8_t form = input.byte();
  const bool starts_locked = (form & 2) != 0;
  const auto header = orvo::fuzz::packed_header(input);
  std::array<std::size_t, 6> chunk_sizes{};
  for (std::size_t& chunk_size : chunk_sizes) {
    const std::size_t factor = (form & 4) != 0 ? 16 : 1;
    chunk_size = 1 + input.byte() * factor;
  }
  StreamDecoder decoder = orvo::fuzz::fresh_decoder(header);
  PackedDeltaDecoder expected(orvo::test::as_reference(header));
  if (starts_locked) decoder.packed_locked = expected.locked = true;
  if (starts_locked) decoder.bit_offset = expected.bit_offset = form >> 5;

  orvo::test::Bytes payload;
  if ((form & 1) != 0) {
    const std::uint32_t delta_bits = std::clamp<std::uint32_t>(decoder.header.delta_bits, 1, 31);
    payload = orvo::fuzz::PackedScript(delta_bits, decoder.quantum_shift).run(input, kMostBytes);
  } else {
    const auto bytes = input.bytes(kMostBytes);
    payload.assign(bytes.begin(), bytes.end());
  }

  const CapturedLines lines;
  std::size_t at = 0;
  std::size_t searched = 0;
  const std::size_t most_searched = kMostSearchedBytes[form >> 3 & 3];
  for (std::size_t i = 0; i < chunk_sizes.size(); ++i) {
    std::size_t count = std::min(chunk_sizes[i], payload.size() - at);
    if (!decoder.packed_locked) {
      searched += decoder.pending_bytes.size();
      count = std::min(count, most_searched - std::min(most_searched, searched));
      searched += count;
    }
    if (count == 0) break;
    decoder.pending_bytes.append(payload.data() + at, count);
    const auto tags = i % 2 == 0 ? decoder.feed_packed_delta() : orvo::fuzz::strict_feed(decoder);
    require(orvo::test::as_reference(tags) == expected.feed(std::span(payload).subspan(at, count)),
            "the tags are the reference's");
    require_same_state(decoder, expected);
    at += count;
  }
  require(lines.text() == with_prefix(expected.lines), "the diagnostic lines are the reference's");
  require(decoder.pk_debug_lines == expected.lines.size(), "the diagnostic lines are counted");
  return 0;
}
