#pragma once
// Which bins of a correlation histogram hold the pairs of a peak.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

#include "orvo/timing/correlation_background.hpp"
#include "orvo/timing/correlation_bins.hpp"
#include "orvo/timing/correlation_significance.hpp"

namespace orvo::timing::detail {

/// Bins `first` up to but without `end`.
struct BinRun {
  std::size_t first = 0;
  std::size_t end = 0;

  std::size_t size() const { return end - first; }
};

/// Of windows somewhat shorter, longer, earlier and later than the most significant one the likeliest.
inline BinRun best_run(const CorrelationBins& bins, double level, CorrelationSide side, BinRun start) {
  const RunningSums counts(bins.counts);
  const RunningSums expected(bins.expected);
  const std::size_t length = start.size();
  BinRun best = start;
  double highest = -1;
  for (const double factor : {0.5, 0.7, 1.0, 1.4, 2.0}) {
    const auto wanted = static_cast<std::size_t>(std::lround(factor * static_cast<double>(length)));
    const std::size_t width = std::clamp<std::size_t>(wanted, 1, bins.size());
    const std::size_t last = std::min(start.first + length, bins.size() - width);
    for (std::size_t first = start.first - std::min(start.first, length); first <= last; ++first) {
      const double count = counts.of(first, width);
      const double mean = level * expected.of(first, width);
      if (!(mean > 0) || (count > mean) != (side == CorrelationSide::peak)) continue;
      const double likelihood = (count > 0 ? count * std::log(count / mean) : 0) - (count - mean);
      if (likelihood > highest) {
        highest = likelihood;
        best = {first, first + width};
      }
    }
  }
  return best;
}

/// The bins whose middle lies within `reach` of a place, at least the nearest one.
inline BinRun run_about(std::size_t bins, double place, double reach) {
  const auto last = static_cast<double>(bins - 1);
  const double first = std::clamp(std::ceil(place - reach), 0.0, last);
  const double end = std::clamp(std::floor(place + reach), 0.0, last);
  const auto nearest = static_cast<std::size_t>(std::lround(std::clamp(place, 0.0, last)));
  if (end < first) return {nearest, nearest + 1};
  return {static_cast<std::size_t>(first), static_cast<std::size_t>(end) + 1};
}

/// The runs of masked bins that a run touches.
inline std::vector<char> masked_runs_at(const std::vector<char>& masked, BinRun run) {
  std::vector<char> touched(masked.size());
  for (std::size_t i = run.first; i < run.end; ++i) touched[i] = masked[i];
  for (std::size_t i = run.first; i > 0 && masked[i - 1] != 0; --i) touched[i - 1] = 1;
  for (std::size_t i = run.end; i < masked.size() && masked[i] != 0; ++i) touched[i] = 1;
  return touched;
}

struct PairSums {
  double counts = 0;
  double expected = 0;

  void add(const CorrelationBins& bins, std::size_t bin) {
    counts += bins.counts[bin];
    expected += bins.expected[bin];
  }
};

/// Which bins hold the peak's pairs, and the level beside them.
struct PeakBins {
  PairSums inside;
  Estimate level;
};

/// The bins within the reach of the peak and what is masked beside them, with the level of the others. Where these
/// are few, or nothing is expected in them, the masked bins alone, with the level of the view.
inline PeakBins peak_bins(const CorrelationBins& bins, const CorrelationBackground& background, BinRun reach) {
  constexpr double kEnough = 0.25;
  std::vector<char> taken = masked_runs_at(background.masked, reach);
  const bool has_masked = std::find(taken.begin(), taken.end(), 1) != taken.end();
  std::vector<char> left_out = background.masked;
  for (std::size_t i = reach.first; i < reach.end; ++i) left_out[i] = 1;
  PeakBins result{{}, {background.level, background.error}};
  const Estimate beside = free_level(bins, left_out);
  const bool enough = background.measured && share_free(left_out) >= kEnough && std::isfinite(beside.error);
  if (enough) result.level = beside;
  if (enough || !has_masked) {
    for (std::size_t i = reach.first; i < reach.end; ++i) taken[i] = 1;
  }
  for (std::size_t i = 0; i < bins.size(); ++i) {
    if (taken[i] != 0) result.inside.add(bins, i);
  }
  return result;
}

/// Bins joined in groups, so that a wide peak is as quick to fit as a narrow one.
inline CorrelationBins joined(const CorrelationBins& bins, std::size_t group) {
  CorrelationBins wide;
  wide.bin_ps = bins.bin_ps * static_cast<double>(group);
  for (std::size_t first = 0; first < bins.size(); first += group) {
    const std::size_t end = std::min(first + group, bins.size());
    PairSums sums;
    double middle = 0;
    for (std::size_t i = first; i < end; ++i) {
      sums.add(bins, i);
      middle += bins.middle_ps[i];
    }
    wide.counts.push_back(sums.counts);
    wide.expected.push_back(sums.expected);
    wide.middle_ps.push_back(middle / static_cast<double>(end - first));
  }
  return wide;
}

inline std::vector<char> joined(const std::vector<char>& masked, std::size_t group) {
  std::vector<char> wide((masked.size() + group - 1) / group);
  for (std::size_t i = 0; i < masked.size(); ++i) wide[i / group] |= masked[i];
  return wide;
}

}  // namespace orvo::timing::detail
