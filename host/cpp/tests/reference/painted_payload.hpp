#pragma once
// Accounting of a payload as one would first do it: a colour for every byte (packed_delta: every bit), painted over
// whenever the decoder looks at it again, and a list of the losses with the places where they begin and end.
//
// Times are the reference decoders' business: each word or record in sync is given to one, on its own, and what it
// did with it tells the colour.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "orvo/timing/payload_loss.hpp"
#include "orvo/timing/payload_observer.hpp"
#include "reference/delta32.hpp"
#include "reference/header.hpp"
#include "reference/packed_alignment.hpp"
#include "reference/packed_delta.hpp"
#include "reference/raw64.hpp"
#include "reference/tag.hpp"
#include "support/as_reference.hpp"

namespace orvo::test::reference {

using timing::LossReason;
using timing::PayloadClass;
using timing::PayloadLoss;

class PaintedPayload {
 public:
  explicit PaintedPayload(const timing::StreamFileHeader& header)
      : header_(as_reference(header)), raw64_(header_), packed_(header_) {
    if (header_.delta_bits == 0) header_.delta_bits = 16;
  }

  /// One read. Returns its tags.
  Tags feed(std::span<const std::uint8_t> chunk) {
    payload_.insert(payload_.end(), chunk.begin(), chunk.end());
    paint.resize(payload_.size() * (packed() ? 8 : 1), PayloadClass::pending);
    Tags tags;
    if (header_.stream_format == Encoding::raw64) feed_raw64(tags);
    if (header_.stream_format == Encoding::delta32) feed_delta32(tags);
    if (packed()) feed_packed(tags);
    for (const Tag& tag : tags) ++tag_counts[static_cast<std::size_t>(tag.channel)];
    return tags;
  }

  /// The end of the payload.
  void finish() {
    const std::uint64_t total = paint.size();
    const std::uint64_t rest = total - at_;
    if (open_) {
      if (total != 0) losses.push_back({open_->first, open_->second, total - open_->second});
    } else if (packed() && rest < 8) {
      colour(at_, total, PayloadClass::padding);
    } else if (rest != 0) {
      losses.push_back({LossReason::cut, at_, rest});
    }
  }

  /// How much of the payload is of each class.
  std::array<std::uint64_t, timing::kPayloadClasses> sizes() const {
    std::array<std::uint64_t, timing::kPayloadClasses> all{};
    for (const PayloadClass what : paint) ++all[static_cast<std::size_t>(what)];
    return all;
  }

  std::vector<PayloadClass> paint;
  std::vector<PayloadLoss> losses;
  std::array<std::uint64_t, 4> tag_counts{};
  std::array<std::uint64_t, 4> wraps{};
  std::uint64_t breaks = 0;
  std::uint64_t unanchored = 0;

 private:
  std::uint8_t mask() const { return static_cast<std::uint8_t>(header_.channel_mask); }
  bool packed() const { return header_.stream_format == Encoding::packed_delta; }

  void colour(std::uint64_t from, std::uint64_t to, PayloadClass what) {
    for (std::uint64_t i = from; i < to; ++i) paint[i] = what;
  }
  /// The next `size` units, and on.
  void take(std::uint64_t size, PayloadClass what) {
    colour(at_, at_ + size, what);
    at_ += size;
  }
  void end_loss() {
    if (!open_) return;
    const std::uint64_t size = at_ > open_->second ? at_ - open_->second : 0;
    if (open_->first != LossReason::lead || size != 0) losses.push_back({open_->first, open_->second, size});
    open_.reset();
  }
  void break_off(LossReason reason) {
    open_ = {reason, at_};
    ++breaks;
  }

  void feed_raw64(Tags& tags) {
    while (payload_.size() - at_ >= 8) {
      Raw64Decoder lone(header_);
      const std::span<const std::uint8_t> word(payload_.data() + at_, 8);
      if (lone.feed(word).empty()) {
        if (!open_) open_ = {LossReason::foreign, at_};
        take(1, PayloadClass::skipped);
        continue;
      }
      end_loss();
      const auto epochs = raw64_.epoch;
      tags.push_back(raw64_.feed(word).front());
      if (raw64_.epoch != epochs) ++wraps[static_cast<std::size_t>(tags.back().channel)];
      take(8, PayloadClass::records);
    }
  }

