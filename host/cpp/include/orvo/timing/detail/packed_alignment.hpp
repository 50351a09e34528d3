#pragma once
// Finds the bit at which packed records start, by decoding from every start bit that may be it and comparing how well
// that goes. Up to 65 start bytes times `width` shifts are candidates. Those whose start bits agree modulo the width
// read the same records, so the records are read once for each of the `width` grids and its candidates tried
// together.
#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <vector>

#include "orvo/timing/detail/packed_debug_log.hpp"
#include "orvo/timing/detail/packed_record.hpp"
#include "orvo/timing/detail/packed_trials.hpp"
#include "orvo/timing/payload_observer.hpp"
#include "orvo/timing/stream_decoder_state.hpp"

namespace orvo::timing::detail {

template <class Count>
ChannelBalance channel_balance(const std::array<Count, kChannels>& counts, unsigned active) {
  ChannelBalance balance{std::numeric_limits<std::uint64_t>::max(), 0, 0};
  for (unsigned c = 0; c < kChannels; ++c) {
    if (!is_active(active, c)) continue;
    balance.min = std::min<std::uint64_t>(balance.min, counts[c]);
    balance.max = std::max<std::uint64_t>(balance.max, counts[c]);
    balance.total += counts[c];
  }
  return balance;
}

/// What a capture's header asks of an alignment.
struct AlignmentRules {
  AlignmentRules(const StreamFileHeader& header, PackedLayout record_layout)
      : layout(record_layout),
        active(active_channels(header)),
        active_count(static_cast<unsigned>(std::popcount(active))),
        internal(header.mode == StreamMode::internal) {}

  bool several_channels() const { return active_count >= 2; }
  bool needs_balance() const { return internal && several_channels(); }
  unsigned required_synced() const {
    if (internal) return active_count;
    return several_channels() ? 2 : 1;
  }
  std::size_t last_start_byte() const { return several_channels() ? 64 : 16; }

  PackedLayout layout;
  unsigned active;
  unsigned active_count;
  bool internal;
};

/// Bytes that a trial reads at the most.
inline constexpr std::size_t kTrialBytes = 65'536;

/// The records of the grid that starts at stream bit `grid` (below the width), as trials see them.
inline std::vector<TrialSymbol> grid_symbols(std::span<const std::uint8_t> bytes, std::uint64_t grid,
                                             const AlignmentRules& rules, std::size_t records) {
  std::array<TrialSymbol, 8> by_channel_and_flag{};
  for (unsigned top = 0; top < 8; ++top) {
    const unsigned channel = top >> 1;
    const auto active_kind = (top & 1) != 0 ? TrialSymbol::overflow : TrialSymbol::data;
    by_channel_and_flag[top] =
        trial_symbol(is_active(rules.active, channel) ? active_kind : TrialSymbol::inactive, channel);
  }
  const std::uint32_t width = rules.layout.width();
  const std::uint64_t flag_and_payload = (std::uint64_t{1} << (rules.layout.delta_bits + 1)) - 1;
  std::vector<TrialSymbol> symbols(records);
  std::uint64_t position = grid;
  for (TrialSymbol& symbol : symbols) {
    const std::uint64_t bits = bit_field(bytes.data(), bytes.size(), position, width);
    symbol = by_channel_and_flag[bits >> rules.layout.delta_bits];
    const bool sync_start = (bits & flag_and_payload) == flag_and_payload && symbol.kind() == TrialSymbol::overflow;
    if (sync_start) symbol = trial_symbol(TrialSymbol::sync_start, symbol.channel());
    position += width;
  }
  return symbols;
}

/// A candidate and how it went.
struct AlignmentTrial {
  std::uint64_t start_bit = 0;  ///< after its last reset
  unsigned synced_count = 0;    ///< 0 also for a candidate that does not exist
  ChannelBalance balance;

  PackedAlignment alignment() const { return {true, start_bit / 8, start_bit % 8}; }
};

/// The best of the candidates it was shown, which must outlive it; of equals, the one that came first.
class AlignmentChoice {
 public:
  explicit AlignmentChoice(const AlignmentRules& rules) : rules_(rules) {}

