#pragma once
// delta32: big-endian 32-bit words. An event carries the time since the last event of its channel; a sync word
// followed by the two halves of a time base gives the next event an absolute time.
//
//   sync | base low | base high | event | event | extension | event | ...
#include <algorithm>
#include <array>
#include <cstdint>

#include "orvo/timing/detail/byte_order.hpp"
#include "orvo/timing/detail/device_time.hpp"
#include "orvo/timing/detail/two_channel_lists.hpp"
#include "orvo/timing/payload_observer.hpp"
#include "orvo/timing/stream_decoder_state.hpp"
#include "orvo/timing/tag_sink.hpp"

namespace orvo::timing::detail {

/// Word:  31 control | 30..29 channel, or kind of control word | 28..25 type | 24..0 payload
struct Delta32Word {
  static constexpr std::uint64_t kBytes = 4;
  static constexpr unsigned kPayloadBits = 25;
  std::uint32_t bits;

  constexpr bool control() const { return bits >> 31 != 0; }
  constexpr unsigned channel() const { return bits >> 29 & 3; }
  /// Bit 0 or 1 of the channel.
  constexpr unsigned channel_bit(unsigned bit) const { return bits >> (29 + bit) & 1; }
  constexpr unsigned type() const { return bits >> 25 & 15; }
  constexpr std::uint32_t payload() const { return bits & 0x1FF'FFFF; }

  constexpr bool is_event() const { return !control() && type() == 10; }
  constexpr bool is_extension() const { return is_control(0) && short_payload(); }
  constexpr bool is_base_low() const { return is_control(1); }
  constexpr bool is_base_high() const { return is_control(2) && short_payload(); }
  constexpr bool is_marker() const { return is_control(3); }
  constexpr bool is_sync() const { return bits == 0xEB5A'55AA; }

 private:
  constexpr bool is_control(unsigned kind) const { return control() && type() == 5 && channel() == kind; }
  constexpr bool short_payload() const { return payload() <= 0xFFFF; }
};
static_assert(Delta32Word{0xEB5A'55AA}.is_marker() && Delta32Word{0xEB5A'55AA}.payload() == 0x15A'55AA);

inline constexpr std::uint32_t kDelta32Data = 0;
inline constexpr std::uint32_t kDelta32ExpectBaseLow = 1;
inline constexpr std::uint32_t kDelta32ExpectBaseHigh = 2;

/// Starts a frame: the two halves of a time base come next.
inline void reset_delta32_frame(StreamDecoder& decoder, std::uint32_t frame_state) {
  decoder.d32_frame_state = frame_state;
  decoder.d32_base_low = 0;
  decoder.d32_base = 0;
  decoder.d32_base_valid = false;
  decoder.d32_extension = 0;
}

template <PayloadObserver Observer>
void lose_delta32_sync(StreamDecoder& decoder, LossReason reason, Observer& observer) {
  observer.sync_lost(reason);
  observer.passed(PayloadClass::broken_words, Delta32Word::kBytes);
  decoder.d32_synced = false;
  reset_delta32_frame(decoder, kDelta32Data);
}

/// An event's time from the pending base, near the channel's last time.
inline std::int64_t delta32_time_from_base(const StreamDecoder& decoder, unsigned channel, std::uint64_t delta_ps) {
  std::uint64_t base_ps = decoder.d32_base % kBaseModulus;
  if (decoder.d32_has_time[channel]) {
    const std::uint64_t last_ps = reference_ps(decoder.d32_last_time[channel]);
    base_ps = lift_over_wrap(base_ps, last_ps, kBaseModulus, wrap_step_ps(kBaseModulus));
  }
  return static_cast<std::int64_t>(base_ps + delta_ps);
}

template <TagSink Sink, PayloadObserver Observer>
void decode_delta32_event(StreamDecoder& decoder, Delta32Word word, Sink& sink, Observer& observer) {
  const unsigned c = word.channel();
  const std::uint64_t delta_ps = (decoder.d32_extension << Delta32Word::kPayloadBits) + word.payload();
  decoder.d32_extension = 0;
  const bool has_time = decoder.d32_has_time[c];
  const std::int64_t last_ps = decoder.d32_last_time[c];
  std::int64_t time_ps = 0;
  if (decoder.d32_base_valid) {
    time_ps = delta32_time_from_base(decoder, c, delta_ps);
    if (has_time && last_ps >= time_ps) return lose_delta32_sync(decoder, LossReason::event_not_later, observer);
    observer.anchored(c);
    decoder.d32_base_valid = false;
    decoder.d32_base = 0;
  } else {
    if (!has_time) return observer.untimed();
    time_ps = add_wrapping(last_ps, without_wrap_step(delta_ps, reference_ps(last_ps), wrap_step_ps(kBaseModulus)));
  }
  decoder.d32_last_time[c] = time_ps;
  decoder.d32_has_time[c] = true;
  observer.tag(c);
  sink.add(c, time_ps);
}

/// Why a word that is out of place among the data words is.
constexpr LossReason stray_delta32_word(Delta32Word word) {
  if (word.is_extension()) return LossReason::extension_after_base;
  return word.is_base_low() || word.is_base_high() ? LossReason::stray_base : LossReason::unknown_word;
}

/// One word in sync. A word that does not fit its place costs the sync.
template <TagSink Sink, PayloadObserver Observer>
void decode_delta32_word(StreamDecoder& decoder, Delta32Word word, Sink& sink, Observer& observer) {
  if (decoder.d32_frame_state == kDelta32Data && word.is_event()) {
    return decode_delta32_event(decoder, word, sink, observer);
  }
  if (word.is_sync()) {
    observer.passed(PayloadClass::sync_words, Delta32Word::kBytes);
    return reset_delta32_frame(decoder, kDelta32ExpectBaseLow);
  }
  switch (decoder.d32_frame_state) {
    case kDelta32Data:
      if (word.is_marker()) return observer.passed(PayloadClass::markers, Delta32Word::kBytes);
      if (!word.is_extension() || decoder.d32_base_valid) {
        return lose_delta32_sync(decoder, stray_delta32_word(word), observer);
      }
      decoder.d32_extension += word.payload();
      return observer.passed(PayloadClass::extensions, Delta32Word::kBytes);
    case kDelta32ExpectBaseLow:
      if (!word.is_base_low()) return lose_delta32_sync(decoder, LossReason::no_base_low, observer);
      decoder.d32_base_low = word.payload();
      decoder.d32_frame_state = kDelta32ExpectBaseHigh;
      return observer.passed(PayloadClass::time_bases, Delta32Word::kBytes);
    default:
      if (!word.is_base_high()) return lose_delta32_sync(decoder, LossReason::no_base_high, observer);
      decoder.d32_base = std::uint64_t{word.payload()} << Delta32Word::kPayloadBits | decoder.d32_base_low;
      decoder.d32_base_valid = true;
      decoder.d32_base_low = 0;
      decoder.d32_extension = 0;
      decoder.d32_frame_state = kDelta32Data;
      return observer.passed(PayloadClass::time_bases, Delta32Word::kBytes);
  }
}

/// The first sync word at any byte of [at, end); `end` when there is none.
inline const std::uint8_t* find_delta32_sync(const std::uint8_t* at, const std::uint8_t* end) {
  for (; end - at >= 4; ++at) {
    if (Delta32Word{load_be32(at)}.is_sync()) return at;
  }
  return end;
}

/// Words looked at together.
inline constexpr std::size_t kDelta32Block = 64;

/// In which bits the words of the block at `at` differ.
inline Delta32Word delta32_block_differences(const std::uint8_t* at) {
  const std::uint32_t reference = load_native32(at);
  std::uint32_t differing = 0;
#pragma GCC unroll 4
  for (std::size_t i = 0; i < kDelta32Block; ++i) differing |= load_native32(at + 4 * i) ^ reference;
  return {be32_of_native(differing)};
}

/// True when a block holds nothing but events of channels that have a time. Also false where such a channel lacks one
/// as the bits could name in which the words differ.
inline bool delta32_block_is_plain(Delta32Word first, Delta32Word differing,
                                   const std::array<bool, kChannels>& has_time) {
  if (!first.is_event() || differing.control() || differing.type() != 0) return false;
  for (unsigned c = 0; c < kChannels; ++c) {
    if (((c ^ first.channel()) & ~differing.channel()) == 0 && !has_time[c]) return false;
  }
  return true;
}

/// Takes a word that chains on its channel's last time. A difference of one word is far too short to hold a wrap
/// step.
template <TagSink Sink, PayloadObserver Observer>
void take_delta32_difference(Delta32Word word, std::array<std::int64_t, kChannels>& last_ps, Sink& sink,
                             Observer& observer) {
  const unsigned c = word.channel();
  last_ps[c] = add_wrapping(last_ps[c], word.payload());
  observer.tag(c);
  sink.add(c, last_ps[c]);
}

/// The same for all words of a block.
template <TagSink Sink, PayloadObserver Observer>
void take_delta32_differences(const std::uint8_t* at, std::array<std::int64_t, kChannels>& last_ps, Sink& sink,
                              Observer& observer) {
#pragma GCC unroll 4
  for (std::size_t i = 0; i < kDelta32Block; ++i) {
    take_delta32_difference(Delta32Word{load_be32(at + 4 * i)}, last_ps, sink, observer);
  }
}

/// The same for a block of two channels and a sink of lists. The last times, too, then stay in registers: one of them
/// moves on by the difference, the other by nothing.
template <ListSink Sink, PayloadObserver Observer>
void take_delta32_differences(const std::uint8_t* at, TwoChannels channels,
                              std::array<std::int64_t, kChannels>& last_ps, Sink& sink, Observer& observer) {
  auto first_ps = static_cast<std::uint64_t>(last_ps[channels.first]);
  auto second_ps = static_cast<std::uint64_t>(last_ps[channels.second()]);
  TwoChannelLists lists(sink.list_ends(), channels);
#pragma GCC unroll 4
  for (std::size_t i = 0; i < kDelta32Block; ++i) {
    const Delta32Word word{load_be32(at + 4 * i)};
    const std::uint64_t which = word.channel_bit(channels.bit);
    const std::uint64_t of_second_ps = word.payload() & (0 - which);
    first_ps += word.payload() ^ of_second_ps;
    second_ps += of_second_ps;
    observer.tag(word.channel());
    lists.add(which, static_cast<std::int64_t>(first_ps), static_cast<std::int64_t>(second_ps));
  }
  last_ps[channels.first] = static_cast<std::int64_t>(first_ps);
  last_ps[channels.second()] = static_cast<std::int64_t>(second_ps);
}

/// Takes the block at `at` if it is plain.
template <TagSink Sink, PayloadObserver Observer>
bool take_delta32_block(const std::uint8_t* at, const std::array<bool, kChannels>& has_time,
                        std::array<std::int64_t, kChannels>& last_ps, Sink& sink, Observer& observer) {
  const Delta32Word first{load_be32(at)};
  const Delta32Word differing = delta32_block_differences(at);
  if (!delta32_block_is_plain(first, differing, has_time)) return false;
  if constexpr (ListSink<Sink>) {
    if (differing.channel() != 3) {
      take_delta32_differences(at, TwoChannels(first.channel(), differing.channel()), last_ps, sink, observer);
      return true;
    }
  }
  take_delta32_differences(at, last_ps, sink, observer);
  return true;
}

/// The fast path: decodes events that only chain on their channel's last time, up to the first word that is anything
/// else, and returns where it stopped.
template <TagSink Sink, PayloadObserver Observer>
const std::uint8_t* decode_delta32_events(StreamDecoder& decoder, const std::uint8_t* at, const std::uint8_t* end,
                                          Sink& sink, Observer& observer) {
  if (decoder.d32_frame_state != kDelta32Data || decoder.d32_base_valid || decoder.d32_extension != 0) return at;
  constexpr std::ptrdiff_t kBlockBytes = Delta32Word::kBytes * kDelta32Block;
  std::array<std::int64_t, kChannels> last_ps = decoder.d32_last_time;
  const std::array<bool, kChannels> has_time = decoder.d32_has_time;
  bool chains = true;
  while (chains && end - at >= 4) {
    if (end - at >= kBlockBytes && take_delta32_block(at, has_time, last_ps, sink, observer)) {
      at += kBlockBytes;
      continue;
    }
    const std::uint8_t* const stop = at + std::min(end - at - 3, kBlockBytes);
    for (; at < stop; at += 4) {
      const Delta32Word word{load_be32(at)};
      chains = word.is_event() && has_time[word.channel()];
      if (!chains) break;
      take_delta32_difference(word, last_ps, sink, observer);
    }
  }
  decoder.d32_last_time = last_ps;
  return at;
}

/// Decodes the pending bytes. In sync 0 to 3 bytes stay pending; while searching the last 3 stay, whatever they are:
/// a part of the word that cost the sync may be among them.
template <TagSink Sink, PayloadObserver Observer>
void decode_delta32(StreamDecoder& decoder, Sink& sink, Observer& observer) {
  const std::uint8_t* const begin = decoder.pending_bytes.begin();
  const std::uint8_t* const end = decoder.pending_bytes.end();
  const std::uint8_t* at = begin;
  sink.begin_chunk(decoder.pending_bytes.size() / 4);
  observer.begin_chunk();
  for (;;) {
    if (!decoder.d32_synced) {
      const std::uint8_t* const found = find_delta32_sync(at, end);
      if (found == end) {
        const std::uint8_t* const kept = end - std::min<std::ptrdiff_t>(end - begin, 3);
        if (kept < at) observer.returned(static_cast<std::uint64_t>(at - kept));
        if (kept > at) observer.passed(PayloadClass::searched, static_cast<std::uint64_t>(kept - at));
        at = kept;
        break;
      }
      observer.passed(PayloadClass::searched, static_cast<std::uint64_t>(found - at));
      observer.framed();
      observer.passed(PayloadClass::sync_words, Delta32Word::kBytes);
      at = found + Delta32Word::kBytes;
      decoder.d32_synced = true;
      reset_delta32_frame(decoder, kDelta32ExpectBaseLow);
    }
    at = decode_delta32_events(decoder, at, end, sink, observer);
    if (end - at < 4) break;
    decode_delta32_word(decoder, Delta32Word{load_be32(at)}, sink, observer);
    at += 4;
  }
  sink.end_chunk();
  decoder.pending_bytes.consume(static_cast<std::size_t>(at - begin));
}

}  // namespace orvo::timing::detail
