// What a `TimeList` promises, however it grows. Included by the tests of both ways.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <new>
#include <utility>

namespace {

using orvo::timing::detail::TimeList;
using testing::ElementsAre;

void append(TimeList& list, std::int64_t time_ps) {
  std::int64_t* const at = list.prepare(1);
  *at = time_ps;
  list.commit(at + 1);
}

TEST(TimeListCases, StartsEmpty) {
  const TimeList list;
  EXPECT_EQ(list.size(), 0u);
  EXPECT_TRUE(list.times().empty());
}

TEST(TimeListCases, HoldsWhatWasCommittedAndNoMore) {
  TimeList list;
  std::int64_t* const at = list.prepare(3);
  at[0] = 5;
  at[1] = -6;
  at[2] = 7;
  list.commit(at + 2);
  EXPECT_THAT(list.times(), ElementsAre(5, -6));
  EXPECT_EQ(list.prepare(0), at + 2);
  list.commit(at);  // back to nothing
  EXPECT_EQ(list.size(), 0u);
}

// 300,000 times are 2.4 MB: over the first page of 2 MiB, and in one step over many.
TEST(TimeListCases, KeepsItsTimesWhenItGrows) {
  constexpr std::int64_t kTimes = 300'000;
  TimeList list;
  for (std::int64_t i = 0; i < kTimes; ++i) append(list, i * i);
  list.prepare(3'000'000)[2'999'999] = 1;  // room to its last byte
  append(list, -1);
  ASSERT_EQ(list.size(), 300'001u);
  for (std::int64_t i = 0; i < kTimes; ++i) ASSERT_EQ(list.times()[static_cast<std::size_t>(i)], i * i);
  EXPECT_EQ(list.times().back(), -1);
}

TEST(TimeListCases, RoomThatThereIsIsNotMoved) {
  TimeList list;
  append(list, 1);
  const std::int64_t* const first = list.times().data();
  for (std::int64_t i = 1; i < 262'144; ++i) append(list, i);  // the first 2 MiB
  EXPECT_EQ(list.times().data(), first);
}

TEST(TimeListCases, MovingTakesTheTimesAlong) {
  TimeList list;
  append(list, 4);
  TimeList moved = std::move(list);
  EXPECT_THAT(moved.times(), ElementsAre(4));
  append(moved, 5);
  TimeList assigned;
  append(assigned, 9);
  assigned = std::move(moved);
  EXPECT_THAT(assigned.times(), ElementsAre(4, 5));
}

TEST(TimeListCases, MoreThanMemoryHoldsIsAnAllocationFailureThatChangesNothing) {
  TimeList list;
  append(list, 4);
  EXPECT_THROW(list.prepare(std::numeric_limits<std::size_t>::max()), std::bad_alloc);
  EXPECT_THROW(list.prepare(std::numeric_limits<std::size_t>::max() / 32), std::bad_alloc);
  EXPECT_THAT(list.times(), ElementsAre(4));
  append(list, 5);
  EXPECT_THAT(list.times(), ElementsAre(4, 5));
}

}  // namespace