  std::uint32_t word_at(std::uint64_t at) const {
    std::uint32_t word = 0;
    for (std::uint64_t i = 0; i < 4; ++i) word = word << 8 | payload_[at + i];
    return word;
  }

  void feed_delta32(Tags& tags) {
    const std::uint64_t held_from = at_;
    while (true) {
      if (!delta32_.synced) {
        std::uint64_t found = at_;
        while (found + 4 <= payload_.size() && word_at(found) != 0xEB5A55AA) ++found;
        if (found + 4 > payload_.size()) {
          const std::uint64_t kept = payload_.size() - std::min<std::uint64_t>(payload_.size() - held_from, 3);
          colour(std::min(at_, kept), kept, PayloadClass::searched);
          colour(kept, payload_.size(), PayloadClass::pending);
          at_ = kept;
          return;
        }
        take(found - at_, PayloadClass::searched);
        end_loss();
        delta32_.feed(std::span(payload_.data() + at_, 4));
        take(4, PayloadClass::sync_words);
      }
      if (payload_.size() - at_ < 4) return;
      delta32_word(tags);
    }
  }

  void delta32_word(Tags& tags) {
    const std::uint32_t word = word_at(at_);
    const std::uint32_t state = delta32_.frame_state;
    const bool based = delta32_.base_valid;
    const auto given = delta32_.feed(std::span(payload_.data() + at_, 4));
    const std::uint32_t control_kind = word >> 25 == (0x40u | 5)   ? 0
                                       : word >> 25 == (0x50u | 5) ? 1
                                       : word >> 25 == (0x60u | 5) ? 2
                                       : word >> 25 == (0x70u | 5) ? 3
                                                                   : 4;
    const bool short_payload = (word & 0x1FF0000) == 0;
    const bool event = word >> 31 == 0 && (word >> 25 & 15) == 10;
    if (!delta32_.synced) {
      delta32_.pending.clear();
      break_off(state == 1                                    ? LossReason::no_base_low
                : state == 2                                  ? LossReason::no_base_high
                : event                                       ? LossReason::event_not_later
                : control_kind == 0 && short_payload && based ? LossReason::extension_after_base
                : control_kind == 1                           ? LossReason::stray_base
                : control_kind == 2 && short_payload          ? LossReason::stray_base
                                                              : LossReason::unknown_word);
      adrift_ = {true, true, true, true};
      return take(4, PayloadClass::broken_words);
    }
    if (event && given.empty()) {
      losses.push_back({LossReason::no_time, at_, 4});
      return take(4, PayloadClass::events_without_time);
    }
    if (event) {
      const auto c = static_cast<std::size_t>(given.front().channel);
      if (based) adrift_[c] = false;
      if (adrift_[c]) ++unanchored;
      tags.push_back(given.front());
      return take(4, PayloadClass::events);
    }
    if (word == 0xEB5A55AA) return take(4, PayloadClass::sync_words);
    constexpr PayloadClass kControls[] = {PayloadClass::extensions, PayloadClass::time_bases,
                                          PayloadClass::time_bases, PayloadClass::markers};
    take(4, kControls[control_kind]);
  }

  void feed_packed(Tags& tags) {
    const std::uint64_t d = header_.delta_bits;
    if (d > 31) return;
    const std::uint64_t width = d + 3;
    if (!packed_.locked && !find_lock(d, width)) return;
    const std::uint64_t begin = at_;
    const std::uint64_t records = (paint.size() - at_) / width;
    const std::size_t losses_before = losses.size();
    const auto painted_before = paint;
    for (std::uint64_t k = 0; k < records; ++k) {
      if (packed_record(d, tags)) continue;
      return unlock();
    }
    if (!imbalanced(tags)) return;
    tags.clear();
    losses.resize(losses_before);
    paint = painted_before;
    at_ = begin;
    break_off(LossReason::imbalance);
    take(records * width, PayloadClass::discarded);
    forget_lock();
    unlock();
  }

