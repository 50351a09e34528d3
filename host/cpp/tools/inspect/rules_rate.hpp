#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
// Findings about how often channels click.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "inspect/finding.hpp"
#include "inspect/inspection.hpp"
#include "inspect/numbers.hpp"
#include "inspect/rules_time.hpp"
#include "inspect/slice_tests.hpp"
#include "inspect/step_tails.hpp"
#include "orvo/timing/time_tag.hpp"

namespace {

inline constexpr double kOneInAMillion = 14;  // -ln of a chance of 8e-7

using ChannelPauses = std::array<Pauses, orvo::timing::kChannels>;

inline void judge_presence(const Inspection& of, Findings& findings) {
  const unsigned mask = of.header().channel_mask;
  constexpr std::uint64_t kLongPs = 14'000'000'000'000;  // even at 1 Hz no chance
  if (mask == 0 || of.facts().tags() == 0) return;
  for (unsigned c = 0; c < orvo::timing::kChannels; ++c) {
    const std::uint64_t tags = of.facts().channels[c].tags();
    if ((mask >> c & 1) != 0 && tags == 0) {
      findings.push_back({of.facts().duration_ps() >= kLongPs ? Level::suspect : Level::note, "silent_channel", c,
                          "active by the mask, but without a tag: cable, threshold or mask"});
    }
    if ((mask >> c & 1) == 0 && tags != 0) {
      findings.push_back(
          {Level::suspect, "outside_mask", c,
           counted(tags, "tag") + " on a channel that is not in the mask: a wrong mask, or flipped bits"});
    }
  }
}

/// Whether all channels that click pause together, as when the link stands still.
inline bool pauses_are_common(const Inspection& of, const ChannelPauses& pauses) {
  std::int64_t latest_start = INT64_MIN;
  std::int64_t earliest_end = INT64_MAX;
  unsigned channels = 0;
  for (unsigned c = 0; c < orvo::timing::kChannels; ++c) {
    const ChannelFacts& channel = of.facts().channels[c];
    if (channel.tags() == 0) continue;
    if (pauses[c].count == 0) return false;
    const LongStep& longest = channel.longest_ranked().front();
    latest_start = std::max(latest_start, longest.start_ps);
    earliest_end = std::min(earliest_end, longest.start_ps + static_cast<std::int64_t>(longest.step_ps));
    ++channels;
  }
  return channels >= 2 && latest_start < earliest_end;
}

inline void judge_pauses(const Inspection& of, const ChannelPauses& pauses, Findings& findings) {
  const bool common = pauses_are_common(of, pauses);
  for (unsigned c = 0; c < orvo::timing::kChannels; ++c) {
    if (pauses[c].count == 0) continue;
    const ChannelFacts& channel = of.facts().channels[c];
    const LongStep& longest = channel.longest_ranked().front();
    findings.push_back(
        {Level::suspect, "pause", c,
         "no tag for " + for_people(longest.step_ps) + " from " + at_time(of, longest.start_ps) +
             ", at a mean distance of " + for_people(channel.mean_ps()) + " (chance " + chance(pauses[c].log_chance) +
             "); " + (pauses[c].count > 1 ? std::to_string(pauses[c].count) + " such pauses; " : "") +
             (common ? "all channels stop: link or device" : "this channel alone: detector or cable")});
  }
}

inline void judge_edges(const Inspection& of, Findings& findings) {
  const CaptureFacts& facts = of.facts();
  const bool lead = of.account().losses(orvo::timing::LossReason::lead).size + of.account().untimed_at_start() != 0;
  if (facts.order.jumps() != 0) return;
  for (unsigned c = 0; c < orvo::timing::kChannels; ++c) {
    const ChannelFacts& channel = facts.channels[c];
    if (channel.tags() == 0) continue;
    const std::uint64_t before =
        static_cast<std::uint64_t>(channel.first_ps()) - static_cast<std::uint64_t>(facts.first_ps());
    const std::uint64_t after =
        static_cast<std::uint64_t>(facts.last_ps()) - static_cast<std::uint64_t>(channel.last_ps());
    if (const auto log_chance = surprising_edge(channel, before); log_chance && !lead) {
      findings.push_back({Level::suspect, "starts_late", c,
                          "the first tag comes " + at_time(of, channel.first_ps()) + ", at a mean distance of " +
                              for_people(channel.mean_ps()) + " (chance " + chance(*log_chance) + ")"});
    }
    if (const auto log_chance = surprising_edge(channel, after)) {
      findings.push_back({Level::suspect, "falls_silent", c,
                          "no tag in the last " + for_people(after) + ", from " + at_time(of, channel.last_ps()) +
                              " on, at a mean distance of " + for_people(channel.mean_ps()) + " (chance " +
                              chance(*log_chance) + ")"});
    }
  }
}

/// Slices of the trace, counted from its first.
using Slices = std::vector<std::size_t>;

/// The whole slices between a channel's first and last tag, but for those that its pauses touch.
inline Slices whole_slices(const CaptureFacts& facts, unsigned c, const Pauses& pauses) {
  const ChannelFacts& channel = facts.channels[c];
  Slices slices;
  if (channel.tags() == 0) return slices;
  const std::span<const LongStep> paused = channel.longest_ranked().first(pauses.count);
  const std::size_t end = facts.trace.slice_of(channel.last_ps());
  for (std::size_t i = facts.trace.slice_of(channel.first_ps()) + 1; i < end; ++i) {
    const bool touched = std::any_of(paused.begin(), paused.end(), [&](const LongStep& pause) {
      return i >= facts.trace.slice_of(pause.start_ps) &&
             i <= facts.trace.slice_of(pause.start_ps + static_cast<std::int64_t>(pause.step_ps));
    });
    if (!touched) slices.push_back(i);
  }
  return slices;
}

inline std::string slice_time(const Inspection& of, std::size_t slice) {
  const RateTrace& trace = of.facts().trace;
  return at_time(
      of, std::max(of.facts().first_ps(), trace.start_ps() + static_cast<std::int64_t>(slice * trace.slice_ps())));
}

inline void judge_slices(const Inspection& of, unsigned c, const Pauses& pauses, Findings& findings) {
  const RateTrace& trace = of.facts().trace;
  const Slices slices = whole_slices(of.facts(), c, pauses);
  std::vector<std::uint64_t> counts;
  for (const std::size_t slice : slices) counts.push_back(trace.count(c, slice));
  constexpr std::size_t kMostToTell = 8;
  const auto level = [](const std::vector<Place>& places) {
    return places.size() <= kMostToTell ? Level::suspect : Level::note;
  };
  const auto strongest = [](const std::vector<Place>& places) {
    return *std::max_element(places.begin(), places.end(),
                             [](const Place& a, const Place& b) { return a.factor < b.factor; });
  };
  const auto times = [](double factor) {
    return std::isinf(factor) ? std::string("infinitely many") : ratio(factor);
  };
  const std::vector<Place> bursts = find_bursts(counts);
  if (!bursts.empty()) {
    const Place& place = strongest(bursts);
    findings.push_back({level(bursts), "burst", c,
                        times(place.factor) + " times the rate around it at " + slice_time(of, slices[place.at]) +
                            "; places: " + std::to_string(bursts.size())});
  }
  const std::vector<Place> steps = find_rate_steps(counts, bursts);
  if (steps.empty()) return;
  const Place& place = strongest(steps);
  const double per_second = 1e12 / static_cast<double>(trace.slice_ps());
  findings.push_back({level(steps), "rate_step", c,
                      "from " + text_of_rate_hz(place.before * per_second) + " to " +
                          text_of_rate_hz(place.after * per_second) + " at " + slice_time(of, slices[place.at]) +
                          "; places: " + std::to_string(steps.size()) + "; light or threshold changed"});
}

/// Steps between half and one and a half mean distances, no fewer than counted: whole bins.
inline std::uint64_t steps_near_mean(const ChannelFacts& channel) {
  std::uint64_t near = 0;
  for (std::size_t i = 0; i < kIntervalBins; ++i) {
    const auto low = static_cast<double>(kIntervalBinLows[i]);
    const double end = i + 1 < kIntervalBins ? static_cast<double>(kIntervalBinLows[i + 1]) : HUGE_VAL;
    if (low >= 0.5 * channel.mean_ps() && end - 1 <= 1.5 * channel.mean_ps()) near += channel.intervals()[i];
  }
  return near;
}

inline void judge_bunching(const Inspection& of, unsigned c, const Pauses& pauses, Findings& findings) {
  const ChannelFacts& channel = of.facts().channels[c];
  const auto n = static_cast<double>(channel.ranked());
  const bool has_longest = !channel.longest_ranked().empty() && channel.ranked_sum_ps() > 0;
  if (!has_longest || pauses.count != 0 || n < 2) return;
  const auto longest = static_cast<double>(channel.longest_ranked().front().step_ps);
  const double log_chance = std::log(n) + (n - 1) * std::log1p(-longest / channel.ranked_sum_ps());
  if (log_chance >= -kOneInAMillion) return;
  findings.push_back({Level::note, "bunched", c,
                      "the longest distance, " + for_people(longest) +
                          ", is too long for tags that come at random: blinking or drifting light"});
}

inline void judge_distribution(const Inspection& of, unsigned c, Findings& findings) {
  const ChannelFacts& channel = of.facts().channels[c];
  const auto n = static_cast<double>(channel.ranked());
  const double mean_ps = channel.mean_ps();
  if (channel.steps() >= 1000 && 100 * steps_near_mean(channel) >= 99 * channel.steps() &&
      static_cast<double>(channel.longest_ps()) > 1.5 * mean_ps) {
    findings.push_back({Level::note, "missing_ticks", c,
                        "periodic, but some distances are longer, up to " + for_people(channel.longest_ps()) +
                            " at " + for_people(mean_ps) + " in the mean: the trigger missed some"});
  }
  const bool strictly_forward = channel.equal_times() == 0 && channel.backward_steps() == 0;
  const auto shortest = static_cast<double>(channel.shortest_ps());
  if (!strictly_forward || channel.ranked() < 100 || shortest * n <= kOneInAMillion * mean_ps) return;
  const double busy = static_cast<double>(channel.tags()) * shortest / static_cast<double>(of.facts().duration_ps());
  std::string text = "no two tags closer than " + for_people(channel.shortest_ps()) + ": its dead time";
  if (busy <= 0.5) {
    const double rate = static_cast<double>(channel.tags()) / (static_cast<double>(of.facts().duration_ps()) * 1e-12);
    text += "; the true rate is about " + text_of_rate_hz(rate / (1 - busy));
  } else {
    text += ", more than half of the mean distance: near its limit, or periodic";
  }
  findings.push_back({Level::note, "dead_time", c, text});
}

/// Channels that share one limit press each other down: their sum varies less than they do.
inline void judge_shared_limit(const Inspection& of, Findings& findings) {
  const CaptureFacts& facts = of.facts();
  std::vector<unsigned> channels;
  std::size_t first = 0;
  std::size_t end = facts.trace.size();
  for (unsigned c = 0; c < orvo::timing::kChannels; ++c) {
    const ChannelFacts& channel = facts.channels[c];
    if (channel.tags() < 10 * facts.trace.size() || channel.tags() == 0) continue;
    channels.push_back(c);
    first = std::max(first, facts.trace.slice_of(channel.first_ps()) + 1);
    end = std::min(end, facts.trace.slice_of(channel.last_ps()));
  }
  constexpr std::size_t kFewestSlices = 256;
  if (channels.size() < 2 || end < first + kFewestSlices) return;
  const auto variance = [&](auto count_of) {
    double sum = 0;
    double squares = 0;
    const auto n = static_cast<double>(end - first);
    for (std::size_t i = first; i < end; ++i) sum += count_of(i);
    for (std::size_t i = first; i < end; ++i) squares += (count_of(i) - sum / n) * (count_of(i) - sum / n);
    return squares / n;
  };
  const auto count = [&](unsigned c, std::size_t i) { return static_cast<double>(facts.trace.count(c, i)); };
  double separate = 0;
  for (const unsigned c : channels) separate += variance([&](std::size_t i) { return count(c, i); });
  const double together = variance([&](std::size_t i) {
    double sum = 0;
    for (const unsigned c : channels) sum += count(c, i);
    return sum;
  });
  if (together >= separate / 2) return;
  findings.push_back(
      {Level::note,
       "shared_limit",
       {},
       "the channels' sum varies less than half as much as they do: together they fill a link or the device"});
}

inline void judge_balance(const Inspection& of, Findings& findings) {
  constexpr std::uint64_t kFewest = 4096;
  if (of.header().mode != orvo::timing::StreamMode::internal || of.facts().tags() < kFewest) return;
  std::uint64_t least = UINT64_MAX;
  std::uint64_t most = 0;
  for (unsigned c = 0; c < orvo::timing::kChannels; ++c) {
    if ((usual_mask(of) >> c & 1) == 0) continue;
    least = std::min(least, of.facts().channels[c].tags());
    most = std::max(most, of.facts().channels[c].tags());
  }
  if (most <= 2 * least) return;
  findings.push_back({of.is_packed() ? Level::suspect : Level::note,
                      "imbalance",
                      {},
                      "an internal recording whose channels have from " + std::to_string(least) + " to " +
                          counted(most, "tag") +
                          ": packed records are refused beyond 1 to 2 when they are searched, " +
                          "and beyond 1 to 8 when they are decoded"});
}

}  // namespace
