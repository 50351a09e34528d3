#pragma once
// Offset estimate, histogram and statistics in the plainest form: every pair is looked at, numbers are 128 bits wide.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <vector>

namespace orvo::test::model {

__extension__ typedef __int128 Wide;

using Times = std::vector<std::int64_t>;

inline bool fits_64_bits(Wide value) {
  return value >= std::numeric_limits<std::int64_t>::min() && value <= std::numeric_limits<std::int64_t>::max();
}

/// Difference to the nearest event of sorted `b`, the later one when two are equally near.
inline Wide nearest_difference(std::int64_t a, const Times& b) {
  std::optional<Wide> nearest;
  for (const std::int64_t candidate : b) {
    const Wide difference = Wide{candidate} - a;
    const Wide distance = difference < 0 ? -difference : difference;
    const Wide best = !nearest ? distance : *nearest < 0 ? -*nearest : *nearest;
    if (distance <= best) nearest = difference;
  }
  return *nearest;
}

/// The differences whose upper median is the offset; none when a list is empty.
inline std::vector<Wide> offset_samples(Times a, Times b) {
  std::sort(a.begin(), a.end());
  std::sort(b.begin(), b.end());
  const std::size_t stride = a.size() < 4000 ? 1 : a.size() / 4000;
  std::vector<Wide> differences;
  for (std::size_t i = 0; i < a.size() && differences.size() < 4000 && !b.empty(); i += stride) {
    differences.push_back(nearest_difference(a[i], b));
  }
  return differences;
}

inline Wide estimate_offset(const Times& a, const Times& b) {
  std::vector<Wide> differences = offset_samples(a, b);
  if (differences.empty()) return 0;
  std::sort(differences.begin(), differences.end());
  return differences[differences.size() / 2];
}

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

/// The bin of a difference, counted from the centre bin: |difference| / bin rounded to nearest, halves outwards.
inline Wide bin_of_difference(Wide difference, std::int64_t bin_ps) {
  const Wide half_bin = bin_ps / 2;
  return difference >= 0 ? (difference + half_bin) / bin_ps : -((half_bin - difference) / bin_ps);
}

/// Only for numbers of bins that memory can hold.
inline Histogram histogram(const Times& a, const Times& b, std::int64_t range_ps, std::int64_t bin_ps,
                           std::int64_t offset_ps) {
  Histogram result;
  if (range_ps < 1 || bin_ps < 1) {
    result.centers.push_back(0);
    result.counts.push_back(0);
    return result;
  }
  const Wide bins = number_of_bins(range_ps, bin_ps);
  const Wide half = bins / 2;
  for (Wide i = 0; i < bins; ++i) {
    const Wide center = bin_ps * (i - half);
    if (!fits_64_bits(center)) result.centers_fit = false;
    result.centers.push_back(fits_64_bits(center) ? static_cast<std::int64_t>(center) : 0);
    result.counts.push_back(0);
  }
  for (const std::int64_t time_a : a) {
    for (const std::int64_t time_b : b) {
      const Wide difference = Wide{time_b} - time_a - offset_ps;
      if (difference < -Wide{range_ps} || difference > range_ps) continue;
      const Wide index = half + bin_of_difference(difference, bin_ps);
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

}  // namespace orvo::test::model
