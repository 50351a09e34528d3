#pragma once
// delta32: big-endian 32-bit words, and what each of them does to a stream. An event carries the time since the last
// event of its channel; a sync word followed by the two halves of a time base gives the next event an absolute time.
//
//   sync | base low | base high | event | event | extension | event | ...
#include <cstdint>

#include "orvo/timing/detail/device_time.hpp"
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

}  // namespace orvo::timing::detail
