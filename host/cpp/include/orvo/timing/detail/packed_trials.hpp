#pragma once
// Trial decodes of packed records, many at once.
//
// A trial counts the data records of the channels whose sync sequence and anchor it has seen; a record that fits
// nowhere resets it to the record after. Trials that start at different records of the same grid read the same
// records, and
//
//   two trials in the same state at a record differ from there on only by what they had counted before.
//
// So a grid is walked once, with one `TrialGroup` for each state that occurs. A trial that has seen more is never
// behind in any channel, so the states form a chain and there are few; and what a reset makes equal stays one trial
// for good.
#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

#include "orvo/timing/detail/packed_record.hpp"
#include "orvo/timing/time_tag.hpp"

namespace orvo::timing::detail {

using TrialCounts = std::array<std::uint32_t, kChannels>;

/// A record as trials see it, in one byte:  3..2 kind | 1..0 channel
struct TrialSymbol {
  enum Kind : std::uint8_t { data, overflow, sync_start, inactive };
  std::uint8_t bits;

  constexpr Kind kind() const { return static_cast<Kind>(bits >> 2); }
  constexpr unsigned channel() const { return bits & 3u; }
  /// Nothing to a trial that has seen no sync sequence yet.
  constexpr bool uneventful() const { return bits <= (overflow << 2 | 3); }
};

constexpr TrialSymbol trial_symbol(TrialSymbol::Kind kind, unsigned channel) {
  return {static_cast<std::uint8_t>(static_cast<unsigned>(kind) << 2 | channel)};
}

/// How a trial went.
struct TrialScore {
  std::uint64_t start_record = 0;  ///< after its last reset
  unsigned synced = 0;             ///< mask of the channels that count
  TrialCounts counts{};

  unsigned synced_count() const { return static_cast<unsigned>(std::popcount(synced)); }
};

/// A trial reads the records [first, end) of its grid.
struct TrialSpan {
  std::size_t first;
  std::size_t end;
};

class TrialWalk {
 public:
  explicit TrialWalk(std::int32_t sync_words) : sync_words_(sync_words) {}

  /// Scores of the trials, which must come in ascending order of both their first and their end record.
  std::vector<TrialScore> run(std::span<const TrialSymbol> symbols, std::span<const TrialSpan> spans) {
    std::vector<TrialScore> scores;
    groups_.clear();
    trials_.clear();
    for (std::size_t at = spans.empty() ? 0 : spans.front().first; scores.size() < spans.size();) {
      while (trials_.size() < spans.size() && spans[trials_.size()].first == at) join(at);
      while (scores.size() < trials_.size() && spans[scores.size()].end == at) scores.push_back(score(scores.size()));
      if (scores.size() == spans.size()) break;
      std::size_t stop = spans[scores.size()].end;
      if (trials_.size() < spans.size()) stop = std::min(stop, spans[trials_.size()].first);
      for (; at < stop; ++at) {
        if (groups_.size() == 1 && groups_.front().is_clean()) {
          while (at < stop && symbols[at].uneventful()) ++at;
          if (at == stop) break;
        }
        step(symbols[at], at);
      }
    }
    return scores;
  }

 private:
  /// Trials in the same state.
  struct TrialGroup {
    unsigned synced = 0;       // mask of the channels whose data records count
    unsigned awaiting = 0;     // mask of the others whose next data record is their anchor
    bool in_sequence = false;  // inside the running sync sequence
    TrialCounts counts{};      // since the state was clean, for all trials of the group
    std::vector<std::size_t> trials;

    bool is_clean() const { return synced == 0 && awaiting == 0 && !in_sequence; }
    bool same_state(const TrialGroup& other) const {
      return synced == other.synced && awaiting == other.awaiting && in_sequence == other.in_sequence;
    }
  };
  struct Trial {
    std::size_t start;     // first record, or the one after the last reset
    std::size_t twin;      // the trial that it has become one with, or itself
    TrialCounts before{};  // counts of its group that it has no part in, modulo 2^32
  };

  void join(std::size_t at) {
    const std::size_t trial = trials_.size();
    trials_.push_back({at, trial});
    for (TrialGroup& group : groups_) {
      if (group.is_clean()) return group.trials.push_back(trial);
    }
    groups_.emplace_back().trials.push_back(trial);
  }

