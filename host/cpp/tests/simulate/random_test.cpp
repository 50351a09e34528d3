#include "simulate/random.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <vector>

namespace {

using testing::ElementsAre;

double as_double(std::uint64_t exponential) {
  return std::ldexp(static_cast<double>(exponential), -58);
}

// The numbers of derive_captures.py.
TEST(Random, AlwaysDrawsTheSame) {
  Random random(1);
  const std::vector<std::uint64_t> drawn{random.next(), random.next(), random.next()};
  EXPECT_THAT(drawn, ElementsAre(0x987e7e31fc95735b, 0x8291b762cc3c274c, 0x0d992eb33f73987e));
}

// The numbers of derive_captures.py.
TEST(Random, AlwaysDrawsTheSameExponentials) {
  Random random(1);
  const std::vector<std::uint64_t> drawn{exponential(random), exponential(random), exponential(random)};
  EXPECT_THAT(drawn, ElementsAre(149318168135481741, 194058034317977650, 846021754461799623));
}

// The numbers of derive_captures.py.
TEST(Random, AlwaysDrawsTheSameJitter) {
  Random random(1);
  GaussianJitter jitter(1'000'000);
  const std::vector<std::int64_t> drawn{jitter.next(random), jitter.next(random), jitter.next(random),
                                        jitter.next(random)};
  EXPECT_THAT(drawn, ElementsAre(-38278, -1159777, 340294, 72929));
}

TEST(Random, NeighbouringSeedsHaveNothingInCommon) {
  int equal_bits = 0;
  for (std::uint64_t seed = 0; seed < 1000; ++seed) {
    equal_bits += 64 - std::popcount(Random(seed).next() ^ Random(seed + 1).next());
  }
  EXPECT_NEAR(equal_bits, 32'000, 5 * std::sqrt(1000 * 16.0));
}

TEST(Random, BelowReachesEveryNumberAndNoMore) {
  Random random(3);
  std::vector<int> seen(7);
  for (int i = 0; i < 70'000; ++i) ++seen.at(random.below(7));
  for (const int count : seen) EXPECT_NEAR(count, 10'000, 5 * std::sqrt(10'000.0 * 6 / 7));
}

TEST(Exponential, IsTheLogarithmOfTheNumberDrawn) {
  Random numbers(4);
  Random random(4);
  for (int i = 0; i < 1'000'000; ++i) {
    const long double uniform = static_cast<long double>(numbers.next() | 1) / 18446744073709551616.0L;
    ASSERT_NEAR(as_double(exponential(random)), static_cast<double>(-std::log(uniform)), std::ldexp(1.0, -25));
  }
}

TEST(Exponential, HasTheMomentsOfItsDistribution) {
  constexpr int kDraws = 1'000'000;
  Random random(5);
  double sum = 0;
  double squares = 0;
  for (int i = 0; i < kDraws; ++i) {
    const double drawn = as_double(exponential(random));
    sum += drawn;
    squares += drawn * drawn;
  }
  EXPECT_NEAR(sum / kDraws, 1, 5 / std::sqrt(kDraws));             // variance 1
  EXPECT_NEAR(squares / kDraws, 2, 5 * std::sqrt(20.0 / kDraws));  // 24 - 2^2
}

TEST(GaussianJitter, HasTheMomentsOfItsDistribution) {
  constexpr int kDraws = 1'000'000;
  constexpr double kSigma = 1'000'000;
  Random random(6);
  GaussianJitter jitter(1'000'000);
  double sum = 0;
  double squares = 0;
  double fourths = 0;
  for (int i = 0; i < kDraws; ++i) {
    const double drawn = static_cast<double>(jitter.next(random)) / kSigma;
    sum += drawn;
    squares += drawn * drawn;
    fourths += drawn * drawn * drawn * drawn;
  }
  EXPECT_NEAR(sum / kDraws, 0, 5 / std::sqrt(kDraws));
  EXPECT_NEAR(squares / kDraws, 1, 5 * std::sqrt(2.0 / kDraws));
  EXPECT_NEAR(fourths / kDraws, 3, 5 * std::sqrt(96.0 / kDraws));  // 105 - 3^2
}

TEST(GaussianJitter, StaysWithinItsBound) {
  Random random(7);
  GaussianJitter jitter(1000);
  for (int i = 0; i < 1'000'000; ++i) ASSERT_LE(std::abs(jitter.next(random)), GaussianJitter::largest(1000));
}

TEST(GaussianJitter, OfNothingIsNothing) {
  Random random(8);
  GaussianJitter jitter(0);
  for (int i = 0; i < 1000; ++i) ASSERT_EQ(jitter.next(random), 0);
}

}  // namespace
