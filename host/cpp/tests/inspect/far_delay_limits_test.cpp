// Far delays are found to within the width of the peak whenever enough of the tags are correlated, at all rates and
// reaches.
//
// How far a share of correlated tags stands out depends on the bins alone: 0.6 % of them in 2^22 bins as far as 4.8 %
// in the 2^16 of a quick test. ORVO_SIMULATION_BINS is the exponent, ORVO_SIMULATION_SEEDS the recordings of each
// cell, ORVO_SIMULATION_SHARE the share in millionths; --gtest_filter takes single cells.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <random>
#include <string>

#include "inspect/pair_report.hpp"
#include "inspect/pair_search.hpp"
#include "support/sanitizer.hpp"
#include "support/simulated_recording.hpp"

namespace {

using orvo::test::kSecondPs;
using orvo::test::kUnderAddressSanitizer;
using CorrelatedLight = orvo::test::PairSource;
using orvo::test::PairTags;
using orvo::test::recorded_pairs;
using orvo::test::simulation_setting;

struct Cell {
  double rate_hz;
  double reach_s;
};

class FarDelayLimits : public testing::TestWithParam<Cell> {};

/// A recording of the cell as short as it may be: 2000 pairs, and twice the reach. Every other one drifts.
CorrelatedLight drawn_source(const Cell& cell, double share, int seed) {
  std::mt19937_64 random(static_cast<std::uint64_t>(seed));
  std::uniform_real_distribution<double> uniform(-1, 1);
  CorrelatedLight source{.rate_hz = cell.rate_hz, .share = share};
  source.seconds = std::max(2000 / (share * cell.rate_hz), 2 * cell.reach_s);
  source.delay_ps = uniform(random) * cell.reach_s * kSecondPs;
  if (seed % 2 != 0) source.drift.depth = 0.5;
  return source;
}

TEST_P(FarDelayLimits, AreKept) {
  constexpr int kQuickBins = 16;
  constexpr double kQuickTags = 50'000;
  const Cell& cell = GetParam();
  const int exponent = simulation_setting("ORVO_SIMULATION_BINS", kQuickBins);
  const int seeds = simulation_setting("ORVO_SIMULATION_SEEDS", kUnderAddressSanitizer ? 1 : 2);
  const double limit = 0.006 * std::exp2((22 - exponent) / 2.0);
  const double share = simulation_setting("ORVO_SIMULATION_SHARE", static_cast<int>(limit * 1e6)) / 1e6;
  int found = 0;
  int wrong = 0;
  double seconds = 0;
  for (int seed = 0; seed < seeds; ++seed) {
    const CorrelatedLight source = drawn_source(cell, share, seed);
    seconds = source.seconds;
    if (exponent == kQuickBins && source.rate_hz * seconds > kQuickTags) return;
    const PairTags tags = recorded_pairs(source, static_cast<std::uint64_t>(seed));
    PairSearch search({tags.a, tags.b}, {whole_ps(cell.reach_s * kSecondPs), std::size_t{1} << exponent});
    const PairFinding finding = search.find(0, 1);
    const auto delay_ps = finding.delay_ps();
    const double width_ps = 2.354820045 * source.jitter_ps;
    if (delay_ps && std::abs(delay_ps->value - source.delay_ps) <= width_ps) {
      ++found;
    } else {
      wrong += finding.statistics.judgement.significant ? 1 : 0;
      std::printf("seed %d: %s instead of %.0f ps\n", seed, std::string(to_text(verdict_of(finding))).c_str(),
                  source.delay_ps);
    }
  }
  std::printf("2^%d bins, share %.2f %%, %8.0f Hz, reach %5g s, %6.3g s: found %d of %d, wrong %d\n", exponent,
              100 * share, cell.rate_hz, cell.reach_s, seconds, found, seeds, wrong);
  EXPECT_EQ(wrong, 0);
  if (share >= 0.99 * limit) {
    EXPECT_EQ(found, seeds);
  }
}

INSTANTIATE_TEST_SUITE_P(Cells, FarDelayLimits,
                         testing::Values(Cell{1e3, 0.001}, Cell{1e3, 0.01}, Cell{1e3, 0.1}, Cell{1e3, 1},
                                         Cell{1e4, 0.001}, Cell{1e4, 0.01}, Cell{1e4, 0.1}, Cell{1e4, 1},
                                         Cell{1e5, 0.001}, Cell{1e5, 0.01}, Cell{1e5, 0.1}, Cell{1e5, 1},
                                         Cell{1e6, 0.001}, Cell{1e6, 0.01}, Cell{1e6, 0.1}, Cell{1e6, 1},
                                         Cell{1e7, 0.001}, Cell{1e7, 0.01}, Cell{1e7, 0.1}, Cell{1e7, 1}),
                         [](const auto& cell) {
                           const auto number = [](double value) { return std::to_string(std::lround(value)); };
                           return number(cell.param.rate_hz) + "Hz" + number(1000 * cell.param.reach_s) + "ms";
                         });

}  // namespace
