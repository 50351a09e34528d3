#pragma once
// The alignment search of packed records: every candidate is decoded from its own start, on its own, and the answer
// is then chosen from all of them in the order in which they were tried.
#include <algorithm>
#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace orvo::test::reference {

/// What is searched, and for which kind of stream.
struct AlignmentQuestion {
  std::uint8_t channel_mask = 0;  // as in the capture header
  bool internal = false;
  int delta_bits = 0;
  int width = 0;  // bits of one record
  std::span<const std::uint8_t> bytes;
};

/// One candidate: where its records start, and what decoding them gave since the last reset.
struct AlignmentTrial {
  std::uint64_t start_byte = 0;
  std::uint64_t bit_shift = 0;
  std::uint64_t skipped_records = 0;  // up to and including the record of the last reset
  std::uint64_t synced = 0;           // active channels that have an anchor
  std::uint64_t min = 0, max = 0, total = 0;
};

struct AlignmentAnswer {
  bool found = false;
  std::uint64_t drop_bytes = 0;
  std::uint64_t bit_offset = 0;
  std::string reject_line;         // the diagnostic line; empty when the search writes none
  AlignmentTrial chosen;           // the candidate behind the answer or the line
  std::uint64_t equal_trials = 0;  // later candidates that scored exactly as the chosen one
};

/// `width` bits (at most 34) from stream bit `position` on; bit 0 is the most significant bit of byte 0.
inline std::uint64_t read_record(std::span<const std::uint8_t> bytes, std::uint64_t position, std::uint64_t width) {
  const std::uint64_t last_bit = position + width - 1;
  std::uint64_t word = 0;
  for (std::uint64_t i = position / 8; i <= last_bit / 8; ++i) word = word << 8 | bytes[i];
  return word >> (7 - last_bit % 8) & ((std::uint64_t{1} << width) - 1);
}

inline unsigned active_channels(std::uint8_t channel_mask) {
  return channel_mask == 0 ? 0xFu : channel_mask & 0xFu;
}

inline bool is_active(std::uint8_t channel_mask, std::uint64_t channel) {
  return (active_channels(channel_mask) >> channel & 1u) != 0;
}

inline std::uint64_t active_count(std::uint8_t channel_mask) {
  std::uint64_t count = 0;
  for (std::uint64_t channel = 0; channel < 4; ++channel) count += is_active(channel_mask, channel) ? 1 : 0;
  return count;
}

/// What a trial knows; a reset forgets all of it.
struct TrialMemory {
  std::array<std::uint32_t, 4> count{};
  std::array<bool, 4> synced{};
  std::array<bool, 4> awaits_anchor{};
  std::uint32_t sequence_channel = 0;
  std::uint32_t sequence_left = 0;
};

/// Takes one record; false when it resets the trial.
inline bool take_record(const AlignmentQuestion& question, std::uint64_t record, TrialMemory& memory) {
  const auto d = static_cast<std::uint64_t>(question.delta_bits);
  const std::uint64_t all_ones = (std::uint64_t{1} << d) - 1;
  const auto channel = static_cast<std::uint32_t>(record >> (question.width - 2));
  const bool flag = (record >> d & 1) != 0;
  const bool starts_sequence = flag && (record & all_ones) == all_ones;

  if (!is_active(question.channel_mask, channel)) return false;
  if (memory.sequence_left > 0 && channel != memory.sequence_channel) return false;
  if (starts_sequence) {
    memory.sequence_channel = channel;
    memory.sequence_left = static_cast<std::uint32_t>((d + 40) / d);
    return true;
  }
  if (memory.sequence_left > 0) {
    if (flag) return false;
    memory.sequence_left -= 1;
    if (memory.sequence_left == 0) memory.awaits_anchor[channel] = true;
    return true;
  }
  if (flag) return true;
  if (memory.awaits_anchor[channel]) {
    memory.awaits_anchor[channel] = false;
    memory.synced[channel] = true;
  }
  if (memory.synced[channel]) memory.count[channel] += 1;
  return true;
}

inline void score(const AlignmentQuestion& question, const TrialMemory& memory, AlignmentTrial& trial) {
  trial.min = UINT64_MAX;
  for (std::uint64_t channel = 0; channel < 4; ++channel) {
    if (!is_active(question.channel_mask, channel)) continue;
    trial.synced += memory.synced[channel] ? 1 : 0;
    trial.min = std::min<std::uint64_t>(trial.min, memory.count[channel]);
    trial.max = std::max<std::uint64_t>(trial.max, memory.count[channel]);
    trial.total += memory.count[channel];
  }
}

/// The record that would start at each stream bit, as far as the bytes reach.
inline std::vector<std::uint64_t> records_by_bit(const AlignmentQuestion& question) {
  const auto w = static_cast<std::uint64_t>(question.width);
  std::vector<std::uint64_t> records;
  for (std::uint64_t bit = 0; bit + w <= 8 * std::min<std::uint64_t>(question.bytes.size(), 64 + 65536); ++bit) {
    records.push_back(read_record(question.bytes, bit, w));
  }
  return records;
}

