// The search for the packed alignment: its answer and its diagnostic line are those of the search that decodes every
// candidate on its own.
//
//   form | packed header (4) | bytes, or, with bit 0 of the form, a script of records after some bits; bits 1 and 2
//   of the form: how many there may be
#include <stdlib.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iostream>
#include <sstream>
#include <string>

#include "fuzz/support/fresh_decoder.hpp"
#include "fuzz/support/input.hpp"
#include "fuzz/support/packed_settings.hpp"
#include "fuzz/support/require.hpp"
#include "orvo/timing/stream_decoder.hpp"
#include "reference/packed_alignment.hpp"

namespace {

using orvo::fuzz::require;
using orvo::timing::PackedAlignment;
using orvo::timing::StreamDecoder;

/// Beyond the last start byte, 64, with room for whole sequences. The reference is slow: most inputs stay small.
constexpr std::size_t kMostBytes[] = {30, 50, 100, 300};

void check_without_a_question(StreamDecoder& decoder, std::int32_t delta_bits) {
  require(decoder.probe_packed_alignment(0, 3) == PackedAlignment{}, "no alignment of records without payload");
  require(decoder.probe_packed_alignment(-delta_bits, 3 - delta_bits) == PackedAlignment{}, "nor of negative width");
  require(decoder.probe_packed_alignment(delta_bits, 0) == PackedAlignment{}, "nor of no width");
}

/// The diagnostic lines are compared, too.
[[maybe_unused]] const int kLinesAreOn = ::setenv("ORVO_PACKED_DEBUG", "", 1);

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  orvo::fuzz::Input input(data, size);
  const std::uint8_t form = input.byte();
  const std::size_t most_bytes = kMostBytes[form >> 1 & 3];
  const auto header = orvo::fuzz::packed_header(input);
  StreamDecoder decoder = orvo::fuzz::fresh_decoder(header);
  const auto delta_bits = std::clamp<std::uint32_t>(decoder.header.delta_bits, 1, 31);
  orvo::test::Bytes bytes;
  if ((form & 1) != 0) {
    bytes = orvo::fuzz::PackedScript(delta_bits, decoder.quantum_shift).run(input, most_bytes);
  } else {
    const auto taken = input.bytes(most_bytes);
    bytes.assign(taken.begin(), taken.end());
  }
  decoder.pending_bytes.append(bytes.data(), bytes.size());

  const auto d = static_cast<std::int32_t>(delta_bits);
  check_without_a_question(decoder, d);
  std::ostringstream lines;
  std::streambuf* const before = std::cerr.rdbuf(lines.rdbuf());
  const PackedAlignment found = decoder.probe_packed_alignment(d, d + 3);
  std::cerr.rdbuf(before);
  const auto expected =
      orvo::test::reference::search_alignment({.channel_mask = header.channel_mask,
                                               .internal = header.mode == orvo::timing::StreamMode::internal,
                                               .delta_bits = d,
                                               .width = d + 3,
                                               .bytes = bytes});
  require(found == PackedAlignment{expected.found, expected.drop_bytes, expected.bit_offset},
          "the reference's answer");
  const std::string& line = expected.reject_line;
  require(lines.str() == (line.empty() ? "" : "packed-decoder: " + line + "\n"), "the reference's line");
  require(decoder.pending_bytes.size() == bytes.size() && !decoder.packed_locked, "searching changes nothing");
  return 0;
}
