#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
// Findings about the order and the values of times.
#include <time.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>

#include "inspect/finding.hpp"
#include "inspect/inspection.hpp"
#include "inspect/numbers.hpp"
#include "orvo/timing/detail/device_time.hpp"
#include "orvo/timing/time_tag.hpp"

namespace {

/// Channels that the header calls active; all when it names none.
inline unsigned usual_mask(const Inspection& of) {
  return of.header().channel_mask == 0 ? 15u : of.header().channel_mask;
}

/// A time of the capture, counted from its first tag.
inline std::string at_time(const Inspection& of, std::int64_t time_ps) {
  const std::uint64_t since = static_cast<std::uint64_t>(time_ps) - static_cast<std::uint64_t>(of.facts().first_ps());
  return for_people(since) + " after the first tag (" + std::to_string(time_ps) + " ps)";
}

/// The time of the tag before a jump, on a channel that is in place.
inline std::int64_t before_jump(const TimeJump& jump) {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(jump.time_ps) + jump.back_ps);
}

inline bool has_lost_lap(const Inspection& of) {
  for (unsigned c = 0; c < orvo::timing::kChannels; ++c) {
    if ((usual_mask(of) >> c & 1) != 0 && of.facts().order.lost_lap(c)) return true;
  }
  return false;
}

inline void judge_laps(const Inspection& of, Findings& findings) {
  for (unsigned c = 0; c < orvo::timing::kChannels; ++c) {
    const auto& lap = of.facts().order.lost_lap(c);
    if ((usual_mask(of) >> c & 1) == 0 || !lap) continue;
    const std::string quiet =
        lap->quiet_ps == 0 ? "heard for the first time" : "quiet for " + for_people(lap->quiet_ps);
    findings.push_back({Level::broken, "lap_lost", c,
                        quiet + ", is " + exact_seconds(static_cast<std::int64_t>(lap->jump.back_ps)) +
                            " early since " + at_time(of, before_jump(lap->jump)) +
                            ": whole device periods of 14.315125997568 s are missing from its times"});
  }
}

/// What a jump of this size looks like.
inline std::string jump_cause(std::uint64_t back_ps) {
  constexpr double kPeriod = static_cast<double>(orvo::timing::detail::kDevicePeriodPs);
  const auto size = static_cast<double>(back_ps);
  const double laps = std::round(size / kPeriod);
  if (laps >= 1 && std::abs(size - laps * kPeriod) <= 0.01 * laps * kPeriod) {
    return ", device periods: " + std::to_string(static_cast<std::uint64_t>(laps));
  }
  const double bit = std::round(std::log2(size));
  const double power = std::exp2(bit);
  if (std::abs(size - power) <= 0.01 * power) return ", bit " + std::to_string(static_cast<int>(bit)) + " flipped";
  return "";
}

/// Nothing; or how bad the jumps of the stream are.
inline std::optional<Level> jump_level(const Inspection& of) {
  if (has_lost_lap(of)) return std::nullopt;
  const CaptureFacts& facts = of.facts();
  std::uint64_t rarest = UINT64_MAX;
  unsigned channels = 0;
  bool flipped = false;
  for (unsigned c = 0; c < orvo::timing::kChannels; ++c) {
    const ChannelFacts& channel = facts.channels[c];
    if (channel.tags() == 0) continue;
    ++channels;
    // A channel outside the mask has a few tags because bits flipped: it is not the measure.
    if ((usual_mask(of) >> c & 1) != 0) rarest = std::min(rarest, channel.tags());
    flipped = flipped || (channel.period_in_two_steps() && channel.steps() >= 34);
  }
  const std::uint64_t jumps = channels >= 2 ? facts.order.jumps() : 0;
  if (flipped || (jumps != 0 && 100 * jumps >= rarest)) return Level::broken;
  if (jumps != 0) return Level::suspect;
  return std::nullopt;
}

