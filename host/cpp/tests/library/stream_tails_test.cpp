#include "orvo/timing/detail/stream_tails.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <utility>
#include <vector>

namespace {

using orvo::timing::detail::StreamTails;

constexpr std::int64_t kReachPs = 100;
constexpr std::uint64_t kSilentAfter = 3;

/// One chunk of tags of channel 0 or 1.
void add(StreamTails& tails, const std::vector<std::pair<unsigned, std::int64_t>>& tags) {
  tails.begin_chunk(tags.size());
  for (const auto& [channel, time_ps] : tags) tails.add(channel, time_ps);
  tails.end_chunk();
}

/// Of channel 1, as far as it has settled.
bool has_settled_at(StreamTails& tails, std::int64_t time_ps) {
  tails.settle();
  return tails.settled_ps(1) == time_ps;
}

StreamTails two_channels() {
  StreamTails tails(kReachPs, kSilentAfter);
  tails.want(0);
  tails.want(1);
  return tails;
}

TEST(StreamTails, AChannelHasSettledUpToTheReachBeforeItsLatestTag) {
  StreamTails tails = two_channels();
  add(tails, {{1, 1000}, {1, 900}});
  EXPECT_TRUE(has_settled_at(tails, 900));
  add(tails, {{1, 950}});
  EXPECT_TRUE(has_settled_at(tails, 900)) << "a late tag takes nothing back";
}

TEST(StreamTails, AChannelIsSilentAfterExactlySoManyTagsOfOthers) {
  StreamTails tails = two_channels();
  add(tails, {{1, 1000}});
  add(tails, {{0, 5000}, {0, 6000}});
  EXPECT_TRUE(has_settled_at(tails, 900));
  add(tails, {{0, 7000}});
  EXPECT_TRUE(has_settled_at(tails, 6900));
}

TEST(StreamTails, ATagEndsTheSilence) {
  StreamTails tails = two_channels();
  add(tails, {{1, 1000}});
  add(tails, {{0, 5000}, {0, 6000}});
  add(tails, {{1, 6100}});
  add(tails, {{0, 7000}, {0, 8000}});
  EXPECT_TRUE(has_settled_at(tails, 6000));
  add(tails, {{0, 9000}});
  EXPECT_TRUE(has_settled_at(tails, 8900));
}

TEST(StreamTails, TagsOfChannelsThatNobodyWantsMakeNoSilence) {
  StreamTails tails = two_channels();
  add(tails, {{1, 1000}});
  add(tails, {{0, 5000}, {2, 5500}, {2, 5600}, {3, 5700}});
  EXPECT_TRUE(has_settled_at(tails, 900));
  EXPECT_EQ(tails.total(), 5u);
  EXPECT_EQ(tails.tags(2), 2u);
  EXPECT_EQ(tails.waiting(), 2u);
}

TEST(StreamTails, ATagExactlyAtTheLimitIsNotLateAndAfterForgettingStillThere) {
  StreamTails tails = two_channels();
  tails.accept_from(0, 500);
  add(tails, {{0, 499}, {0, 500}, {0, 501}});
  EXPECT_EQ(tails.late_tags(), 1u);
  tails.need_from(0, 501);
  tails.forget();
  ASSERT_EQ(tails.times(0).size(), 1u);
  EXPECT_EQ(tails.times(0)[0], 501);
}

}  // namespace
