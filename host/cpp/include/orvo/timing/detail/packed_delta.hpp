#pragma once
// packed_delta: the decoder proper, for a stream whose alignment is known.
//
// Times come from anchors. A sync sequence on a channel spells 41 bits of the device time; the channel's next data
// record, the anchor, adds its difference to them. From there on the channel's differences chain.
#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <span>

#include "orvo/timing/detail/packed_alignment.hpp"
#include "orvo/timing/detail/packed_debug_log.hpp"
#include "orvo/timing/detail/packed_record.hpp"
#include "orvo/timing/stream_decoder_state.hpp"

namespace orvo::timing::detail {

/// Internal recordings are dense: a difference of strictly more than a second means lost data.
inline constexpr std::uint64_t kImplausiblePs = 1'000'000'000'000;
/// Steps back of up to a microsecond are tags out of order.
inline constexpr std::uint64_t kBackwardTolerancePs = 1'000'000;

/// What stays the same over one chunk.
struct PackedRules {
  explicit PackedRules(const StreamDecoder& decoder)
      : layout{decoder.header.delta_bits},
        active(active_channels(decoder.header)),
        internal(decoder.header.mode == StreamMode::internal),
        quantum_shift(decoder.quantum_shift),
        modulus(kBaseModulus << std::min(quantum_shift, 22u)),
        wrap_step(wrap_step_ps(modulus)) {}

  PackedLayout layout;
  unsigned active;
  bool internal;
  unsigned quantum_shift;
  std::uint64_t modulus;  ///< of a device time in 41 bits of quanta, ps
  std::uint64_t wrap_step;

