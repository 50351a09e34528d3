#pragma once
// Cross-correlation of two channels: how often an event of channel B follows (or precedes) one of channel A at each
// delay. Every pair within the range counts, so an event may be part of many pairs.
#include <algorithm>
#include <cassert>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "orvo/timing/detail/bin_layout.hpp"
#include "orvo/timing/detail/pair_counting.hpp"
#include "orvo/timing/sorted_times.hpp"

namespace orvo::timing {

/// The highest bin.
struct XcorrPeak {
  std::int64_t count = 0;
  std::int64_t center_ps = 0;

  friend bool operator==(const XcorrPeak&, const XcorrPeak&) = default;
};

/// Pairs per delay. The centres ascend in steps of the bin width, symmetric about 0.
struct XcorrHistogram {
  std::vector<std::int64_t> bin_center_ps;
  std::vector<std::int64_t> counts;

  /// The first bin of the highest count; {0, 0} for a histogram without bins or with vectors of different length.
  XcorrPeak peak() const;
  /// Count-weighted standard deviation of the bin centres about their mean; 0 without counts.
  double rms_ps() const;
};

/// First two moments of a histogram, and the width of the Gaussian that has them.
struct XcorrMoments {
  std::int64_t total = 0;  ///< sum of all counts
  double mean_ps = 0;      ///< count-weighted mean of the bin centres; 0 without counts
  double sigma_ps = 0;     ///< `rms_ps()`
  double fwhm_ps = 0;      ///< full width at half maximum of a Gaussian of that sigma
};

/// Full width at half maximum of a Gaussian in units of its sigma.
inline constexpr double kFwhmPerSigma = 2.354820045;

namespace detail {

inline double weighted_mean_ps(const XcorrHistogram& histogram) {
  const std::size_t bins = std::min(histogram.counts.size(), histogram.bin_center_ps.size());
  long double total = 0;
  long double sum = 0;
  for (std::size_t i = 0; i < bins; ++i) {
    const auto count = static_cast<long double>(histogram.counts[i]);
    total += count;
    sum += count * static_cast<long double>(histogram.bin_center_ps[i]);
  }
  return total > 0 ? static_cast<double>(sum / total) : 0.0;
}

/// Bins without counts. Throws the standard library's exceptions for more bins than a vector or the memory can hold.
inline XcorrHistogram empty_histogram(const XcorrWindow& window) {
  const BinLayout layout(window);
  XcorrHistogram histogram;
  histogram.bin_center_ps.reserve(layout.bins());
  histogram.counts.resize(layout.bins());
  for (std::uint64_t i = 0; i < layout.bins(); ++i) histogram.bin_center_ps.push_back(layout.center_ps(i));
  return histogram;
}

}  // namespace detail

inline XcorrPeak XcorrHistogram::peak() const {
  if (counts.empty() || counts.size() != bin_center_ps.size()) return {};
  const auto highest = std::max_element(counts.begin(), counts.end());
  return {*highest, bin_center_ps[static_cast<std::size_t>(highest - counts.begin())]};
}

inline double XcorrHistogram::rms_ps() const {
  const long double mean = detail::weighted_mean_ps(*this);
  const std::size_t bins = std::min(counts.size(), bin_center_ps.size());
  long double total = 0;
  long double squares = 0;
  for (std::size_t i = 0; i < bins; ++i) {
    const auto count = static_cast<long double>(counts[i]);
    const long double distance = static_cast<long double>(bin_center_ps[i]) - mean;
    total += count;
    squares += count * (distance * distance);
  }
  return total > 0 ? static_cast<double>(std::sqrt(squares / total)) : 0.0;
}

/// The moments that reports print.
inline XcorrMoments xcorr_moments(const XcorrHistogram& histogram) {
  std::uint64_t total = 0;
  for (const std::int64_t count : histogram.counts) total += static_cast<std::uint64_t>(count);
  const double sigma_ps = histogram.rms_ps();
  return {static_cast<std::int64_t>(total), detail::weighted_mean_ps(histogram), sigma_ps, sigma_ps * kFwhmPerSigma};
}

/// Histogram of the differences b - a - `offset_ps` that lie within +-`range_ps`, both ends included, in bins of
/// `bin_ps` rounded to the nearest centre (halves away from zero). Both lists must be in ascending order, which debug
/// builds assert: `sort_times` brings them there. A range or bin width below 1 gives one bin without counts. Times,
/// range, bin width and offset may take any value: the result is that of unbounded integers; more bins than a vector
/// or the memory can hold throw the standard library's exceptions.
inline XcorrHistogram xcorr_histogram_sorted(std::span<const std::int64_t> a_ps, std::span<const std::int64_t> b_ps,
                                             const XcorrWindow& window) {
  assert(std::is_sorted(a_ps.begin(), a_ps.end()) && std::is_sorted(b_ps.begin(), b_ps.end()));
  XcorrHistogram histogram = detail::empty_histogram(window);
  if (window.is_valid() && !a_ps.empty() && !b_ps.empty()) detail::count_pairs(a_ps, b_ps, window, histogram.counts);
  return histogram;
}

/// As `xcorr_histogram_sorted`, for lists in any order: vectors, spans, the lists of `ChannelTimes`. Lists already in
/// order are not copied.
template <ContiguousTimes TimesA, ContiguousTimes TimesB>
XcorrHistogram xcorr_histogram(const TimesA& a_ps, const TimesB& b_ps, std::int64_t range_ps, std::int64_t bin_ps,
                               std::int64_t offset_ps) {
  const XcorrWindow window{range_ps, bin_ps, offset_ps};
  if (!window.is_valid()) return detail::empty_histogram(window);
  const SortedTimes a(a_ps);
  const SortedTimes b(b_ps);
  return xcorr_histogram_sorted(a, b, window);
}

/// The same for lists written in place.
inline XcorrHistogram xcorr_histogram(const std::vector<std::int64_t>& a_ps, const std::vector<std::int64_t>& b_ps,
                                      std::int64_t range_ps, std::int64_t bin_ps, std::int64_t offset_ps) {
  return xcorr_histogram(std::span(a_ps), std::span(b_ps), range_ps, bin_ps, offset_ps);
}

}  // namespace orvo::timing
