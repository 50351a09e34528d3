#pragma once
// Who wants to know what became of a payload beside its tags gives the decoders an observer. Decoders tell it, item
// by item in the order of the payload, what they pass over and what they stumble on; PayloadAccount
// (payload_account.hpp) makes classes and losses of that.
#include <concepts>
#include <cstddef>
#include <cstdint>

#include "orvo/timing/payload_loss.hpp"

namespace orvo::timing {

/// What the bytes of a payload, or the bits of a packed one, turned out to be.
enum class PayloadClass : std::uint8_t {
  records,  ///< raw64: accepted words
  skipped,  ///< raw64: passed byte by byte
  events,   ///< delta32: given as tags
  events_without_time,
  sync_words,
  time_bases,
  extensions,
  markers,       ///< control words that mean nothing
  broken_words,  ///< words that cost the sync
  searched,      ///< passed in search of a sync word
  data,          ///< packed_delta: given as tags
  data_without_time,
  overflow,
  sync,            ///< sync starts and the pieces of their times
  broken_records,  ///< records that cost the lock
  discarded,       ///< records of calls whose lock was imbalanced
  before_lock,
  trimmed,  ///< erased because too much waited without a lock
  padding,  ///< fewer than 8 bits after the last record
  pending,  ///< held by the decoder
};

inline constexpr std::size_t kPayloadClasses = 20;

/// The record that cost a packed stream its lock. The decoder's state is as it was before the record.
struct PackedLockLoss {
  LossReason reason = LossReason::gap;
  unsigned channel = 0;
  unsigned active_mask = 0;
  std::uint64_t record = 0;    ///< its index in this call
  std::uint64_t records = 0;   ///< of this call
  std::int64_t prev_ps = 0;    ///< the channel's last time
  std::int64_t next_ps = 0;    ///< the record's, for an anchor
  std::uint64_t delta_ps = 0;  ///< between them, modulo 2^64
};

/// How a packed call's tags, or an alignment's, spread over the active channels.
struct ChannelBalance {
  std::uint64_t min = 0;
  std::uint64_t max = 0;
  std::uint64_t total = 0;
};

/// A packed alignment that was good but for its balance.
struct RefusedAlignment {
  std::uint64_t drop_bytes = 0;
  std::uint64_t bit_offset = 0;
  unsigned synced_channels = 0;
  unsigned active_channels = 0;
  ChannelBalance balance;
};

/// An observer that sees nothing and costs nothing. Others derive from it and hide the calls they care about: nothing
/// is virtual, decoders are compiled for the observer they get. Sizes are in the payload's unit.
struct NoObserver {
  /// A chunk of the sink begins, or is forgotten; what was told since its begin is void then.
  void begin_chunk() {}
  void discard_chunk() {}

  /// A record that gives a tag; told just before the sink gets it.
  void tag(unsigned /*channel*/) {}
  /// The tag about to come has a time of its own, not one that adds to the channel's last.
  void anchored(unsigned /*channel*/) {}
  /// A record dropped because its channel has no time yet.
  void untimed() {}
  /// Anything else, of this size.
  void passed(PayloadClass /*what*/, std::uint64_t /*size*/) {}
  /// The last `size` of what was told are the decoder's again, to be looked at once more.
  void returned(std::uint64_t /*size*/) {}

  /// Here starts a record or sync word where the framing was lost, or not yet found.
  void framed() {}
  /// raw64: the channel's device time wrapped.
  void wrapped(unsigned /*channel*/) {}
  /// delta32: the next word, of class broken_words, costs the sync.
  void sync_lost(LossReason) {}
  /// packed_delta: the next item, a broken record or all records of the call, costs the lock.
  void lock_lost(const PackedLockLoss&) {}
  void lock_imbalanced(const ChannelBalance&, std::uint64_t /*records*/) {}
  /// packed_delta: a search succeeded, failed, or found only what had to be refused. `bytes` are pending.
  void locked(std::uint64_t /*drop_bytes*/, std::uint64_t /*bit_offset*/, std::uint64_t /*bytes*/) {}
  void search_failed(std::uint64_t /*bytes*/) {}
  void alignment_refused(const RefusedAlignment&) {}
};

template <class Observer>
concept PayloadObserver = std::derived_from<Observer, NoObserver>;

/// Tells two observers, which must outlive it.
template <PayloadObserver First, PayloadObserver Second>
class ObserverPair : public NoObserver {
 public:
  ObserverPair(First& first, Second& second) : first_(first), second_(second) {}

  void begin_chunk() { first_.begin_chunk(), second_.begin_chunk(); }
  void discard_chunk() { first_.discard_chunk(), second_.discard_chunk(); }
  void tag(unsigned channel) { first_.tag(channel), second_.tag(channel); }
  void anchored(unsigned channel) { first_.anchored(channel), second_.anchored(channel); }
  void untimed() { first_.untimed(), second_.untimed(); }
  void passed(PayloadClass what, std::uint64_t size) { first_.passed(what, size), second_.passed(what, size); }
  void returned(std::uint64_t size) { first_.returned(size), second_.returned(size); }
  void framed() { first_.framed(), second_.framed(); }
  void wrapped(unsigned channel) { first_.wrapped(channel), second_.wrapped(channel); }
  void sync_lost(LossReason reason) { first_.sync_lost(reason), second_.sync_lost(reason); }
  void lock_lost(const PackedLockLoss& loss) { first_.lock_lost(loss), second_.lock_lost(loss); }
  void lock_imbalanced(const ChannelBalance& balance, std::uint64_t records) {
    first_.lock_imbalanced(balance, records), second_.lock_imbalanced(balance, records);
  }
  void locked(std::uint64_t drop_bytes, std::uint64_t bit_offset, std::uint64_t bytes) {
    first_.locked(drop_bytes, bit_offset, bytes), second_.locked(drop_bytes, bit_offset, bytes);
  }
  void search_failed(std::uint64_t bytes) { first_.search_failed(bytes), second_.search_failed(bytes); }
  void alignment_refused(const RefusedAlignment& refused) {
    first_.alignment_refused(refused), second_.alignment_refused(refused);
  }

 private:
  First& first_;
  Second& second_;
};

}  // namespace orvo::timing
