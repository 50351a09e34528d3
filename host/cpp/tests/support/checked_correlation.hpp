#pragma once
// Histograms, their statistics and the offset estimate with the references beside them.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "orvo/timing/offset_estimate.hpp"
#include "orvo/timing/xcorr_histogram.hpp"
#include "reference/histogram.hpp"
#include "reference/offset_estimate.hpp"

namespace orvo::test {

inline void expect_statistics(const timing::XcorrHistogram& histogram, const reference::Statistics& expected) {
  const timing::XcorrMoments moments = timing::xcorr_moments(histogram);
  EXPECT_EQ(histogram.peak().count, expected.peak_count);
  EXPECT_EQ(histogram.peak().center_ps, expected.peak_ps);
  EXPECT_EQ(moments.total, expected.total);
  EXPECT_EQ(moments.mean_ps, expected.mean_ps);
  EXPECT_EQ(histogram.rms_ps(), expected.rms_ps);
  EXPECT_EQ(moments.sigma_ps, expected.rms_ps);
  EXPECT_EQ(moments.fwhm_ps, expected.fwhm_ps);
}

/// What `xcorr_histogram` gives. Fails the test where its bins, counts or statistics are others than the reference's.
inline timing::XcorrHistogram checked_histogram(const std::vector<std::int64_t>& a_ps,
                                                const std::vector<std::int64_t>& b_ps, std::int64_t range_ps,
                                                std::int64_t bin_ps, std::int64_t offset_ps) {
  const reference::Histogram expected = reference::histogram(a_ps, b_ps, {range_ps, bin_ps, offset_ps});
  timing::XcorrHistogram histogram = timing::xcorr_histogram(a_ps, b_ps, range_ps, bin_ps, offset_ps);
  EXPECT_EQ(histogram.counts, expected.counts);
  EXPECT_EQ(histogram.bin_center_ps, expected.centers);
  EXPECT_EQ(std::is_sorted(expected.centers.begin(), expected.centers.end()), expected.centers_fit);
  if (expected.centers_fit) expect_statistics(histogram, reference::statistics(expected));
  return histogram;
}

/// What `estimate_offset_ps` gives. Fails the test where the reference's estimate is another.
inline std::int64_t checked_offset_ps(const std::vector<std::int64_t>& a_ps, const std::vector<std::int64_t>& b_ps) {
  const std::int64_t offset_ps = timing::estimate_offset_ps(a_ps, b_ps);
  EXPECT_EQ(offset_ps, reference::offset_estimate_ps(a_ps, b_ps));
  return offset_ps;
}

}  // namespace orvo::test
