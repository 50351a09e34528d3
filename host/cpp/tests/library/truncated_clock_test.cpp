#include "orvo/timing/detail/truncated_clock.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>

namespace {

using orvo::timing::detail::ChannelClock;
using orvo::timing::detail::TruncatedClock;

constexpr std::uint64_t kPeriodPs = 14'315'125'997'568;  // 3333 * 2^32
constexpr std::uint64_t kModulusPs = 2'199'023'255'552;  // 2^41
constexpr std::uint64_t kStepPs = 1'078'036'791'296;     // from the period up to 7 * 2^41

TEST(TruncatedClock, WrapsAt41BitsAndAtTheDevicePeriod) {
  const TruncatedClock clock(0);
  EXPECT_EQ(clock.wrap_step_ps(), kStepPs);
  EXPECT_TRUE(clock.is_short());
  EXPECT_EQ(clock.reading_ps(kModulusPs - 1), kModulusPs - 1);
  EXPECT_EQ(clock.reading_ps(kModulusPs), 0u);
  EXPECT_EQ(clock.reading_ps(kPeriodPs - 1), kPeriodPs - 1 - 6 * kModulusPs);
  EXPECT_EQ(clock.reading_ps(kPeriodPs), 0u);
  EXPECT_EQ(clock.reading_ps(3 * kPeriodPs + kModulusPs + 5), 5u);
}

TEST(TruncatedClock, OfEightPicosecondsOutlastsTheDevicePeriod) {
  const TruncatedClock clock(3);
  EXPECT_FALSE(clock.is_short());
  EXPECT_EQ(clock.wrap_step_ps(), 8 * kModulusPs - kPeriodPs);
  EXPECT_EQ(clock.reading_ps(kPeriodPs - 8), kPeriodPs - 8);
  EXPECT_EQ(clock.reading_ps(kPeriodPs + 16), 16u);
  EXPECT_TRUE(TruncatedClock(2).is_short());
}

ChannelClock started(const TruncatedClock& clock, std::uint64_t time_ps) {
  ChannelClock channel;
  channel.start(time_ps, clock.reading_ps(time_ps) - time_ps);
  return channel;
}

std::optional<std::uint64_t> difference_ps(const ChannelClock& channel, const TruncatedClock& clock,
                                           std::uint64_t time_ps) {
  return channel.difference_ps(clock, time_ps, [](std::uint64_t) { return true; });
}

TEST(ChannelClock, CountsOnFromTheReading) {
  const TruncatedClock clock(0);
  EXPECT_EQ(started(clock, kModulusPs + 77).decoded_ps(kModulusPs + 80), 80u);
}

TEST(ChannelClock, StoresGapsAsTheyAre) {
  const TruncatedClock clock(0);
  EXPECT_EQ(difference_ps(started(clock, 1000), clock, 1500), 500u);
  EXPECT_EQ(difference_ps(started(clock, kModulusPs - 10), clock, kModulusPs + 10), 20u);
}

TEST(ChannelClock, StoresAGapAcrossTheDevicesWrapOneStepTooLong) {
  const TruncatedClock clock(0);
  const ChannelClock channel = started(clock, kPeriodPs - 100);
  EXPECT_EQ(difference_ps(channel, clock, kPeriodPs - 1), 99u);
  EXPECT_EQ(difference_ps(channel, clock, kPeriodPs), 100u + kStepPs);
  EXPECT_EQ(difference_ps(channel, clock, kPeriodPs + 5000), 5100u + kStepPs);
}

// A decoder that started at 13.2 s counts from 13.2 s - 6 * 2^41 ps. There it cannot see the wrap, and takes a
// difference of 10 ms and a step for what it says.
TEST(ChannelClock, LeavesTheStepOutWhereADecoderWouldNotKnowIt) {
  const TruncatedClock clock(0);
  const ChannelClock late = started(clock, kPeriodPs - 100);
  EXPECT_EQ(difference_ps(late, clock, kPeriodPs - 100 + 10'000'000'000), 10'000'000'000u + kStepPs);
  EXPECT_EQ(difference_ps(late, clock, kPeriodPs - 100 + 10'000'000'001), 10'000'000'001u);
  ChannelClock early = started(clock, 5);  // counts device time itself
  early.advance(kPeriodPs - 100);
  EXPECT_EQ(difference_ps(early, clock, kPeriodPs - 100 + 10'000'000'001), 10'000'000'001u + kStepPs);
}

TEST(ChannelClock, KnowsEveryWrap) {
  const TruncatedClock clock(0);
  ChannelClock channel = started(clock, 5 * kPeriodPs - 10);
  EXPECT_EQ(channel.wrap_ps(), 5 * kPeriodPs);
  EXPECT_EQ(difference_ps(channel, clock, 5 * kPeriodPs + 10), 20u + kStepPs);
  channel.advance(5 * kPeriodPs + 10);
  EXPECT_EQ(channel.wrap_ps(), 6 * kPeriodPs);
  EXPECT_EQ(difference_ps(channel, clock, 5 * kPeriodPs + 30), 20u);
}

TEST(ChannelClock, StoresTheReadingAsABaseUpToTheSecondWrap) {
  const TruncatedClock clock(0);
  ChannelClock channel = started(clock, 1000);
  channel.advance(kPeriodPs - 10);
  EXPECT_EQ(channel.base_ps(clock, kPeriodPs + 10), 10u);
  channel.advance(kPeriodPs + 10);
  EXPECT_EQ(channel.base_ps(clock, kPeriodPs + 90), 90u) << "one step ahead of the decoder, which knows it";
  channel.advance(2 * kPeriodPs - 10);
  EXPECT_EQ(channel.base_ps(clock, 2 * kPeriodPs + 10), (2 * kPeriodPs + 10) % kModulusPs)
      << "two steps ahead: unknown to any decoder";
}

TEST(ChannelClock, OfALongClockStoresTheDeviceTimeAsABaseForever) {
  const TruncatedClock clock(3);
  ChannelClock channel = started(clock, kPeriodPs - 80);
  for (std::uint64_t lap = 1; lap < 5; ++lap) {
    EXPECT_EQ(channel.base_ps(clock, lap * kPeriodPs + 80), 80u);
    EXPECT_EQ(difference_ps(channel, clock, lap * kPeriodPs + 80), 160 + clock.wrap_step_ps());
    channel.advance((lap + 1) * kPeriodPs - 80);
  }
}

// 10 ms more than the wrap step reads as 10 ms with the wrap in them, and one step longer as what it is.
TEST(ChannelClock, HasNoDifferenceForASilenceThatReadsAsAWrap) {
  const TruncatedClock clock(0);
  EXPECT_EQ(difference_ps(started(clock, 0), clock, kStepPs + 1), std::nullopt);
  EXPECT_EQ(difference_ps(started(clock, 0), clock, kStepPs + 10'000'000'000), std::nullopt);
  EXPECT_EQ(difference_ps(started(clock, 0), clock, kStepPs + 10'000'000'001), kStepPs + 10'000'000'001);
}

TEST(ChannelClock, HasNoBaseForWhatLiesTooFarAhead) {
  const TruncatedClock clock(0);
  EXPECT_EQ(started(clock, 0).base_ps(clock, kModulusPs - 1), kModulusPs - 1);
  EXPECT_EQ(started(clock, 0).base_ps(clock, kModulusPs), std::nullopt);
}

}  // namespace
