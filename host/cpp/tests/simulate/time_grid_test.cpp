#include "simulate/time_grid.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>

namespace {

TEST(PicosecondGrid, HoldsEveryTime) {
  EXPECT_EQ(PicosecondGrid{}.stored(1'234'567), 1'234'567);
}

TEST(QuantumGrid, RoundsDownToTheQuantum) {
  EXPECT_EQ(QuantumGrid{0}.stored(1'234'567), 1'234'567);
  EXPECT_EQ(QuantumGrid{3}.stored(15), 8);
  EXPECT_EQ(QuantumGrid{3}.stored(16), 16);
  EXPECT_EQ(QuantumGrid{15}.stored(65'535), 32'768);
}

// Fine codes stand for 0, 19, 37, 56, ... 3312, 3330 ps before the edge.
TEST(CoarseFineGrid, TakesTheNearestCodeBeforeAClockEdge) {
  const CoarseFineGrid grid;
  EXPECT_EQ(grid.stored(0), 0);
  EXPECT_EQ(grid.stored(3333), 3333);
  EXPECT_EQ(grid.stored(3333 - 9), 3333);
  EXPECT_EQ(grid.stored(3333 - 10), 3333 - 19);
  EXPECT_EQ(grid.stored(3333 - 27), 3333 - 19);
  EXPECT_EQ(grid.stored(3333 - 28), 3333 - 37);
  EXPECT_EQ(grid.stored(3334), 6666 - 3330);
  EXPECT_EQ(grid.stored(1), 3);
}

TEST(CoarseFineGrid, KeepsTheOrderAndMovesATimeByNineAtMost) {
  const CoarseFineGrid grid;
  for (const std::int64_t origin : {std::int64_t{0}, std::int64_t{14'315'125'997'568}}) {
    std::int64_t previous = origin;
    for (std::int64_t time = origin; time < origin + 10'000; ++time) {
      const std::int64_t stored = grid.stored(time);
      ASSERT_LE(previous, stored);
      ASSERT_LE(std::max(stored - time, time - stored), 9);
      ASSERT_EQ(grid.stored(stored), stored);
      previous = stored;
    }
  }
}

}  // namespace
