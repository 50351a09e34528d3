#include "orvo/timing/sorted_times.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <span>
#include <vector>

#include "support/random.hpp"

namespace {

using orvo::timing::sort_times;
using orvo::timing::SortedTimes;
using orvo::timing::detail::ascending_runs;
using orvo::timing::detail::is_ascending;
using Times = std::vector<std::int64_t>;

Times count_up(std::size_t size) {
  Times times(size);
  std::iota(times.begin(), times.end(), -5);
  return times;
}

void expect_sorted(Times times) {
  Times expected = times;
  std::sort(expected.begin(), expected.end());
  const SortedTimes view(times);
  const std::span<const std::int64_t> seen = view;
  EXPECT_EQ(Times(seen.begin(), seen.end()), expected);
  sort_times(times);
  EXPECT_EQ(times, expected);
}

TEST(SortTimes, SortsListsOfAnyDisorder) {
  expect_sorted({});
  expect_sorted({7});
  expect_sorted({7, 7});
  expect_sorted({8, 7});
  expect_sorted({3, 2, 1});
  expect_sorted({INT64_MAX, INT64_MIN, 0, INT64_MAX, INT64_MIN});
  orvo::test::Random random(1);
  for (int i = 0; i < 2000; ++i) {
    Times times = count_up(random.below(200));
    for (std::uint64_t swaps = random.below(300); swaps > 0 && times.size() > 1; --swaps) {
      const std::uint64_t reach = 1 + random.below(times.size() - 1);
      const std::uint64_t at = random.below(times.size() - reach);
      std::swap(times[at], times[at + 1 + random.below(reach)]);
    }
    expect_sorted(times);
    if (HasFailure()) return;
  }
}

TEST(SortTimes, SortsLongLists) {
  Times reversed = count_up(100'000);
  std::reverse(reversed.begin(), reversed.end());
  expect_sorted(reversed);
  Times joined = count_up(100'000);
  const Times again = count_up(100'000);
  joined.insert(joined.end(), again.begin(), again.end());
  expect_sorted(joined);
}

TEST(SortedTimes, AListInOrderIsNotCopied) {
  const Times times = count_up(1000);
  const SortedTimes sorted(times);
  const std::span<const std::int64_t> view = sorted;
  EXPECT_EQ(view.data(), times.data());
  EXPECT_EQ(view.size(), times.size());
}

using Runs = std::vector<std::size_t>;

// These must not fall back to the general sort, which costs many times as much.
TEST(AscendingRuns, TimesLateByAFewPlacesGoToTheirs) {
  Times times = count_up(10'000);
  EXPECT_EQ(ascending_runs(times), (Runs{0, 10'000}));
  for (std::size_t i = 0; i + 8 < times.size(); i += 20) std::swap(times[i], times[i + 8]);
  EXPECT_EQ(ascending_runs(times), (Runs{0, 10'000}));
  EXPECT_EQ(times, count_up(10'000));
  times[100] = 1'000'000;  // one stray time
  EXPECT_EQ(ascending_runs(times), (Runs{0, 10'000}));
  EXPECT_TRUE(std::is_sorted(times.begin(), times.end()));
}

TEST(AscendingRuns, AStepBackOverMorePlacesBeginsARun) {
  Times times = count_up(10'000);
  std::rotate(times.begin(), times.begin() + 7000, times.end());
  const Times rotated = times;
  EXPECT_EQ(ascending_runs(times), (Runs{0, 3000, 10'000}));
  EXPECT_EQ(times, rotated);
  times = count_up(100);
  times.push_back(times[100 - 31]);  // 30 times are later
  EXPECT_EQ(ascending_runs(times), (Runs{0, 101}));
  times = count_up(100);
  times.push_back(times[100 - 33] - 1);  // 33 are later: too many
  EXPECT_EQ(ascending_runs(times), (Runs{0, 100, 101}));
}

TEST(AscendingRuns, GivesUpWithoutLosingATime) {
  Times times = count_up(10'000);
  std::reverse(times.begin(), times.end());
  EXPECT_EQ(ascending_runs(times), Runs{});
  std::sort(times.begin(), times.end());
  EXPECT_EQ(times, count_up(10'000));
}

TEST(SortTimes, MergesAnyNumberOfRuns) {
  for (std::size_t runs = 1; runs <= 9; ++runs) {
    Times times;
    for (std::size_t run = 0; run < runs; ++run) {
      const Times more = count_up(20'000 + 100 * run);
      times.insert(times.end(), more.begin(), more.end());
    }
    EXPECT_EQ(ascending_runs(times).size(), runs + 1);
    expect_sorted(times);
  }
}

TEST(AscendingRuns, ATimeBelowAllOfItsRunBeginsTheRun) {
  Times times = count_up(100);
  times.insert(times.end(), {10, 11, 12, 5, 13, 4});
  EXPECT_EQ(ascending_runs(times), (Runs{0, 100, 106}));
  Times expected = count_up(100);
  expected.insert(expected.end(), {4, 5, 10, 11, 12, 13});
  EXPECT_EQ(times, expected);
}

TEST(SortTimes, SortsATimeThatIsLateByAnyNumberOfPlacesInEitherRun) {
  for (std::size_t place = 0; place < 200; ++place) {
    for (const std::size_t by : {1u, 31u, 32u, 33u, 60u}) {
      Times times = count_up(100);
      const Times again = count_up(100);
      times.insert(times.end(), again.begin(), again.end());
      if (place + by >= times.size()) continue;
      std::rotate(times.begin() + static_cast<std::ptrdiff_t>(place),
                  times.begin() + static_cast<std::ptrdiff_t>(place + 1),
                  times.begin() + static_cast<std::ptrdiff_t>(place + by + 1));
      expect_sorted(times);
      if (HasFailure()) return;
    }
  }
}

// Blocks of 128 are compared at once.
TEST(IsAscending, FindsAnyStepBack) {
  for (const std::size_t size : {2u, 127u, 128u, 129u, 130u, 257u, 300u}) {
    std::vector<std::int64_t> times(size, 7);
    EXPECT_TRUE(is_ascending(times));
    for (std::size_t i = 1; i < size; ++i) {
      times.assign(size, 7);
      std::fill(times.begin(), times.begin() + static_cast<std::ptrdiff_t>(i), 8);
      EXPECT_FALSE(is_ascending(times)) << size << " " << i;
      std::fill(times.begin(), times.begin() + static_cast<std::ptrdiff_t>(i), 6);
      EXPECT_TRUE(is_ascending(times)) << size << " " << i;
    }
  }
  EXPECT_TRUE(is_ascending({}));
}

TEST(IsAscending, HoldsForDifferencesBeyond64Bits) {
  const std::vector<std::int64_t> ends{INT64_MIN, -(std::int64_t{1} << 62) - 1, -(std::int64_t{1} << 62), -1,
                                       0,         (std::int64_t{1} << 62) - 1,  std::int64_t{1} << 62,    INT64_MAX};
  for (const std::int64_t low : ends) {
    for (const std::int64_t high : ends) {
      std::vector<std::int64_t> times(300, low);
      std::fill(times.begin() + 100, times.end(), high);
      EXPECT_EQ(is_ascending(times), low <= high) << low << " " << high;
    }
  }
}

}  // namespace
