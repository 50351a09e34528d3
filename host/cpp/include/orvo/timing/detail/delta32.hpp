#pragma once
// delta32: from pending bytes to tags. Finds the sync word, then decodes word by word, and blocks of events together.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

#include "orvo/timing/detail/byte_order.hpp"
#include "orvo/timing/detail/delta32_rules.hpp"
#include "orvo/timing/detail/device_time.hpp"
#include "orvo/timing/detail/two_channel_lists.hpp"
#include "orvo/timing/payload_observer.hpp"
#include "orvo/timing/stream_decoder_state.hpp"
#include "orvo/timing/tag_sink.hpp"

namespace orvo::timing::detail {

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
