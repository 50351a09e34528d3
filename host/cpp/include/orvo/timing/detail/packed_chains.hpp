#pragma once
// packed_delta: the channels of a locked stream while their differences only add up.
#include <algorithm>
#include <array>
#include <cstdint>

#include "orvo/timing/detail/device_time.hpp"
#include "orvo/timing/detail/packed_rules.hpp"
#include "orvo/timing/stream_decoder_state.hpp"
#include "orvo/timing/time_tag.hpp"

namespace orvo::timing::detail {

/// Tags per channel of one call. Those of chains count in internal recordings only: no other lock is judged.
using ChannelCounts = std::array<std::uint64_t, kChannels>;

/// What a run of overflow records, and of differences that are no step back, have no wrap step in them and are not
/// implausible, needs to know of its channels. What returns false changes nothing, and the record is not of such a
/// run. To be kept in a local variable: a store through a sink could change any number that a reference names, for
/// all the compiler knows.
class PackedChains {
 public:
  PackedChains(const StreamDecoder& decoder, const PackedRules& rules)
      : rules_(rules), last_ps_(decoder.pk_last_time), overflow_(decoder.pk_overflow) {
    last_gap_ps_.fill(kNoGap);
    for (unsigned c = 0; c < kChannels; ++c) {
      const bool chains = is_active(rules.active, c) && decoder.pk_has_time[c] &&
                          decoder.pk_anchor_channel != static_cast<std::int32_t>(c);
      limit_ps_[c] = chains ? std::min({rules.modulus / 2, rules.wrap_step, kImplausiblePs}) : 0;
      set_limit_at_once(c);
    }
  }

  /// A data record.
  bool take_data(unsigned channel, std::uint32_t payload) {
    return step(channel, packed_gap_ps(rules_, 0, payload)) ||
           step_from_waiting(channel, packed_gap_ps(rules_, overflow_[channel], payload));
  }
  /// A data record right after an overflow record of its channel. False also if other overflow records wait.
  bool take_pair(unsigned channel, std::uint32_t overflow, std::uint32_t payload) {
    return step(channel, packed_gap_ps(rules_, overflow, payload));
  }
  /// An overflow record that waits for its data record.
  bool take_overflow(unsigned channel, std::uint32_t overflow) {
    if (limit_ps_[channel] == 0) return false;
    overflow_[channel] += overflow;
    set_limit_at_once(channel);
    return true;
  }
  /// Of the channel's last tag.
  std::int64_t time_ps(unsigned channel) const { return last_ps_[channel]; }

  /// The run has ended: what it changed.
  void end(StreamDecoder& decoder, ChannelCounts& emitted) const {
    decoder.pk_overflow = overflow_;
    for (unsigned c = 0; c < kChannels; ++c) {
      if (last_gap_ps_[c] == kNoGap) continue;
      emitted[c] += tags_[c];
      decoder.pk_last_delta[c] = last_gap_ps_[c];
      decoder.pk_last_time[c] = decoder.pk_emitted_time[c] = last_ps_[c];
      decoder.pk_has_emitted[c] = true;
    }
  }

 private:
  static constexpr std::uint64_t kNoGap = UINT64_MAX;  // none is as long

  void set_limit_at_once(unsigned channel) {
    limit_at_once_ps_[channel] = overflow_[channel] == 0 ? limit_ps_[channel] : 0;
  }
  /// With one comparison for everything that could be in the way.
  bool step(unsigned channel, std::uint64_t gap_ps) {
    if (gap_ps >= limit_at_once_ps_[channel]) return false;
    last_ps_[channel] = add_wrapping(last_ps_[channel], gap_ps);
    last_gap_ps_[channel] = gap_ps;
    if (rules_.internal) ++tags_[channel];
    return true;
  }
  bool step_from_waiting(unsigned channel, std::uint64_t gap_ps) {
    if (gap_ps >= limit_ps_[channel]) return false;
    overflow_[channel] = 0;
    limit_at_once_ps_[channel] = limit_ps_[channel];
    return step(channel, gap_ps);
  }

  PackedRules rules_;
  std::array<std::uint64_t, kChannels> limit_ps_{};          // shorter differences only add up: none where 0
  std::array<std::uint64_t, kChannels> limit_at_once_ps_{};  // the same, and 0 while overflow records wait
  std::array<std::int64_t, kChannels> last_ps_;
  std::array<std::uint64_t, kChannels> overflow_;
  std::array<std::uint64_t, kChannels> last_gap_ps_;
  ChannelCounts tags_{};
};

}  // namespace orvo::timing::detail
