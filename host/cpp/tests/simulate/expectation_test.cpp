#include "simulate/expectation.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>

namespace {

constexpr double kSecondPs = 1e12;
constexpr std::int64_t kQuarterPs = 250'000'000'000;

PairSettings delayed(std::int64_t delay_ps, std::int64_t jitter_ps = 0) {
  return {.rate_hz = 1000, .delay_ps = delay_ps, .jitter_ps = jitter_ps, .range_ps = 5000};
}

TEST(PairSigma, WithoutJitterIsThatOfTheTwoNearestSteps) {
  EXPECT_EQ(pair_sigma_ps(delayed(160), 1), 0);
  EXPECT_EQ(pair_sigma_ps(delayed(160), 8), 0);
  EXPECT_EQ(pair_sigma_ps(delayed(4), 8), 4);                            // half of 8
  EXPECT_NEAR(pair_sigma_ps(delayed(2), 8), 3.464101615137755, 1e-12);   // sqrt(1/4 * 3/4) * 8
  EXPECT_NEAR(pair_sigma_ps(delayed(-2), 8), 3.464101615137755, 1e-12);  // -1/4 is 3/4 after the step before
}

TEST(PairSigma, OfAWideJitterGrowsByASixthOfAStepSquared) {
  EXPECT_NEAR(pair_sigma_ps(delayed(160, 40), 1), 40.00208327908269, 1e-9);  // sqrt(1600 + 1/6)
  EXPECT_NEAR(pair_sigma_ps(delayed(3, 100), 8), 100.05331911869123, 1e-9);  // sqrt(10000 + 64/6)
}

TEST(PairsInRange, AreTheShareOfAGaussian) {
  EXPECT_NEAR(pairs_in_range(delayed(0), 5000, kSecondPs), 682.689492137, 1e-6);  // within 1 sigma
  EXPECT_NEAR(pairs_in_range(delayed(0), 2500, kSecondPs), 954.499736104, 1e-6);  // 2 sigma
  EXPECT_NEAR(pairs_in_range(delayed(0), 0, kSecondPs), 1000, 1e-9);
}

TEST(PairsInRange, NeedBothClicksInTheRecording) {
  EXPECT_NEAR(pairs_in_range(delayed(kQuarterPs), 0, kSecondPs), 750, 1e-9);
  EXPECT_NEAR(pairs_in_range(delayed(-kQuarterPs), 0, kSecondPs), 750, 1e-9);
  EXPECT_EQ(pairs_in_range(delayed(4 * kQuarterPs), 0, kSecondPs), 0);
  EXPECT_EQ(pairs_in_range(delayed(5 * kQuarterPs), 0, kSecondPs), 0);
}

// 10,001 whole picoseconds lie within 5000 of the delay.
TEST(Accidentals, AreOnePerPicosecondOfTheRangeAtAMillionTagsASecond) {
  EXPECT_DOUBLE_EQ(accidentals(1e6, 1e6, delayed(0), kSecondPs), 10'001);
  EXPECT_DOUBLE_EQ(accidentals(2e6, 3e6, delayed(0), 10 * kSecondPs), 6000.6);
}

TEST(Accidentals, NeedBothTagsInTheRecording) {
  EXPECT_DOUBLE_EQ(accidentals(1e6, 1e6, delayed(kQuarterPs), kSecondPs), 7500.75);
  EXPECT_DOUBLE_EQ(accidentals(1e6, 1e6, delayed(-kQuarterPs), kSecondPs), 7500.75);
  EXPECT_EQ(accidentals(1e6, 1e6, delayed(5 * kQuarterPs), kSecondPs), 0);
  EXPECT_EQ(accidentals(1e6, 1e6, delayed(0), 0), 0);
}

TEST(ExpectedHistogram, OfPairsAloneIsAsWideAsTheyAre) {
  const ExpectedHistogram expected = expected_histogram(100, 0, 30, 5000);
  EXPECT_DOUBLE_EQ(expected.rms_ps, 30);
  EXPECT_DOUBLE_EQ(expected.mean_error_ps, 3);                    // 30 / sqrt(100)
  EXPECT_NEAR(expected.rms_error_ps, 2.1213203435596424, 1e-12);  // 30 / sqrt(2 * 100)
}

TEST(ExpectedHistogram, OfAccidentalsAloneIsFlat) {
  const ExpectedHistogram expected = expected_histogram(300, 400, 30, 3000);
  EXPECT_NEAR(expected.rms_ps, 1732.0508075688772, 1e-9);  // 3000 / sqrt(3)
  EXPECT_DOUBLE_EQ(expected.mean_error_ps, 100);
  EXPECT_NEAR(expected.rms_error_ps, 44.721359549995796, 1e-9);  // sqrt((3000^4 / 5 - 3000^4 / 9) / (4 * 3e6 * 300))
}

TEST(ExpectedHistogram, OfNothingAndOfPairsInOneBinIsZero) {
  for (const ExpectedHistogram& expected :
       {expected_histogram(0, 0, 30, 5000), expected_histogram(100, 0, 0, 5000)}) {
    EXPECT_EQ(expected.rms_ps, 0);
    EXPECT_EQ(expected.mean_error_ps, 0);
    EXPECT_EQ(expected.rms_error_ps, 0);
  }
}

}  // namespace
