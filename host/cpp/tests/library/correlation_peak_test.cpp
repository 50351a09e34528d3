#include "orvo/timing/correlation_peak.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "support/simulated_correlation.hpp"

namespace {

using orvo::test::drawn_bins;
using orvo::test::mean_counts;
using orvo::test::SimulatedSource;
using orvo::timing::coincidences_to_accidentals;
using orvo::timing::correlation_background;
using orvo::timing::correlation_peak;
using orvo::timing::CorrelationBackground;
using orvo::timing::CorrelationBins;
using orvo::timing::CorrelationPeak;
using orvo::timing::CorrelationSide;
using orvo::timing::Estimate;
using orvo::timing::window_significance;
using orvo::timing::detail::PeakFit;
using orvo::timing::detail::PeakShape;
using orvo::timing::detail::shape_at;

CorrelationPeak peak_in(const CorrelationBins& bins, CorrelationSide side = CorrelationSide::peak) {
  const CorrelationBackground background = correlation_background(bins);
  return correlation_peak(bins, background, window_significance(bins, background, side), side);
}

/// Width of a shape with the width of the bins taken off.
double width_without_bins(const PeakShape& shape) {
  return std::sqrt(shape.width() * shape.width() - 5.545177444479562 / 12);
}

TEST(PeakShape, CrossesHalfOfItsTopBetweenBins) {
  const PeakShape even = shape_at({0, 2, 6, 8, 6, 2, 0}, 3);
  EXPECT_DOUBLE_EQ(even.top, 8);
  EXPECT_DOUBLE_EQ(even.width(), 3);
  EXPECT_NEAR(width_without_bins(even), 2.921969, 5e-7);
  const PeakShape uneven = shape_at({1, 3, 9, 7, 2, 0}, 2);
  EXPECT_DOUBLE_EQ(uneven.place, 2.25);
  EXPECT_DOUBLE_EQ(uneven.top, 9.25);
  EXPECT_NEAR(*uneven.left, 1.270833, 5e-7);
  EXPECT_NEAR(*uneven.right, 3.475, 5e-7);
  EXPECT_NEAR(width_without_bins(uneven), 2.096724, 5e-7);
}

TEST(PeakShape, IsNotWholeWhenAFlankLiesOutsideTheView) {
  EXPECT_FALSE(shape_at({8, 6, 2, 0}, 0).is_whole());
  EXPECT_TRUE(shape_at({8, 6, 2, 0}, 0).right);
  EXPECT_FALSE(shape_at({0, 2, 6, 8}, 3).right);
}

TEST(CorrelationPeak, PairsAreCountsLessTheBackground) {
  const Estimate pairs = orvo::timing::pairs_above(120, 40, {1.05, 0.02});
  EXPECT_DOUBLE_EQ(pairs.value, 78);
  EXPECT_NEAR(pairs.error, 10.983624, 5e-7);
  const auto ratio = coincidences_to_accidentals(120, {1.05 * 40, 0.02 * 40});
  ASSERT_TRUE(ratio);
  EXPECT_NEAR(ratio->value, 1.857143, 5e-7);
  EXPECT_NEAR(ratio->error, 0.266437, 5e-7);
  EXPECT_FALSE(coincidences_to_accidentals(120, {0, 1}));
}

TEST(CorrelationPeak, PlaceIsTheMeanOfThePairs) {
  CorrelationBins bins;
  bins.bin_ps = 10;
  bins.middle_ps = {-20, -10, 0, 10, 20};
  bins.counts = {2, 10, 20, 16, 4};
  bins.expected = {2, 2, 2, 2, 2};
  const PeakFit fit(orvo::timing::detail::peak_heights(bins, {1, 0}, 1), 1, 3);
  ASSERT_LT(fit.width(), 4);
  ASSERT_GT(fit.half_window(), 2.8);  // all of the bins
  EXPECT_NEAR((fit.mean().value - 2) * 10, 2.380952, 5e-7);
  EXPECT_NEAR(fit.mean().error * 10, 1.652764, 5e-7);
}

/// Exact counts of a source: what repeated recordings average to.
CorrelationBins average_bins(const SimulatedSource& source) {
  CorrelationBins bins = drawn_bins(source, 0);
  bins.counts = mean_counts(source);
  return bins;
}

TEST(CorrelationPeak, OfAGaussianHasItsPairsPlaceAndWidth) {
  const CorrelationPeak peak = peak_in(average_bins({.pairs = 1e6, .middle = 31.3, .width = 20, .background = 100}));
  EXPECT_NEAR(peak.pairs.value, 1e6, 2e3);
  EXPECT_NEAR(peak.place_ps->value, 31.3, 0.01);
  EXPECT_NEAR(peak.fwhm_ps->value, 20, 0.05);
  EXPECT_NEAR(peak.level.value, 1, 1e-3);
  EXPECT_FALSE(peak.cut);
  EXPECT_NEAR(peak.accidental_ratio()->value, peak.pairs.value / peak.background_pairs.value, 1e-9);
}

/// Bins of 1 ps about 0 with these counts in the middle of 101.
CorrelationBins middle_bins(const std::vector<double>& counts, double background) {
  CorrelationBins bins = average_bins({.background = background, .bins = 101});
  const auto middle = bins.counts.begin() + 50 - static_cast<std::ptrdiff_t>(counts.size() / 2);
  std::transform(counts.begin(), counts.end(), middle, middle, [](double a, double b) { return a + b; });
  return bins;
}

TEST(CorrelationPeak, OfFourBinsHasItsWidthWhereverItLies) {
  // A million pairs, a Gaussian of 4 bins full width at half maximum: those of bin k are half a million times
  // erf((k + 1/2 - x) sqrt(ln 2) / 2) - erf((k - 1/2 - x) sqrt(ln 2) / 2). Told to 0.1 %, which a million pairs are
  // worth; straight lines between bins alone read 1 % narrow.
  constexpr double kError = 0.004;
  const std::vector<double> on_a_bin{5,      60,     537,   3432,  15642, 50866, 118060, 195642, 231511,
                                     195642, 118060, 50866, 15642, 3432,  537,   60,     5};
  const std::vector<double> aside{2,      33,     320,   2228,  11050, 39096, 98720, 177965, 229088,
                                  210595, 138247, 64799, 21681, 5176,  882,   107,   9};
  const std::vector<double> between{1,      18,     187,   1416,  7643, 29422, 80828, 158514, 221970,
                                    221970, 158514, 80828, 29422, 7643, 1416,  187,   18};
  EXPECT_NEAR(peak_in(middle_bins(on_a_bin, 100)).fwhm_ps->value, 4, kError);
  EXPECT_NEAR(peak_in(middle_bins(aside, 100)).fwhm_ps->value, 4, kError);
  EXPECT_NEAR(peak_in(middle_bins(between, 100)).fwhm_ps->value, 4, kError);
  EXPECT_NEAR(peak_in(average_bins({.pairs = 1e6, .middle = 31.3, .width = 6, .background = 100})).fwhm_ps->value, 6,
              kError);
}

TEST(CorrelationPeak, OtherShapesReadWideOrNarrow) {
  SimulatedSource source{.pairs = 1e6, .width = 40, .background = 100, .profile = orvo::test::exponential_profile};
  EXPECT_NEAR(peak_in(average_bins(source)).fwhm_ps->value, 40 * 1.15, 1.5);
  source.profile = orvo::test::rectangle_profile;
  EXPECT_NEAR(peak_in(average_bins(source)).fwhm_ps->value, 40 * 0.985, 1);
}

TEST(CorrelationPeak, InOneBinIsNarrowerThanTwo) {
  const CorrelationPeak peak = peak_in(average_bins({.pairs = 300, .middle = 31, .width = 0.01}));
  EXPECT_FALSE(peak.fwhm_ps);
  EXPECT_EQ(peak.narrowest_ps, 2);
  EXPECT_NEAR(peak.place_ps->value, 31, 0.01);
  EXPECT_NEAR(peak.place_ps->error, 0.3, 0.2);
  EXPECT_NEAR(peak.pairs.value, 300, 1);
}

TEST(CorrelationPeak, CutByTheViewHasItsPairsInViewAndNoMean) {
  const SimulatedSource edge{.pairs = 40'000, .middle = 494.5, .width = 20, .background = 20};
  double in_view = 0;
  for (const double mean : mean_counts(edge)) in_view += mean - 20;
  const CorrelationPeak cut = peak_in(average_bins(edge));
  EXPECT_TRUE(cut.cut);
  EXPECT_FALSE(cut.fwhm_ps);
  EXPECT_FALSE(cut.place_ps);
  EXPECT_NEAR(cut.pairs.value, in_view, 200);
  const CorrelationPeak both_flanks = peak_in(average_bins({.pairs = 40'000, .middle = 482.5, .background = 20}));
  EXPECT_TRUE(both_flanks.cut);
  EXPECT_NEAR(both_flanks.fwhm_ps->value, 20, 0.1);
  EXPECT_NEAR(both_flanks.place_ps->value, 482.5, 0.1);
}

TEST(CorrelationPeak, OfADipIsWhatIsMissing) {
  const CorrelationPeak dip =
      peak_in(average_bins({.pairs = -3000, .middle = -12.5, .width = 20, .background = 200}), CorrelationSide::dip);
  EXPECT_EQ(dip.side, CorrelationSide::dip);
  EXPECT_NEAR(dip.pairs.value, 3000, 20);
  EXPECT_NEAR(dip.place_ps->value, -12.5, 0.1);
  EXPECT_NEAR(dip.fwhm_ps->value, 20, 0.2);
  EXPECT_NEAR(dip.g2->g2, 1 - 0.761 * 3000 / 20 / 200, 0.05);  // 76.1 % of a Gaussian lie within its width
}

TEST(CorrelationPeak, AsWideAsThousandsOfBinsIsFittedInGroupsOfThem) {
  const CorrelationPeak peak =
      peak_in(average_bins({.pairs = 1e7, .middle = 3000.3, .width = 2000, .background = 100, .bins = 40'001}));
  EXPECT_NEAR(peak.pairs.value, 1e7, 2e4);
  EXPECT_NEAR(peak.place_ps->value, 3000.3, 5);
  EXPECT_NEAR(peak.fwhm_ps->value, 2000, 10);
}

TEST(CorrelationPeak, BesideBinsWithoutExpectationsHasTheLevelOfTheView) {
  CorrelationBins bins;
  bins.counts = {0, 0, 0, 7, 9, 0, 0, 0};
  bins.expected = {0, 0, 0, 1, 1, 0, 0, 0};
  bins.middle_ps = {0, 1, 2, 3, 4, 5, 6, 7};
  CorrelationBackground background;
  background.level = 2;
  background.error = 0.5;
  background.measured = true;
  background.masked.assign(8, 0);
  const orvo::timing::detail::PeakBins parts = orvo::timing::detail::peak_bins(bins, background, {3, 5});
  EXPECT_EQ(parts.inside.counts, 16);
  EXPECT_EQ(parts.inside.expected, 2);
  EXPECT_EQ(parts.level.value, 2);
  EXPECT_EQ(parts.level.error, 0.5);
}

}  // namespace
