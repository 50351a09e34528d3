#pragma once
// The level of a correlation histogram beside whatever stands out of it.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <vector>

#include "orvo/timing/correlation_bins.hpp"
#include "orvo/timing/poisson_statistics.hpp"

namespace orvo::timing {

/// The background in units of the pairs expected by chance: those of a bin are `level` times its expectation.
struct CorrelationBackground {
  double level = 1;
  double error = 0;
  bool measured = false;     ///< else too little of the view is free of structure, and `level` is 1
  std::vector<char> masked;  ///< per bin: structure, or so near to it that it is left out

  /// More than four standard deviations from what chance gives: rates that drift together, blinking, dead time, or
  /// wrong recording times.
  bool differs_from_chance() const { return measured && std::abs(level - 1) > 4 * error; }
};

namespace detail {

/// A first guess that structure over three fifths of the view does not move: the pooled rate of those groups of bins
/// whose rates lie closest together.
inline double rough_level(const CorrelationBins& bins) {
  constexpr std::size_t kFewestGroups = 8;
  const RunningSums counts(bins.counts);
  const RunningSums expected(bins.expected);
  const double total = counts.total();
  const double wanted = std::clamp(total / 10, 8.0, 40.0);
  const std::size_t groups = std::min(static_cast<std::size_t>(wanted), bins.size());
  const double plain = expected.total() > 0 ? total / expected.total() : 0;
  if (total < 40 || groups < kFewestGroups) return plain;
  struct Group {
    double rate, count, expected;
  };
  std::vector<Group> sorted;
  for (std::size_t i = 0; i < groups; ++i) {
    const std::size_t first = i * bins.size() / groups;
    const std::size_t length = (i + 1) * bins.size() / groups - first;
    const double by_chance = expected.of(first, length);
    if (by_chance > 0) sorted.push_back({counts.of(first, length) / by_chance, counts.of(first, length), by_chance});
  }
  if (sorted.size() < kFewestGroups) return plain;
  std::sort(sorted.begin(), sorted.end(), [](const Group& a, const Group& b) { return a.rate < b.rate; });
  const std::size_t closest = (2 * sorted.size() + 4) / 5;
  std::size_t best = 0;
  const auto spread = [&](std::size_t first) { return sorted[first + closest - 1].rate - sorted[first].rate; };
  for (std::size_t first = 1; first + closest <= sorted.size(); ++first) {
    if (spread(first) < spread(best)) best = first;
  }
  double count = 0;
  double by_chance = 0;
  for (std::size_t i = best; i < best + closest; ++i) {
    count += sorted[i].count;
    by_chance += sorted[i].expected;
  }
  return count / by_chance;
}

/// Whether a count is so far from its mean, either way, that its tail lies below e^ln_limit.
inline bool is_outlier(double count, double mean, double ln_limit) {
  if (std::abs(count - mean) <= 2.5 * std::sqrt(mean)) return false;  // most windows; 6 in 1000 at the least
  return (count > mean ? poisson_at_least(count, mean) : poisson_at_most(count, mean)).ln < ln_limit;
}

/// Windows of 1, 2, 4 ... bins that do not fit the level, what shorter windows took out being counted as empty. One
/// that were as long as the view would have to be as improbable as `chance`, shorter ones in proportion.
inline std::vector<char> structure_mask(const CorrelationBins& bins, double level, double chance) {
  std::vector<char> masked(bins.size());
  CorrelationBins left = bins;
  const auto n = static_cast<double>(bins.size());
  for (std::size_t length = 1; length <= bins.size() / 3; length *= 2) {
    const RunningSums counts(left.counts);
    const RunningSums expected(left.expected);
    const double ln_limit = std::log(chance * static_cast<double>(length) / n);
    std::size_t masked_to = 0;
    for (std::size_t first = 0; first + length <= bins.size(); ++first) {
      const double mean = level * expected.of(first, length);
      if (!is_outlier(counts.of(first, length), mean, ln_limit)) continue;
      for (std::size_t i = std::max(first, masked_to); i < first + length; ++i) masked[i] = 1;
      masked_to = first + length;
    }
    for (std::size_t i = 0; i < bins.size(); ++i) {
      if (masked[i] != 0) left.counts[i] = left.expected[i] = 0;
    }
  }
  return masked;
}

/// Each run of masked bins longer by a share of its length on both sides.
inline std::vector<char> widened(const std::vector<char>& masked, double share) {
  std::vector<char> wider(masked.size());
  for (std::size_t first = 0; first < masked.size(); ++first) {
    if (masked[first] == 0) continue;
    std::size_t end = first;
    while (end < masked.size() && masked[end] != 0) ++end;
    const auto more = static_cast<std::size_t>(std::ceil(share * static_cast<double>(end - first)));
    const std::size_t from = first - std::min(first, more);
    std::fill(wider.begin() + static_cast<std::ptrdiff_t>(from),
              wider.begin() + static_cast<std::ptrdiff_t>(std::min(end + more, masked.size())), char{1});
    first = end;
  }
  return wider;
}

inline double share_free(const std::vector<char>& masked) {
  return static_cast<double>(std::count(masked.begin(), masked.end(), 0)) / static_cast<double>(masked.size());
}

/// The level of the bins that are not masked, 0 with an infinite error where nothing is expected in them.
inline Estimate free_level(const CorrelationBins& bins, const std::vector<char>& masked) {
  double count = 0;
  double expected = 0;
  for (std::size_t i = 0; i < bins.size(); ++i) {
    if (masked[i] != 0) continue;
    count += bins.counts[i];
    expected += bins.expected[i];
  }
  if (!(expected > 0)) return {0, std::numeric_limits<double>::infinity()};
  return {count / expected, std::sqrt(std::max(count, 1.0)) / expected};
}

inline CorrelationBackground background_beside(const CorrelationBins& bins, double chance) {
  constexpr int kMostRounds = 20;
  constexpr double kEnough = 0.25;
  constexpr double kLeast = 0.1;
  CorrelationBackground background{1, 0, false, std::vector<char>(bins.size())};
  double expected = 0;
  for (const double pairs : bins.expected) expected += pairs;
  if (!(expected > 0)) return background;
  const double one_pair = 1 / expected;  // a level of 0 would make every pair structure
  double level = std::max(rough_level(bins), one_pair);
  for (int round = 0; round < kMostRounds; ++round) {
    const std::vector<char> core = structure_mask(bins, level, chance);
    double margin = 0.5;
    std::vector<char> masked = widened(core, margin);
    for (const double narrower : {0.25, 0.1, 0.0}) {
      if (share_free(masked) >= kEnough) break;
      masked = widened(core, margin = narrower);
    }
    const Estimate measured = free_level(bins, masked);
    const bool stays = round > 0 && masked == background.masked;
    background.masked = std::move(masked);
    background.measured = margin > kLeast && share_free(background.masked) >= kLeast && std::isfinite(measured.error);
    background.level = background.measured ? measured.value : 1;
    background.error = background.measured ? measured.error : 0;
    if (stays || !background.measured) break;
    level = std::max(measured.value, one_pair);
  }
  return background;
}

}  // namespace detail

/// The background as the histogram itself shows it: windows of all lengths up to a third of the view that do not fit
/// the level are left out, with their surroundings, until level and windows agree. Holds for structure whose base
/// fills up to a third of the view; the flanks of a wider one raise the level (full width at half maximum of a fourth
/// of the view: by 0.8 standard deviations). When its surroundings cannot be left out too, the level is 1 and not
/// `measured`: show ten widths of the peak.
inline CorrelationBackground correlation_background(const CorrelationBins& bins) {
  constexpr double kChance = 1e-4;
  const CorrelationBackground background = detail::background_beside(bins, kChance);
  if (background.measured) return background;
  // In one of a few hundred views chance lifts a third of the bins that far; hardly ever any farther.
  CorrelationBackground second = detail::background_beside(bins, kChance / 1000);
  return second.measured ? second : background;
}

}  // namespace orvo::timing
