#pragma once
#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "orvo/timing/version.hpp"

namespace orvo::timing {

/// Why a stretch of a payload gave no tags.
enum class LossReason : std::uint8_t {
  lead,     ///< before the first record, sync word or lock
  cut,      ///< part of a record at the end
  no_time,  ///< delta32, packed_delta: a record on a channel that has no time yet
  foreign,  ///< raw64: bytes between records
  // delta32: the word that cost the sync
  no_base_low,           ///< after a sync word, no first half of a time base
  no_base_high,          ///< after the first half, no second one
  extension_after_base,  ///< an extension between a time base and its event
  stray_base,            ///< half a time base in no place for one
  event_not_later,       ///< an event that its time base puts no later than the one before
  unknown_word,          ///< a word of no kind
  // packed_delta: the record that cost the lock
  inactive_channel,  ///< on a channel outside the mask
  sync_channel,      ///< inside a sync sequence, on another channel
  sync_flag,         ///< inside a sync sequence, with a flag
  anchor_back,       ///< an anchor far before its channel's last tag
  anchor_step,       ///< an anchor implausibly far from its channel's last tag, or on it
  gap,               ///< an implausible difference
  imbalance,         ///< a whole call whose tags spread too unevenly over the channels
};

inline constexpr std::size_t kLossReasons = 17;

/// The reason's name, as reports spell it.
constexpr std::string_view to_text(LossReason reason) {
  constexpr std::array<std::string_view, kLossReasons> kNames = {"lead",
                                                                 "cut",
                                                                 "no_time",
                                                                 "foreign",
                                                                 "no_base_low",
                                                                 "no_base_high",
                                                                 "extension_after_base",
                                                                 "stray_base",
                                                                 "event_not_later",
                                                                 "unknown_word",
                                                                 "inactive_channel",
                                                                 "sync_channel",
                                                                 "sync_flag",
                                                                 "anchor_back",
                                                                 "anchor_step",
                                                                 "gap",
                                                                 "imbalance"};
  return kNames[static_cast<std::size_t>(reason)];
}

/// A stretch of a payload that gave no tags, in the payload's unit: bytes, for packed_delta bits.
struct PayloadLoss {
  LossReason reason = LossReason::lead;
  std::uint64_t position = 0;  ///< from the start of the payload
  std::uint64_t size = 0;

  friend bool operator==(const PayloadLoss&, const PayloadLoss&) = default;
};

}  // namespace orvo::timing
