#pragma once
// packed_delta: what each record does to a stream whose alignment is known.
//
//   search ── alignment found ──► locked ── a record that breaks a rule, or an imbalance ──► search
//
// Each channel of a locked stream:
//
//                  ┌───────────────── sync start: its time is spelled anew ──────────────────┐
//                  ▼                                                                         │
//   no time ──► in sync ── last sync word ──► awaits its anchor ── anchor: a tag ──► has a time ◄─┐
//     ▲  sync start                                                                      └─ data: a tag
//     └── lock dropped
//
// A sync sequence spells 41 bits of the device time in quanta; the channel's next data record, the anchor, adds its
// difference to them. From there on the channel's differences chain. Only one channel at a time is in sync, and only
// one, the last to end its sequence, awaits its anchor; overflow records lengthen the next difference in any state
// outside a sequence.
#include <algorithm>
#include <cstdint>

#include "orvo/timing/detail/device_time.hpp"
#include "orvo/timing/detail/packed_record.hpp"
#include "orvo/timing/payload_observer.hpp"
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

/// The time that a data record stands for: the channel's overflow records, then its own payload.
constexpr std::uint64_t packed_gap_ps(const PackedRules& rules, std::uint64_t overflow, std::uint32_t payload) {
  return ((overflow << rules.layout.delta_bits) + payload) << rules.quantum_shift;
}

/// A record at its place in the chunk.
struct PlacedRecord {
  PackedRecord record;
  std::uint64_t index;
  std::uint64_t records;  ///< of the chunk

  PackedLockLoss loss(LossReason reason, unsigned active_mask) const {
    return {.reason = reason,
            .channel = record.channel,
            .active_mask = active_mask,
            .record = index,
            .records = records,
            .prev_ps = 0,
            .next_ps = 0,
            .delta_ps = 0};
  }
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

// What takes a record tells the observer of it; false means that it breaks a rule: drop the lock.

/// A record inside a sync sequence.
template <PayloadObserver Observer>
bool take_sync_word(StreamDecoder& decoder, const PackedRules& rules, const PlacedRecord& at, Observer& observer) {
  const auto [channel, flag, payload] = at.record;
  if (static_cast<std::int32_t>(channel) != decoder.pk_sync_channel) {
    observer.lock_lost(at.loss(LossReason::sync_channel, rules.active));
    return false;
  }
  if (flag) {
    observer.lock_lost(at.loss(LossReason::sync_flag, rules.active));
    return false;
  }
  observer.passed(PayloadClass::sync, rules.layout.width());
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
template <PayloadObserver Observer>
void apply_flag_record(StreamDecoder& decoder, const PackedRules& rules, const PackedRecord& record,
                       Observer& observer) {
  if (record.payload != rules.layout.all_ones()) {
    observer.passed(PayloadClass::overflow, rules.layout.width());
    decoder.pk_overflow[record.channel] += record.payload;
    return;
  }
  observer.passed(PayloadClass::sync, rules.layout.width());
  decoder.pk_sync_channel = static_cast<std::int32_t>(record.channel);
  decoder.pk_sync_value = 0;
  decoder.pk_sync_bits = 0;
  decoder.pk_sync_left = rules.layout.sync_words();
  decoder.pk_overflow[record.channel] = 0;
}

/// The anchor record of a channel, `gap_ps` after the anchor base.
template <PayloadObserver Observer>
bool take_packed_anchor(StreamDecoder& decoder, const PackedRules& rules, const PlacedRecord& at,
                        std::uint64_t gap_ps, Observer& observer) {
  const unsigned c = at.record.channel;
  const auto time_ps = static_cast<std::int64_t>(gap_ps + decoder.pk_anchor_base);
  const std::int64_t prev_ps = decoder.pk_last_time[c];
  if (decoder.pk_has_time[c]) {
    const std::uint64_t step_ps = static_cast<std::uint64_t>(time_ps) - static_cast<std::uint64_t>(prev_ps);
    const auto lose_lock = [&](LossReason reason) {
      PackedLockLoss loss = at.loss(reason, rules.active);
      loss.prev_ps = prev_ps;
      loss.next_ps = time_ps;
      loss.delta_ps = step_ps;
      observer.lock_lost(loss);
      return false;
    };
    if (time_ps < prev_ps && 0 - step_ps > kBackwardTolerancePs) return lose_lock(LossReason::anchor_back);
    // Deliberate: a step back is a huge unsigned difference, so internal recordings refuse it here.
    if (step_ps == 0 || rules.implausible(step_ps)) return lose_lock(LossReason::anchor_step);
    decoder.pk_last_delta[c] = step_ps;
  }
  observer.anchored(c);
  decoder.pk_last_time[c] = time_ps;
  decoder.pk_has_time[c] = true;
  decoder.pk_anchor_channel = -1;
  decoder.pk_anchor_base = 0;
  return true;
}

/// A data record of a channel that has a time.
template <PayloadObserver Observer>
bool take_packed_delta(StreamDecoder& decoder, const PackedRules& rules, const PlacedRecord& at, std::uint64_t gap_ps,
                       Observer& observer) {
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
    PackedLockLoss loss = at.loss(LossReason::gap, rules.active);
    loss.prev_ps = prev_ps;
    loss.delta_ps = gap_ps;
    observer.lock_lost(loss);
    return false;
  }
  decoder.pk_last_delta[c] = gap_ps;
  decoder.pk_last_time[c] = add_wrapping(prev_ps, gap_ps);
  return true;
}

/// What a record did.
enum class PackedStep { kept, emitted, dropped };

template <PayloadObserver Observer>
PackedStep take_packed_data(StreamDecoder& decoder, const PackedRules& rules, const PlacedRecord& at,
                            Observer& observer) {
  const unsigned c = at.record.channel;
  const std::uint64_t gap_ps = packed_gap_ps(rules, decoder.pk_overflow[c], at.record.payload);
  decoder.pk_overflow[c] = 0;
  bool taken = false;
  if (static_cast<std::int32_t>(c) == decoder.pk_anchor_channel) {
    taken = take_packed_anchor(decoder, rules, at, gap_ps, observer);
  } else if (decoder.pk_has_time[c]) {
    taken = take_packed_delta(decoder, rules, at, gap_ps, observer);
  } else {
    observer.untimed();
    return PackedStep::kept;
  }
  if (!taken) return PackedStep::dropped;
  decoder.pk_emitted_time[c] = decoder.pk_last_time[c];
  decoder.pk_has_emitted[c] = true;
  observer.tag(c);
  return PackedStep::emitted;
}

template <PayloadObserver Observer>
PackedStep take_packed_record(StreamDecoder& decoder, const PackedRules& rules, const PlacedRecord& at,
                              Observer& observer) {
  if (!is_active(rules.active, at.record.channel)) {
    observer.lock_lost(at.loss(LossReason::inactive_channel, rules.active));
    return PackedStep::dropped;
  }
  if (decoder.pk_sync_left > 0) {
    return take_sync_word(decoder, rules, at, observer) ? PackedStep::kept : PackedStep::dropped;
  }
  if (at.record.flag) {
    apply_flag_record(decoder, rules, at.record, observer);
    return PackedStep::kept;
  }
  return take_packed_data(decoder, rules, at, observer);
}

}  // namespace orvo::timing::detail
