#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
// Times folded into bins, and the correlation of two channels at all delays at once.
#include <algorithm>
#include <complex>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <vector>

#include "inspect/real_transform.hpp"

namespace {

/// Bins that times are folded into: bin (time - origin) / width, rounded down, modulo their number.
struct FoldedGrid {
  std::int64_t origin_ps = 0;
  std::int64_t bin_ps = 1;
  std::size_t bins = std::size_t{1} << 20;  ///< a power of two

  std::size_t bin_of(std::int64_t time_ps) const {
    const auto width = static_cast<std::uint64_t>(bin_ps);
    const auto time = static_cast<std::uint64_t>(time_ps);
    const auto origin = static_cast<std::uint64_t>(origin_ps);
    if (time_ps >= origin_ps) return (time - origin) / width & (bins - 1);
    return bins - 1 - ((origin - 1 - time) / width & (bins - 1));
  }
  /// Delays of this sum up in bin 0, 1, 2 ... of a correlation, those after the middle being negative.
  double delay_ps(double bin) const {
    const auto all = static_cast<double>(bins);
    return (bin < all / 2 ? bin : bin - all) * static_cast<double>(bin_ps);
  }
};

/// The grid in which all delays up to `reach_ps` are apart from one another.
inline FoldedGrid folded_grid(std::int64_t origin_ps, std::int64_t reach_ps, std::size_t bins) {
  const auto half = static_cast<std::uint64_t>(bins / 2);
  const std::uint64_t reach = static_cast<std::uint64_t>(std::max<std::int64_t>(reach_ps, 1));
  return {origin_ps, static_cast<std::int64_t>(reach / half + (reach % half != 0 ? 1 : 0)), bins};
}

/// Tags of a channel per bin of a grid.
class FoldedTimes {
 public:
  explicit FoldedTimes(const FoldedGrid& grid) : grid_(grid), counts_(grid.bins) {}

  void add(std::int64_t time_ps) {
    std::uint32_t& count = counts_[grid_.bin_of(time_ps)];
    count += count != std::numeric_limits<std::uint32_t>::max();
    ++tags_;
    first_ps_ = std::min(first_ps_, time_ps);
    last_ps_ = std::max(last_ps_, time_ps);
  }
  void add(std::span<const std::int64_t> times_ps) {
    for (const std::int64_t time_ps : times_ps) add(time_ps);
  }

  const FoldedGrid& grid() const { return grid_; }
  double tags() const { return static_cast<double>(tags_); }
  std::int64_t first_ps() const { return first_ps_; }
  std::int64_t last_ps() const { return last_ps_; }
  Spectrum spectrum(const RealTransform& transform) const {
    const double mean = tags() / static_cast<double>(counts_.size());
    std::vector<float> values(counts_.size());
    for (std::size_t i = 0; i < values.size(); ++i) values[i] = static_cast<float>(counts_[i] - mean);
    return transform.forward(values);
  }
  /// Gives the memory of the bins back: what is left is the extent.
  void forget_bins() { counts_ = {}; }

 private:
  FoldedGrid grid_;
  std::vector<std::uint32_t> counts_;
  std::uint64_t tags_ = 0;
  std::int64_t first_ps_ = std::numeric_limits<std::int64_t>::max();
  std::int64_t last_ps_ = std::numeric_limits<std::int64_t>::min();
};

/// What two channels give in all bins of delay.
struct FoldedCorrelation {
  FoldedGrid grid;
  std::vector<float> pairs;  ///< of the bin's delay, and less and less of delays up to a bin away
  double folds = 1;          ///< how many delays fall on each other, as the recording is longer than the grid
};

inline FoldedCorrelation folded_correlation(const FoldedTimes& a, Spectrum spectrum_a, const FoldedTimes& b,
                                            const Spectrum& spectrum_b, const RealTransform& transform) {
  for (std::size_t f = 0; f < spectrum_a.size(); ++f) spectrum_a[f] = std::conj(spectrum_a[f]) * spectrum_b[f];
  FoldedCorrelation correlation{a.grid(), transform.inverse(spectrum_a), 1};
  const double span_ps = static_cast<double>(std::max(a.last_ps(), b.last_ps())) -
                         static_cast<double>(std::min(a.first_ps(), b.first_ps()));
  const double grid_ps = static_cast<double>(a.grid().bins) * static_cast<double>(a.grid().bin_ps);
  correlation.folds = std::max(span_ps / grid_ps, 1.0);
  const auto bins = static_cast<double>(correlation.pairs.size());
  const double mean = a.tags() * b.tags() / bins;
  for (float& pairs : correlation.pairs) pairs = static_cast<float>(std::max(pairs / bins + mean, 0.0));
  return correlation;
}

inline FoldedCorrelation folded_correlation(const FoldedTimes& a, const FoldedTimes& b) {
  const RealTransform transform(a.grid().bins);
  return folded_correlation(a, a.spectrum(transform), b, b.spectrum(transform), transform);
}

}  // namespace
