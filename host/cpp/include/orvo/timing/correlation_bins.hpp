#pragma once
// A correlation histogram beside what chance gives, and the normalised correlation g2: unrelated light is 1.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <optional>
#include <utility>
#include <vector>

#include "orvo/timing/chance_pairs.hpp"
#include "orvo/timing/poisson_statistics.hpp"
#include "orvo/timing/xcorr_histogram.hpp"

namespace orvo::timing {

/// A value and its standard deviation over repeated recordings.
struct Estimate {
  double value = 0;
  double error = 0;
};

/// What is judged: for each bin its pairs, those expected by chance, and its middle.
struct CorrelationBins {
  double bin_ps = 1;
  std::vector<double> middle_ps;  ///< offset removed; see `bin_middles_ps`
  std::vector<double> counts;
  std::vector<double> expected;

  std::size_t size() const { return counts.size(); }
};

/// A histogram of `xcorr_histogram` with this window, beside what `chance_pairs` expects in it.
inline CorrelationBins correlation_bins(const XcorrHistogram& histogram, const XcorrWindow& window,
                                        std::vector<double> expected) {
  CorrelationBins bins{window.is_valid() ? static_cast<double>(window.bin_ps) : 1, bin_middles_ps(window), {}, {}};
  bins.counts.assign(histogram.counts.begin(), histogram.counts.end());
  bins.expected = std::move(expected);
  bins.expected.resize(bins.size());
  bins.middle_ps.resize(bins.size());
  return bins;
}

/// g2 of a bin: C / E. Its error is sqrt(C) / E from 10 counts on; for fewer, half of the interval's length.
struct NormalisedCount {
  double g2 = 0;
  double error = 0;
  double low = 0;   ///< the interval of 68.27 % confidence; g2 - error from 10 counts on
  double high = 0;  ///< g2 + error from 10 counts on
};

/// g2 of `count` pairs where `expected` are by chance; none where nothing is expected. The highest of many bins is
/// high by luck too: take the g2 of a peak, not that of its highest bin.
inline std::optional<NormalisedCount> normalised(double count, double expected) {
  constexpr double kManyCounts = 10;
  if (!(expected > 0) || !std::isfinite(count / expected)) return std::nullopt;
  const double root = std::sqrt(count);
  const PoissonInterval range =
      count < kManyCounts ? poisson_interval(count) : PoissonInterval{count - root, count + root};
  const double error = count < kManyCounts ? (range.high - range.low) / 2 : root;
  return NormalisedCount{count / expected, error / expected, range.low / expected, range.high / expected};
}

namespace detail {

/// The true middle of a bin, in bins from the first one: not always that of its number, see `bin_middles_ps`.
inline double place_of_bin(const CorrelationBins& bins, std::size_t bin) {
  const std::size_t half = bins.size() / 2;
  return (bins.middle_ps[bin] - bins.middle_ps[half]) / bins.bin_ps + static_cast<double>(half);
}

/// The delay at such a place.
inline double place_in_ps(const CorrelationBins& bins, double place) {
  const std::size_t half = bins.size() / 2;
  return bins.middle_ps[half] + (place - static_cast<double>(half)) * bins.bin_ps;
}

/// Sums over runs of bins.
class RunningSums {
 public:
  explicit RunningSums(const std::vector<double>& values) : sums_(values.size() + 1) {
    for (std::size_t i = 0; i < values.size(); ++i) sums_[i + 1] = sums_[i] + values[i];
  }
  /// Of `bins` values from `first`; never below 0 by rounding.
  double of(std::size_t first, std::size_t bins) const { return std::max(sums_[first + bins] - sums_[first], 0.0); }
  double total() const { return sums_.back(); }

 private:
  std::vector<double> sums_;
};

inline double upper_median(std::vector<double> values) {
  if (values.empty()) return 0;
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

}  // namespace detail

}  // namespace orvo::timing
