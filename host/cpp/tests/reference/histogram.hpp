#pragma once
// Histogram of the differences between two lists of times, and its statistics.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "reference/tag.hpp"
#include "reference/wide.hpp"

namespace orvo::test::reference {

/// Which differences count, and in what bins.
struct Window {
  std::int64_t range_ps = 5000;
  std::int64_t bin_ps = 8;
  std::int64_t offset_ps = 0;
};

struct Histogram {
  std::vector<std::int64_t> centers;
  std::vector<std::int64_t> counts;
  bool centers_fit = true;  // no centre lies outside 64 bits
};

inline Wide number_of_bins(std::int64_t range_ps, std::int64_t bin_ps) {
  if (range_ps < 1 || bin_ps < 1) return 1;
  const Wide q = (2 * Wide{range_ps} + bin_ps - 1) / bin_ps;
  return q % 2 == 1 ? q : q + 1;
}

/// Bins without counts; centres outside 64 bits wrap.
inline Histogram empty_histogram(const Window& window) {
  if (window.range_ps < 1 || window.bin_ps < 1) return {{0}, {0}};
  Histogram result;
  const Wide half = number_of_bins(window.range_ps, window.bin_ps) / 2;
  result.centers_fit = fits_64_bits(half * window.bin_ps);
  for (Wide i = -half; i <= half; ++i) result.centers.push_back(static_cast<std::int64_t>(i * window.bin_ps));
  result.counts.resize(result.centers.size());
  return result;
}

/// The bin of a difference, counted from the centre bin: |difference| / bin rounded to nearest, halves outwards.
template <class Integer>
Integer bin_of_difference(Integer difference, std::int64_t bin_ps) {
  const Integer half_bin = bin_ps / 2;
  return difference >= 0 ? (difference + half_bin) / bin_ps : -((half_bin - difference) / bin_ps);
}

/// Both lists copied and sorted, two binary searches for each A event, one division for each pair. Only for numbers
/// of bins that memory can hold. `Integer` is what sums are taken in: 128 bits serve any numbers, 64 bits, as one
/// would first take them, recorded times.
template <class Integer = Wide>
Histogram histogram(Times a, Times b, Window window) {
  Histogram result = empty_histogram(window);
  if (window.range_ps < 1 || window.bin_ps < 1) return result;
  std::sort(a.begin(), a.end());
  std::sort(b.begin(), b.end());
  const auto bins = static_cast<Integer>(result.counts.size());
  for (const std::int64_t time_a : a) {
    const Integer partner = Integer{time_a} + window.offset_ps;
    const auto first = std::lower_bound(b.begin(), b.end(), partner - window.range_ps);
    const auto last = std::upper_bound(first, b.end(), partner + window.range_ps);
    for (auto time_b = first; time_b != last; ++time_b) {
      const Integer index = bins / 2 + bin_of_difference<Integer>(*time_b - partner, window.bin_ps);
      if (index >= 0 && index < bins) result.counts[static_cast<std::size_t>(index)] += 1;
    }
  }
  return result;
}

struct Statistics {
  std::int64_t total = 0;
  std::int64_t peak_count = 0;
  std::int64_t peak_ps = 0;
  double mean_ps = 0;
  double rms_ps = 0;
  double fwhm_ps = 0;
};

inline Statistics statistics(const Histogram& histogram) {
  Statistics result;
  result.peak_count = histogram.counts[0];
  result.peak_ps = histogram.centers[0];
  long double sum = 0;
  for (std::size_t i = 0; i < histogram.counts.size(); ++i) {
    result.total += histogram.counts[i];
    sum += static_cast<long double>(histogram.counts[i]) * static_cast<long double>(histogram.centers[i]);
    if (histogram.counts[i] > result.peak_count) {
      result.peak_count = histogram.counts[i];
      result.peak_ps = histogram.centers[i];
    }
  }
  if (result.total <= 0) return result;
  result.mean_ps = static_cast<double>(sum / static_cast<long double>(result.total));
  long double squares = 0;
  for (std::size_t i = 0; i < histogram.counts.size(); ++i) {
    const long double deviation =
        static_cast<long double>(histogram.centers[i]) - static_cast<long double>(result.mean_ps);
    squares += static_cast<long double>(histogram.counts[i]) * (deviation * deviation);
  }
  result.rms_ps = static_cast<double>(std::sqrt(squares / static_cast<long double>(result.total)));
  result.fwhm_ps = result.rms_ps * 2.354820045;
  return result;
}

}  // namespace orvo::test::reference
