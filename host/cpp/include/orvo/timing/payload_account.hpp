#pragma once
// Accounting of a payload: every byte (packed_delta: every bit) that was read is in exactly one class at any moment.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "orvo/timing/payload_loss.hpp"
#include "orvo/timing/payload_observer.hpp"
#include "orvo/timing/stream_decoder_state.hpp"
#include "orvo/timing/stream_file_header.hpp"
#include "orvo/timing/time_tag.hpp"

namespace orvo::timing {

/// Losses of one reason.
struct LossTally {
  std::uint64_t count = 0;
  std::uint64_t size = 0;  ///< in the payload's unit

  friend bool operator==(const LossTally&, const LossTally&) = default;
};

/// What an account says beyond itself. Derive from it and hide what is wanted.
struct NoLossListener {
  /// A loss has ended; the tags after it are not yet told.
  void lost(const PayloadLoss&) {}
  /// After a loss of sync this channel's next tag is the first at its true time again.
  void true_again(unsigned /*channel*/) {}
};

/// An observer that accounts for a whole payload. Give it to every decoding call from the first, then call `finish`.
/// Sizes and positions are in the payload's unit.
template <class Listener = NoLossListener>
class PayloadAccount : public NoObserver {
 public:
  /// `header` as the decoder has it. The listener must outlive the account.
  PayloadAccount(const StreamFileHeader& header, Listener& listener)
      : format_(header.stream_format),
        tag_class_(tag_class(format_)),
        record_size_(record_size(header)),
        listener_(listener) {}

  /// 1 for bytes, 8 for the bits of a packed payload.
  std::uint64_t units_per_byte() const { return format_ == StreamFormat::packed_delta ? 8 : 1; }
  /// What is accounted for in a class, without what the decoder still holds.
  std::uint64_t size(PayloadClass what) const {
    const std::uint64_t counted = state_.sizes[static_cast<std::size_t>(what)];
    return what == tag_class_ ? counted + record_size_ * tags() : counted;
  }
  /// What the decoder holds.
  std::uint64_t pending(const StreamDecoder& decoder) const {
    return units_per_byte() * decoder.pending_bytes.size() - decoder.bit_offset - size(PayloadClass::padding);
  }
  /// Where the decoder stands: all classes but `pending` together.
  std::uint64_t position() const {
    std::uint64_t sum = record_size_ * tags();
    for (const std::uint64_t counted : state_.sizes) sum += counted;
    return sum;
  }

  std::uint64_t tags(unsigned channel) const { return state_.tags[channel]; }
  std::uint64_t tags() const { return state_.tags[0] + state_.tags[1] + state_.tags[2] + state_.tags[3]; }
  LossTally losses(LossReason reason) const { return state_.losses[static_cast<std::size_t>(reason)]; }
  /// Sync words and locks that ended a search, and those that were lost.
  std::uint64_t framings_won() const { return framings_won_; }
  std::uint64_t framings_lost(LossReason reason) const { return breaks_[static_cast<std::size_t>(reason)]; }
  std::uint64_t framings_lost() const {
    std::uint64_t sum = 0;
    for (const std::uint64_t count : breaks_) sum += count;
    return sum;
  }
  /// raw64: wraps of the device time on a channel.
  std::uint64_t wraps(unsigned channel) const { return wraps_[channel]; }
  /// delta32: tags that channels gave between a loss of sync and their next time base: early by what was lost.
  std::uint64_t unanchored() const {
    std::uint64_t sum = unanchored_;
    for (unsigned c = 0; c < kChannels; ++c) sum += adrift_[c] ? state_.tags[c] - adrift_since_[c] : 0;
    return sum;
  }
  /// packed_delta: records without a time before the first loss of lock belong to the start, in delta32 likewise.
  std::uint64_t untimed_at_start() const { return state_.untimed_at_start; }
  /// Losses that a sound capture does not have: without `lead`, `cut`, untimed records at the start, and what a
  /// packed decoder stumbles on in the padding of the last byte. Complete after `finish`.
  LossTally lost() const { return state_.lost; }
  /// Losses of sync or lock among these.
  std::uint64_t breaks_in_lost() const { return framings_lost() - (break_in_padding_ ? 1 : 0); }

