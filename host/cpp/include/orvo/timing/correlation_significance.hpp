#pragma once
// How surely a correlation histogram is not that of unrelated light.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numbers>

#include "orvo/timing/correlation_background.hpp"
#include "orvo/timing/correlation_bins.hpp"
#include "orvo/timing/poisson_statistics.hpp"

namespace orvo::timing {

enum class CorrelationSide { peak, dip };

/// The run of bins that is least like chance, and how probable one like it is anywhere in a view without correlation.
struct CorrelationSignificance {
  LogProbability probability;  ///< all windows counted
  std::size_t first = 0;       ///< of the window
  std::size_t bins = 0;        ///< its length; 0 when nothing is expected anywhere

  /// Below 1e-5 for each side of each pair of channels: 1.2e-4 for the six pairs of a capture.
  bool is_significant() const { return probability.ln < -11.512925464970229; }
};

namespace detail {

inline LogProbability tail(CorrelationSide side, double count, double mean) {
  return side == CorrelationSide::peak ? poisson_at_least(count, mean) : poisson_at_most(count, mean);
}

/// Expectation per bin against which a side is judged, in units of chance: of the measured level and that of chance
/// the one nearer to the side.
inline double cautious_level(CorrelationSide side, const CorrelationBackground& background) {
  return side == CorrelationSide::peak ? std::max(background.level, 1.0) : std::min(background.level, 1.0);
}

/// The tail of a count whose expectation is itself uncertain: its sigmas are fewer by the root of 1 + share.
inline double ln_weakened(LogProbability p, double share) {
  if (!(p.ln < -std::numbers::ln2) || std::isinf(p.ln)) return p.ln;
  return ln_normal_tail(p.sigmas() / std::sqrt(1 + share));
}

}  // namespace detail

/// Of single bins: the probability that any of the view's n bins is so far off, 1 - (1 - p)^n.
inline CorrelationSignificance bin_significance(const CorrelationBins& bins, const CorrelationBackground& background,
                                                CorrelationSide side) {
  const double level = detail::cautious_level(side, background);
  CorrelationSignificance best;
  for (std::size_t i = 0; i < bins.size(); ++i) {
    if (!(level * bins.expected[i] > 0)) continue;
    const LogProbability p = detail::tail(side, bins.counts[i], level * bins.expected[i]);
    if (best.bins == 0 || p.ln < best.probability.ln) best = {p, i, 1};
  }
  best.probability = best.probability.in_trials(static_cast<double>(bins.size()));
  return best;
}

/// Of windows of 1, 2, 4 ... bins up to a quarter of the view, beginning at every half of their length; about three
/// windows a bin, all of which count as tries. Cautious where counts are few, for a Poisson probability then is never
/// too small but often too large.
inline CorrelationSignificance window_significance(const CorrelationBins& bins,
                                                   const CorrelationBackground& background, CorrelationSide side) {
  const detail::RunningSums counts(bins.counts);
  const detail::RunningSums expected(bins.expected);
  const double level = detail::cautious_level(side, background);
  CorrelationSignificance best;
  double windows = 0;
  if (!(level * expected.total() > 0)) return best;
  for (std::size_t length = 1; length == 1 || length <= bins.size() / 4; length *= 2) {
    const std::size_t step = std::max<std::size_t>(length / 2, 1);
    for (std::size_t first = 0; first + length <= bins.size(); first += step) {
      ++windows;
      const double by_chance = expected.of(first, length);
      const double count = counts.of(first, length);
      if (!(by_chance > 0)) continue;
      const bool outwards = side == CorrelationSide::peak ? count > level * by_chance : count < level * by_chance;
      if (!outwards && best.bins != 0) continue;
      LogProbability p = detail::tail(side, count, level * by_chance);
      if (best.bins != 0 && p.ln >= best.probability.ln) continue;  // weakened it is no better
      p.ln = detail::ln_weakened(p, by_chance / expected.total());
      if (best.bins == 0 || p.ln < best.probability.ln) best = {p, first, length};
    }
  }
  best.probability = best.probability.in_trials(windows);
  return best;
}

}  // namespace orvo::timing
