// Rules of findings about the times of channels, each on both sides of its threshold.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>

#include "support/inspect_thresholds.hpp"

namespace {

using namespace orvo::test;

class TimeThresholds : public Thresholds {};

TEST_F(TimeThresholds, SilentChannels) {
  Tags tags = steady(14'000);
  EXPECT_TRUE(finds("N silent_channel", tags, 3));
  tags.push_back({0, 14'000'000'000'000});
  EXPECT_TRUE(finds("S silent_channel", tags, 3));
  EXPECT_FALSE(finds("S silent_channel", tags, 1));
  EXPECT_TRUE(finds("S outside_mask", tags, 2));
}

TEST_F(TimeThresholds, BackwardSteps) {
  const auto capture = [](std::uint64_t back) {
    Tags tags = steady(100);
    tags[50].time_ps = tags[49].time_ps - back;
    return tags;
  };
  EXPECT_FALSE(finds("N backward_steps", steady(100)));
  EXPECT_TRUE(finds("N backward_steps", capture(1'000'000)));
  EXPECT_TRUE(finds("S backward_steps", capture(1'000'001)));
}

TEST_F(TimeThresholds, LostLaps) {
  // Channel 0 all the time; channel 1 for a second, and again after a silence of a period and what is given.
  const auto capture = [](std::uint64_t silence) {
    Tags tags = steady(24'000);
    Tags other;
    for (std::uint64_t i = 0; i < 500; ++i) other.push_back({1, i * 2'000'000'000 + 1'000 + i % 5});
    const std::uint64_t again = other.back().time_ps + silence;
    for (std::uint64_t i = 0; i < 500; ++i) other.push_back({1, again + i * 2'000'000'000 + i % 3});
    return merged(tags, other);
  };
  EXPECT_FALSE(finds("B lap_lost", capture(7'000'000'000'000), 3));
  EXPECT_TRUE(finds("B lap_lost", capture(14'400'000'000'000), 3));
  // Across the wrap half a period, 7157562998784 ps, is what the channel can tell. How long it was quiet is known by
  // the tags of the other channel, 1 ms apart.
  const auto across = [](std::uint64_t silence) {
    Tags other;
    for (std::uint64_t i = 0; i <= 500; ++i) other.push_back({1, 9'000'000'000'000 + i * 2'000'000'000});
    const std::uint64_t again = other.back().time_ps + silence;
    for (std::uint64_t i = 0; i < 500; ++i) other.push_back({1, again + i * 2'000'000'000});
    return merged(steady(24'000), other);
  };
  EXPECT_FALSE(finds("B lap_lost", across(7'157'562'998'783), 3));
  EXPECT_TRUE(finds("B lap_lost", across(7'158'562'998'784), 3));
  // Times in pieces tell nothing of pauses: that of channel 0, a second, is not told then.
  const auto paused = [&](std::uint64_t silence) {
    Tags tags = across(silence);
    const auto is_in_pause = [](const MadeTag& tag) {
      return tag.channel == 0 && tag.time_ps > 3 * kMadeSecondPs && tag.time_ps < 4 * kMadeSecondPs;
    };
    tags.erase(std::remove_if(tags.begin(), tags.end(), is_in_pause), tags.end());
    return tags;
  };
  EXPECT_TRUE(finds("S pause", paused(7'157'562'998'783), 3));
  EXPECT_FALSE(finds("S pause", paused(7'158'562'998'784), 3));
  Tags late = steady(15'000);
  Tags first_heard_after_the_wrap;
  for (std::uint64_t i = 0; i < 100; ++i) {
    first_heard_after_the_wrap.push_back({1, 14'500'000'000'000 + i * 1'000'000'000 + i % 3});
  }
  EXPECT_TRUE(finds("B lap_lost", merged(late, first_heard_after_the_wrap), 3));
  EXPECT_FALSE(finds("B lap_lost", merged(late, first_heard_after_the_wrap), 1));
}

TEST_F(TimeThresholds, Jumps) {
  // One tag of channel 1 lies that far before the tag before it.
  const auto capture = [](std::uint64_t back, std::uint64_t others) {
    Tags tags = steady(400);
    for (std::uint64_t i = 0; i < others; ++i) {
      tags.insert(tags.begin() + static_cast<std::ptrdiff_t>(1 + 2 * i), MadeTag{1, i * 1'000'000'000 + 300});
    }
    tags.push_back({1, tags.back().time_ps - back});
    return tags;
  };
  EXPECT_FALSE(finds("S time_jump", capture(1'000'000'000, 100), 3));
  EXPECT_TRUE(finds("S time_jump", capture(1'000'000'001, 100), 3));
  EXPECT_TRUE(finds("B time_jump", capture(1'000'000'001, 99), 3));
  // A tag outside the mask is not the measure of how many jumps there are.
  Tags outside = capture(1'000'000'001, 100);
  outside.insert(outside.begin() + 10, MadeTag{2, outside[9].time_ps + 1});
  EXPECT_TRUE(finds("S time_jump", outside, 3));
  // A channel alone has steps back, no jumps.
  Tags alone = steady(100);
  alone.push_back({0, alone.back().time_ps - 5'000'000'000});
  EXPECT_FALSE(finds("S time_jump", alone));
  EXPECT_TRUE(finds("S backward_steps", alone));
}

TEST_F(TimeThresholds, TwoStepsThatMakeAPeriod) {
  // Steps of a channel alone: `others` short ones, then the two.
  const auto capture = [](std::uint64_t others, std::uint64_t first, std::uint64_t second) {
    Tags tags = steady(others + 1);
    tags.push_back({0, tags.back().time_ps + first});
    tags.push_back({0, tags.back().time_ps + second});
    return tags;
  };
  // A step back of strictly more than half a period is a wrap: the first step is the longer one.
  constexpr std::uint64_t kLonger = kMadePeriodPs / 2 + 1'000;
  constexpr std::uint64_t kShorter = kMadePeriodPs / 2 - 1'000;
  EXPECT_TRUE(finds("B time_jump", capture(32, kLonger, kShorter)));
  EXPECT_FALSE(finds("B time_jump", capture(31, kLonger, kShorter)));
  EXPECT_TRUE(finds("B time_jump", capture(40, kLonger, kShorter - kMadePeriodPs / 64)));
  EXPECT_FALSE(finds("B time_jump", capture(40, kLonger, kShorter - kMadePeriodPs / 64 - 1'000)));
  EXPECT_TRUE(finds("B time_jump", capture(40, kLonger + kMadePeriodPs / 64, kShorter)));
  EXPECT_FALSE(finds("B time_jump", capture(40, kLonger + kMadePeriodPs / 64 + 1'000, kShorter)));
  EXPECT_TRUE(finds("B time_jump", capture(40, kMadePeriodPs - kMadePeriodPs / 4, kMadePeriodPs / 4)));
  EXPECT_FALSE(finds("B time_jump", capture(40, kMadePeriodPs - kMadePeriodPs / 4, kMadePeriodPs / 4 - 1'000)));
}

TEST_F(TimeThresholds, PausesOfAPeriodicChannel) {
  const auto capture = [](std::uint64_t missed) {
    Tags tags = steady(10'000, 10'000'000);
    for (std::size_t i = 5'000; i < tags.size(); ++i) tags[i].time_ps += missed * 10'000'000;
    return tags;
  };
  EXPECT_FALSE(finds("S pause", capture(12)));
  EXPECT_TRUE(finds("S pause", capture(13)));
  // Equally long ones: up to eight, each three mean distances at least. Those of 10 us are 10.02 us in the mean.
  const auto several = [](std::size_t pauses, std::uint64_t length_ps) {
    Tags tags = steady(10'000, 10'000'000);
    for (std::size_t p = 1; p <= pauses; ++p) {
      for (std::size_t i = 1'000 * p; i < tags.size(); ++i) tags[i].time_ps += length_ps - 10'000'000;
    }
    return tags;
  };
  // -ln p of a single one is 18.35 or 18.48; ln 10^8 is 18.42.
  EXPECT_FALSE(finds("S pause", several(1, 135'200'000)));
  EXPECT_TRUE(finds("S pause", several(1, 136'500'000)));
  EXPECT_TRUE(finds("S pause", several(8, 40'000'000)));
  EXPECT_FALSE(finds("S pause", several(9, 40'000'000)));
  EXPECT_TRUE(finds("S pause", several(8, 30'060'000)));
  EXPECT_FALSE(finds("S pause", several(8, 30'040'000)));
}

TEST_F(TimeThresholds, EdgesOfAPeriodicChannel) {
  // Channel 1 clicks all the time, channel 0 some periods less at one end.
  const auto capture = [](std::uint64_t late, std::uint64_t early) {
    Tags tags;
    for (std::uint64_t i = 0; i < 20'000; ++i) {
      tags.push_back({1, i * 10'000'000 + 3 + i % 5});
      if (i >= late && i + early < 20'000) tags.push_back({0, i * 10'000'000 + 2'000'000 + i * i % 7});
    }
    return tags;
  };
  EXPECT_FALSE(finds("S starts_late", capture(13, 0), 3));
  EXPECT_TRUE(finds("S starts_late", capture(14, 0), 3));
  EXPECT_FALSE(finds("S falls_silent", capture(0, 13), 3));
  EXPECT_TRUE(finds("S falls_silent", capture(0, 14), 3));
  // After a lead nobody knows when the recording began; after a jump the times say nothing of it.
  EXPECT_FALSE(finds("S starts_late", made_header(), Bytes(3, 0xFF) + raw64_payload(capture(14, 0))));
  EXPECT_TRUE(finds("S falls_silent", made_header(), Bytes(3, 0xFF) + raw64_payload(capture(0, 14))));
  Tags jumps = capture(14, 14);
  jumps[1'000].time_ps -= 2'000'000'000;
  EXPECT_TRUE(finds("S time_jump", jumps, 3));
  EXPECT_FALSE(finds("S starts_late", jumps, 3));
  EXPECT_FALSE(finds("S falls_silent", jumps, 3));
}

TEST_F(TimeThresholds, MissingTicks) {
  const auto capture = [](std::uint64_t count, std::uint64_t longer) {
    Tags tags = steady(count + 1, 10'000'000);
    for (std::uint64_t i = 1; i <= longer; ++i) {
      for (std::size_t j = tags.size() - 2 * i; j < tags.size(); ++j) tags[j].time_ps += 10'000'000;
    }
    return tags;
  };
  EXPECT_TRUE(finds("N missing_ticks", capture(1'000, 1)));
  EXPECT_FALSE(finds("N missing_ticks", capture(999, 1)));
  EXPECT_TRUE(finds("N missing_ticks", capture(1'000, 10)));
  EXPECT_FALSE(finds("N missing_ticks", capture(1'000, 11)));
  EXPECT_FALSE(finds("N missing_ticks", capture(1'000, 0)));
}

TEST_F(TimeThresholds, DeadTime) {
  // 1000 steps around 1 us; the shortest is 13.9 or 14.1 thousandths of the mean.
  const auto capture = [](std::uint64_t shortest, std::uint64_t count) {
    Clicks clicks(17);
    Tags tags{{0, 0}};
    for (std::uint64_t i = 1; i <= count; ++i) {
      const std::uint64_t step = i == 5 ? shortest : 500'000 + 1'000'000 * (i % 2);
      tags.push_back({0, tags.back().time_ps + step});
    }
    return tags;
  };
  EXPECT_TRUE(finds("N dead_time", capture(14'100, 1'000)));
  EXPECT_FALSE(finds("N dead_time", capture(13'900, 1'000)));
  EXPECT_TRUE(finds("N dead_time", capture(500'000, 100)));
  EXPECT_FALSE(finds("N dead_time", capture(500'000, 99)));
  // A channel with equal times, or with steps back, has no dead time.
  Tags equal = capture(14'100, 1'000);
  equal.push_back(equal.back());
  EXPECT_FALSE(finds("N dead_time", equal));
  Tags back = capture(14'100, 1'000);
  back.push_back({0, back.back().time_ps - 500'000});
  EXPECT_FALSE(finds("N dead_time", back));
}

TEST_F(TimeThresholds, FrozenTimes) {
  EXPECT_TRUE(finds("S frozen_time", Tags(65, {0, 5})));
  EXPECT_FALSE(finds("S frozen_time", Tags(64, {0, 5})));
  Tags one_step = Tags(65, {0, 5});
  one_step.back().time_ps = 6;
  EXPECT_FALSE(finds("S frozen_time", one_step));
}

TEST_F(TimeThresholds, CoarseGrids) {
  const auto capture = [](std::uint64_t grid, std::uint64_t count) {
    Tags tags;
    for (std::uint64_t i = 0; i < count; ++i) tags.push_back({0, grid * (i * 1'000'000 + i * i % 7)});
    return tags;
  };
  EXPECT_TRUE(finds("N coarse_grid", capture(4, 33)));
  EXPECT_FALSE(finds("N coarse_grid", capture(4, 32)));
  EXPECT_FALSE(finds("N coarse_grid", capture(1, 33)));
  Tags equal;
  for (std::uint64_t i = 0; i < 40; ++i) equal.push_back({0, 4'000'000 * i});
  EXPECT_FALSE(finds("N coarse_grid", equal));
}

}  // namespace
