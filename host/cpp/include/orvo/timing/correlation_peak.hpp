#pragma once
// A peak or a dip of a correlation histogram: how many pairs, where, how wide, each with its error.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <optional>
#include <utility>
#include <vector>

#include "orvo/timing/correlation_background.hpp"
#include "orvo/timing/correlation_bins.hpp"
#include "orvo/timing/correlation_significance.hpp"
#include "orvo/timing/detail/peak_bins.hpp"
#include "orvo/timing/detail/peak_fit.hpp"

namespace orvo::timing {

/// The line at half of a peak's height: as long as the peak is wide.
struct HalfMaximum {
  double level = 0;    ///< background and half of the top (of a dip: less it), in units of chance
  double from_ps = 0;  ///< offset removed
  double to_ps = 0;
};

/// What stands out of the background. Errors describe repeated recordings: compare with what a source makes on the
/// average, not with the pairs it made this time. What cannot be told is missing.
struct CorrelationPeak {
  CorrelationSide side = CorrelationSide::peak;
  bool cut = false;                         ///< part of it lies outside the view: move the view
  Estimate pairs;                           ///< above the background; of a dip those missing
  Estimate background_pairs;                ///< below it, in the same bins
  Estimate level;                           ///< the background, in units of chance
  std::optional<Estimate> place_ps;         ///< mean of its pairs, offset removed; if cut the middle at half maximum
  std::optional<Estimate> fwhm_ps;          ///< missing below two bins and when a flank is outside the view
  double narrowest_ps = 0;                  ///< two bins: a peak without width is narrower than that or cut
  std::optional<HalfMaximum> half_maximum;  ///< with `fwhm_ps`; to be drawn into the histogram
  std::optional<NormalisedCount> g2;  ///< within half a width of the place; the background, if there is one, is 1

  /// Coincidences to accidentals: pairs / background_pairs. Missing without a background.
  std::optional<Estimate> accidental_ratio() const;
};

/// P / B = C / B - 1 of C counts over a background B: variance C / B^2 + C^2 sigma_B^2 / B^4.
inline std::optional<Estimate> coincidences_to_accidentals(double counts, Estimate background) {
  const double square = background.value * background.value;
  if (!(square > 0)) return std::nullopt;
  return Estimate{
      counts / background.value - 1,
      std::sqrt(counts / square + counts * counts * background.error * background.error / (square * square))};
}

inline std::optional<Estimate> CorrelationPeak::accidental_ratio() const {
  const double sign = side == CorrelationSide::peak ? 1 : -1;
  return coincidences_to_accidentals(background_pairs.value + sign * pairs.value, background_pairs);
}

/// C - s E of C counts where E are expected and the level is s: variance max(C, 1) + sigma_s^2 E^2.
inline Estimate pairs_above(double counts, double expected, Estimate level) {
  return {counts - level.value * expected,
          std::sqrt(std::max(counts, 1.0) + level.error * level.error * expected * expected)};
}

namespace detail {

/// None where nothing is expected by chance: there is no unit then.
inline std::optional<HalfMaximum> half_maximum_of(const CorrelationPeak& peak, const CorrelationBins& bins,
                                                  const PeakFit& fit) {
  const double sign = peak.side == CorrelationSide::peak ? 1 : -1;
  const double level = peak.level.value + sign * fit.top_of_chance() / 2;
  const double middle_ps = place_in_ps(bins, fit.middle().value);
  const double half_width_ps = peak.fwhm_ps->value / 2;
  if (!std::isfinite(level) || !std::isfinite(middle_ps)) return std::nullopt;
  return HalfMaximum{level, middle_ps - half_width_ps, middle_ps + half_width_ps};
}

/// Place and width, with the place in picoseconds where it is known.
inline void describe_shape(CorrelationPeak& peak, const CorrelationBins& bins, const PeakFit& fit) {
  const double w = bins.bin_ps;
  peak.cut = fit.is_cut();
  peak.narrowest_ps = 2 * w;
  const bool has_width = fit.shape().is_whole() && fit.width() >= 2;
  if (has_width) peak.fwhm_ps = Estimate{fit.width() * w, fit.width_error() * w};
  if (!peak.cut) {
    const double variance = fit.mean().error * fit.mean().error + (has_width ? 0 : 1.0 / 12);
    peak.place_ps = Estimate{place_in_ps(bins, fit.mean().value), std::sqrt(variance) * w};
  } else if (fit.shape().is_whole()) {
    const Estimate middle = fit.middle();
    peak.place_ps = Estimate{place_in_ps(bins, middle.value), middle.error * w};
  }
  for (std::optional<Estimate>* estimate : {&peak.place_ps, &peak.fwhm_ps}) {
    if (*estimate && !(std::isfinite((*estimate)->value) && std::isfinite((*estimate)->error))) estimate->reset();
  }
  if (peak.fwhm_ps) peak.half_maximum = half_maximum_of(peak, bins, fit);
}

}  // namespace detail

/// The peak or dip at the most significant window of `window_significance`.
///
/// Width: distance of the crossings at half of the top of the counts, smoothed by a Gaussian no wider than the noise
/// asks for and never wider than the peak; it is that of the Gaussian, summed over bins, whose crossings lie as far
/// apart. A two-sided exponential reads 15 % wide, a rectangle 2 % narrow. Below 100 pairs read its error as a
/// factor. Place: mean of the pairs within 1.5 widths. Pairs: all counts there and in masked bins beside, less the
/// background.
inline CorrelationPeak correlation_peak(const CorrelationBins& bins, const CorrelationBackground& background,
                                        const CorrelationSignificance& window, CorrelationSide side) {
  constexpr std::size_t kWideWindow = 256;
  if (window.bins >= kWideWindow) {
    const std::size_t group = window.bins / (kWideWindow / 4);
    CorrelationBackground wide = background;
    wide.masked = detail::joined(background.masked, group);
    return correlation_peak(detail::joined(bins, group), wide,
                            {window.probability, window.first / group, window.bins / group}, side);
  }
  CorrelationPeak peak;
  peak.side = side;
  peak.level = {background.level, background.error};
  if (window.bins == 0) return peak;
  const double sign = side == CorrelationSide::peak ? 1 : -1;
  const detail::BinRun pilot =
      detail::best_run(bins, background.level, side, {window.first, window.first + window.bins});
  const detail::PeakFit fit(detail::peak_heights(bins, peak.level, sign), pilot.first, pilot.size());
  detail::describe_shape(peak, bins, fit);

  const double middle = fit.is_cut() ? fit.shape().place : fit.mean().value;
  const detail::PeakBins parts =
      detail::peak_bins(bins, background, detail::run_about(bins.size(), middle, fit.half_window()));
  peak.level = parts.level;
  peak.pairs = pairs_above(parts.inside.counts, parts.inside.expected, parts.level);
  peak.pairs.value *= sign;
  peak.background_pairs = {parts.level.value * parts.inside.expected, parts.level.error * parts.inside.expected};

  const detail::BinRun core = detail::run_about(bins.size(), middle, std::max(fit.width() / 2, 0.5));
  detail::PairSums sums;
  for (std::size_t i = core.first; i < core.end; ++i) sums.add(bins, i);
  const double unrelated = parts.level.value > 0 ? parts.level.value : 1;
  peak.g2 = normalised(sums.counts, unrelated * sums.expected);
  return peak;
}

}  // namespace orvo::timing