  /// The payload has ended: open losses end, rests are told apart.
  void finish(const StreamDecoder& decoder);

  // What decoders tell, see payload_observer.hpp.
  void begin_chunk() { chunk_begin_ = state_; }
  void discard_chunk() { state_ = chunk_begin_; }
  void tag(unsigned channel) {
    ++state_.tags[channel];
    state_.tag_since_last = true;
  }
  void anchored(unsigned channel) {
    if (adrift_[channel]) end_drift(channel);
  }
  void untimed();
  void passed(PayloadClass what, std::uint64_t size);
  void returned(std::uint64_t size);
  void framed() {
    if (open_) end_loss(position());
  }
  void wrapped(unsigned channel) { ++wraps_[channel]; }
  void sync_lost(LossReason reason);
  void lock_lost(const PackedLockLoss& loss) { lose_framing(loss.reason); }
  void lock_imbalanced(const ChannelBalance&, std::uint64_t) { lose_framing(LossReason::imbalance); }
  void locked(std::uint64_t drop_bytes, std::uint64_t bit_offset, std::uint64_t) {
    passed(PayloadClass::before_lock, 8 * drop_bytes + bit_offset);
    framed();
  }

 private:
  struct Item {
    PayloadClass what = PayloadClass::pending;
    std::uint64_t size = 0;
  };
  // What a discarded chunk takes back. A chunk that breaks off is never discarded: breaks are not among it.
  struct State {
    std::array<std::uint64_t, kPayloadClasses> sizes{};  // without the tags
    std::array<std::uint64_t, kChannels> tags{};
    std::array<LossTally, kLossReasons> losses{};
    LossTally lost;
    std::uint64_t untimed_at_start = 0;
    std::optional<std::uint64_t> last_untimed_lost;  // its position
    Item last;                                       // the last item that was no tag
    bool tag_since_last = false;
    PayloadClass before_last = PayloadClass::pending;
  };

  static std::uint64_t record_size(const StreamFileHeader& header) {
    if (header.stream_format == StreamFormat::raw64) return 8;
    if (header.stream_format == StreamFormat::delta32) return 4;
    return (header.delta_bits == 0 ? 16u : header.delta_bits) + 3u;
  }
  static PayloadClass tag_class(StreamFormat format) {
    if (format == StreamFormat::raw64) return PayloadClass::records;
    return format == StreamFormat::delta32 ? PayloadClass::events : PayloadClass::data;
  }
  std::uint64_t& counted(PayloadClass what) { return state_.sizes[static_cast<std::size_t>(what)]; }

  void open_loss(LossReason reason) {
    open_ = true;
    open_reason_ = reason;
    open_position_ = position();
  }
  void lose_framing(LossReason reason) {
    ++breaks_[static_cast<std::size_t>(reason)];
    open_loss(reason);
  }
  void end_loss(std::uint64_t end);
  void take_from_lost(std::uint64_t size) {
    --state_.lost.count;
    state_.lost.size -= size;
  }
  void tell(const PayloadLoss& loss);
  void end_drift(unsigned channel) {
    unanchored_ += state_.tags[channel] - adrift_since_[channel];
    adrift_[channel] = false;
    listener_.true_again(channel);
  }

  StreamFormat format_;
  PayloadClass tag_class_;
  std::uint64_t record_size_;
  Listener& listener_;
  State state_;
  State chunk_begin_;

  bool open_ = true;  // a loss
  LossReason open_reason_ = LossReason::lead;
  std::uint64_t open_position_ = 0;

