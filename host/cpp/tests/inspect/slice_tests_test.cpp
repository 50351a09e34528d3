// Bursts and steps of the rate, on both sides of what makes one. G is c ln(c/Nq) + (N-c) ln((N-c)/N(1-q)).
#include "inspect/slice_tests.hpp"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace {

using Counts = std::vector<std::uint64_t>;

Counts spike(std::uint64_t usual, std::uint64_t count) {
  Counts counts(200, usual);
  counts[100] = count;
  return counts;
}

TEST(Bursts, HaveTwiceTheRateAroundThem) {
  EXPECT_TRUE(find_bursts(spike(100, 199)).empty());
  const std::vector<Place> places = find_bursts(spike(100, 200));
  ASSERT_EQ(places.size(), 1u);
  EXPECT_EQ(places[0].at, 100u);
  EXPECT_EQ(places[0].factor, 2);
}

// Of 87 tags 47 in a fifth of the time have G = 24.6, of 88 tags 48 have 25.6.
TEST(Bursts, AreNoChance) {
  EXPECT_TRUE(find_bursts(spike(10, 47)).empty());
  EXPECT_EQ(find_bursts(spike(10, 48)).size(), 1u);
}

// Light that blinks all the time has no bursts: four slices of every twenty have four times the rate.
TEST(Bursts, StandOutOfWhatTheLightDoesAnyway) {
  Counts counts(2'000);
  for (std::size_t i = 0; i < counts.size(); ++i) counts[i] = i % 20 < 4 ? 160 : 40;
  EXPECT_TRUE(find_bursts(counts).empty());
}

TEST(Bursts, AreOnePlaceUpTo16SlicesApart) {
  Counts counts(200, 100);
  counts[100] = counts[117] = 300;
  EXPECT_EQ(find_bursts(counts).size(), 2u);
  counts[117] = 100;
  counts[116] = 300;
  EXPECT_EQ(find_bursts(counts).size(), 1u);
}

TEST(Bursts, NeedTwoWindowsOnEachSide) {
  Counts counts(60, 100);
  counts[2] = 300;
  EXPECT_EQ(find_bursts(counts).size(), 1u);
  counts.erase(counts.begin());
  EXPECT_TRUE(find_bursts(counts).empty());
}

/// 200 slices of each rate; between them 8 of a third one.
Counts step(std::uint64_t before, std::uint64_t after, std::uint64_t then) {
  Counts counts(200, before);
  counts.insert(counts.end(), 8, after);
  counts.insert(counts.end(), 200, then);
  return counts;
}

TEST(RateSteps, AreByAFactorOfTwo) {
  EXPECT_TRUE(find_rate_steps(step(100, 199, 199), {}).empty());
  const std::vector<Place> places = find_rate_steps(step(100, 200, 200), {});
  ASSERT_EQ(places.size(), 1u);
  EXPECT_EQ(places[0].at, 200u);
  EXPECT_EQ(places[0].before, 100);
  EXPECT_EQ(places[0].after, 200);
  EXPECT_EQ(find_rate_steps(step(200, 100, 100), {}).size(), 1u);
  EXPECT_TRUE(find_rate_steps(step(199, 100, 100), {}).empty());
}

// 8 against 64 tags have G = 24.8, 8 against 72 have 29.4.
TEST(RateSteps, AreNoChance) {
  EXPECT_TRUE(find_rate_steps(step(1, 8, 8), {}).empty());
  EXPECT_EQ(find_rate_steps(step(1, 9, 9), {}).size(), 1u);
}

TEST(RateSteps, Last) {
  EXPECT_TRUE(find_rate_steps(step(100, 200, 149), {}).empty());
  EXPECT_EQ(find_rate_steps(step(100, 200, 150), {}).size(), 1u);
}

TEST(RateSteps, AreAwayFromBursts) {
  const Counts counts = step(100, 200, 200);
  EXPECT_TRUE(find_rate_steps(counts, {{200 + 16, 220, 3, 216, 0, 0}}).empty());
  EXPECT_EQ(find_rate_steps(counts, {{200 + 17, 220, 3, 217, 0, 0}}).size(), 1u);
  EXPECT_TRUE(find_rate_steps(counts, {{150, 200 - 17, 3, 150, 0, 0}}).empty());
  EXPECT_EQ(find_rate_steps(counts, {{150, 200 - 18, 3, 150, 0, 0}}).size(), 1u);
}

}  // namespace
