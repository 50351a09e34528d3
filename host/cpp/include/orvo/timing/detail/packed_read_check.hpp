#pragma once
#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>

#include "orvo/timing/detail/packed_alignment.hpp"
#include "orvo/timing/encoder_settings.hpp"
#include "orvo/timing/error.hpp"
#include "orvo/timing/stream_decoder.hpp"
#include "orvo/timing/stream_file_header.hpp"
#include "orvo/timing/time_tag.hpp"

namespace orvo::timing::detail {

/// Whether decoders will find the first record of a payload, and keep what they decode of it. They look for the start
/// in the first 64 KiB; in internal mode they discard reads of 1 MiB in which channels are very uneven.
class PackedReadCheck {
 public:
  explicit PackedReadCheck(const StreamFileHeader& header) : decoder_(header) {
    decoder_.header.stream_format = StreamFormat::packed_delta;
    active_ = active_channels(decoder_.header);
  }

  /// True when channels that are uneven cost their tags.
  bool watches_balance() const { return decoder_.header.mode == StreamMode::internal && std::popcount(active_) >= 2; }
  /// Bytes up to the end of the read that the stream's byte `position` is in.
  static std::uint64_t left_in_read(std::uint64_t position) { return kReadBytes - position % kReadBytes; }

  /// Records start at `first_bit`, and those that count at `first_tag_bit` or later.
  void begin(std::uint64_t first_bit, std::uint64_t first_tag_bit) {
    first_bit_ = first_bit;
    first_tag_bit_ = first_tag_bit;
  }

  /// The next bytes of the payload. Throws `Error` when they complete a start that decoders would not align.
  void add_bytes(std::span<const std::uint8_t> bytes) {
    if (start_done_) return;
    const std::size_t missing = kStartBytes - decoder_.pending_bytes.size();
    decoder_.pending_bytes.append(bytes.data(), std::min(bytes.size(), missing));
    if (bytes.size() >= missing) check_start();
  }

  /// The next tag, of which the last record ends before bit `end_bit`. Throws `Error` when the read before was
  /// uneven.
  void add_tag(const TimeTag& tag, std::uint64_t end_bit) {
    const std::uint64_t read = (end_bit - 1) / (8 * kReadBytes);
    if (read != read_) check_balance(tag.time_ps);
    read_ = read;
    ++counts_[tag.channel];
  }

  /// No bytes follow. Without tags there is nothing to find.
  void finish(bool has_tags, std::int64_t last_ps) {
    if (!start_done_ && has_tags) check_start();
    if (watches_balance()) check_balance(last_ps);
  }

 private:
  static constexpr std::uint64_t kReadBytes = std::uint64_t{1} << 20;
  /// What decoders try: trials start in the first 65 bytes.
  static constexpr std::size_t kStartBytes = kTrialBytes + 64;

  void check_start() {
    start_done_ = true;
    const auto width = static_cast<std::int32_t>(decoder_.header.delta_bits) + 3;
    const PackedAlignment start = decoder_.probe_packed_alignment(width - 3, width);
    decoder_.pending_bytes = {};
    const std::uint64_t bit = 8 * start.drop_bytes + start.bit_offset;
    const bool on_grid =
        (bit + static_cast<std::uint64_t>(width) - first_bit_) % static_cast<std::uint64_t>(width) == 0;
    if (start.found && on_grid && bit <= first_tag_bit_) return;
    throw Error(
        "decoders would not align this capture's first records: it takes at least two active "
        "channels that click within the first 64 KiB, in internal mode all of them and about "
        "equally often",
        kInvalidArgument);
  }

  void check_balance(std::int64_t time_ps) {
    const ChannelBalance balance = channel_balance(counts_, active_);
    if (is_imbalanced(balance)) {
      unsigned fewest = 0;
      for (unsigned c = 0; c < kChannels; ++c) {
        if (is_active(active_, c) && counts_[c] == balance.min) fewest = c;
      }
      refuse_tag("PackedDeltaEncoder", {static_cast<std::uint8_t>(fewest), time_ps},
                 "decoders of internal mode would discard the last 1 MiB, in which another channel has more than 8 "
                 "times the tags of this one");
    }
    counts_ = {};
  }
  static bool is_imbalanced(const ChannelBalance& balance) {
    return balance.total >= 4096 && (balance.min == 0 || 8 * balance.min < balance.max);
  }

  StreamDecoder decoder_;
  unsigned active_ = 0;
  bool start_done_ = false;
  std::uint64_t first_bit_ = 0;
  std::uint64_t first_tag_bit_ = 0;
  std::uint64_t read_ = 0;
  std::array<std::uint64_t, kChannels> counts_{};
};

}  // namespace orvo::timing::detail