  bool implausible(std::uint64_t gap_ps) const { return internal && gap_ps > kImplausiblePs; }
};

/// A record at its place in the chunk.
struct PlacedRecord {
  PackedRecord record;
  std::uint64_t index;
};

/// Completes a sync sequence: the base that its channel's anchor counts from.
inline std::uint64_t packed_anchor_base(const StreamDecoder& decoder, const PackedRules& rules, unsigned channel) {
  const std::uint64_t period_ps = std::min(rules.modulus, kDevicePeriodPs);
  const std::uint64_t base_ps = (decoder.pk_sync_value % kBaseModulus << rules.quantum_shift) % period_ps;
  std::uint64_t near_ps = 0;
  if (decoder.pk_has_time[channel]) {
    near_ps = reference_ps(decoder.pk_last_time[channel]);
  } else if (decoder.pk_has_emitted[channel]) {
    near_ps = reference_ps(decoder.pk_emitted_time[channel]);
  } else {
    return base_ps;
  }
  return rules.modulus <= kDevicePeriodPs ? lift_over_wrap(base_ps, near_ps, period_ps, rules.wrap_step)
                                          : lift(base_ps, near_ps, period_ps);
}

/// A record inside a sync sequence. False: it breaks the sequence, drop the lock.
inline bool take_sync_word(StreamDecoder& decoder, const PackedRules& rules, const PlacedRecord& at) {
  const auto [channel, flag, payload] = at.record;
  if (static_cast<std::int32_t>(channel) != decoder.pk_sync_channel) {
    packed_debug(decoder, "drop sync channel mismatch ch=", channel, " expected=", decoder.pk_sync_channel,
                 " record=", at.index, " chunks_left=", decoder.pk_sync_left);
    return false;
  }
  if (flag) {
    packed_debug(decoder, "drop ovf in sync ch=", channel, " record=", at.index,
                 " chunks_left=", decoder.pk_sync_left);
    return false;
  }
  decoder.pk_sync_value |= std::uint64_t{payload} << decoder.pk_sync_bits;
  decoder.pk_sync_bits += rules.layout.delta_bits;
  if (--decoder.pk_sync_left == 0) {
    decoder.pk_anchor_base = packed_anchor_base(decoder, rules, channel);
    decoder.pk_anchor_channel = static_cast<std::int32_t>(channel);
    decoder.pk_sync_value = 0;
    decoder.pk_sync_bits = 0;
  }
  return true;
}

/// A flag record outside a sync sequence.
inline void apply_flag_record(StreamDecoder& decoder, const PackedRules& rules, const PackedRecord& record) {
  if (record.payload != rules.layout.all_ones()) {
    decoder.pk_overflow[record.channel] += record.payload;
    return;
  }
  decoder.pk_sync_channel = static_cast<std::int32_t>(record.channel);
  decoder.pk_sync_value = 0;
  decoder.pk_sync_bits = 0;
  decoder.pk_sync_left = rules.layout.sync_words();
  decoder.pk_overflow[record.channel] = 0;
}

/// The anchor record of a channel, `gap_ps` after the anchor base. False: drop the lock.
inline bool take_packed_anchor(StreamDecoder& decoder, const PackedRules& rules, const PlacedRecord& at,
                               std::uint64_t gap_ps) {
  const unsigned c = at.record.channel;
  const auto time_ps = static_cast<std::int64_t>(gap_ps + decoder.pk_anchor_base);
  const std::int64_t prev_ps = decoder.pk_last_time[c];
  if (decoder.pk_has_time[c]) {
    const std::uint64_t step_ps = static_cast<std::uint64_t>(time_ps) - static_cast<std::uint64_t>(prev_ps);
    if (time_ps < prev_ps && 0 - step_ps > kBackwardTolerancePs) {
      packed_debug(decoder, "drop nonmonotonic sync ch=", c, " next=", time_ps, " prev=", prev_ps,
                   " record=", at.index);
      return false;
    }
    // Deliberate: a step back is a huge unsigned difference, so internal recordings refuse it here.
    if (step_ps == 0 || rules.implausible(step_ps)) {
      packed_debug(decoder, "drop implausible sync delta ch=", c, " delta=", step_ps, " next=", time_ps,
                   " prev=", prev_ps, " record=", at.index);
      return false;
    }
    decoder.pk_last_delta[c] = step_ps;
  }
  decoder.pk_last_time[c] = time_ps;
  decoder.pk_has_time[c] = true;
  decoder.pk_anchor_channel = -1;
  decoder.pk_anchor_base = 0;
  return true;
}

/// A data record of a channel that has a time. False: drop the lock.
inline bool take_packed_delta(StreamDecoder& decoder, const PackedRules& rules, const PlacedRecord& at,
                              std::uint64_t gap_ps) {
  const unsigned c = at.record.channel;
  const std::int64_t prev_ps = decoder.pk_last_time[c];
  const bool small_step_back =
      gap_ps > rules.modulus / 2 && gap_ps <= rules.modulus && rules.modulus - gap_ps <= kBackwardTolerancePs;
  if (small_step_back) {
    decoder.pk_last_delta[c] = gap_ps;
    decoder.pk_last_time[c] = add_wrapping(prev_ps, gap_ps - rules.modulus);
    return true;
  }
  gap_ps = without_wrap_step(gap_ps, reference_ps(prev_ps), rules.wrap_step);
  if (rules.implausible(gap_ps)) {
    packed_debug(decoder, "drop implausible delta ch=", c, " delta=", gap_ps, " prev=", prev_ps,
                 " record=", at.index);
    return false;
  }
  decoder.pk_last_delta[c] = gap_ps;
  decoder.pk_last_time[c] = add_wrapping(prev_ps, gap_ps);
  return true;
}

/// What a record did.
enum class PackedStep { kept, emitted, dropped };

inline PackedStep take_packed_data(StreamDecoder& decoder, const PackedRules& rules, const PlacedRecord& at) {
  const unsigned c = at.record.channel;
  const std::uint64_t quanta = (decoder.pk_overflow[c] << rules.layout.delta_bits) + at.record.payload;
  const std::uint64_t gap_ps = quanta << rules.quantum_shift;
  decoder.pk_overflow[c] = 0;
  bool taken = false;
  if (static_cast<std::int32_t>(c) == decoder.pk_anchor_channel) {
    taken = take_packed_anchor(decoder, rules, at, gap_ps);
  } else if (decoder.pk_has_time[c]) {
    taken = take_packed_delta(decoder, rules, at, gap_ps);
  } else {
    return PackedStep::kept;
  }
  if (!taken) return PackedStep::dropped;
  decoder.pk_emitted_time[c] = decoder.pk_last_time[c];
  decoder.pk_has_emitted[c] = true;
  return PackedStep::emitted;
}

inline PackedStep take_packed_record(StreamDecoder& decoder, const PackedRules& rules, const PlacedRecord& at,
                                     std::uint64_t records) {
  if (!is_active(rules.active, at.record.channel)) {
    packed_debug(decoder, "drop inactive ch=", at.record.channel, " active_mask=0x", "0123456789abcdef"[rules.active],
                 " record=", at.index, " records=", records);
    return PackedStep::dropped;
  }
  if (decoder.pk_sync_left > 0) return take_sync_word(decoder, rules, at) ? PackedStep::kept : PackedStep::dropped;
  if (at.record.flag) {
    apply_flag_record(decoder, rules, at.record);
    return PackedStep::kept;
  }
  return take_packed_data(decoder, rules, at);
}

/// Locks onto the pending bytes where they can be aligned. False: not yet, and no more to do with them now.
inline bool lock_packed_alignment(StreamDecoder& decoder, PackedLayout layout) {
  constexpr std::size_t kFewestBytes = 4096;  // below: wait for more
  constexpr std::size_t kMostBytes = 65536;   // above: keep the last kFewestBytes
  ByteQueue& bytes = decoder.pending_bytes;
  const PackedAlignment start = decoder.probe_packed_alignment(static_cast<std::int32_t>(layout.delta_bits),
                                                               static_cast<std::int32_t>(layout.width()));
  if (start.found) {
    bytes.consume(static_cast<std::size_t>(start.drop_bytes));
    decoder.packed_locked = true;
    decoder.bit_offset = start.bit_offset;
    packed_debug(decoder, "locked bits=", layout.delta_bits, " drop_bytes=", start.drop_bytes,
                 " bit_offset=", start.bit_offset, " raw_bytes=", bytes.size());
    return true;
  }
  if (bytes.size() < kFewestBytes) return false;
  packed_debug(decoder, "no alignment bits=", layout.delta_bits, " width=", layout.width(),
               " raw_bytes=", bytes.size());
  if (bytes.size() > kMostBytes) {
    bytes.consume(bytes.size() - kFewestBytes);
    decoder.bit_offset = 0;
  }
  return false;
}

/// Tags per channel of one call.
using ChannelCounts = std::array<std::uint64_t, kChannels>;

/// A wrong alignment decodes noise, which spreads unevenly over the channels. Judged in internal recordings of two or
/// more channels, which have similar rates, once there are enough tags to tell.
inline bool lock_is_imbalanced(StreamDecoder& decoder, const PackedRules& rules, const ChannelCounts& emitted,
                               std::uint64_t records) {
  if (!rules.internal || std::popcount(rules.active) < 2) return false;
  const ChannelBalance balance = channel_balance(emitted, rules.active);
  if (balance.total < 4096 || (balance.min != 0 && 8 * balance.min >= balance.max)) return false;
  packed_debug(decoder, "drop internal imbalanced lock min=", balance.min, " max=", balance.max,
               " total=", balance.total, " records=", records);
  return true;
}

/// The records of a chunk.
class PackedRecords {
 public:
  PackedRecords(const StreamDecoder& decoder, PackedLayout layout)
      : layout_(layout), bytes_(decoder.pending_bytes.bytes()), first_bit_(decoder.bit_offset) {
    const std::uint64_t bits = 8 * std::uint64_t{bytes_.size()};
    size_ = first_bit_ < bits ? (bits - first_bit_) / layout_.width() : 0;
    const std::uint64_t whole_loads = bits >= 64 ? bits - 64 : 0;
    fast_size_ = first_bit_ < whole_loads ? std::min(size_, (whole_loads - first_bit_) / layout_.width()) : 0;
  }

