#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
// The places that a folded correlation proposes, looked at closely.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <numeric>
#include <vector>

#include "inspect/delay_candidates.hpp"
#include "inspect/folded_times.hpp"
#include "inspect/narrow_window.hpp"
#include "orvo/timing/difference_grid.hpp"
#include "orvo/timing/xcorr_histogram.hpp"
#include "orvo/timing/xcorr_window.hpp"

namespace {

/// The views of the candidates: twice as wide as the bins they come from, 1024 bins each.
inline std::vector<orvo::timing::XcorrWindow> candidate_views(const DelayCandidates& candidates,
                                                              const FoldedGrid& grid, std::int64_t least_ps) {
  std::vector<orvo::timing::XcorrWindow> views;
  for (const DelayCandidate& candidate : candidates.best) {
    const double range_ps = std::max(2.0 * static_cast<double>(grid.bin_ps), candidate.width_ps);
    views.push_back(view_of(candidate.delay_ps, range_ps, 1024, least_ps));
  }
  return views;
}

/// One of how many tags of the first channel show each candidate that may be a delay. A delay that is within reach of
/// the folded correlation stands out of it by 8 sigmas, or there would be no saying; counted closely, it stands out
/// more, as the places that are folded on it are gone. With half of these sigmas, and in a window as wide as the
/// candidate, a sample has to show 7.
inline std::uint64_t affordable_sample(const DelayCandidates& candidates) {
  constexpr double kSigmas = 4;
  constexpr double kSigmasOfSample = 7;
  constexpr double kMost = 64;
  double one_of = kMost;
  for (const DelayCandidate& candidate : candidates.best) {
    const double chance = candidate.chance_per_ps * candidate.width_ps;
    const double pairs = kSigmas * std::sqrt(chance * candidates.folds);
    one_of = std::min(one_of, pairs * pairs / (pairs + chance) / (kSigmasOfSample * kSigmasOfSample));
  }
  // Less than a quarter is not worth another pass.
  return one_of < 4 ? 1 : static_cast<std::uint64_t>(one_of);
}

/// Which views may hold a delay: those with a window that stands out of a sample as one view in a hundred does by
/// chance, and whatever the sample shows, those that are certain already: their light may have been on for a moment.
/// All if the sample has so few pairs that it cannot be like the rest of the recording.
inline std::vector<std::size_t> promising(const DelayCandidates& candidates,
                                          const std::vector<orvo::timing::XcorrWindow>& views,
                                          const CountWindows& count,
                                          const orvo::timing::DifferenceGrid& differences) {
  constexpr double kByChance = 0.01;
  constexpr double kWindowsPerBin = 3;
  std::vector<std::size_t> all(views.size());
  std::iota(all.begin(), all.end(), std::size_t{0});
  const std::uint64_t one_of = affordable_sample(candidates);
  if (one_of == 1) return all;
  const std::vector<orvo::timing::XcorrHistogram> histograms = count(views, one_of);
  std::vector<std::size_t> chosen;
  double pairs = 0;
  double chance = 0;
  for (const std::size_t i : all) {
    const std::vector<std::int64_t>& counts = histograms[i].counts;
    const double chance_per_ps = candidates.best[i].chance_per_ps / static_cast<double>(one_of);
    pairs += std::accumulate(counts.begin(), counts.end(), 0.0);
    chance += chance_per_ps * 2 * static_cast<double>(views[i].range_ps);
    // Half of it, so that what the view itself shows is the measure: a sample may have been in dim light.
    const NarrowWindow window = best_narrow_window(histograms[i], views[i], chance_per_ps / 2, differences);
    const double places = kWindowsPerBin * static_cast<double>(counts.size());
    const bool stands_out = window.bins != 0 && window.probability.ln < std::log(kByChance / places);
    if (stands_out || i < candidates.significant) chosen.push_back(i);
  }
  return pairs < chance / 2 ? all : chosen;
}

/// What stands out most in the view of each candidate; of no bins where a sample has shown that it is nothing.
inline std::vector<NarrowWindow> look_closely(const DelayCandidates& candidates, const FoldedGrid& grid,
                                              const CountWindows& count,
                                              const orvo::timing::DifferenceGrid& differences) {
  const std::vector<orvo::timing::XcorrWindow> views =
      candidate_views(candidates, grid, differences.narrowest_bin_ps());
  const std::vector<std::size_t> chosen = promising(candidates, views, count, differences);
  std::vector<orvo::timing::XcorrWindow> chosen_views;
  for (const std::size_t i : chosen) chosen_views.push_back(views[i]);
  const std::vector<orvo::timing::XcorrHistogram> histograms = count(chosen_views, 1);
  std::vector<NarrowWindow> windows(views.size());
  for (std::size_t k = 0; k < chosen.size(); ++k) {
    const std::size_t i = chosen[k];
    windows[i] = best_narrow_window(histograms[k], views[i], candidates.best[i].chance_per_ps, differences);
  }
  return windows;
}

}  // namespace
