// Errors are what they say: over many simulated recordings the differences to what is true, in units of the errors,
// have mean 0 and width 1. ORVO_SIMULATION_SEEDS sets how many recordings each regime has; with 2000 and more the
// limits are those of docs/peak-statistics.md.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ostream>
#include <string>

#include "orvo/timing/correlation_background.hpp"
#include "orvo/timing/correlation_peak.hpp"
#include "orvo/timing/correlation_significance.hpp"
#include "support/simulated_correlation.hpp"

namespace {

using orvo::test::drawn_bins;
using orvo::test::Pulls;
using orvo::test::SimulatedSource;
using namespace orvo::timing;

int seeds() {
  constexpr int kQuick = 100;
  const char* const wanted = std::getenv("ORVO_SIMULATION_SEEDS");
  return wanted == nullptr ? kQuick : std::max(std::atoi(wanted), 10);
}

struct Regime {
  const char* name;
  SimulatedSource source;
};

std::ostream& operator<<(std::ostream& out, const Regime& regime) {
  return out << regime.name;
}

class CorrelationPulls : public testing::TestWithParam<Regime> {};

void print(const char* what, const Pulls& pulls) {
  std::printf("  %s %+.2f/%.2f", what, pulls.mean(), pulls.width());
}

/// Within 5 %, and what the number of seeds leaves uncertain: four standard deviations.
void expect_standard(const char* what, const Pulls& pulls) {
  print(what, pulls);
  const double count = pulls.count();
  EXPECT_NEAR(pulls.mean(), 0, 0.05 + 4 / std::sqrt(count)) << what;
  EXPECT_NEAR(pulls.width(), 1, 0.05 + 4 / std::sqrt(2 * count)) << what;
}

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
    if (peak.level.error > 0) background.add((peak.level.value - source.level) / peak.level.error);
    pairs.add((peak.pairs.value - std::abs(source.pairs)) / peak.pairs.error);
    place.add((peak.place_ps->value - source.middle) / peak.place_ps->error);
    const double relative_error = peak.fwhm_ps->error / peak.fwhm_ps->value;
    width.add(std::log(peak.fwhm_ps->value / source.width) / relative_error);  // an error that is a factor
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
    testing::Values(Regime{"100 on 0.2", {.pairs = 100, .middle = 31, .background = 0.2}},
                    Regime{"1000 on 10", {.pairs = 1000, .middle = 31}},
                    Regime{"8000 on 1000", {.pairs = 8000, .middle = -58, .background = 1000}},
                    Regime{"40000 on 100, sixth of view",
                           {.pairs = 40'000, .middle = 31, .width = 167, .background = 100}},
                    Regime{"dip of 3000 in 200", {.pairs = -3000, .middle = 31, .background = 200}},
                    Regime{"2000 on 50, level 1.3", {.pairs = 2000, .middle = 31, .background = 50, .level = 1.3}},
                    Regime{"300 on 1, 4 bins", {.pairs = 300, .middle = 31, .width = 4, .background = 1}},
                    Regime{"1000 on 10, 60 bins", {.pairs = 1000, .middle = -200, .width = 60}},
                    Regime{"2000 on 100, 40 bins", {.pairs = 2000, .middle = 10, .width = 40, .background = 100}}),
    [](const auto& regime) { return "Regime" + std::to_string(regime.index); });

}  // namespace
