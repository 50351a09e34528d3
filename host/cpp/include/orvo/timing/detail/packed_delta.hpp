#pragma once
// packed_delta: from pending bytes to tags. Locks onto the records, decodes each chunk by the rules, and gives up a
// lock that decodes noise.
#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>

#include "orvo/timing/byte_queue.hpp"
#include "orvo/timing/detail/packed_alignment.hpp"
#include "orvo/timing/detail/packed_record.hpp"
#include "orvo/timing/detail/packed_rules.hpp"
#include "orvo/timing/payload_observer.hpp"
#include "orvo/timing/stream_decoder_state.hpp"
#include "orvo/timing/tag_sink.hpp"

namespace orvo::timing::detail {

/// Locks onto the pending bytes where they can be aligned. False: not yet, and no more to do with them now.
template <PayloadObserver Observer>
bool lock_packed_alignment(StreamDecoder& decoder, PackedLayout layout, Observer& observer) {
  constexpr std::size_t kFewestBytes = 4096;  // below: wait for more
  constexpr std::size_t kMostBytes = 65536;   // above: keep the last kFewestBytes
  ByteQueue& bytes = decoder.pending_bytes;
  const PackedAlignment start = probe_packed_alignment(decoder, static_cast<std::int32_t>(layout.delta_bits),
                                                       static_cast<std::int32_t>(layout.width()), observer);
  if (start.found) {
    bytes.consume(static_cast<std::size_t>(start.drop_bytes));
    decoder.packed_locked = true;
    decoder.bit_offset = start.bit_offset;
    observer.locked(start.drop_bytes, start.bit_offset, bytes.size());
    return true;
  }
  if (bytes.size() < kFewestBytes) return false;
  observer.search_failed(bytes.size());
  if (bytes.size() > kMostBytes) {
    observer.passed(PayloadClass::trimmed, 8 * (bytes.size() - kFewestBytes));
    bytes.consume(bytes.size() - kFewestBytes);
    decoder.bit_offset = 0;
  }
  return false;
}

/// Tags per channel of one call. Those of chained records count in internal recordings only: no other lock is judged.
using ChannelCounts = std::array<std::uint64_t, kChannels>;

/// A wrong alignment decodes noise, which spreads unevenly over the channels. Judged in internal recordings of two or
/// more channels, which have similar rates, once there are enough tags to tell.
inline bool lock_is_imbalanced(const PackedRules& rules, const ChannelBalance& balance) {
  if (!rules.internal || std::popcount(rules.active) < 2 || balance.total < 4096) return false;
  return balance.min == 0 || 8 * balance.min < balance.max;
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
template <TagSink Sink, PayloadObserver Observer>
std::uint64_t decode_chained_records(StreamDecoder& decoder, const PackedRules& rules, const PackedRecords& records,
                                     std::uint64_t k, ChannelCounts& emitted, Sink& sink, Observer& observer) {
  constexpr std::uint64_t kNoGap = UINT64_MAX;  // none is as long
  if (decoder.pk_sync_left > 0) return k;
  // A shorter difference is no step back, has no wrap step in it and is not implausible: what is left of the rules is
  // adding up. For channels of which that is not true, no difference is short enough.
  std::array<std::uint64_t, kChannels> limit_ps{};
  for (unsigned c = 0; c < kChannels; ++c) {
    const bool chains = is_active(rules.active, c) && decoder.pk_has_time[c] &&
                        decoder.pk_anchor_channel != static_cast<std::int32_t>(c);
    if (chains) limit_ps[c] = std::min({rules.modulus / 2, rules.wrap_step, kImplausiblePs});
  }
  // Local copies: stores through the sink could change any number that a reference names, for all the compiler knows.
  const PackedRules fixed = rules;
  const std::uint8_t* const bytes = records.bytes();
  const std::uint64_t end = records.fast_size();
  std::array<std::int64_t, kChannels> last_ps = decoder.pk_last_time;
  std::array<std::uint64_t, kChannels> overflow = decoder.pk_overflow;
  std::array<std::uint64_t, kChannels> last_gap_ps;
  last_gap_ps.fill(kNoGap);
  ChannelCounts taken{};  // in internal recordings, where a lock is judged by it
  // Data records of most channels need no question but their kind, which is channel and flag: no payload is too long
  // for them while no overflow waits.
  const std::uint32_t all_ones = fixed.layout.all_ones();
  const std::uint64_t longest_ps = packed_gap_ps(fixed, 0, all_ones);
  const auto plain_kind = [&](unsigned c) { return longest_ps < limit_ps[c] ? 1u << 2 * c : 0u; };
  unsigned plain_kinds = 0;
  for (unsigned c = 0; c < kChannels; ++c) plain_kinds |= overflow[c] == 0 ? plain_kind(c) : 0u;
  const unsigned unused_bits = 64 - fixed.layout.width();
  for (std::uint64_t bit = records.position(k); k < end; ++k, bit += fixed.layout.width()) {
    const std::uint64_t record = load_be64(bytes + bit / 8) << (bit % 8) >> unused_bits;
    const auto kind = static_cast<unsigned>(record >> fixed.layout.delta_bits);
    const auto payload = static_cast<std::uint32_t>(record) & all_ones;
    const unsigned c = kind >> 1 & 3;
    std::uint64_t gap_ps = packed_gap_ps(fixed, 0, payload);
    if ((plain_kinds >> kind & 1) == 0) {
      if ((kind & 1) != 0) {
        if (payload == all_ones || limit_ps[c] == 0) break;
        overflow[c] += payload;
        plain_kinds &= ~(1u << 2 * c);
        observer.passed(PayloadClass::overflow, fixed.layout.width());
        continue;
      }
      gap_ps = packed_gap_ps(fixed, overflow[c], payload);
      if (gap_ps >= limit_ps[c]) break;
      overflow[c] = 0;
      plain_kinds |= plain_kind(c);
    }
    last_ps[c] = add_wrapping(last_ps[c], gap_ps);
    last_gap_ps[c] = gap_ps;
    if (fixed.internal) ++taken[c];
    observer.tag(c);
    sink.add(c, last_ps[c]);
  }
  decoder.pk_overflow = overflow;
  for (unsigned c = 0; c < kChannels; ++c) {
    if (last_gap_ps[c] == kNoGap) continue;
    emitted[c] += taken[c];
    decoder.pk_last_delta[c] = last_gap_ps[c];
    decoder.pk_last_time[c] = decoder.pk_emitted_time[c] = last_ps[c];
    decoder.pk_has_emitted[c] = true;
  }
  return k;
}

/// Moves on by `records` and drops the lock. The next search starts on a whole byte: the bits of it that are among
/// the records are looked at again.
template <PayloadObserver Observer>
void drop_lock_after(StreamDecoder& decoder, std::uint64_t records, Observer& observer) {
  decoder.consume_packed_records(records);
  observer.returned(decoder.bit_offset);
  decoder.drop_packed_lock();
}

/// Decodes the whole records of the pending bytes, up to and including the first that costs the lock.
template <TagSink Sink, PayloadObserver Observer>
void decode_packed_delta(StreamDecoder& decoder, Sink& sink, Observer& observer) {
  if (decoder.header.delta_bits == 0 || decoder.header.delta_bits > 31) return;
  const PackedRules rules(decoder);
  if (!decoder.packed_locked && !lock_packed_alignment(decoder, rules.layout, observer)) return;

  const PackedRecords records(decoder, rules.layout);
  if (records.size() == 0) return;
  sink.begin_chunk(static_cast<std::size_t>(records.size()));
  observer.begin_chunk();
  ChannelCounts emitted{};
  for (std::uint64_t k = 0;; ++k) {
    k = decode_chained_records(decoder, rules, records, k, emitted, sink, observer);
    if (k == records.size()) break;
    const PackedRecord record = records[k];
    const PackedStep step = take_packed_record(decoder, rules, {record, k, records.size()}, observer);
    if (step == PackedStep::emitted) {
      ++emitted[record.channel];
      sink.add(record.channel, decoder.pk_last_time[record.channel]);
    } else if (step == PackedStep::dropped) {
      sink.end_chunk();
      observer.passed(PayloadClass::broken_records, rules.layout.width());
      return drop_lock_after(decoder, k + 1, observer);
    }
  }
  const ChannelBalance balance = channel_balance(emitted, rules.active);
  if (!lock_is_imbalanced(rules, balance)) {
    sink.end_chunk();
    return decoder.consume_packed_records(records.size());
  }
  sink.discard_chunk();
  observer.discard_chunk();
  observer.lock_imbalanced(balance, records.size());
  observer.passed(PayloadClass::discarded, records.size() * rules.layout.width());
  drop_lock_after(decoder, records.size(), observer);
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
