#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
// From the bins of a folded correlation to a view of the peak, closer with every step.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <span>
#include <vector>

#include "inspect/delay_candidates.hpp"
#include "orvo/timing/chance_pairs.hpp"
#include "orvo/timing/correlation_background.hpp"
#include "orvo/timing/correlation_bins.hpp"
#include "orvo/timing/difference_grid.hpp"
#include "orvo/timing/poisson_statistics.hpp"
#include "orvo/timing/xcorr_histogram.hpp"
#include "orvo/timing/xcorr_window.hpp"

namespace {

/// Counts the pairs of two channels in several windows at once: from lists, or in one pass over a capture.
using CountWindows =
    std::function<std::vector<orvo::timing::XcorrHistogram>(std::span<const orvo::timing::XcorrWindow>)>;

/// What the search for the delay of two channels came to.
struct FarDelay {
  std::optional<orvo::timing::XcorrWindow> view;  ///< about ten widths of the peak; none: no delay within reach
  LogProbability probability;                     ///< of the best place, all places within reach counted
  std::optional<double> period_ps;                ///< pulsed light: the delay is ambiguous
  DelayOverview overview;                         ///< of all delays within reach
};

/// The run of 1 to 256 bins that stands out most.
struct NarrowWindow {
  double middle_ps = 0;
  double width_ps = 0;
  std::size_t bins = 0;
  LogProbability probability;  ///< of this run by itself
  double excess = 0;           ///< pairs more than by chance
};

inline std::int64_t whole_ps(double value) {
  constexpr double kMost = 9e18;
  return static_cast<std::int64_t>(std::clamp(std::round(value), -kMost, kMost));
}

/// Bins of which `bins` make up twice `range_ps`, about `middle_ps`; fewer if they would be narrower than `least_ps`.
inline orvo::timing::XcorrWindow view_of(double middle_ps, double range_ps, double bins, std::int64_t least_ps = 1) {
  const double width_ps = std::max(std::ceil(2 * range_ps / bins), static_cast<double>(least_ps));
  return {whole_ps(std::max(range_ps, width_ps)), whole_ps(width_ps), whole_ps(middle_ps)};
}

/// Against what chance gives per picosecond, or against what the window itself shows if that is more.
inline NarrowWindow best_narrow_window(const orvo::timing::XcorrHistogram& histogram,
                                       const orvo::timing::XcorrWindow& window, double chance_per_ps,
                                       const orvo::timing::DifferenceGrid& differences) {
  using namespace orvo::timing;
  constexpr std::size_t kWidest = 256;
  constexpr double kOffTheGrid = 1e-3;  // a stray tag is not infinitely improbable
  std::vector<double> expected(histogram.counts.size());
  for (std::size_t i = 0; i < expected.size(); ++i) {
    const detail::BinSpan span = detail::bin_span(window, i);
    const double share = differences.share(span.first + window.offset_ps, span.last + window.offset_ps);
    expected[i] = chance_per_ps * static_cast<double>(span.last - span.first + 1) * std::max(share, kOffTheGrid);
  }
  const CorrelationBins bins = correlation_bins(histogram, window, std::move(expected));
  const double level = std::max(correlation_background(bins).level, 1.0);
  const detail::RunningSums counts(bins.counts);
  const detail::RunningSums means(bins.expected);
  NarrowWindow best;
  for (std::size_t length = 1; length <= kWidest && length <= bins.size(); length *= 2) {
    for (std::size_t first = 0; first + length <= bins.size(); ++first) {
      const double count = counts.of(first, length);
      const double mean = level * means.of(first, length);
      if (count <= mean) continue;
      const LogProbability p = poisson_at_least(count, mean);
      if (best.bins != 0 && p.ln >= best.probability.ln) continue;
      const double middle_ps = (bins.middle_ps[first] + bins.middle_ps[first + length - 1]) / 2;
      best = {static_cast<double>(window.offset_ps) + middle_ps, static_cast<double>(length) * bins.bin_ps, length, p,
              count - mean};
    }
  }
  return best;
}

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

/// Narrows a view until the peak fills some of its bins, and returns one that shows it with its surroundings.
inline orvo::timing::XcorrWindow close_view(NarrowWindow peak, double chance_per_ps, const CountWindows& count,
                                            const orvo::timing::DifferenceGrid& differences) {
  constexpr std::size_t kEnoughBins = 8;
  constexpr int kMostSteps = 20;
  orvo::timing::XcorrWindow window{0, std::numeric_limits<std::int64_t>::max(), 0};
  const std::int64_t least_ps = differences.narrowest_bin_ps();
  for (int step = 0; step < kMostSteps && window.bin_ps > least_ps; ++step) {
    window = view_of(peak.middle_ps, 8 * peak.width_ps, 1024, least_ps);
    const NarrowWindow closer = best_narrow_window(count({&window, 1}).front(), window, chance_per_ps, differences);
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
/// are looked at closely, and one counts if by chance not one capture in ten thousand had any as clear.
inline FarDelay find_far_delay(const DelayCandidates& candidates, const FoldedGrid& grid, const CountWindows& count,
                               const orvo::timing::DifferenceGrid& differences = {}) {
  FarDelay result;
  result.period_ps = candidates.period_ps;
  result.overview = candidates.overview;
  const std::vector<orvo::timing::XcorrWindow> views =
      candidate_views(candidates, grid, differences.narrowest_bin_ps());
  if (views.empty()) return result;
  const std::vector<orvo::timing::XcorrHistogram> histograms = count(views);
  const auto bins = static_cast<double>(grid.bins);
  const double reach_ps = bins * static_cast<double>(grid.bin_ps);
  BestDelay best;
  for (std::size_t i = 0; i < views.size(); ++i) {
    const DelayCandidate& candidate = candidates.best[i];
    const NarrowWindow window = best_narrow_window(histograms[i], views[i], candidate.chance_per_ps, differences);
    // Six pairs of channels; three windows beginning in each narrow bin, two in each folded one.
    take_if_better(best, candidate, window, 18 * reach_ps / static_cast<double>(views[i].bin_ps), 12 * bins);
  }
  result.probability.ln = std::min(best.ln_p, 0.0);
  if (!(result.probability.ln < std::log(kFalseAlarms))) return result;
  if (best.window.bins != 0) {
    result.view = close_view(best.window, best.candidate->chance_per_ps, count, differences);
  } else {
    result.view = view_of(best.candidate->delay_ps, 5 * best.candidate->width_ps, 400);
  }
  return result;
}

inline FarDelay find_far_delay(const FoldedCorrelation& correlation, const CountWindows& count,
                               const orvo::timing::DifferenceGrid& differences = {}) {
  return find_far_delay(delay_candidates(correlation), correlation.grid, count, differences);
}

}  // namespace
