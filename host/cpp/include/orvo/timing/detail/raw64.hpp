#pragma once
// raw64: one big-endian 64-bit word per tag, in one of two tag formats.
#include <array>
#include <cstdint>

#include "orvo/timing/detail/byte_order.hpp"
#include "orvo/timing/detail/device_time.hpp"
#include "orvo/timing/detail/stream_decoder_state.hpp"
#include "orvo/timing/detail/stream_header_json.hpp"

namespace orvo::timing::detail {

/// Picosecond word:  63 zero | 62..61 channel | 60..44 zero | 43..0 time, ps
struct Raw64PsWord {
  static constexpr std::uint64_t kPeriod = kDevicePeriodPs;
  std::uint64_t bits;

  constexpr bool is_record() const { return (bits & 0x9FFF'F000'0000'0000) == 0; }
  constexpr unsigned channel() const { return bits >> 61 & 3; }
  /// The time, folded into one device period (44 bits reach a little further).
  constexpr std::uint64_t count() const {
    const std::uint64_t time_ps = bits & 0xFFF'FFFF'FFFF;
    return time_ps < kPeriod ? time_ps : time_ps - kPeriod;
  }
  std::int64_t time_ps(std::uint64_t unwrapped, const std::int64_t*) const {
    return static_cast<std::int64_t>(unwrapped);
  }
};
static_assert(Raw64PsWord{0x2000'0000'0000'27B0}.channel() == 1 &&
              Raw64PsWord{0x2000'0000'0000'27B0}.count() == 10'160);
static_assert(Raw64PsWord{0xFFF'FFFF'FFFF}.count() == 0xFFF'FFFF'FFFF - kDevicePeriodPs);

/// Coarse/fine word:  63 zero | 62..61 channel | 60..45 marker 0xA5C3 | 44..13 coarse count | 12..0 fine code
struct Raw64CoarseFineWord {
  static constexpr std::uint64_t kPeriod = kCoarseCounts;
  std::uint64_t bits;

  constexpr bool is_record() const { return (bits & 0x9FFF'E000'0000'0000) == 0x14B8'6000'0000'0000; }
  constexpr unsigned channel() const { return bits >> 61 & 3; }
  constexpr std::uint64_t count() const { return bits >> 13 & 0xFFFF'FFFF; }
  /// The fine time measures from the event back to the clock edge that the coarse count names.
  std::int64_t time_ps(std::uint64_t unwrapped, const std::int64_t* fine_ps) const {
    return static_cast<std::int64_t>(unwrapped * kCoarsePeriodPs -
                                     static_cast<std::uint64_t>(fine_ps[bits & 0x1FFF]));
  }
};
static_assert(Raw64CoarseFineWord{0x34B8'6000'0000'2001}.is_record());
static_assert(Raw64CoarseFineWord{0x34B8'6000'0000'2001}.count() == 1);

/// Unwrapping of one channel.
struct Raw64Unwrap {
  std::uint64_t previous;
  std::uint64_t epoch;
};

/// Decodes every record of the pending bytes. What is no record is skipped byte by byte; at most 7 bytes stay
/// pending.
template <class Word, class Sink>
void scan_raw64(StreamDecoder& decoder, Sink& sink) {
  const std::uint8_t* at = decoder.pending_bytes.begin();
  const std::uint8_t* const end = decoder.pending_bytes.end();
  const std::int64_t* const fine_ps = decoder.fine_table_ps.data();
  // Local: stores through the sink could change the decoder's own numbers, for all the compiler knows.
  std::array<Raw64Unwrap, kChannels> unwrap;
  for (unsigned c = 0; c < kChannels; ++c) {
    unwrap[c] = {decoder.raw64_prev_valid[c] ? decoder.raw64_prev[c] : 0, decoder.raw64_epoch[c]};
  }
  unsigned seen = 0;
  sink.begin_chunk(decoder.pending_bytes.size() / 8);
  while (end - at >= 8) {
    const Word word{load_be64(at)};
    if (!word.is_record()) {
      ++at;
      continue;
    }
    at += 8;
    const unsigned c = word.channel();
    const std::uint64_t count = word.count();
    if (wrapped(unwrap[c].previous, count, Word::kPeriod)) unwrap[c].epoch += Word::kPeriod;
    unwrap[c].previous = count;
    seen |= 1u << c;
    sink.add(c, word.time_ps(count + unwrap[c].epoch, fine_ps));
  }
  sink.end_chunk();
  for (unsigned c = 0; c < kChannels; ++c) {
    if ((seen >> c & 1) == 0) continue;
    decoder.raw64_prev_valid[c] = true;
    decoder.raw64_prev[c] = unwrap[c].previous;
    decoder.raw64_epoch[c] = unwrap[c].epoch;
  }
  decoder.pending_bytes.consume(static_cast<std::size_t>(at - decoder.pending_bytes.begin()));
}

template <class Sink>
void decode_raw64(StreamDecoder& decoder, Sink& sink) {
  if (ascii_lower(decoder.header.raw64_tag_format) == "raw_cf") {
    scan_raw64<Raw64CoarseFineWord>(decoder, sink);
  } else {
    scan_raw64<Raw64PsWord>(decoder, sink);
  }
}

}  // namespace orvo::timing::detail
