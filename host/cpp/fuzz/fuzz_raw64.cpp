// raw64: the reference's tags and state under equal chunking, its tags for any chunking, and at most 7 bytes wait.
//
//   form | chunk sizes (8) | payload; bit 0 of the form makes a record of its every 8-byte word
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "fuzz/support/fresh_decoder.hpp"
#include "fuzz/support/input.hpp"
#include "fuzz/support/require.hpp"
#include "fuzz/support/strict_sink.hpp"
#include "orvo/timing/stream_decoder.hpp"
#include "reference/raw64.hpp"
#include "support/as_reference.hpp"
#include "support/bytes.hpp"
#include "support/decoder_state.hpp"

namespace {

using orvo::fuzz::require;
using orvo::test::reference::Raw64Decoder;
using orvo::test::reference::Tags;

constexpr const char* kTagFormats[] = {"ps", "raw_cf", "RAW_Cf", ""};

/// The words of the payload forced into the layout of a record: fuzzers are slow to find 20 fixed bits.
orvo::test::Bytes as_records(const orvo::test::Bytes& payload, bool coarse_fine) {
  orvo::test::Bytes out;
  for (std::size_t at = 0; at + 8 <= payload.size(); at += 8) {
    std::uint64_t word = 0;
    for (std::size_t i = 0; i < 8; ++i) word = word << 8 | payload[at + i];
    const std::uint64_t fixed = coarse_fine ? 0x9FFF'E000'0000'0000 : 0x9FFF'F000'0000'0000;
    const auto record = orvo::test::big_endian((word & ~fixed) | (coarse_fine ? 0x14B8'6000'0000'0000 : 0), 8);
    out.insert(out.end(), record.begin(), record.end());
  }
  return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  orvo::fuzz::Input input(data, size);
  const std::uint8_t form = input.byte();
  std::array<std::uint8_t, 8> chunk_sizes{};
  for (std::uint8_t& chunk_size : chunk_sizes) chunk_size = input.byte();
  orvo::timing::StreamFileHeader header;
  header.stream_format = orvo::timing::StreamFormat::raw64;
  header.raw64_tag_format = kTagFormats[form >> 2 & 3];
  const auto rest = input.rest();
  orvo::test::Bytes payload(rest.begin(), rest.end());
  if ((form & 1) != 0)
    payload = as_records(payload, orvo::test::reference::lower_case(header.raw64_tag_format) == "raw_cf");

  orvo::timing::StreamDecoder decoder = orvo::fuzz::fresh_decoder(header);
  Raw64Decoder expected(orvo::test::as_reference(header));
  Tags tags;
  std::size_t at = 0;
  for (std::size_t i = 0; at < payload.size(); ++i) {
    const std::size_t count = std::min<std::size_t>(1 + chunk_sizes[i % chunk_sizes.size()], payload.size() - at);
    decoder.pending_bytes.append(payload.data() + at, count);
    const Tags more = orvo::test::as_reference(i % 2 == 0 ? decoder.feed_raw64() : orvo::fuzz::strict_feed(decoder));
    require(more == expected.feed(std::span(payload).subspan(at, count)), "the tags are the reference's");
    require(orvo::test::difference(decoder, expected).empty(), "the decoder stands where its reference stands");
    require(decoder.pending_bytes.size() < 8, "at most 7 bytes wait");
    at += count;
    tags.insert(tags.end(), more.begin(), more.end());
  }
  require(tags == Raw64Decoder(orvo::test::as_reference(header)).feed(payload), "chunks make no difference");
  return 0;
}
