#include "orvo/timing/difference_grid.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <vector>

#include "orvo/timing/detail/coarse_fine_time.hpp"
#include "orvo/timing/pair_statistics.hpp"

namespace {

using orvo::timing::difference_grid;
using orvo::timing::DifferenceGrid;
using orvo::timing::grid_period_ps;
using Times = std::vector<std::int64_t>;

/// Random times within a millisecond, as `stored` has them.
template <class Stored>
Times random_times(std::size_t tags, std::uint64_t seed, Stored stored) {
  std::mt19937_64 random(seed);
  Times times;
  for (std::size_t i = 0; i < tags; ++i) times.push_back(stored(static_cast<std::int64_t>(random() % 1'000'000'000)));
  std::sort(times.begin(), times.end());
  return times;
}

std::int64_t interpolated(std::int64_t time_ps) {
  return orvo::timing::detail::CoarseFineTime::nearest(time_ps).time_ps();
}

TEST(DifferenceGrid, WithoutOneEveryDifferenceIsAsFrequent) {
  const DifferenceGrid none;
  EXPECT_EQ(none.share(-7, 12), 1);
  EXPECT_EQ(none.narrowest_bin_ps(), 1);
}

TEST(DifferenceGrid, OfMultiplesHasPairsAtOneDifferenceInEach) {
  const DifferenceGrid grid({0, 0, 0, 5, 0, 0, 0, 0}, 9);
  EXPECT_DOUBLE_EQ(grid.share(3, 3), 8);
  EXPECT_DOUBLE_EQ(grid.share(-5, -5), 8);
  EXPECT_DOUBLE_EQ(grid.share(4, 10), 0);
  EXPECT_DOUBLE_EQ(grid.share(4, 11), 1);
  EXPECT_DOUBLE_EQ(grid.share(-21, 3), 4 * 8 / 25.0);
  EXPECT_DOUBLE_EQ(grid.share(3'000'000'000'000'000'000, 3'000'000'000'000'000'124), 16 * 8 / 125.0);
}

TEST(DifferenceGrid, ChangesWhatIsExpectedInEachBin) {
  const DifferenceGrid grid({4, 0, 0, 0}, 5);
  std::vector<double> expected{6, 6, 6};
  grid.apply({4, 3, 0}, expected);  // differences -4 to -2, -1 to 1, 2 to 4
  EXPECT_DOUBLE_EQ(expected[0], 8);
  EXPECT_DOUBLE_EQ(expected[1], 8);
  EXPECT_DOUBLE_EQ(expected[2], 8);
  expected = {6, 6, 6};
  grid.apply({4, 3, 1}, expected);  // -3 to -1, 0 to 2, 3 to 5
  EXPECT_DOUBLE_EQ(expected[0], 0);
  EXPECT_DOUBLE_EQ(expected[2], 8);
}

TEST(DifferenceGrid, OfTimesIsToldByThem) {
  const auto plain = [](std::int64_t time_ps) { return time_ps; };
  const auto eights = [](std::int64_t time_ps) { return time_ps / 8 * 8; };
  const auto later = [](std::int64_t time_ps) { return time_ps / 16 * 16 + 3; };
  EXPECT_EQ(grid_period_ps(random_times(5000, 1, plain)), 1);
  EXPECT_EQ(grid_period_ps(random_times(5000, 1, eights)), 8);
  EXPECT_EQ(grid_period_ps(random_times(5000, 1, later)), 16);
  EXPECT_EQ(grid_period_ps(random_times(5000, 1, interpolated)), 3333);
  EXPECT_EQ(grid_period_ps(random_times(1999, 1, eights)), 1);  // too few
  EXPECT_EQ(grid_period_ps({}), 1);
  EXPECT_EQ(grid_period_ps(Times(5000, 17)), 32'768);

  const DifferenceGrid grid = difference_grid(random_times(5000, 1, eights), random_times(5000, 2, later));
  EXPECT_EQ(grid.narrowest_bin_ps(), 9);
  EXPECT_DOUBLE_EQ(grid.share(3, 3), 8);
  EXPECT_DOUBLE_EQ(grid.share(-1, 2), 0);
  EXPECT_EQ(difference_grid(random_times(5000, 1, eights), random_times(5000, 2, plain)).narrowest_bin_ps(), 1);
}

TEST(DifferenceGrid, OfAnInterpolatorIsAsUnevenAsItsDifferences) {
  const Times a = random_times(100'000, 3, interpolated);
  const Times b = random_times(100'000, 4, interpolated);
  const orvo::timing::XcorrWindow window{62'500, 125, 7};
  const auto histogram = orvo::timing::xcorr_histogram_sorted(a, b, window);
  std::vector<double> expected(histogram.counts.size(), 1e10 / 1e9 * 125);  // 1250 a bin
  expected.front() = expected.back() = 1e10 / 1e9 * 63;
  const auto chi_square = [&] {  // the outermost left out
    double sum = 0;
    for (std::size_t i = 1; i + 1 < expected.size(); ++i) {
      const double difference = static_cast<double>(histogram.counts[i]) - expected[i];
      sum += difference * difference / expected[i];
    }
    return sum / static_cast<double>(expected.size() - 2);
  };
  EXPECT_GT(chi_square(), 2);
  difference_grid(a, b).apply(window, expected);
  EXPECT_NEAR(chi_square(), 1, 4 * std::sqrt(2.0 / 999));  // and what lies in several pairs: far less
}

TEST(DifferenceGrid, LeavesUnrelatedLightWithoutAPattern) {
  const Times a = random_times(100'000, 5, interpolated);
  const Times b = random_times(100'000, 6, interpolated);
  for (const std::int64_t bin_ps : {23, 125, 150}) {
    const auto statistics = orvo::timing::pair_statistics(a, b, {500 * bin_ps, bin_ps, 0});
    EXPECT_EQ(statistics.judgement.verdict, orvo::timing::PairVerdict::none) << bin_ps;
  }
}

TEST(DifferenceGrid, IsFiniteAtTheEndsOfTheRange) {
  constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
  constexpr std::int64_t kLeast = std::numeric_limits<std::int64_t>::min();
  Times ends(3000, kLeast);
  ends.back() = kMost - 32'767;
  const DifferenceGrid grid = difference_grid(ends, ends);
  const orvo::timing::detail::Int128 farthest = orvo::timing::detail::Int128{kMost} * 4;
  EXPECT_NEAR(grid.share(-farthest, farthest), 1, 1e-9);
  EXPECT_DOUBLE_EQ(grid.share(0, 0), 32'768);
}

/// The grid from tags that go by, the last first.
orvo::timing::TimeGrid gone_by(const Times& times) {
  orvo::timing::TimeGrid grid(orvo::timing::extent_of(times));
  for (auto time = times.rbegin(); time != times.rend(); ++time) grid.add(*time);
  return grid;
}

TEST(DifferenceGrid, IsToldByTagsThatGoByAsByLists) {
  const auto multiples = [](std::int64_t time_ps) { return time_ps - time_ps % 64 + 5; };
  const Times fine = random_times(5000, 7, [](std::int64_t time_ps) { return time_ps; });
  const Times coarse = random_times(5000, 8, multiples);
  const Times steps = random_times(50'000, 9, interpolated);
  const Times few = random_times(1999, 10, multiples);
  EXPECT_EQ(gone_by(fine).period_ps(), 1);
  EXPECT_EQ(gone_by(coarse).period_ps(), 64);
  EXPECT_EQ(gone_by(steps).period_ps(), 3333);
  EXPECT_EQ(gone_by(few).period_ps(), 1);
  for (const Times* times : {&coarse, &steps, &fine}) {
    const DifferenceGrid expected = difference_grid(*times, *times);
    const DifferenceGrid grid = difference_grid(gone_by(*times), gone_by(*times));
    EXPECT_EQ(grid.narrowest_bin_ps(), expected.narrowest_bin_ps());
    for (int d = -100; d < 100; ++d) EXPECT_EQ(grid.share(d, d + 7), expected.share(d, d + 7));
  }
}

}  // namespace