  std::uint64_t size() const { return size_; }
  PackedRecord operator[](std::uint64_t index) const {
    return packed_record(bit_field(bytes_.data(), bytes_.size(), position(index), layout_.width()), layout_);
  }

  /// Records up to here can be read with loads of 8 bytes from where they start.
  std::uint64_t fast_size() const { return fast_size_; }
  const std::uint8_t* bytes() const { return bytes_.data(); }
  /// The first bit of a record.
  std::uint64_t position(std::uint64_t index) const { return first_bit_ + index * layout_.width(); }

 private:
  PackedLayout layout_;
  std::span<const std::uint8_t> bytes_;
  std::uint64_t first_bit_;
  std::uint64_t size_ = 0;
  std::uint64_t fast_size_ = 0;
};

/// The fast path: decodes overflow records, and data records that only chain on their channel's last time, up to the
/// first record that is anything else, and returns its index.
template <class Sink>
std::uint64_t decode_chained_records(StreamDecoder& decoder, const PackedRules& rules, const PackedRecords& records,
                                     std::uint64_t k, ChannelCounts& emitted, Sink& sink) {
  if (decoder.pk_sync_left > 0) return k;
  // A shorter difference is no step back, has no wrap step in it and is not implausible: what is left of the rules is
  // adding up. For channels of which that is not true, no difference is short enough.
  std::array<std::uint64_t, kChannels> limit_ps{};
  for (unsigned c = 0; c < kChannels; ++c) {
    const bool chains = is_active(rules.active, c) && decoder.pk_has_time[c] &&
                        decoder.pk_anchor_channel != static_cast<std::int32_t>(c);
    if (chains) limit_ps[c] = std::min({rules.modulus / 2, rules.wrap_step, kImplausiblePs});
  }
  // Local copies: stores through the sink could change any number behind a reference, for all the compiler knows.
  const PackedLayout layout = rules.layout;
  const unsigned quantum_shift = rules.quantum_shift;
  const std::uint8_t* const bytes = records.bytes();
  const std::uint64_t end = records.fast_size();
  std::array<std::int64_t, kChannels> last_ps = decoder.pk_last_time;
  std::array<std::uint64_t, kChannels> overflow = decoder.pk_overflow;
  std::array<std::uint64_t, kChannels> last_gap_ps = decoder.pk_last_delta;
  ChannelCounts taken{};
  for (std::uint64_t bit = records.position(k); k < end; ++k, bit += layout.width()) {
    const auto [c, flag, payload] = leading_packed_record(load_be64(bytes + bit / 8) << (bit % 8), layout);
    if (flag) {
      if (payload == layout.all_ones() || limit_ps[c] == 0) break;
      overflow[c] += payload;
      continue;
    }
    const std::uint64_t gap_ps = ((overflow[c] << layout.delta_bits) + payload) << quantum_shift;
    if (gap_ps >= limit_ps[c]) break;
    overflow[c] = 0;
    last_ps[c] = add_wrapping(last_ps[c], gap_ps);
    last_gap_ps[c] = gap_ps;
    ++taken[c];
    sink.add(c, last_ps[c]);
  }
  decoder.pk_overflow = overflow;
  decoder.pk_last_delta = last_gap_ps;
  for (unsigned c = 0; c < kChannels; ++c) {
    if (taken[c] == 0) continue;
    emitted[c] += taken[c];
    decoder.pk_last_time[c] = decoder.pk_emitted_time[c] = last_ps[c];
    decoder.pk_has_emitted[c] = true;
  }
  return k;
}

/// Decodes the whole records of the pending bytes, up to and including the first that costs the lock.
template <class Sink>
void decode_packed_delta(StreamDecoder& decoder, Sink& sink) {
  if (decoder.header.delta_bits == 0 || decoder.header.delta_bits > 31) return;
  const PackedRules rules(decoder);
  if (!decoder.packed_locked && !lock_packed_alignment(decoder, rules.layout)) return;

  const PackedRecords records(decoder, rules.layout);
  if (records.size() == 0) return;
  sink.begin_chunk(static_cast<std::size_t>(records.size()));
  ChannelCounts emitted{};
  for (std::uint64_t k = 0;; ++k) {
    k = decode_chained_records(decoder, rules, records, k, emitted, sink);
    if (k == records.size()) break;
    const PackedRecord record = records[k];
    const PackedStep step = take_packed_record(decoder, rules, {record, k}, records.size());
    if (step == PackedStep::emitted) {
      ++emitted[record.channel];
      sink.add(record.channel, decoder.pk_last_time[record.channel]);
    } else if (step == PackedStep::dropped) {
      sink.end_chunk();
      decoder.consume_packed_records(k + 1);
      decoder.drop_packed_lock();
      return;
    }
  }
  const bool imbalanced = lock_is_imbalanced(decoder, rules, emitted, records.size());
  decoder.consume_packed_records(records.size());
  if (imbalanced) {
    decoder.drop_packed_lock();
    sink.discard_chunk();
  } else {
    sink.end_chunk();
  }
}

}  // namespace orvo::timing::detail

namespace orvo::timing {

inline void StreamDecoder::consume_packed_records(std::uint64_t records) {
  const std::uint64_t bits = (std::uint64_t{header.delta_bits} + 3) * records + bit_offset;
  bit_offset = bits % 8;
  pending_bytes.consume(static_cast<std::size_t>(bits / 8));
}

inline void StreamDecoder::drop_packed_lock() {
  packed_locked = false;
  bit_offset = 0;
  pk_last_time = {};
  pk_has_time = {};
  pk_overflow = {};
  pk_last_delta = {};
  pk_emitted_time = {};
  pk_has_emitted = {};
  pk_sync_left = 0;
  pk_sync_channel = 0;
  pk_sync_value = 0;
  pk_sync_bits = 0;
  pk_anchor_channel = -1;
  pk_anchor_base = 0;
}

}  // namespace orvo::timing