  std::uint64_t framings_won_ = 0;
  std::array<std::uint64_t, kLossReasons> breaks_{};
  std::array<std::uint64_t, kChannels> wraps_{};
  std::array<bool, kChannels> adrift_{};  // since a loss of sync, without a time base
  std::array<std::uint64_t, kChannels> adrift_since_{};
  std::uint64_t unanchored_ = 0;
  bool break_in_padding_ = false;
};

template <class Listener>
void PayloadAccount<Listener>::passed(PayloadClass what, std::uint64_t size) {
  if (size == 0) return;
  if (what == PayloadClass::skipped && !open_) open_loss(LossReason::foreign);
  state_.before_last = state_.tag_since_last ? tag_class_ : state_.last.what;
  state_.last = {what, size};
  state_.tag_since_last = false;
  counted(what) += size;
}

/// Of the last item, and what is more than it of the one before.
template <class Listener>
void PayloadAccount<Listener>::returned(std::uint64_t size) {
  const std::uint64_t of_last = std::min(size, state_.last.size);
  state_.last.size -= of_last;
  counted(state_.last.what) -= of_last;
  counted(state_.before_last) -= size - of_last;  // a count of tags may fall below zero here: sums are modular
}

template <class Listener>
void PayloadAccount<Listener>::untimed() {
  tell({LossReason::no_time, position(), record_size_});
  if (framings_lost() != 0) state_.last_untimed_lost = position();
  passed(format_ == StreamFormat::delta32 ? PayloadClass::events_without_time : PayloadClass::data_without_time,
         record_size_);
}

template <class Listener>
void PayloadAccount<Listener>::sync_lost(LossReason reason) {
  lose_framing(reason);
  for (unsigned c = 0; c < kChannels; ++c) {
    if (!adrift_[c]) adrift_since_[c] = state_.tags[c];
    adrift_[c] = true;
  }
}

/// Bits that a packed decoder takes up again may end a loss before it began.
template <class Listener>
void PayloadAccount<Listener>::end_loss(std::uint64_t end) {
  open_ = false;
  if (open_reason_ != LossReason::foreign) ++framings_won_;
  const std::uint64_t size = end > open_position_ ? end - open_position_ : 0;
  if (size != 0 || open_reason_ != LossReason::lead) tell({open_reason_, open_position_, size});
}

template <class Listener>
void PayloadAccount<Listener>::tell(const PayloadLoss& loss) {
  LossTally& tally = state_.losses[static_cast<std::size_t>(loss.reason)];
  ++tally.count;
  tally.size += loss.size;
  const bool at_start = loss.reason == LossReason::no_time && framings_lost() == 0;
  if (at_start) state_.untimed_at_start += loss.size;
  if (!at_start && loss.reason != LossReason::lead && loss.reason != LossReason::cut) {
    ++state_.lost.count;
    state_.lost.size += loss.size;
  }
  listener_.lost(loss);
}

template <class Listener>
void PayloadAccount<Listener>::finish(const StreamDecoder& decoder) {
  constexpr std::uint64_t kMostPadding = 7;
  const bool packed = format_ == StreamFormat::packed_delta;
  const std::uint64_t rest = pending(decoder);
  const std::uint64_t total = position() + rest;
  // Narrow records may still be read in the padding of the last byte.
  const auto in_padding = [&](std::uint64_t start) { return packed && start + kMostPadding >= total; };
  if (open_) {
    if (open_reason_ != LossReason::lead && in_padding(open_position_)) break_in_padding_ = true;
    open_ = false;
    if (total != 0) tell({open_reason_, open_position_, total - open_position_});
    if (break_in_padding_) take_from_lost(total - open_position_);
  } else if (packed && rest <= kMostPadding) {
    passed(PayloadClass::padding, rest);
  } else if (rest != 0) {
    tell({LossReason::cut, position(), rest});
  }
  if (state_.last_untimed_lost && in_padding(*state_.last_untimed_lost)) take_from_lost(record_size_);
}

}  // namespace orvo::timing
