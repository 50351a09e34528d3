#include "orvo/timing/channel_times.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <utility>

namespace {

using orvo::timing::ChannelTimes;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(ChannelTimes, StartEmpty) {
  const ChannelTimes times;
  EXPECT_EQ(times.total(), 0u);
  for (std::size_t c = 0; c < 4; ++c) EXPECT_THAT(times[c], IsEmpty());
}

TEST(ChannelTimes, KeepEachChannelInStreamOrder) {
  ChannelTimes times;
  times.begin_chunk(3);
  times.add(3, 7);
  times.add(0, 9);
  times.add(3, -2);
  times.end_chunk();
  times.begin_chunk(1);
  times.add(3, 5);
  times.end_chunk();
  EXPECT_THAT(times[0], ElementsAre(9));
  EXPECT_THAT(times[1], IsEmpty());
  EXPECT_THAT(times[3], ElementsAre(7, -2, 5));
  EXPECT_EQ(times.size(3), 3u);
  EXPECT_EQ(times.total(), 4u);
}

TEST(ChannelTimes, TakeAChunkOfOneChannelAlone) {
  ChannelTimes times;
  times.begin_chunk(400'000);  // beyond the first pages
  for (std::int64_t i = 0; i < 400'000; ++i) times.add(2, i);
  times.end_chunk();
  times.begin_chunk(400'000);
  for (std::int64_t i = 400'000; i < 800'000; ++i) times.add(2, i);
  times.end_chunk();
  ASSERT_EQ(times.size(2), 800'000u);
  for (std::size_t i = 0; i < 800'000; ++i) ASSERT_EQ(times[2][i], static_cast<std::int64_t>(i));
}

TEST(ChannelTimes, AChunkWithoutTagsChangesNothing) {
  ChannelTimes times;
  times.begin_chunk(0);
  times.end_chunk();
  EXPECT_EQ(times.total(), 0u);
}

TEST(ChannelTimes, MovingTakesTheTimesAlong) {
  ChannelTimes times;
  times.begin_chunk(1);
  times.add(1, 8);
  times.end_chunk();
  const ChannelTimes moved = std::move(times);
  EXPECT_THAT(moved[1], ElementsAre(8));
}

TEST(ChannelTimes, ForgetsTheDiscardedChunkAlone) {
  ChannelTimes times;
  times.begin_chunk(2);
  times.add(1, 7);
  times.end_chunk();
  times.begin_chunk(2);
  times.add(1, 8);
  times.add(0, 9);
  times.discard_chunk();
  EXPECT_THAT(times[1], ElementsAre(7));
  EXPECT_EQ(times.total(), 1u);
}

TEST(ChannelTimes, LeavesOutTagsOfChannelsThatDoNotExist) {
  ChannelTimes times;
  times.begin_chunk(4);
  times.add(4, 1);
  times.add(255, 2);
  times.add(0xFFFF'FFFF, 3);
  times.add(3, 4);
  times.end_chunk();
  EXPECT_EQ(times.total(), 1u);
  EXPECT_THAT(times[3], ElementsAre(4));
}

}  // namespace
