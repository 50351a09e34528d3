// Errors are what they say: over many simulated recordings the differences to what is true, in units of the errors,
// have mean 0 and width 1. ORVO_SIMULATION_SEEDS sets how many recordings each regime has; with 2000 and more the
// limits are those of docs/peak-statistics.md.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <ostream>
#include <string>

#include "orvo/timing/correlation_background.hpp"
#include "orvo/timing/correlation_peak.hpp"
#include "orvo/timing/correlation_significance.hpp"
#include "support/pulls.hpp"
#include "support/simulated_correlation.hpp"
#include "support/simulated_recording.hpp"

namespace {

using orvo::test::drawn_bins;
using orvo::test::expect_standard;
using orvo::test::Pulls;
using orvo::test::SimulatedSource;
using namespace orvo::timing;

int seeds() {
  return orvo::test::simulated_recordings(100);
}

struct Regime {
  const char* name;
  SimulatedSource source;
};

std::ostream& operator<<(std::ostream& out, const Regime& regime) {
  return out << regime.name;
}

class CorrelationPulls : public testing::TestWithParam<Regime> {};

TEST_P(CorrelationPulls, HaveMeanZeroAndWidthOne) {
  Pulls background;
  Pulls pairs;
  Pulls place;
  Pulls width;
  const CorrelationSide side = GetParam().source.pairs < 0 ? CorrelationSide::dip : CorrelationSide::peak;
  for (int seed = 0; seed < seeds(); ++seed) {
    SimulatedSource source = GetParam().source;
    source.middle += seed * 7919 % 1000 / 1000.0;  // anywhere within a bin
    const CorrelationBins bins = drawn_bins(source, static_cast<std::uint64_t>(seed));
    const CorrelationBackground measured = correlation_background(bins);
    const CorrelationSignificance window = window_significance(bins, measured, side);
    ASSERT_TRUE(window.is_significant());
    const CorrelationPeak peak = correlation_peak(bins, measured, window, side);
    ASSERT_TRUE(peak.place_ps && peak.fwhm_ps);
    if (peak.level.error > 0) background.add(peak.level.value - source.level, peak.level.error);
    pairs.add(peak.pairs.value - std::abs(source.pairs), peak.pairs.error);
    place.add(peak.place_ps->value - source.middle, peak.place_ps->error);
    // An error that is a factor.
    width.add(std::log(peak.fwhm_ps->value / source.width), peak.fwhm_ps->error / peak.fwhm_ps->value);
  }
  std::printf("%-28s", GetParam().name);
  expect_standard("background", background);
  expect_standard("pairs", pairs);
  expect_standard("place", place);
  expect_standard("width", width);
  std::printf("\n");
}

INSTANTIATE_TEST_SUITE_P(
    Regimes, CorrelationPulls,
    testing::Values(
        Regime{"100 on 0.2", {.pairs = 100, .middle = 31, .background = 0.2}},
        Regime{"1000 on 10", {.pairs = 1000, .middle = 31}},
        Regime{"8000 on 1000", {.pairs = 8000, .middle = -58, .background = 1000}},
        Regime{"40000 on 100, sixth of view", {.pairs = 40'000, .middle = 31, .width = 167, .background = 100}},
        Regime{"dip of 3000 in 200", {.pairs = -3000, .middle = 31, .background = 200}},
        Regime{"2000 on 50, level 1.3", {.pairs = 2000, .middle = 31, .background = 50, .level = 1.3}},
        Regime{"100 on 1, 4 bins", {.pairs = 100, .middle = 31, .width = 4, .background = 1}},
        Regime{"10000 on 10, 4 bins", {.pairs = 10'000, .middle = 31, .width = 4}},
        Regime{"1e6 on 100, 4 bins", {.pairs = 1e6, .middle = 31, .width = 4, .background = 100}},
        Regime{"1e6 on 10, 8 bins", {.pairs = 1e6, .middle = 31, .width = 8}},
        Regime{"1000 on 10, 60 bins", {.pairs = 1000, .middle = -200, .width = 60}},
        Regime{"2000 on 100, 40 bins", {.pairs = 2000, .middle = 10, .width = 40, .background = 100}},
        Regime{"40000 on 10000, 80 bins", {.pairs = 40'000, .middle = 10, .width = 80, .background = 10'000}}),
    [](const auto& regime) { return "Regime" + std::to_string(regime.index); });

}  // namespace
