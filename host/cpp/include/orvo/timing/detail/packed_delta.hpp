#pragma once
// packed_delta: from pending bytes to tags. Locks onto the records, decodes each chunk by the rules, and gives up a
// lock that decodes noise.
#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>

#include "orvo/timing/byte_queue.hpp"
#include "orvo/timing/detail/packed_alignment.hpp"
#include "orvo/timing/detail/packed_chains.hpp"
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
  /// The record at that bit, in the high bits of what is loaded.
  static std::uint64_t load(const std::uint8_t* bytes, std::uint64_t bit) {
    return load_be64(bytes + bit / 8) << (bit % 8);
  }
  /// The first bit of a record, and the record that starts at a bit.
  std::uint64_t position(std::uint64_t index) const { return first_bit_ + index * layout_.width(); }
  std::uint64_t index_at(std::uint64_t bit) const { return (bit - first_bit_) / layout_.width(); }

 private:
  PackedLayout layout_;
  std::span<const std::uint8_t> bytes_;
  std::uint64_t first_bit_;
  std::uint64_t size_ = 0;
  std::uint64_t fast_size_ = 0;
};

/// False where the fast path would not come far: within a sync sequence, and where a channel awaits its anchor.
inline bool may_chain(const StreamDecoder& decoder, const PackedRecords& records, std::uint64_t k) {
  if (decoder.pk_sync_left > 0 || k >= records.fast_size()) return false;
  const unsigned channel = leading_channel(PackedRecords::load(records.bytes(), records.position(k)));
  return static_cast<std::int32_t>(channel) != decoder.pk_anchor_channel;
}

/// The fast path: decodes overflow records, and data records that only chain on their channel's last time, up to the
/// first record that is anything else, and returns its index. Where tags are rare, most have an overflow record right
/// before their data record: the two are taken together, out of one load. A function of its own for the compiler,
/// too: inlined where it is called, it would share the registers with everything else there.
template <TagSink Sink, PayloadObserver Observer>
[[gnu::noinline]] std::uint64_t decode_chained_records(StreamDecoder& decoder, const PackedRules& rules,
                                                       const PackedRecords& records, std::uint64_t k,
                                                       ChannelCounts& emitted, Sink& sink, Observer& observer) {
  constexpr std::uint32_t kUsableBits = 64 - 7;  // of a load: what is before the record can be 7 bits
  PackedChains chains(decoder, rules);
  const PackedLayout layout = rules.layout;
  const std::uint32_t width = layout.width();
  const std::uint8_t* const bytes = records.bytes();
  const std::uint64_t end = records.position(records.fast_size());
  std::uint64_t bit = records.position(k);
  const auto give_tag = [&](unsigned channel) {
    observer.tag(channel);
    sink.add(channel, chains.time_ps(channel));
  };
  while (bit < end) {
    const std::uint64_t word = PackedRecords::load(bytes, bit);
    const unsigned channel = leading_channel(word);
    const std::uint32_t payload = leading_payload(word, layout);
    if (!leading_flag(word)) {
      if (!chains.take_data(channel, payload)) break;
      bit += width;
      give_tag(channel);
      continue;
    }
    if (payload == layout.all_ones()) break;
    const std::uint64_t next = word << width;
    const bool data_of_channel = (word ^ next) >> 61 == 1;  // the same channel, another flag
    if (2 * width <= kUsableBits && data_of_channel &&
        chains.take_pair(channel, payload, leading_payload(next, layout))) {
      bit += 2 * width;
      observer.passed(PayloadClass::overflow, width);
      give_tag(channel);
      continue;
    }
    if (!chains.take_overflow(channel, payload)) break;
    bit += width;
    observer.passed(PayloadClass::overflow, width);
  }
  chains.end(decoder, emitted);
  return records.index_at(bit);
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
    if (may_chain(decoder, records, k)) {
      k = decode_chained_records(decoder, rules, records, k, emitted, sink, observer);
    }
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
