#include "orvo/timing/poisson_statistics.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>

namespace {

using orvo::timing::LogProbability;
using orvo::timing::poisson_at_least;
using orvo::timing::poisson_at_most;
using orvo::timing::poisson_interval;
using orvo::timing::PoissonInterval;

constexpr double kLastDigit = 5.01e-7;

struct Tail {
  double count, mean, log10, sigmas;
};

TEST(PoissonStatistics, UpperTailsAreThoseOfTheSeries) {
  for (const Tail& tail : {Tail{1, 1e-4, -4.000022, 3.719029}, Tail{5, 0.5, -3.764180, 3.579516},
                           Tail{159, 60, -25.597788, 10.550562}, Tail{431, 0.01, -1811.999527, 91.289101},
                           Tail{10'500, 1e4, -6.443747, 4.955912}, Tail{50'000, 1e4, -17579.372609, 284.504593}}) {
    const LogProbability p = poisson_at_least(tail.count, tail.mean);
    EXPECT_NEAR(p.log10(), tail.log10, kLastDigit) << tail.count << " of " << tail.mean;
    EXPECT_NEAR(p.sigmas(), tail.sigmas, kLastDigit) << tail.count << " of " << tail.mean;
  }
}

TEST(PoissonStatistics, LowerTailsAreThoseOfTheSeries) {
  for (const Tail& tail : {Tail{2, 25, -8.327803, 5.741176}, Tail{400, 600, -17.649682, 8.665871}}) {
    const LogProbability p = poisson_at_most(tail.count, tail.mean);
    EXPECT_NEAR(p.log10(), tail.log10, kLastDigit);
    EXPECT_NEAR(p.sigmas(), tail.sigmas, kLastDigit);
  }
}

TEST(PoissonStatistics, TailsOfSmallNumbersAreSumsOfTerms) {
  for (const double mean : {0.1, 1.0, 3.7, 12.0, 30.0}) {
    double below = 0;  // P(X < count)
    double term = std::exp(-mean);
    for (int count = 0; count < 40; ++count) {
      if (below < 0.999) {
        EXPECT_NEAR(std::exp(poisson_at_least(count, mean).ln), 1 - below, 1e-12);
      }
      below += term;
      EXPECT_NEAR(std::exp(poisson_at_most(count, mean).ln), below, 1e-12) << count << " of " << mean;
      term *= mean / (count + 1);
    }
  }
}

TEST(PoissonStatistics, BothFormsMeetWhereTheyTakeTurns) {
  for (const double mean : {2000.0, 9000.0, 9900.0, 9999.5, 10'001.0, 10'300.0, 20'000.0}) {
    const double series = poisson_at_least(10'000, mean).ln;
    const double term = 10'000 * std::log(mean) - mean - std::lgamma(10'001.0);
    const double next = poisson_at_least(10'001, mean).ln;  // P(X >= c) = P(X = c) + P(X >= c + 1)
    EXPECT_NEAR(series, std::log(std::exp(next - series) + std::exp(term - series)) + series, 2e-6) << mean;
  }
}

TEST(PoissonStatistics, BothTailsMakeUpEverything) {
  for (const double mean : {9'990.0, 1e6, 1e9, 1e12}) {
    for (const double sigmas : {-5.0, -1.0, -1e-3, 0.0, 1e-5, 1e-3, 1.0, 5.0}) {
      const double count = std::floor(mean + sigmas * std::sqrt(mean));
      EXPECT_NEAR(std::exp(poisson_at_least(count, mean).ln) + std::exp(poisson_at_most(count - 1, mean).ln), 1,
                  1e-9);
      if (mean >= 1e9) {
        EXPECT_NEAR(std::exp(poisson_at_least(count, mean).ln), std::erfc(sigmas / std::numbers::sqrt2) / 2, 5e-5);
      }
    }
  }
}

TEST(PoissonStatistics, WhatIsCertainOrImpossible) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  EXPECT_EQ(poisson_at_least(0, 5).ln, 0);
  EXPECT_EQ(poisson_at_least(-1, 5).ln, 0);
  EXPECT_EQ(poisson_at_least(0, 0).ln, 0);
  EXPECT_EQ(poisson_at_least(1, 0).ln, -kInfinity);
  EXPECT_EQ(poisson_at_most(-1, 5).ln, -kInfinity);
  EXPECT_EQ(poisson_at_most(0, 0).ln, 0);
  EXPECT_EQ(poisson_at_most(7, 0).ln, 0);
  EXPECT_EQ(LogProbability{-kInfinity}.sigmas(), kInfinity);
  EXPECT_EQ(LogProbability{0}.sigmas(), 0);
  EXPECT_EQ(LogProbability{std::log(0.6)}.sigmas(), 0);
}

TEST(PoissonStatistics, SigmasOfProbabilitiesNoDoubleHolds) {
  EXPECT_NEAR(LogProbability{-1000}.sigmas(), 44.615748, kLastDigit);
  EXPECT_NEAR(LogProbability{-1e5}.sigmas(), 447.197894, kLastDigit);
  EXPECT_NEAR(LogProbability{std::log(0.15865525393145705)}.sigmas(), 1, 1e-9);
  EXPECT_NEAR(LogProbability{std::log(0.4)}.sigmas(), 0.253347103, 1e-9);
}

TEST(PoissonStatistics, ManyTriesMakeTheImprobableLikelier) {
  const LogProbability nine{-9 * std::numbers::ln10};
  EXPECT_NEAR(nine.in_trials(1251).log10(), -5.902743, kLastDigit);
  EXPECT_NEAR(nine.in_trials(1251).sigmas(), 4.707967, kLastDigit);
  const LogProbability four_hundred{-400 * std::numbers::ln10};
  EXPECT_NEAR(four_hundred.in_trials(1251).log10(), -396.902743, kLastDigit);
  EXPECT_NEAR(four_hundred.in_trials(1251).sigmas(), 42.643405, kLastDigit);
  EXPECT_NEAR(std::exp(LogProbability{std::log(0.25)}.in_trials(2).ln), 1 - 0.75 * 0.75, 1e-12);
  EXPECT_EQ(LogProbability{0}.in_trials(0).ln, 0);
}

TEST(PoissonStatistics, IntervalsLeaveTheSameProbabilityOnBothSides) {
  const auto expect_interval = [](double count, PoissonInterval expected) {
    EXPECT_NEAR(poisson_interval(count).low, expected.low, kLastDigit) << count;
    EXPECT_NEAR(poisson_interval(count).high, expected.high, kLastDigit) << count;
  };
  expect_interval(0, {0, 1.841022});
  expect_interval(1, {0.172754, 3.299527});
  expect_interval(5, {2.840309, 8.382473});
  expect_interval(9, {6.056539, 13.110204});
}

}  // namespace
