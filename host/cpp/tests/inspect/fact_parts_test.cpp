// What the facts of a capture are collected with: bins of distances, multiples of a grid, losses, repeated pieces.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <random>
#include <span>
#include <vector>

#include "inspect/interval_bins.hpp"
#include "inspect/loss_records.hpp"
#include "inspect/multiples.hpp"
#include "inspect/repeated_pieces.hpp"
#include "reference/capture_facts.hpp"

namespace {

using namespace orvo::test::reference;

TEST(IntervalBins, StartAtTheSmallestNumberWhoseEighthPowerReachesThem) {
  for (std::size_t i = 0; i < kIntervalBins; ++i) {
    const std::uint64_t low = kIntervalBinLows[i];
    EXPECT_FALSE(less(power(low, 8), power(10, static_cast<unsigned>(i)))) << i;
    EXPECT_TRUE(low == 1 || less(power(low - 1, 8), power(10, static_cast<unsigned>(i)))) << i;
    EXPECT_EQ(interval_bin(low), i == 1 ? 2 : i);
    EXPECT_TRUE(low == 1 || interval_bin(low - 1) < i) << i;
    if (low > std::uint64_t{1} << 53) continue;
    EXPECT_EQ(short_interval_bin(low), interval_bin(low));
    EXPECT_TRUE(low == 1 || short_interval_bin(low - 1) == interval_bin(low - 1)) << i;
  }
  EXPECT_EQ(interval_bin(2), 2u);
  EXPECT_EQ(interval_bin(UINT64_MAX), 154u);
  for (std::uint64_t step = 1; step < 300; ++step) EXPECT_EQ(interval_bin(step), bin_of(step)) << step;
}

TEST(Multiples, AreWhatDivisionLeavesNothingOf) {
  std::mt19937_64 random(3);
  for (int i = 0; i < 20'000; ++i) {
    const std::uint64_t divisor = std::max<std::uint64_t>(random() >> random() % 64, 1);
    const std::uint64_t number = random() >> random() % 64;
    const Multiples multiples(divisor);
    ASSERT_EQ(multiples.contain(number), number % divisor == 0) << number << " of " << divisor;
    ASSERT_TRUE(multiples.contain(number / divisor * divisor)) << number << " of " << divisor;
    ASSERT_EQ(multiples.has_mask(), (divisor & (divisor - 1)) == 0);
    if (!multiples.has_mask()) continue;
    ASSERT_EQ(multiples.mask(), divisor - 1);
  }
}

TEST(LossRecords, KeepTheLargestAndWhereTheyAre) {
  using orvo::timing::LossReason;
  LossRecords records;
  for (std::uint64_t i = 0; i < 30; ++i) records.add({LossReason::foreign, 10'000 * i, 1 + i % 25});
  ASSERT_EQ(records.largest().size(), 20u);
  EXPECT_EQ(records.largest().front().size, 25u);
  EXPECT_EQ(records.largest().back().size, 6u);
  const auto& slices = records.slices();
  EXPECT_EQ(std::accumulate(slices.begin(), slices.end(), std::uint64_t{0}), 325u + 15);
  EXPECT_EQ(records.slice(), 512u);
  EXPECT_EQ(slices[10'000 / 512], 2u);
}

// Of equally large ones those that ended first: 25 of 8 bytes after a larger one.
TEST(LossRecords, KeepTheFirstOfEquallyLargeOnes) {
  using orvo::timing::LossReason;
  LossRecords records;
  for (std::uint64_t i = 0; i < 25; ++i) records.add({LossReason::foreign, 100 * i, 8});
  EXPECT_EQ(records.largest().back().position, 1'900u);
  records.add({LossReason::foreign, 2'500, 9});
  ASSERT_EQ(records.largest().size(), 20u);
  EXPECT_EQ(records.largest()[0].position, 2'500u);
  for (std::uint64_t i = 1; i < 20; ++i) EXPECT_EQ(records.largest()[i].position, 100 * (i - 1));
}

TEST(RepeatedPieces, AreFoundWhereverTheyStand) {
  std::mt19937_64 random(5);
  std::vector<std::uint64_t> steps(20'000);
  for (std::uint64_t& step : steps) step = random() % 1'000'000;
  const std::vector<std::uint8_t> channels(steps.size(), 1);
  RepeatedPieces once;
  once.add(channels, steps);
  EXPECT_EQ(once.found(), 0u);
  RepeatedPieces twice;
  twice.add(channels, steps);
  twice.add(std::span(channels).subspan(3'000, 5'000), std::span(steps).subspan(3'000, 5'000));
  EXPECT_GT(twice.found(), 5u);
  // In whatever parts the tags come.
  RepeatedPieces split;
  for (std::size_t at = 0; at < 25'000; at += 7) {
    std::vector<std::uint64_t> part;
    for (std::size_t i = at; i < std::min<std::size_t>(at + 7, 25'000); ++i) {
      part.push_back(steps[i < 20'000 ? i : i - 17'000]);
    }
    split.add(std::span(channels).first(part.size()), part);
  }
  EXPECT_EQ(split.found(), twice.found());
  EXPECT_EQ(split.tags(), twice.tags());
  // On another channel they are others.
  RepeatedPieces other;
  other.add(channels, steps);
  other.add(std::vector<std::uint8_t>(5'000, 2), std::span(steps).subspan(3'000, 5'000));
  EXPECT_EQ(other.found(), 0u);
  RepeatedPieces periodic;
  periodic.add(channels, std::vector<std::uint64_t>(20'000, 10'000'000));
  EXPECT_EQ(periodic.found(), 0u);
}

// Of 400 sets of 15 steps some hold one that ends a piece: without the need for 24 kinds their pieces would be found.
TEST(RepeatedPieces, OfFewKindsAreNone) {
  std::mt19937_64 random(7);
  const std::vector<std::uint8_t> channels(4'000, 1);
  for (int set = 0; set < 400; ++set) {
    std::vector<std::uint64_t> kinds(15);
    for (std::uint64_t& kind : kinds) kind = random() % 1'000'000;
    std::vector<std::uint64_t> steps(channels.size());
    for (std::uint64_t& step : steps) step = kinds[random() % kinds.size()];
    RepeatedPieces pieces;
    pieces.add(channels, steps);
    pieces.add(channels, steps);
    EXPECT_EQ(pieces.found(), 0u) << set;
  }
}

}  // namespace
