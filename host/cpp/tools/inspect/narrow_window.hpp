#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
// What stands out most in a view of a few delays.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <utility>
#include <vector>

#include "orvo/timing/chance_pairs.hpp"
#include "orvo/timing/correlation_background.hpp"
#include "orvo/timing/correlation_bins.hpp"
#include "orvo/timing/difference_grid.hpp"
#include "orvo/timing/poisson_statistics.hpp"
#include "orvo/timing/xcorr_histogram.hpp"
#include "orvo/timing/xcorr_window.hpp"

namespace {

/// Counts the pairs of two channels in several windows at once: from lists, or in one pass over a capture. Of the
/// tags of the first channel it takes one of so many: 1 for all.
using CountWindows = std::function<std::vector<orvo::timing::XcorrHistogram>(
    std::span<const orvo::timing::XcorrWindow>, std::uint64_t one_of)>;

/// The run of 1 to 256 bins that stands out most.
struct NarrowWindow {
  double middle_ps = 0;
  double width_ps = 0;
  std::size_t bins = 0;
  orvo::timing::LogProbability probability;  ///< of this run by itself
  double excess = 0;                         ///< pairs more than by chance
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

/// Against what the window itself shows; where its bins hold too few pairs to tell, at least against what chance
/// gives per picosecond, which of a folded correlation is what all delays give that are folded on one.
inline NarrowWindow best_narrow_window(const orvo::timing::XcorrHistogram& histogram,
                                       const orvo::timing::XcorrWindow& window, double chance_per_ps,
                                       const orvo::timing::DifferenceGrid& differences) {
  using namespace orvo::timing;
  constexpr std::size_t kWidest = 256;
  constexpr double kEnoughPairs = 100;
  constexpr double kOffTheGrid = 1e-3;  // a stray tag is not infinitely improbable
  std::vector<double> expected(histogram.counts.size());
  for (std::size_t i = 0; i < expected.size(); ++i) {
    const detail::BinSpan span = detail::bin_span(window, i);
    const double share = differences.share(span.first + window.offset_ps, span.last + window.offset_ps);
    expected[i] = chance_per_ps * static_cast<double>(span.last - span.first + 1) * std::max(share, kOffTheGrid);
  }
  const CorrelationBins bins = correlation_bins(histogram, window, std::move(expected));
  const detail::RunningSums counts(bins.counts);
  const detail::RunningSums means(bins.expected);
  const bool can_tell = means.of(0, bins.size()) > kEnoughPairs * static_cast<double>(bins.size());
  const double level = std::max(correlation_background(bins).level, can_tell ? 0.1 : 1.0);
  NarrowWindow best;
  double best_sigmas = 0;
  for (std::size_t length = 1; length <= kWidest && length <= bins.size(); length *= 2) {
    for (std::size_t first = 0; first + length <= bins.size(); ++first) {
      const double count = counts.of(first, length);
      const double mean = level * means.of(first, length);
      // The tail of a Poisson distribution is never below that of the normal one with the same mean and variance.
      if (count <= mean || (best.bins != 0 && count - mean < best_sigmas * std::sqrt(mean))) continue;
      const LogProbability p = poisson_at_least(count, mean);
      if (best.bins != 0 && p.ln >= best.probability.ln) continue;
      const double middle_ps = (bins.middle_ps[first] + bins.middle_ps[first + length - 1]) / 2;
      best = {static_cast<double>(window.offset_ps) + middle_ps, static_cast<double>(length) * bins.bin_ps, length, p,
              count - mean};
      best_sigmas = p.sigmas();
    }
  }
  return best;
}

}  // namespace
