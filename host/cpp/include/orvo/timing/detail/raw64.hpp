#pragma once
// raw64: one big-endian 64-bit word per tag, in one of two tag formats.
//
// Tried and left out: one pass over a block for each channel, the end of its list in a register (no faster).
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

#include "orvo/timing/detail/ascii_lower.hpp"
#include "orvo/timing/detail/byte_order.hpp"
#include "orvo/timing/detail/device_time.hpp"
#include "orvo/timing/detail/two_channel_lists.hpp"
#include "orvo/timing/payload_observer.hpp"
#include "orvo/timing/stream_decoder_state.hpp"
#include "orvo/timing/tag_sink.hpp"

namespace orvo::timing::detail {

/// Picosecond word:  63 zero | 62..61 channel | 60..44 zero | 43..0 time, ps
struct Raw64PsWord {
  static constexpr std::uint64_t kPeriod = kDevicePeriodPs;
  /// Words that agree in these bits are all records or all none, and their counts less than 2^40 apart.
  static constexpr std::uint64_t kStretchBits = 0x9FFF'FF00'0000'0000;
  std::uint64_t bits;

  constexpr bool is_record() const { return (bits & 0x9FFF'F000'0000'0000) == 0; }
  constexpr unsigned channel() const { return bits >> 61 & 3; }
  /// Bit 0 or 1 of the channel.
  constexpr unsigned channel_bit(unsigned bit) const { return bits >> (61 + bit) & 1; }
  /// The time, folded into one device period (44 bits reach a little further).
  constexpr std::uint64_t count() const {
    const std::uint64_t time_ps = bits & 0xFFF'FFFF'FFFF;
    return time_ps < kPeriod ? time_ps : time_ps - kPeriod;
  }
  /// The same for words of a stretch that ends before the period does.
  constexpr std::uint64_t count_within() const { return bits & 0xFFF'FFFF'FFFF; }
  /// The lowest count of this word's stretch.
  constexpr std::uint64_t stretch_begin() const { return bits & 0xF00'0000'0000; }
  constexpr bool stretch_is_within() const { return stretch_begin() + 0x100'0000'0000 <= kPeriod; }
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
  static constexpr std::uint64_t kStretchBits = 0x9FFF'FE00'0000'0000;
  std::uint64_t bits;

  constexpr bool is_record() const { return (bits & 0x9FFF'E000'0000'0000) == 0x14B8'6000'0000'0000; }
  constexpr unsigned channel() const { return bits >> 61 & 3; }
  /// Bit 0 or 1 of the channel.
  constexpr unsigned channel_bit(unsigned bit) const { return bits >> (61 + bit) & 1; }
  constexpr std::uint64_t count() const { return bits >> 13 & 0xFFFF'FFFF; }
  constexpr std::uint64_t count_within() const { return count(); }
  constexpr std::uint64_t stretch_begin() const { return count() & 0xF000'0000; }
  constexpr bool stretch_is_within() const { return true; }
  /// The fine time measures from the event back to the clock edge that the coarse count names.
  std::int64_t time_ps(std::uint64_t unwrapped, const std::int64_t* fine_ps) const {
    return static_cast<std::int64_t>(unwrapped * kCoarsePeriodPs -
                                     static_cast<std::uint64_t>(fine_ps[bits & 0x1FFF]));
  }
};
static_assert(Raw64CoarseFineWord{0x34B8'6000'0000'2001}.is_record());
static_assert(Raw64CoarseFineWord{0x34B8'6000'0000'2001}.count() == 1);

/// Unwrapping of each channel.
struct Raw64Unwraps {
  static constexpr std::uint64_t kNone = UINT64_MAX;  // no step from here to a count looks like a wrap
  std::array<std::uint64_t, kChannels> previous{kNone, kNone, kNone, kNone};
  std::array<std::uint64_t, kChannels> epoch{};
};

/// Takes the word at `at`, if it is a record; returns where the next one may start.
template <class Word, TagSink Sink, PayloadObserver Observer>
const std::uint8_t* take_raw64_word(const std::uint8_t* at, Raw64Unwraps& unwraps, const std::int64_t* fine_ps,
                                    Sink& sink, Observer& observer) {
  const Word word{load_be64(at)};
  if (!word.is_record()) {
    observer.passed(PayloadClass::skipped, 1);
    return at + 1;
  }
  observer.framed();
  const unsigned channel = word.channel();
  const std::uint64_t count = word.count();
  if (wrapped(unwraps.previous[channel], count, Word::kPeriod)) {
    unwraps.epoch[channel] += Word::kPeriod;
    observer.wrapped(channel);
  }
  unwraps.previous[channel] = count;
  observer.tag(channel);
  sink.add(channel, word.time_ps(count + unwraps.epoch[channel], fine_ps));
  return at + 8;
}

/// Words looked at together.
inline constexpr std::size_t kRaw64Block = 256;

/// In which bits the words of the block at `at` differ. They are compared as they lie, without turning their bytes.
inline std::uint64_t raw64_block_differences(const std::uint8_t* at) {
  const std::uint64_t reference = load_native64(at);
  std::uint64_t differing = 0;
#pragma GCC unroll 4
  for (std::size_t i = 0; i < kRaw64Block; ++i) differing |= load_native64(at + 8 * i) ^ reference;
  return be64_of_native(differing);
}

/// True when a block holds nothing but records, all of one stretch, in which no channel's count can wrap.
template <class Word>
bool raw64_block_is_plain(Word first, Word differing, const Raw64Unwraps& unwraps) {
  if (!first.is_record() || !first.stretch_is_within() || (differing.bits & Word::kStretchBits) != 0) return false;
  return std::none_of(unwraps.previous.begin(), unwraps.previous.end(), [first](std::uint64_t previous) {
    return wrapped(previous, first.stretch_begin(), Word::kPeriod);
  });
}

/// Takes a block of which that is true: every word is a record and no count wraps.
template <class Word, TagSink Sink, PayloadObserver Observer>
void take_plain_raw64_block(const std::uint8_t* at, Raw64Unwraps& unwraps, const std::int64_t* fine_ps, Sink& sink,
                            Observer& observer) {
#pragma GCC unroll 4
  for (std::size_t i = 0; i < kRaw64Block; ++i) {
    const Word word{load_be64(at + 8 * i)};
    const unsigned channel = word.channel();
    unwraps.previous[channel] = word.count_within();
    observer.tag(channel);
    sink.add(channel, word.time_ps(word.count_within() + unwraps.epoch[channel], fine_ps));
  }
}

/// The same for a block of two channels and a sink of lists.
template <class Word, ListSink Sink, PayloadObserver Observer>
void take_plain_raw64_block(const std::uint8_t* at, TwoChannels channels, Raw64Unwraps& unwraps,
                            const std::int64_t* fine_ps, Sink& sink, Observer& observer) {
  const std::array<std::uint64_t, 2> epoch{unwraps.epoch[channels.first], unwraps.epoch[channels.second()]};
  std::array<std::uint64_t, 2> previous{unwraps.previous[channels.first], unwraps.previous[channels.second()]};
  TwoChannelLists lists(sink.list_ends(), channels);
#pragma GCC unroll 4
  for (std::size_t i = 0; i < kRaw64Block; ++i) {
    const Word word{load_be64(at + 8 * i)};
    const std::size_t which = word.channel_bit(channels.bit);
    previous[which] = word.count_within();
    observer.tag(word.channel());
    lists.add(which, word.time_ps(word.count_within() + epoch[which], fine_ps));
  }
  unwraps.previous[channels.first] = previous[0];
  unwraps.previous[channels.second()] = previous[1];
}

/// Takes the block at `at` if it is plain.
template <class Word, TagSink Sink, PayloadObserver Observer>
bool take_raw64_block(const std::uint8_t* at, Raw64Unwraps& unwraps, const std::int64_t* fine_ps, Sink& sink,
                      Observer& observer) {
  const Word first{load_be64(at)};
  const Word differing{raw64_block_differences(at)};
  if (!raw64_block_is_plain(first, differing, unwraps)) return false;
  observer.framed();
  if constexpr (ListSink<Sink>) {
    if (differing.channel() != 3) {
      const TwoChannels channels(first.channel(), differing.channel());
      take_plain_raw64_block<Word>(at, channels, unwraps, fine_ps, sink, observer);
      return true;
    }
  }
  take_plain_raw64_block<Word>(at, unwraps, fine_ps, sink, observer);
  return true;
}

/// Decodes every record of the pending bytes. What is no record is skipped byte by byte; at most 7 bytes stay
/// pending.
template <class Word, TagSink Sink, PayloadObserver Observer>
void scan_raw64(StreamDecoder& decoder, Sink& sink, Observer& observer) {
  constexpr std::ptrdiff_t kBlockBytes = 8 * kRaw64Block;
  const std::uint8_t* at = decoder.pending_bytes.begin();
  const std::uint8_t* const end = decoder.pending_bytes.end();
  const std::int64_t* const fine_ps = decoder.fine_table_ps.data();
  // Local: stores through the sink could change the decoder's own numbers, for all the compiler knows.
  Raw64Unwraps unwraps;
  for (unsigned c = 0; c < kChannels; ++c) {
    unwraps.epoch[c] = decoder.raw64_epoch[c];
    if (decoder.raw64_prev_valid[c]) unwraps.previous[c] = decoder.raw64_prev[c];
  }
  sink.begin_chunk(decoder.pending_bytes.size() / 8);
  observer.begin_chunk();
  while (end - at >= 8) {
    if (end - at >= kBlockBytes && take_raw64_block<Word>(at, unwraps, fine_ps, sink, observer)) {
      at += kBlockBytes;
      continue;
    }
    const std::uint8_t* const stop = std::min(end - 7, at + kBlockBytes);
    while (at < stop) at = take_raw64_word<Word>(at, unwraps, fine_ps, sink, observer);
  }
  sink.end_chunk();
  for (unsigned c = 0; c < kChannels; ++c) {
    if (unwraps.previous[c] == Raw64Unwraps::kNone) continue;
    decoder.raw64_prev_valid[c] = true;
    decoder.raw64_prev[c] = unwraps.previous[c];
    decoder.raw64_epoch[c] = unwraps.epoch[c];
  }
  decoder.pending_bytes.consume(static_cast<std::size_t>(at - decoder.pending_bytes.begin()));
}

template <TagSink Sink, PayloadObserver Observer>
void decode_raw64(StreamDecoder& decoder, Sink& sink, Observer& observer) {
  if (ascii_lower(decoder.header.raw64_tag_format) == "raw_cf") {
    scan_raw64<Raw64CoarseFineWord>(decoder, sink, observer);
  } else {
    scan_raw64<Raw64PsWord>(decoder, sink, observer);
  }
}

}  // namespace orvo::timing::detail