  void consider(const AlignmentTrial& trial) {
    if (trial.synced_count == 0 || trial.balance.total == 0) return;
    if (rules_.several_channels() && trial.synced_count < rules_.required_synced()) return;
    const bool balanced = trial.balance.min != 0 && 2 * trial.balance.min >= trial.balance.max;
    if (rules_.needs_balance() && !balanced) {
      if (rejected_ == nullptr || by_total(*rejected_) < by_total(trial)) rejected_ = &trial;
    } else if (best_ == nullptr || rank(*best_) < rank(trial)) {
      best_ = &trial;
    }
  }

  const AlignmentTrial* best() const { return best_; }
  /// The best of those that were good but for their balance.
  const AlignmentTrial* rejected() const { return rejected_; }

 private:
  using Rank = std::array<std::uint64_t, 3>;
  static Rank by_total(const AlignmentTrial& trial) { return {trial.synced_count, trial.balance.total, 0}; }
  Rank rank(const AlignmentTrial& trial) const {
    if (!rules_.several_channels()) return by_total(trial);
    return {trial.synced_count, trial.balance.min, trial.balance.total};
  }

  const AlignmentRules& rules_;
  const AlignmentTrial* best_ = nullptr;
  const AlignmentTrial* rejected_ = nullptr;
};

/// Every candidate's trial, start byte by start byte and shift by shift: `width` entries for each start byte.
inline std::vector<AlignmentTrial> alignment_trials(std::span<const std::uint8_t> bytes,
                                                    const AlignmentRules& rules) {
  const std::uint64_t width = rules.layout.width();
  const std::size_t start_bytes = std::min(bytes.size() - 1, rules.last_start_byte()) + 1;
  std::vector<AlignmentTrial> trials(start_bytes * width);
  TrialWalk walk(rules.layout.sync_words());
  for (std::uint64_t grid = 0; grid < width; ++grid) {
    std::vector<TrialSpan> spans;
    std::vector<AlignmentTrial*> owners;
    for (std::size_t s = 0; s < start_bytes; ++s) {
      const std::uint64_t first = 8 * s <= grid ? 0 : (8 * s - grid + width - 1) / width;
      const std::uint64_t shift = grid + first * width - 8 * s;
      const std::uint64_t span_bits = 8 * std::min(bytes.size() - s, kTrialBytes);
      if (shift >= std::min(span_bits, width)) continue;
      spans.push_back({first, first + (span_bits - shift) / width});
      owners.push_back(&trials[s * width + shift]);
    }
    if (spans.empty()) continue;
    const std::vector<TrialScore> scores = walk.run(grid_symbols(bytes, grid, rules, spans.back().end), spans);
    for (std::size_t i = 0; i < scores.size(); ++i) {
      *owners[i] = {grid + scores[i].start_record * width, scores[i].synced_count(),
                    channel_balance(scores[i].counts, rules.active)};
    }
  }
  return trials;
}

/// See StreamDecoder::probe_packed_alignment.
template <PayloadObserver Observer>
PackedAlignment probe_packed_alignment(const StreamDecoder& decoder, std::int32_t delta_bits, std::int32_t width,
                                       Observer& observer) {
  if (decoder.pending_bytes.empty() || delta_bits < 1 || delta_bits > 31 || width < 1) return {};
  const AlignmentRules rules(decoder.header, {static_cast<std::uint32_t>(delta_bits)});
  const std::vector<AlignmentTrial> trials = alignment_trials(decoder.pending_bytes.bytes(), rules);
  AlignmentChoice choice(rules);
  for (const AlignmentTrial& trial : trials) choice.consider(trial);
  if (choice.best() != nullptr) return choice.best()->alignment();
  if (const AlignmentTrial* const rejected = choice.rejected()) {
    const PackedAlignment at = rejected->alignment();
    observer.alignment_refused(
        {at.drop_bytes, at.bit_offset, rejected->synced_count, rules.active_count, rejected->balance});
  }
  return {};
}

}  // namespace orvo::timing::detail

namespace orvo::timing {

inline PackedAlignment StreamDecoder::probe_packed_alignment(std::int32_t delta_bits, std::int32_t width) {
  detail::PackedDebugLog log(*this);
  return detail::probe_packed_alignment(*this, delta_bits, width, log);
}

}  // namespace orvo::timing