  bool find_lock(std::uint64_t d, std::uint64_t width) {
    const std::span<const std::uint8_t> held = std::span(payload_).subspan(at_ / 8);
    const AlignmentAnswer answer = search_alignment({.channel_mask = mask(),
                                                     .internal = header_.mode == 0,
                                                     .delta_bits = static_cast<int>(d),
                                                     .width = static_cast<int>(width),
                                                     .bytes = held});
    if (!answer.found) {
      if (held.size() > 65'536) take(8 * (held.size() - 4096), PayloadClass::trimmed);
      return false;
    }
    take(8 * answer.drop_bytes + answer.bit_offset, PayloadClass::before_lock);
    end_loss();
    packed_.locked = true;
    return true;
  }

  /// The lock is gone: what was taken of a byte goes back.
  void unlock() {
    colour(at_ / 8 * 8, at_, PayloadClass::pending);
    at_ = at_ / 8 * 8;
  }
  void forget_lock() { packed_ = PackedDeltaDecoder(header_); }

  /// The record at the current bit, alone at the end of as many bytes as it needs. False when it costs the lock.
  bool packed_record(std::uint64_t d, Tags& tags) {
    const std::uint64_t width = d + 3;
    const std::uint64_t record = read_record(payload_, at_, width);
    const std::uint64_t bytes = (width + 7) / 8;
    std::vector<std::uint8_t> alone;
    for (std::uint64_t i = bytes; i > 0; --i) alone.push_back(static_cast<std::uint8_t>(record >> 8 * (i - 1)));
    const std::uint64_t channel = record >> (d + 1);
    const bool flag = (record >> d & 1) != 0;
    const std::uint64_t payload = record & ((std::uint64_t{1} << d) - 1);
    const bool in_sequence = packed_.sync_left > 0;
    const bool wrong_channel = static_cast<std::int64_t>(channel) != packed_.sync_channel;
    packed_.bit_offset = 8 * bytes - width;
    packed_.lines.clear();
    const auto given = packed_.feed(alone);
    if (!packed_.locked) {
      const std::string line = packed_.lines.back();
      break_off(!is_active(mask(), channel)                 ? LossReason::inactive_channel
                : in_sequence && wrong_channel              ? LossReason::sync_channel
                : in_sequence                               ? LossReason::sync_flag
                : line.starts_with("drop nonmonotonic")     ? LossReason::anchor_back
                : line.starts_with("drop implausible sync") ? LossReason::anchor_step
                                                            : LossReason::gap);
      take(width, PayloadClass::broken_records);
      forget_lock();
      return false;
    }
    if (in_sequence || (flag && payload == (std::uint64_t{1} << d) - 1)) {
      take(width, PayloadClass::sync);
    } else if (flag) {
      take(width, PayloadClass::overflow);
    } else if (given.empty()) {
      losses.push_back({LossReason::no_time, at_, width});
      take(width, PayloadClass::data_without_time);
    } else {
      tags.push_back(given.front());
      take(width, PayloadClass::data);
    }
    return true;
  }

  bool imbalanced(const Tags& tags) const {
    if (header_.mode != 0 || active_count(mask()) < 2) return false;
    if (tags.size() < 4096) return false;
    std::uint64_t least = tags.size();
    std::uint64_t most = 0;
    for (unsigned c = 0; c < 4; ++c) {
      if (!is_active(mask(), c)) continue;
      const auto count = static_cast<std::uint64_t>(std::count_if(
          tags.begin(), tags.end(), [c](const Tag& tag) { return tag.channel == static_cast<int>(c); }));
      least = std::min(least, count);
      most = std::max(most, count);
    }
    return least == 0 || 8 * least < most;
  }

  Header header_;
  Raw64Decoder raw64_;
  Delta32Decoder delta32_;
  PackedDeltaDecoder packed_;
  std::vector<std::uint8_t> payload_;
  std::uint64_t at_ = 0;  // where the decoder stands, in the payload's unit
  std::optional<std::pair<LossReason, std::uint64_t>> open_ = std::pair{LossReason::lead, std::uint64_t{0}};
  std::array<bool, 4> adrift_{};
};

}  // namespace orvo::test::reference
