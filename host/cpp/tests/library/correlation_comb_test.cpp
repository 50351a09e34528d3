#include "orvo/timing/correlation_comb.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <random>

#include "support/pulls.hpp"
#include "support/simulated_correlation.hpp"
#include "support/simulated_recording.hpp"

namespace {

using orvo::test::expect_standard;
using orvo::timing::correlation_comb;
using orvo::timing::CorrelationBins;
using orvo::timing::CorrelationComb;
using orvo::timing::CorrelationSide;

struct SimulatedComb {
  double period = 31.7;
  double first = 12.2;  ///< a tooth, in bins from the first one
  double width = 6;
  double pairs = 400;  ///< of a tooth
  double background = 2;
  int odd = -1;          ///< index of a tooth of its own
  double odd_pairs = 0;  ///< its pairs
  std::size_t bins = 1001;
};

/// One recording of the comb, in bins of 1 ps about 0.
CorrelationBins drawn_comb(const SimulatedComb& comb, std::uint64_t seed) {
  std::mt19937_64 random(seed);
  CorrelationBins bins;
  for (std::size_t i = 0; i < comb.bins; ++i) {
    double mean = comb.background;
    int tooth = 0;
    for (double at = comb.first; at < static_cast<double>(comb.bins) + comb.period; at += comb.period, ++tooth) {
      const double x = static_cast<double>(i) - at;
      mean +=
          (tooth == comb.odd ? comb.odd_pairs : comb.pairs) * (orvo::test::gaussian_profile((x + 0.5) / comb.width) -
                                                               orvo::test::gaussian_profile((x - 0.5) / comb.width));
    }
    bins.middle_ps.push_back(static_cast<double>(i) - static_cast<double>(comb.bins / 2));
    bins.counts.push_back(static_cast<double>(std::poisson_distribution<std::int64_t>(mean)(random)));
    bins.expected.push_back(comb.background + comb.pairs / comb.period);
  }
  return bins;
}

TEST(CorrelationComb, OfPulsedLightHasItsPeriodFloorAndTeeth) {
  const auto comb = correlation_comb(drawn_comb({}, 1));
  ASSERT_TRUE(comb);
  EXPECT_NEAR(comb->period_ps.value, 31.7, 0.02);
  EXPECT_NEAR(comb->pairs.value, 400, 20);
  EXPECT_NEAR(comb->level.value, 2 / (2 + 400 / 31.7), 0.01);
  EXPECT_NEAR(std::remainder(comb->tooth_ps - (12.2 - 500), 31.7), 0, 0.5);
  EXPECT_FALSE(comb->odd);
  EXPECT_LT(comb->probability.log10(), -100);
}

TEST(CorrelationComb, AMissingToothIsADip) {
  const auto comb = correlation_comb(drawn_comb({.odd = 17, .odd_pairs = 0}, 2));
  ASSERT_TRUE(comb && comb->odd);
  EXPECT_EQ(comb->odd->side, CorrelationSide::dip);
  EXPECT_NEAR(comb->odd->place_ps, 12.2 + 17 * 31.7 - 500, 0.5);
  EXPECT_NEAR(comb->odd->of_others.value, 0, 0.1);
  EXPECT_NEAR(comb->odd->pairs.value, 400, 40);
}

TEST(CorrelationComb, AHalfFilledToothIsADipOfHalfTheCoincidences) {
  const auto comb = correlation_comb(drawn_comb({.odd = 9, .odd_pairs = 200}, 3));
  ASSERT_TRUE(comb && comb->odd);
  EXPECT_EQ(comb->odd->side, CorrelationSide::dip);
  EXPECT_NEAR(comb->odd->of_others.value, 0.5, 4 * comb->odd->of_others.error);
  EXPECT_NEAR(comb->odd->of_others.error, 0.04, 0.01);
}

TEST(CorrelationComb, AHigherToothIsAPeak) {
  const auto comb = correlation_comb(drawn_comb({.odd = 20, .odd_pairs = 4000}, 4));
  ASSERT_TRUE(comb && comb->odd);
  EXPECT_EQ(comb->odd->side, CorrelationSide::peak);
  EXPECT_NEAR(comb->odd->place_ps, 12.2 + 20 * 31.7 - 500, 0.5);
  EXPECT_NEAR(comb->odd->pairs.value, 3600, 4 * comb->odd->pairs.error);
}

TEST(CorrelationComb, PeriodIsThatBetweenTheTrueMiddlesOfBins) {
  // Bins of 2 ps hold 0 alone, 1 and 2, -2 and -1 ...: the middles of bins 1 and -1 are 3 ps from one another, not 4.
  // Taken for 4 they make a period among eight teeth on either side 0.1 ps longer.
  CorrelationBins bins;
  bins.bin_ps = 2;
  for (int k = -250; k <= 250; ++k) {
    const double middle_ps = 2 * k - (k > 0 ? 0.5 : k < 0 ? -0.5 : 0);
    const double half_ps = k == 0 ? 0.5 : 1;
    double mean = 2 * half_ps;
    for (int tooth = -10; tooth <= 10; ++tooth) {
      const double x = middle_ps - 60 * tooth;
      mean +=
          1e5 * (orvo::test::gaussian_profile((x + half_ps) / 12) - orvo::test::gaussian_profile((x - half_ps) / 12));
    }
    bins.middle_ps.push_back(middle_ps);
    bins.counts.push_back(std::round(mean));
    bins.expected.push_back(2 * half_ps * 1700);
  }
  const auto comb = correlation_comb(bins);
  ASSERT_TRUE(comb);
  EXPECT_NEAR(comb->period_ps.value, 60, 0.005);
}

TEST(CorrelationComb, OfHalfOfTheViewSharesHalfOfItsFloorsCounts) {
  // 50 pairs by chance in each of 1200 bins. 16 of the 30 periods of 40 bins have teeth of 400 pairs each: 32,000
  // pairs by chance, 6400 more. Of the bins that tell the floor 16 / 30 are among those.
  CorrelationBins bins;
  for (int i = 0; i < 1200; ++i) {
    double mean = 50;
    for (int tooth = 7; tooth < 23; ++tooth) {
      const double x = i - (40 * tooth + 19.5);
      mean += 400 * (orvo::test::gaussian_profile((x + 0.5) / 6) - orvo::test::gaussian_profile((x - 0.5) / 6));
    }
    bins.middle_ps.push_back(i - 600);
    bins.counts.push_back(std::round(mean));
    bins.expected.push_back(50);
  }
  const auto comb = correlation_comb(bins);
  ASSERT_TRUE(comb && !comb->odd);
  ASSERT_EQ(comb->teeth, 16U);
  EXPECT_NEAR(comb->pairs.value, 400, 5);
  const double of_floor = 32'000 * comb->level.error;
  const double variance = 38'400 + of_floor * of_floor - 2 * 32'000 * 16 / 30.0;
  EXPECT_NEAR(comb->pairs.error, std::sqrt(variance) / 16, 0.1);
  EXPECT_GT(comb->pairs.error, 10);  // 38,400 counts alone: 12.2
}

TEST(CorrelationComb, OfSkewedTeethHasAPeriodOfTheirOrder) {
  // Teeth of 55,000 pairs in each of ten periods of 100 bins, with pairs missing to the left of the first and to the
  // right of the last of them: five periods off, were their means taken as they are.
  CorrelationBins bins;
  for (int i = 0; i < 1001; ++i) {
    bins.middle_ps.push_back(i - 500);
    bins.counts.push_back(1e6);
    bins.expected.push_back(1e6);
  }
  for (const double slope : {100.0, 120.0, 140.0}) {
    CorrelationBins skewed = bins;
    for (int tooth = 0; tooth < 10; ++tooth) {
      const int middle = 50 + 100 * tooth;
      const double missing = std::round(slope * std::abs(4.5 - tooth) * 55'000 / 57);
      const auto at = [&](int distance) -> double& {
        return skewed.counts[static_cast<std::size_t>(middle + distance) % skewed.size()];
      };
      for (int d = 7; d <= 12; ++d) at(tooth < 5 ? -d : d) -= missing;
      at(0) += 6 * missing - 66'000;
      for (int d = 46; d < 54; ++d) at(d) -= 4e5;  // in return for which the tooth has 121,000 more
      for (const int d : {-40, 40}) at(d) += 1.6e6;
    }
    const auto comb = correlation_comb(skewed);
    ASSERT_TRUE(comb) << slope;
    EXPECT_NEAR(comb->period_ps.value, 100, 60) << slope;  // two means side by side are at least 0.4 periods apart
  }
}

TEST(CorrelationComb, OfNarrowTeethIsNotTakenForOneOfHalfThePeriod) {
  const auto comb = correlation_comb(drawn_comb({.period = 100.3, .width = 2, .pairs = 300, .background = 0.1}, 5));
  ASSERT_TRUE(comb);
  EXPECT_NEAR(comb->period_ps.value, 100.3, 0.1);
}

TEST(CorrelationComb, OfTeethThatRunIntoOneAnotherIsFound) {
  const auto comb = correlation_comb(drawn_comb({.period = 25, .width = 16, .pairs = 4000, .background = 100}, 6));
  ASSERT_TRUE(comb);
  EXPECT_NEAR(comb->period_ps.value, 25, 0.1);
}

TEST(CorrelationComb, IsFoundInNearlyAllRecordingsWithTheErrorItTells) {
  int found = 0;
  orvo::test::Pulls period;
  for (std::uint64_t seed = 0; seed < 60; ++seed) {
    const SimulatedComb source{.period = 41.3, .width = 5, .pairs = 40, .background = 0.5};
    if (const auto comb = correlation_comb(drawn_comb(source, seed))) {
      ++found;
      period.add(comb->period_ps.value - 41.3, comb->period_ps.error);
    }
  }
  EXPECT_GE(found, 57);
  EXPECT_NEAR(period.mean(), 0, 0.6);
  EXPECT_NEAR(period.width(), 1, 0.4);
}

struct CombRegime {
  const char* name;
  SimulatedComb source;
};

TEST(CorrelationComb, NumbersHaveMeanZeroAndWidthOne) {
  const int seeds = orvo::test::simulated_recordings(20);
  for (const auto& [name, source] : {CombRegime{"no tooth unlike the others", {}},
                                     {"missing tooth", {.odd = 17, .odd_pairs = 0}},
                                     {"half a tooth", {.odd = 9, .odd_pairs = 200}},
                                     {"tooth ten times the others", {.odd = 20, .odd_pairs = 4000}}}) {
    orvo::test::Pulls period;
    orvo::test::Pulls floor;
    orvo::test::Pulls tooth;
    orvo::test::Pulls odd_pairs;
    orvo::test::Pulls odd_ratio;
    for (int seed = 0; seed < seeds; ++seed) {
      const auto comb = correlation_comb(drawn_comb(source, static_cast<std::uint64_t>(seed)));
      ASSERT_TRUE(comb) << name;
      ASSERT_EQ(comb->odd.has_value(), source.odd >= 0) << name;  // a false one in 100 000 is allowed
      period.add(comb->period_ps.value - source.period, comb->period_ps.error);
      floor.add(comb->level.value - source.background / (source.background + source.pairs / source.period),
                comb->level.error);
      if (!comb->odd) {
        tooth.add(comb->pairs.value - source.pairs, comb->pairs.error);
        continue;
      }
      odd_pairs.add(comb->odd->pairs.value - std::abs(source.odd_pairs - source.pairs), comb->odd->pairs.error);
      odd_ratio.add(comb->odd->of_others.value - source.odd_pairs / source.pairs, comb->odd->of_others.error);
    }
    std::printf("%-28s", name);
    expect_standard("period", period);
    expect_standard("floor", floor);
    if (source.odd < 0) expect_standard("tooth", tooth);
    if (source.odd >= 0) expect_standard("pairs", odd_pairs);
    if (source.odd >= 0) expect_standard("g2", odd_ratio);
    std::printf("\n");
  }
}

TEST(CorrelationComb, IsNotSeenInNoisePeaksAndDips) {
  using orvo::test::drawn_bins;
  for (std::uint64_t seed = 0; seed < orvo::test::rounds(40); ++seed) {
    for (const double pairs : {0.0, 300.0, 5000.0, 100'000.0, -1500.0}) {
      for (const double width : {1.0, 20.0, 120.0}) {
        EXPECT_FALSE(correlation_comb(drawn_bins({.pairs = pairs, .width = width, .background = 2000}, seed)));
      }
      if (pairs >= 0) {
        EXPECT_FALSE(correlation_comb(drawn_bins({.pairs = pairs, .background = 0.3, .bins = 301}, seed)));
      }
    }
  }
}

TEST(CorrelationComb, IsNoneInViewsWithoutBinsOrCounts) {
  CorrelationBins bins;
  EXPECT_FALSE(correlation_comb(bins));
  for (int i = 0; i < 100; ++i) {
    bins.middle_ps.push_back(i);
    bins.counts.push_back(0);
    bins.expected.push_back(0);
  }
  EXPECT_FALSE(correlation_comb(bins));
  bins.expected.assign(100, 1);
  EXPECT_FALSE(correlation_comb(bins));
}

}  // namespace
