// raw64: the plain decoder's tags and state under equal chunking, the model's tags for any chunking, and at most 7
// bytes wait.
//
//   form | chunk sizes (8) | payload; bit 0 of the form makes a record of its every 8-byte word
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "fuzz/support/capture_model.hpp"
#include "fuzz/support/fresh_decoder.hpp"
#include "fuzz/support/input.hpp"
#include "fuzz/support/require.hpp"
#include "fuzz/support/strict_sink.hpp"
#include "orvo/timing/stream_decoder.hpp"
#include "plain/raw64_plain.hpp"
#include "support/bytes.hpp"

namespace {

using orvo::fuzz::require;
using orvo::fuzz::Tags;

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
  orvo::test::model::Header model_header;
  model_header.raw64_tag_format = header.raw64_tag_format;
  const auto rest = input.rest();
  orvo::test::Bytes payload(rest.begin(), rest.end());
  if ((form & 1) != 0)
    payload = as_records(payload, orvo::test::model::lower_case(header.raw64_tag_format) == "raw_cf");

  orvo::timing::StreamDecoder decoder = orvo::fuzz::fresh_decoder(header);
  orvo::test::plain::Raw64Decoder plain(header);
  Tags tags;
  std::size_t at = 0;
  for (std::size_t i = 0; at < payload.size(); ++i) {
    const std::size_t count = std::min<std::size_t>(1 + chunk_sizes[i % chunk_sizes.size()], payload.size() - at);
    decoder.pending_bytes.append(payload.data() + at, count);
    const Tags more = i % 2 == 0 ? decoder.feed_raw64() : orvo::fuzz::strict_feed(decoder);
    require(more == plain.feed(std::span(payload).subspan(at, count)), "the tags are the plain decoder's");
    require(decoder.raw64_prev == plain.previous && decoder.raw64_prev_valid == plain.previous_valid &&
                decoder.raw64_epoch == plain.epoch,
            "the decoder stands where the plain one stands");
    require(decoder.pending_bytes.size() < 8, "at most 7 bytes wait");
    at += count;
    tags.insert(tags.end(), more.begin(), more.end());
  }
  require(tags == orvo::fuzz::raw64_model_tags(model_header, payload), "the tags are the model's, in any chunks");
  return 0;
}
