#pragma once
#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <optional>
#include <vector>

#include "orvo/timing/correlation_bins.hpp"
#include "orvo/timing/detail/fourier.hpp"
#include "orvo/timing/poisson_statistics.hpp"

namespace orvo::timing::detail {

/// A period in bins, and how probable one as clear is anywhere in a view without.
struct CombPeriod {
  double bins = 0;
  LogProbability probability;
};

/// Heights about 0 in which no single bin counts for more than three standard deviations: a peak is no comb.
inline std::vector<double> clipped_heights(const CorrelationBins& bins) {
  std::vector<double> heights;
  const double typical = upper_median(bins.expected);
  for (std::size_t i = 0; i < bins.size(); ++i)
    heights.push_back(bins.expected[i] > 0 ? bins.counts[i] * typical / bins.expected[i] : 0);
  const double middle = upper_median(heights);
  const double most = middle + 3 * std::sqrt(middle + 1);
  double sum = 0;
  for (double& height : heights) sum += height = std::min(height, most);
  for (double& height : heights) height -= sum / static_cast<double>(heights.size());
  return heights;
}

inline double sum_of_squares(const std::vector<double>& values) {
  double sum = 0;
  for (const double value : values) sum += value * value;
  return sum;
}

/// ln of the upper tail of a gamma distribution: the sum of `terms` powers of white noise is `sum` or more.
inline double ln_gamma_tail(double sum, int terms) {
  double series = 1;
  double term = 1;
  for (int k = 1; k < terms; ++k) series += term *= sum / k;
  return -sum + std::log(series);
}

/// By how much the heights folded by a period vary more than by chance, in about 16 phases.
class FoldedContrast {
 public:
  FoldedContrast(const std::vector<double>& heights, double period)
      : heights_(heights), phase_bins_(std::max(period / 16, 1.0)) {
    variance_ = sum_of_squares(heights) / static_cast<double>(heights.size());
  }

  double of(double period) const {
    const auto phases = static_cast<std::size_t>(std::max(std::round(period / phase_bins_), 3.0));
    std::vector<double> sums(phases);
    std::vector<double> bins(phases);
    for (std::size_t i = 0; i < heights_.size(); ++i) {
      const double turns = static_cast<double>(i) / period;
      const auto phase = static_cast<std::size_t>((turns - std::floor(turns)) * static_cast<double>(phases));
      sums[std::min(phase, phases - 1)] += heights_[i];
      bins[std::min(phase, phases - 1)] += 1;
    }
    double square = 0;
    for (std::size_t p = 0; p < phases; ++p) {
      if (bins[p] > 0) square += sums[p] * sums[p] / bins[p];
    }
    return square / variance_ - static_cast<double>(phases - 1);
  }

  /// The period of the highest contrast within a share of one.
  double sharpest(double period, double share) const {
    constexpr int kSteps = 20;
    double best = period;
    double highest = of(period);
    for (int step = -kSteps; step <= kSteps; ++step) {
      const double candidate = period * (1 + share * step / kSteps);
      const double contrast = of(candidate);
      if (contrast > highest) {
        highest = contrast;
        best = candidate;
      }
    }
    return best;
  }

 private:
  const std::vector<double>& heights_;
  double phase_bins_;
  double variance_;
};

/// Of a period and its simple multiples and fractions the shortest that explains nearly all: narrow teeth are as
/// periodic by half of their period, broad ones by its double.
inline double simplest_period(const std::vector<double>& heights, double period, double longest) {
  constexpr double kNearlyAll = 0.75;
  constexpr double kShortest = 3;
  const FoldedContrast contrast(heights, period);
  const double share = std::min(0.01, period / static_cast<double>(heights.size()) / 4);
  struct Candidate {
    double period, contrast;
  };
  std::vector<Candidate> candidates;
  double highest = 0;
  for (const double ratio : {1.0 / 4, 1.0 / 3, 1.0 / 2, 2.0 / 3, 1.0, 3.0 / 2, 2.0, 3.0, 4.0, 5.0, 6.0, 7.0, 8.0}) {
    if (period * ratio < kShortest || period * ratio > longest) continue;
    const double candidate = contrast.sharpest(period * ratio, share);
    candidates.push_back({candidate, contrast.of(candidate)});
    highest = std::max(highest, candidates.back().contrast);
  }
  for (const Candidate& candidate : candidates) {
    if (candidate.contrast >= kNearlyAll * highest) return candidate.period;
  }
  return period;
}

/// The clearest period of 3 bins to a quarter of the view: the highest power of the spectrum, summed over 1, 2, 4 or
/// 8 harmonics. None where noise has one as clear in more than one of a million views.
inline std::optional<CombPeriod> comb_period(const CorrelationBins& bins) {
  constexpr std::size_t kFewestBins = 12;
  constexpr std::size_t kMostBins = std::size_t{1} << 18;  // the spectrum then takes a quarter of a gigabyte
  const std::size_t n = bins.size();
  if (n < kFewestBins || n > kMostBins) return std::nullopt;
  const std::vector<double> heights = clipped_heights(bins);
  const double squares = sum_of_squares(heights);
  if (!(squares > 0) || !std::isfinite(squares)) return std::nullopt;
  const std::size_t length = std::bit_ceil(16 * n);
  const std::vector<double> power = power_spectrum(heights, length);
  double best = 0;
  std::size_t frequency = 0;
  for (std::size_t f = (4 * length + n - 1) / n; f <= length / 3; ++f) {
    double sum = 0;
    std::size_t harmonics = 0;
    for (const std::size_t wanted : {1U, 2U, 4U, 8U}) {
      if (wanted * f >= power.size()) break;
      while (harmonics < wanted) sum += power[++harmonics * f] / squares;
      const double ln_p = ln_gamma_tail(sum, static_cast<int>(wanted));
      if (ln_p < best) {
        best = ln_p;
        frequency = f;
      }
    }
  }
  const LogProbability probability{std::min(best + std::log(4.0 * static_cast<double>(n)), 0.0)};
  if (frequency == 0 || !(probability.log10() < -6)) return std::nullopt;
  const double period = static_cast<double>(length) / static_cast<double>(frequency);
  return CombPeriod{simplest_period(heights, period, static_cast<double>(n) / 4), probability};
}

}  // namespace orvo::timing::detail
