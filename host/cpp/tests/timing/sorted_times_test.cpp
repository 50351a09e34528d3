#include "orvo/timing/detail/sorted_times.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <span>
#include <vector>

#include "support/random_payload.hpp"

namespace {

using orvo::timing::detail::insert_in_order;
using orvo::timing::detail::sort_times;
using orvo::timing::detail::SortedTimes;
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

// These must not fall back to the general sort, which costs many times as much.
TEST(InsertInOrder, DoesWithFewStepsBack) {
  Times times = count_up(10'000);
  EXPECT_TRUE(insert_in_order(times));
  for (std::size_t i = 0; i + 8 < times.size(); i += 20) std::swap(times[i], times[i + 8]);
  EXPECT_TRUE(insert_in_order(times));
  EXPECT_EQ(times, count_up(10'000));
  times[100] = 1'000'000;  // one time that went astray
  EXPECT_TRUE(insert_in_order(times));
  EXPECT_TRUE(std::is_sorted(times.begin(), times.end()));
  times.back() = -100;
  EXPECT_TRUE(insert_in_order(times));
  EXPECT_TRUE(std::is_sorted(times.begin(), times.end()));
}

TEST(InsertInOrder, GivesUpWithoutLosingATime) {
  Times times = count_up(10'000);
  std::reverse(times.begin(), times.end());
  EXPECT_FALSE(insert_in_order(times));
  EXPECT_TRUE(std::is_permutation(times.begin(), times.begin() + 100, count_up(10'000).end() - 100));
  std::sort(times.begin(), times.end());
  EXPECT_EQ(times, count_up(10'000));
}

}  // namespace