/// Decodes the candidate's records; `start_byte` and `bit_shift` are set already.
inline void run_trial(const AlignmentQuestion& question, const std::vector<std::uint64_t>& record_at,
                      AlignmentTrial& trial) {
  const auto w = static_cast<std::uint64_t>(question.width);
  const std::uint64_t span_bits = 8 * std::min<std::uint64_t>(question.bytes.size() - trial.start_byte, 65536);
  const std::uint64_t records = (span_bits - trial.bit_shift) / w;
  TrialMemory memory;
  for (std::uint64_t k = 0; k < records; ++k) {
    if (take_record(question, record_at[8 * trial.start_byte + trial.bit_shift + k * w], memory)) continue;
    memory = TrialMemory{};
    trial.skipped_records = k + 1;
  }
  score(question, memory, trial);
}

/// All candidates, start byte by start byte, and within one bit shift by bit shift.
inline std::vector<AlignmentTrial> all_trials(const AlignmentQuestion& question) {
  const std::vector<std::uint64_t> record_at = records_by_bit(question);
  std::vector<AlignmentTrial> trials;
  const std::uint64_t start_limit = active_count(question.channel_mask) < 2 ? 16 : 64;
  const std::uint64_t last_start = std::min<std::uint64_t>(question.bytes.size() - 1, start_limit);
  for (std::uint64_t start = 0; start <= last_start; ++start) {
    const std::uint64_t span_bits = 8 * std::min<std::uint64_t>(question.bytes.size() - start, 65536);
    const std::uint64_t shifts = std::min(span_bits, static_cast<std::uint64_t>(question.width));
    for (std::uint64_t shift = 0; shift < shifts; ++shift) {
      AlignmentTrial trial{.start_byte = start, .bit_shift = shift};
      run_trial(question, record_at, trial);
      trials.push_back(trial);
    }
  }
  return trials;
}

inline bool more_synced_then_larger_total(const AlignmentTrial& a, const AlignmentTrial& b) {
  return a.synced != b.synced ? a.synced > b.synced : a.total > b.total;
}

inline bool more_synced_then_larger_min_then_larger_total(const AlignmentTrial& a, const AlignmentTrial& b) {
  if (a.synced != b.synced) return a.synced > b.synced;
  return a.min != b.min ? a.min > b.min : a.total > b.total;
}

inline bool same_score(const AlignmentTrial& a, const AlignmentTrial& b) {
  return a.synced == b.synced && a.min == b.min && a.max == b.max && a.total == b.total;
}

inline void answer_with(const AlignmentQuestion& question, const AlignmentTrial& trial, AlignmentAnswer& answer) {
  const std::uint64_t bit = trial.skipped_records * static_cast<std::uint64_t>(question.width) + trial.bit_shift;
  answer.drop_bytes = trial.start_byte + bit / 8;
  answer.bit_offset = bit % 8;
  answer.chosen = trial;
}

inline std::string reject_line(const AlignmentAnswer& answer, std::uint64_t active) {
  const auto text = [](std::uint64_t value) { return std::to_string(value); };
  const AlignmentTrial& trial = answer.chosen;
  return "reject internal alignment drop_bytes=" + text(answer.drop_bytes) +
         " bit_offset=" + text(answer.bit_offset) + " synced=" + text(trial.synced) + "/" + text(active) +
         " min=" + text(trial.min) + " max=" + text(trial.max) + " total=" + text(trial.total);
}

/// The best candidate of the bytes, or the diagnostic line of the best one that was too unbalanced.
inline AlignmentAnswer search_alignment(const AlignmentQuestion& question) {
  AlignmentAnswer answer;
  if (question.bytes.empty() || question.delta_bits < 1 || question.width < 1) return answer;
  const std::uint64_t active = active_count(question.channel_mask);
  const std::uint64_t required = question.internal ? active : active <= 1 ? 1 : 2;
  const bool balance_test = question.internal && active >= 2;

  const std::vector<AlignmentTrial> trials = all_trials(question);
  const AlignmentTrial* best = nullptr;
  const AlignmentTrial* rejected = nullptr;
  for (const AlignmentTrial& trial : trials) {
    if (trial.synced == 0 || trial.total == 0) continue;
    if (active < 2) {
      if (best == nullptr || more_synced_then_larger_total(trial, *best)) best = &trial;
      continue;
    }
    if (trial.synced < required) continue;
    if (balance_test && (trial.min == 0 || 2 * trial.min < trial.max)) {
      if (rejected == nullptr || more_synced_then_larger_total(trial, *rejected)) rejected = &trial;
      continue;
    }
    if (best == nullptr || more_synced_then_larger_min_then_larger_total(trial, *best)) best = &trial;
  }

  const AlignmentTrial* chosen = best != nullptr ? best : rejected;
  if (chosen == nullptr) return answer;
  answer_with(question, *chosen, answer);
  for (const AlignmentTrial& trial : trials) answer.equal_trials += same_score(trial, *chosen) ? 1 : 0;
  answer.equal_trials -= 1;
  answer.found = best != nullptr;
  if (!answer.found) {
    answer.reject_line = reject_line(answer, active);
    answer.drop_bytes = answer.bit_offset = 0;
  }
  return answer;
}

}  // namespace orvo::test::reference
