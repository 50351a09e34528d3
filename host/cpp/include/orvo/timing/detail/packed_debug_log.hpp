#pragma once
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <sstream>

#include "orvo/timing/payload_observer.hpp"
#include "orvo/timing/stream_decoder_state.hpp"

namespace orvo::timing::detail {

inline constexpr std::uint64_t kMostPackedDebugLines = 200;

/// The observer that tells on standard error why packed data was dropped, when ORVO_PACKED_DEBUG is set: one line
/// each, at most 200 of them per decoder. Numbers are written in decimal.
class PackedDebugLog : public NoObserver {
 public:
  explicit PackedDebugLog(StreamDecoder& decoder) : decoder_(decoder) {}

  void locked(std::uint64_t drop_bytes, std::uint64_t bit_offset, std::uint64_t bytes) {
    write("locked bits=", bits(), " drop_bytes=", drop_bytes, " bit_offset=", bit_offset, " raw_bytes=", bytes);
  }
  void search_failed(std::uint64_t bytes) {
    write("no alignment bits=", bits(), " width=", bits() + 3, " raw_bytes=", bytes);
  }
  void alignment_refused(const RefusedAlignment& at) {
    write("reject internal alignment drop_bytes=", at.drop_bytes, " bit_offset=", at.bit_offset,
          " synced=", at.synced_channels, "/", at.active_channels, " min=", at.balance.min, " max=", at.balance.max,
          " total=", at.balance.total);
  }
  void lock_imbalanced(const ChannelBalance& balance, std::uint64_t records) {
    write("drop internal imbalanced lock min=", balance.min, " max=", balance.max, " total=", balance.total,
          " records=", records);
  }
  void lock_lost(const PackedLockLoss& loss);

 private:
  unsigned bits() const { return decoder_.header.delta_bits; }

  template <class... Parts>
  void write(const Parts&... parts) {
    if (decoder_.pk_debug_lines >= kMostPackedDebugLines || std::getenv("ORVO_PACKED_DEBUG") == nullptr) return;
    if (++decoder_.pk_debug_lines <= decoder_.pk_debug_told) return;
    std::ostringstream line;
    line << "packed-decoder: ";
    (line << ... << parts);
    line << '\n';
    std::cerr << line.str();
  }

  StreamDecoder& decoder_;
};

inline void PackedDebugLog::lock_lost(const PackedLockLoss& loss) {
  switch (loss.reason) {
    case LossReason::inactive_channel:
      return write("drop inactive ch=", loss.channel, " active_mask=0x", "0123456789abcdef"[loss.active_mask & 15],
                   " record=", loss.record, " records=", loss.records);
    case LossReason::sync_channel:
      return write("drop sync channel mismatch ch=", loss.channel, " expected=", decoder_.pk_sync_channel,
                   " record=", loss.record, " chunks_left=", decoder_.pk_sync_left);
    case LossReason::sync_flag:
      return write("drop ovf in sync ch=", loss.channel, " record=", loss.record,
                   " chunks_left=", decoder_.pk_sync_left);
    case LossReason::anchor_back:
      return write("drop nonmonotonic sync ch=", loss.channel, " next=", loss.next_ps, " prev=", loss.prev_ps,
                   " record=", loss.record);
    case LossReason::anchor_step:
      return write("drop implausible sync delta ch=", loss.channel, " delta=", loss.delta_ps, " next=", loss.next_ps,
                   " prev=", loss.prev_ps, " record=", loss.record);
    default:
      return write("drop implausible delta ch=", loss.channel, " delta=", loss.delta_ps, " prev=", loss.prev_ps,
                   " record=", loss.record);
  }
}

}  // namespace orvo::timing::detail
