#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
// From the bins of a folded correlation to a view of the peak, closer with every step.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <vector>

#include "inspect/close_look.hpp"
#include "inspect/delay_candidates.hpp"
#include "inspect/folded_times.hpp"
#include "inspect/like_peaks.hpp"
#include "inspect/narrow_window.hpp"
#include "orvo/timing/difference_grid.hpp"
#include "orvo/timing/xcorr_window.hpp"

namespace {

/// What the search for the delay of two channels came to.
struct FarDelay {
  std::optional<orvo::timing::XcorrWindow> view;  ///< about ten widths of the peak; none: no delay within reach
  LogProbability probability;                     ///< of the best place, all places within reach counted
  bool ambiguous = false;                         ///< pulsed light: many delays are as likely
  std::optional<double> period_ps;                ///< of the pulses, if it could be told
  DelayOverview overview;                         ///< of all delays within reach
};

/// Narrows a view until the peak fills some of its bins, and returns one that shows it with its surroundings. `peak`
/// then is what the last view shows of it.
inline orvo::timing::XcorrWindow close_view(NarrowWindow peak, double chance_per_ps, const CountWindows& count,
                                            const orvo::timing::DifferenceGrid& differences) {
  constexpr std::size_t kEnoughBins = 8;
  constexpr int kMostSteps = 20;
  orvo::timing::XcorrWindow window{0, std::numeric_limits<std::int64_t>::max(), 0};
  const std::int64_t least_ps = differences.narrowest_bin_ps();
  for (int step = 0; step < kMostSteps && window.bin_ps > least_ps; ++step) {
    window = view_of(peak.middle_ps, 8 * peak.width_ps, 1024, least_ps);
    const NarrowWindow closer =
        best_narrow_window(count({&window, 1}, 1).front(), window, chance_per_ps, differences);
    if (closer.bins == 0) break;
    const bool narrower = closer.width_ps < peak.width_ps;
    peak = closer;
    if (peak.bins >= kEnoughBins || !narrower) break;
  }
  const double width_ps = std::max(peak.width_ps / 1.3, 2.0);
  return view_of(peak.middle_ps, std::max(5 * width_ps, 50.0), 200, least_ps);
}

/// What a search has found likeliest so far.
struct BestDelay {
  double ln_p = std::numeric_limits<double>::infinity();  ///< all places within reach counted
  const DelayCandidate* candidate = nullptr;
  NarrowWindow window;  ///< of no bins when the candidate's own are the better ones: a wide peak
};

/// Takes a candidate and the closer look at it if either is less probable than what there was.
inline void take_if_better(BestDelay& best, const DelayCandidate& candidate, const NarrowWindow& window,
                           double narrow_places, double candidate_places) {
  const double ln_narrow = window.probability.ln + std::log(narrow_places);
  const double ln_wide = candidate.probability.ln + std::log(candidate_places);
  if (window.bins != 0 && ln_narrow < best.ln_p) best = {ln_narrow, &candidate, window};
  if (ln_wide < best.ln_p) best = {ln_wide, &candidate, {}};
}

/// The delay of two channels within reach. Bins of the folded correlation have proposed places; the best 16 of them
/// were looked at closely, which gave `windows`, and one up to `farthest_ps` counts if by chance not one capture in
/// ten thousand had any as clear; those beyond, which the grid may have as well, only tell whether there are many.
inline FarDelay find_far_delay(const DelayCandidates& candidates, const std::vector<NarrowWindow>& windows,
                               const FoldedGrid& grid, double farthest_ps, const CountWindows& count,
                               const orvo::timing::DifferenceGrid& differences) {
  FarDelay result;
  result.period_ps = candidates.period_ps;
  result.ambiguous = candidates.period_ps.has_value();
  result.overview = candidates.overview;
  const std::vector<orvo::timing::XcorrWindow> views =
      candidate_views(candidates, grid, differences.narrowest_bin_ps());
  if (views.empty()) return result;
  const auto bins = static_cast<double>(grid.bins);
  const double reach_ps = bins * static_cast<double>(grid.bin_ps);
  BestDelay best;
  for (std::size_t i = 0; i < views.size(); ++i) {
    if (std::abs(candidates.best[i].delay_ps) - candidates.best[i].width_ps > farthest_ps) continue;
    // Six pairs of channels; three windows beginning in each narrow bin, two in each folded one.
    take_if_better(best, candidates.best[i], windows[i], 18 * reach_ps / static_cast<double>(views[i].bin_ps),
                   12 * bins);
  }
  result.probability.ln = std::min(best.ln_p, 0.0);
  if (!(result.probability.ln < std::log(kFalseAlarms))) return result;
  if (best.window.bins != 0) {
    const double apart_ps = 8 * static_cast<double>(grid.bin_ps);
    const double ln_limit = std::log(kFalseAlarms / (18 * reach_ps / static_cast<double>(views[0].bin_ps)));
    result.ambiguous = result.ambiguous || is_one_of_many(best.window, windows, apart_ps, ln_limit);
    result.view = close_view(best.window, best.candidate->chance_per_ps, count, differences);
  } else {
    result.view = view_of(best.candidate->delay_ps, 5 * best.candidate->width_ps, 400);
  }
  return result;
}

inline FarDelay find_far_delay(const FoldedCorrelation& correlation, const CountWindows& count,
                               const orvo::timing::DifferenceGrid& differences = {}) {
  const DelayCandidates candidates = delay_candidates(correlation);
  const std::vector<NarrowWindow> windows = look_closely(candidates, correlation.grid, count, differences);
  return find_far_delay(candidates, windows, correlation.grid, std::numeric_limits<double>::infinity(), count,
                        differences);
}

}  // namespace