  void reset(TrialGroup& group, std::size_t next) {
    std::vector<std::size_t> trials = std::move(group.trials);  // noise resets all the time: its memory is used again
    const std::size_t first = trials.front();
    for (const std::size_t trial : trials) trials_[trial].twin = first;
    trials_[first] = {next, first};
    trials.resize(1);
    group = {.trials = std::move(trials)};
  }

  void step(TrialSymbol symbol, std::size_t at) {
    bool changed = false;
    switch (symbol.kind()) {
      case TrialSymbol::data:
        changed = step_data(symbol.channel(), at);
        break;
      case TrialSymbol::overflow:
        changed = reset_if(at, [](const TrialGroup& group) { return group.in_sequence; });
        break;
      case TrialSymbol::sync_start:
        changed = step_sync_start(symbol.channel(), at);
        break;
      case TrialSymbol::inactive:
        changed = reset_if(at, [](const TrialGroup&) { return true; });
        break;
    }
    if (changed && groups_.size() > 1) merge_equal_groups();
  }

  template <class Condition>
  bool reset_if(std::size_t at, Condition condition) {
    bool any = false;
    for (TrialGroup& group : groups_) {
      if (!condition(group)) continue;
      reset(group, at + 1);
      any = true;
    }
    return any;
  }

  bool step_sync_start(unsigned channel, std::size_t at) {
    for (TrialGroup& group : groups_) {
      if (group.in_sequence && channel != sequence_channel_) {
        reset(group, at + 1);
      } else {
        group.in_sequence = true;
      }
    }
    sequence_channel_ = channel;
    sequence_left_ = sync_words_;
    return true;
  }

  bool step_data(unsigned channel, std::size_t at) {
    const unsigned bit = 1u << channel;
    const bool sequence_ends = channel == sequence_channel_ && --sequence_left_ == 0;
    bool changed = false;
    for (TrialGroup& group : groups_) {
      if (!group.in_sequence) {
        if ((group.synced & bit) != 0) {
          ++group.counts[channel];
        } else if ((group.awaiting & bit) != 0) {
          group.awaiting &= ~bit;
          group.synced |= bit;
          ++group.counts[channel];
          changed = true;
        }
      } else if (channel != sequence_channel_) {
        reset(group, at + 1);
        changed = true;
      } else if (sequence_ends) {
        group.in_sequence = false;
        group.awaiting |= bit & ~group.synced;
        changed = true;
      }
    }
    return changed;
  }

  void merge_equal_groups() {
    for (std::size_t kept = 0; kept < groups_.size(); ++kept) {
      for (std::size_t other = groups_.size() - 1; other > kept; --other) {
        if (!groups_[kept].same_state(groups_[other])) continue;
        move_trials(groups_[other], groups_[kept]);
        groups_.erase(groups_.begin() + static_cast<std::ptrdiff_t>(other));
      }
    }
  }

  void move_trials(const TrialGroup& from, TrialGroup& to) {
    for (const std::size_t trial : from.trials) {
      for (unsigned c = 0; c < kChannels; ++c) trials_[trial].before[c] += to.counts[c] - from.counts[c];
      to.trials.push_back(trial);
    }
  }

  TrialScore score(std::size_t trial) const {
    while (trials_[trial].twin != trial) trial = trials_[trial].twin;
    const auto holds_trial = [trial](const TrialGroup& group) {
      return std::find(group.trials.begin(), group.trials.end(), trial) != group.trials.end();
    };
    const TrialGroup& group = *std::find_if(groups_.begin(), groups_.end(), holds_trial);
    TrialScore score{trials_[trial].start, group.synced, group.counts};
    for (unsigned c = 0; c < kChannels; ++c) score.counts[c] -= trials_[trial].before[c];
    return score;
  }

  std::int32_t sync_words_;
  std::vector<TrialGroup> groups_;
  std::vector<Trial> trials_;
  // The running sync sequence is the same for all groups inside one: a sync start puts every group inside, or resets
  // it.
  unsigned sequence_channel_ = 0;
  std::int32_t sequence_left_ = 0;
};

}  // namespace orvo::timing::detail
