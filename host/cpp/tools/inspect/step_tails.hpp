#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
// How surprising a channel's longest steps are, whatever the distribution of the others: tails of waiting times are
// exponential, and the 33 longest steps tell how steep this channel's is.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "inspect/channel_facts.hpp"

namespace {

/// Natural logarithm of 1e-8: what a chance must stay below to be told.
inline constexpr double kRareLog = -18.420680743952367;

/// Logarithm of the chance that an exponential variable exceeds `excess` times a scale estimated from `samples`.
inline double log_tail(double excess, double samples) {
  return -samples * std::log1p(excess / samples);
}

/// Mean overshoot of the steps after the `from` longest ones (0 to 31) over their next: the tail's scale, at least
/// half the channel's mean step.
inline double tail_scale(const ChannelFacts& channel, std::size_t from) {
  constexpr std::size_t kLast = LongestSteps::kKept - 1;
  const std::span<const LongStep> longest = channel.longest_ranked();
  double sum = 0;
  for (std::size_t j = from + 1; j <= kLast; ++j) {
    sum += static_cast<double>(j) * static_cast<double>(longest[j - 1].step_ps - longest[j].step_ps);
  }
  return std::max(channel.mean_ps() / 2, sum / static_cast<double>(kLast - from));
}

/// Steps far too long to be chance.
struct Pauses {
  std::size_t count = 0;  ///< the longest ranked steps
  double log_chance = 0;
};

/// None where the channel has too few steps to tell.
inline Pauses find_pauses(const ChannelFacts& channel) {
  constexpr std::size_t kMost = 8;
  const std::span<const LongStep> longest = channel.longest_ranked();
  Pauses pauses;
  if (longest.size() < LongestSteps::kKept) return pauses;
  for (std::size_t k = 1; k <= kMost; ++k) {
    const double scale = tail_scale(channel, k);
    if (scale <= 0 || static_cast<double>(longest[k - 1].step_ps) < 3 * channel.mean_ps()) continue;
    const double overshoot = static_cast<double>(longest[k - 1].step_ps - longest[k].step_ps);
    const double log_chance = log_tail(static_cast<double>(k) * overshoot / scale, 32.0 - static_cast<double>(k));
    if (log_chance < kRareLog) pauses = {k, log_chance};
  }
  return pauses;
}

/// Logarithm of the chance of a silence at the capture's start or end; nothing where it is no surprise.
inline std::optional<double> surprising_edge(const ChannelFacts& channel, std::uint64_t silence_ps) {
  const std::span<const LongStep> longest = channel.longest_ranked();
  if (longest.size() < LongestSteps::kKept || static_cast<double>(silence_ps) < 3 * channel.mean_ps()) return {};
  const double scale = tail_scale(channel, 0);
  if (scale <= 0 || silence_ps <= longest[0].step_ps) return {};
  const double log_chance = log_tail(static_cast<double>(silence_ps - longest[0].step_ps) / scale, 32);
  return log_chance < kRareLog ? std::optional(log_chance) : std::nullopt;
}

}  // namespace