inline void judge_jumps(const Inspection& of, Findings& findings) {
  const std::optional<Level> level = jump_level(of);
  if (!level) return;
  const StreamOrder& order = of.facts().order;
  bool told = false;
  for (unsigned c = 0; c < orvo::timing::kChannels; ++c) {
    const ChannelFacts& channel = of.facts().channels[c];
    const bool flipped = channel.period_in_two_steps() && channel.steps() >= 34;
    const auto& jump = order.first_jump(c);
    if (!jump && !flipped) continue;
    std::string text;
    if (jump) {
      text = "out of place first at " + at_time(of, jump->time_ps) + ", by " + for_people(jump->back_ps) +
             jump_cause(jump->back_ps);
    }
    if (flipped) {
      text += (jump ? "; " : "") +
              std::string("two steps in a row make a device period: bit 43 of one time flipped, and ") +
              "all later times of the channel are a period late";
    }
    findings.push_back(
        {*level, "time_jump", c, text + "; jumps in the whole stream: " + std::to_string(order.jumps())});
    told = true;
  }
  if (!told) findings.push_back({*level, "time_jump", {}, "times jump back"});
}

inline void judge_steps(const Inspection& of, unsigned c, Findings& findings) {
  const ChannelFacts& channel = of.facts().channels[c];
  constexpr std::uint64_t kLongBackPs = 1'000'000;
  if (channel.backward_steps() != 0) {
    const bool large = channel.largest_backward_step_ps() > kLongBackPs;
    findings.push_back({large ? Level::suspect : Level::note, "backward_steps", c,
                        counted(channel.backward_steps(), "tag") + " earlier than the one before, by up to " +
                            for_people(channel.largest_backward_step_ps()) +
                            ": what relies on order must sort these times"});
  }
  constexpr std::uint64_t kFewestFrozen = 64;
  if (channel.steps() >= kFewestFrozen && channel.equal_times() == channel.steps()) {
    findings.push_back({Level::suspect, "frozen_time", c,
                        "all " + counted(channel.tags(), "tag") + " have the same time: the clock stands still"});
  }
  const std::uint64_t expected_grid =
      of.is_packed() ? std::uint64_t{1} << std::countr_zero(of.decoded_header().quantum_ps) : 1;
  const bool one_step = channel.backward_steps() == 0 && channel.shortest_ps() == channel.longest_ps();
  constexpr std::uint64_t kFewestForGrid = 32;
  if (channel.steps() >= kFewestForGrid && channel.grid_ps() > expected_grid && !one_step) {
    findings.push_back({Level::note, "coarse_grid", c,
                        "all steps are multiples of " + std::to_string(channel.grid_ps()) +
                            " ps: histogram bins should be multiples of it too"});
  }
}

inline void judge_duplicates(const Inspection& of, Findings& findings) {
  const RepeatedPieces& pieces = of.facts().pieces;
  if (pieces.found() == 0) return;
  findings.push_back({Level::suspect,
                      "duplicated",
                      {},
                      "at least " + counted(pieces.tags(), "tag") + " come again as they came before (" +
                          counted(pieces.found(), "piece") + "): a buffer was written twice"});
}

/// Seconds since 1970 of a header's creation time: 2025-03-07T09:05:01, whatever follows.
inline std::optional<std::int64_t> created_s(const std::string& text) {
  std::tm date{};
  char after = '\0';
  const int fields = std::sscanf(text.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d%c", &date.tm_year, &date.tm_mon,
                                 &date.tm_mday, &date.tm_hour, &date.tm_min, &date.tm_sec, &after);
  if (fields < 6 || date.tm_mon < 1 || date.tm_mon > 12 || date.tm_year < 1970) return std::nullopt;
  date.tm_year -= 1900;
  date.tm_mon -= 1;
  return static_cast<std::int64_t>(::timegm(&date));
}

inline void judge_dates(const Inspection& of, Findings& findings) {
  const auto created = created_s(of.header().created_utc);
  const auto modified = of.input().modified_s();
  constexpr std::int64_t kDay = 86'400;
  if (!created || !modified || of.facts().tags() == 0 || *modified <= *created || *modified - *created > kDay) return;
  const auto between_s = static_cast<double>(*modified - *created);
  const double duration_s = static_cast<double>(of.facts().duration_ps()) * 1e-12;
  if (between_s <= duration_s + 10 || between_s <= 2 * duration_s) return;
  findings.push_back({Level::note,
                      "shorter_than_dates",
                      {},
                      "the tags span " + for_people(of.facts().duration_ps()) + ", but the file was written to for " +
                          for_people(between_s * 1e12) + ": tags stopped early, or device periods were lost"});
}

}  // namespace
