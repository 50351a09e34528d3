#pragma once
// Correlation histograms drawn from a known source: counts of every bin are Poisson, as in repeated recordings.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <numbers>
#include <random>
#include <vector>

#include "orvo/timing/correlation_bins.hpp"

namespace orvo::test {

/// Of all pairs of a peak those of a delay below x, in widths from its middle.
using PeakProfile = std::function<double(double)>;

inline double gaussian_profile(double x) {
  return std::erfc(-x * 2 * std::sqrt(std::numbers::ln2)) / 2;
}
inline double rectangle_profile(double x) {
  return std::min(std::max(x + 0.5, 0.0), 1.0);
}
/// Falls on both sides by half within half a width.
inline double exponential_profile(double x) {
  const double tail = std::exp(-2 * std::numbers::ln2 * std::abs(x)) / 2;
  return x < 0 ? tail : 1 - tail;
}

struct SimulatedSource {
  double pairs = 0;   ///< negative for a dip
  double middle = 0;  ///< bins from the middle of the view
  double width = 20;  ///< full width at half maximum in bins
  double background = 10;
  double level = 1;  ///< of the background in units of what is expected
  std::size_t bins = 1001;
  PeakProfile profile = gaussian_profile;
};

/// The mean counts of the source's bins.
inline std::vector<double> mean_counts(const SimulatedSource& source) {
  std::vector<double> means;
  for (std::size_t i = 0; i < source.bins; ++i) {
    const double x = static_cast<double>(i) - static_cast<double>(source.bins / 2) - source.middle;
    const double share = source.profile((x + 0.5) / source.width) - source.profile((x - 0.5) / source.width);
    means.push_back(source.background + source.pairs * share);
  }
  return means;
}

/// One recording of it, in bins of 1 ps.
inline timing::CorrelationBins drawn_bins(const SimulatedSource& source, std::uint64_t seed) {
  std::mt19937_64 random(seed);
  timing::CorrelationBins bins;
  for (const double mean : mean_counts(source)) {
    bins.middle_ps.push_back(static_cast<double>(bins.size()) - static_cast<double>(source.bins / 2));
    bins.counts.push_back(mean > 0 ? static_cast<double>(std::poisson_distribution<std::int64_t>(mean)(random)) : 0);
    bins.expected.push_back(source.background / source.level);
  }
  return bins;
}

}  // namespace orvo::test
