#pragma once
#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "orvo/timing/byte_queue.hpp"
#include "orvo/timing/payload_observer.hpp"
#include "orvo/timing/stream_file_header.hpp"
#include "orvo/timing/tag_sink.hpp"
#include "orvo/timing/time_tag.hpp"

namespace orvo::timing {

/// Answer of the packed alignment search: where the records start.
struct PackedAlignment {
  bool found = false;
  std::uint64_t drop_bytes = 0;  ///< bytes to drop from the front
  std::uint64_t bit_offset = 0;  ///< 0 to 7, first record bit within the next byte

  friend bool operator==(const PackedAlignment&, const PackedAlignment&) = default;
};

/// Decodes one payload, piece by piece as it is read or received, in whichever encoding its header names, and holds
/// all state of doing so. Never throws on bad data: it skips, resynchronises or drops. Where a piece ends matters to
/// the encodings that search for their framing (delta32, packed_delta): to get a file's tags, feed it as it is read.
struct StreamDecoder {
  /// `delta_bits` and `quantum_ps` of 0 become 16 and 8.
  explicit StreamDecoder(const StreamFileHeader& capture_header);

  /// Decodes the next bytes of the payload, as many as came: the tags in stream order. What is left of a record that
  /// is not complete, and what searching may still need, stays pending for the next call.
  std::vector<TimeTag> feed(std::span<const std::uint8_t> bytes);
  /// The same into a sink. What the sink throws passes through.
  template <TagSink Sink>
  void feed(std::span<const std::uint8_t> bytes, Sink& sink);
  /// The same with an observer (see payload_observer.hpp), in place of the debug log.
  template <TagSink Sink, PayloadObserver Observer>
  void feed(std::span<const std::uint8_t> bytes, Sink& sink, Observer& observer);

  // One encoding, whatever the header says: decodes what was appended to `pending_bytes` since the last call.
  std::vector<TimeTag> feed_raw64();
  std::vector<TimeTag> feed_delta32();
  std::vector<TimeTag> feed_packed_delta();

  /// Moves `pending_bytes` and `bit_offset` on by `records` packed records of `header.delta_bits` + 3 bits.
  void consume_packed_records(std::uint64_t records);
  /// Forgets the packed alignment and with it every time: a channel yields tags again only after a new sync
  /// sequence.
  void drop_packed_lock();
  /// Searches the start of `pending_bytes` for the bit where records of `width` = `delta_bits` + 3 bits decode as a
  /// plausible stream. Finds nothing where there are no such records: `delta_bits` outside 1 to 31, a width below 1,
  /// no bytes. Changes nothing but the count of debug lines.
  PackedAlignment probe_packed_alignment(std::int32_t delta_bits, std::int32_t width);

  StreamFileHeader header;
  std::vector<std::int64_t> fine_table_ps;  ///< raw_cf: picoseconds from the event to the clock edge, per fine code
  ByteQueue pending_bytes;                  ///< read, not yet consumed
  std::uint64_t bit_offset = 0;             ///< packed: next record's first bit in pending_bytes; 0 to 7 when locked

  std::array<std::uint64_t, kChannels> raw64_prev{};  ///< last value seen, before unwrapping
  std::array<bool, kChannels> raw64_prev_valid{};
  std::array<std::uint64_t, kChannels> raw64_epoch{};  ///< sum of the wraps seen, in the unit of raw64_prev

  std::array<std::int64_t, kChannels> d32_last_time{};  ///< last emitted time, ps; survives loss of sync
  std::array<bool, kChannels> d32_has_time{};
  bool d32_synced = false;
  std::uint32_t d32_frame_state = 0;  ///< 0 = data words, 1 = expecting base low, 2 = expecting base high
  std::uint32_t d32_base_low = 0;
  std::uint64_t d32_base = 0;       ///< time base for the next event, 41 bits
  bool d32_base_valid = false;      ///< a base waits for its event
  std::uint64_t d32_extension = 0;  ///< units of 2^25 ps since the last event

  bool packed_locked = false;
  std::array<std::int64_t, kChannels> pk_last_time{};  ///< ps
  std::array<bool, kChannels> pk_has_time{};
  std::array<std::uint64_t, kChannels> pk_overflow{};    ///< units of 2^delta_bits quanta since the last data record
  std::array<std::uint64_t, kChannels> pk_last_delta{};  ///< last accepted difference, for whoever debugs
  std::array<std::int64_t, kChannels> pk_emitted_time{};
  std::array<bool, kChannels> pk_has_emitted{};
  std::int32_t pk_sync_left = 0;  ///< data records still due in the running sync sequence; 0 = none runs
  std::int32_t pk_sync_channel = 0;
  std::uint64_t pk_sync_value = 0;  ///< words so far, least significant first
  std::uint32_t pk_sync_bits = 0;
  std::int32_t pk_anchor_channel = -1;  ///< channel whose next data record is an anchor; -1 = none
  std::uint64_t pk_anchor_base = 0;     ///< ps
  std::uint64_t pk_debug_lines = 0;     ///< so far; survives everything
  std::uint64_t pk_debug_told = 0;      ///< the first so many are not written: another decoder told of the same bytes
  unsigned quantum_shift = 0;           ///< trailing zero bits of quantum_ps, 0 to 15
};

namespace detail {

/// Fine codes measure back from the clock edge in steps of 18.5 ps, rounded half up; codes past the coarse period
/// stop just short of it.
inline std::vector<std::int64_t> fine_time_table() {
  constexpr std::int64_t kFineCodes = 8192;
  constexpr std::int64_t kLongestPs = 3332;
  std::vector<std::int64_t> table(kFineCodes);
  for (std::int64_t code = 0; code < kFineCodes; ++code) {
    table[static_cast<std::size_t>(code)] = std::min((37 * code + 1) / 2, kLongestPs);
  }
  return table;
}

}  // namespace detail

inline StreamDecoder::StreamDecoder(const StreamFileHeader& capture_header)
    : header(capture_header), fine_table_ps(detail::fine_time_table()) {
  if (header.delta_bits == 0) header.delta_bits = 16;
  if (header.quantum_ps == 0) header.quantum_ps = 8;
  quantum_shift = static_cast<unsigned>(std::countr_zero(header.quantum_ps));
}

}  // namespace orvo::timing
