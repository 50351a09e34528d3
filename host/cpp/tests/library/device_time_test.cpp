#include "orvo/timing/detail/device_time.hpp"

#include <gtest/gtest.h>

#include <cstdint>

namespace {

using namespace orvo::timing::detail;

TEST(DeviceTime, WrapsAfter3333PicosecondsTimes2ToThe32) {
  EXPECT_EQ(kCoarsePeriodPs, 3333u);
  EXPECT_EQ(kDevicePeriodPs, 14'315'125'997'568u);
  EXPECT_EQ(kDevicePeriodPs, 0xD05'0000'0000u);
}

TEST(DeviceTime, WrapIsAStepBackOfStrictlyMoreThanHalfAPeriod) {
  EXPECT_FALSE(wrapped(0x8000'0000, 0, 0x1'0000'0000));
  EXPECT_TRUE(wrapped(0x8000'0001, 0, 0x1'0000'0000));
  EXPECT_FALSE(wrapped(7'157'562'998'784, 0, 14'315'125'997'568));
  EXPECT_TRUE(wrapped(7'157'562'998'785, 0, 14'315'125'997'568));
  EXPECT_FALSE(wrapped(0, 14'315'125'997'567, 14'315'125'997'568));
  EXPECT_FALSE(wrapped(5, 5, 2));
}

TEST(DeviceTime, WrapStepReachesFromThePeriodToTheNextMultipleOfTheModulus) {
  constexpr std::uint64_t kM41 = std::uint64_t{1} << 41;
  EXPECT_EQ(wrap_step_ps(kM41), 1'078'036'791'296u);
  EXPECT_EQ(wrap_step_ps(kM41), 0xFB'0000'0000u);
  EXPECT_EQ(wrap_step_ps(8 * kM41), 8 * kM41 - 14'315'125'997'568u);
  EXPECT_EQ(wrap_step_ps(3333), 0u);
}

constexpr std::uint64_t kStep = 0xFB'0000'0000;  // 1'078'036'791'296 ps
constexpr std::uint64_t kBeforeWrap = 14'315'125'997'568 - 20'000'000'000;

TEST(WithoutWrapStep, KeepsGapsUpToTheStep) {
  EXPECT_EQ(without_wrap_step(0, 0, kStep), 0u);
  EXPECT_EQ(without_wrap_step(kStep - 1, 0, kStep), kStep - 1);
  EXPECT_EQ(without_wrap_step(kStep, 0, kStep), kStep);
  EXPECT_EQ(without_wrap_step(5'000, 0, 0), 5'000u);  // no step, nothing to take out
}

TEST(WithoutWrapStep, TakesTheStepOutWhereTheRestIsSmall) {
  EXPECT_EQ(without_wrap_step(kStep + 1, 0, kStep), 1u);
  EXPECT_EQ(without_wrap_step(kStep + 10'000'000'000, 0, kStep), 10'000'000'000u);
  EXPECT_EQ(without_wrap_step(kStep + 10'000'000'001, 0, kStep), kStep + 10'000'000'001);
}

TEST(WithoutWrapStep, TakesTheStepOutWhereTheRestReachesTheWrap) {
  EXPECT_EQ(without_wrap_step(kStep + 20'000'000'000, kBeforeWrap, kStep), 20'000'000'000u);
  EXPECT_EQ(without_wrap_step(kStep + 19'999'999'999, kBeforeWrap, kStep), kStep + 19'999'999'999);
  // In any lap.
  EXPECT_EQ(without_wrap_step(kStep + 20'000'000'000, 7 * kDevicePeriodPs + kBeforeWrap, kStep), 20'000'000'000u);
  EXPECT_EQ(without_wrap_step(kStep + 20'000'000'000, 7 * kDevicePeriodPs, kStep), kStep + 20'000'000'000);
}

TEST(Lift, PlacesATimeInTheReferencesLapOrTheNext) {
  EXPECT_EQ(lift(7, 0, 1000), 7u);
  EXPECT_EQ(lift(7, 3'005, 1000), 3'007u);
  EXPECT_EQ(lift(7, 3'507, 1000), 3'007u);    // half a modulus below
  EXPECT_EQ(lift(7, 3'508, 1000), 4'007u);    // strictly more
  EXPECT_EQ(lift(999, 3'000, 1000), 3'999u);  // never into the lap before
  EXPECT_EQ(lift(0, 3'000, 1000), 3'000u);
}

TEST(LiftOverWrap, TakesTheStepOutOfAGapAheadOnly) {
  EXPECT_EQ(lift_over_wrap(1000 + kStep + 5'000, 1000, kBaseModulus, kStep), 6'000u);
  EXPECT_EQ(lift_over_wrap(1000 + kStep, 1000, kBaseModulus, kStep), 1000 + kStep);
  EXPECT_EQ(lift_over_wrap(1000, 1000, kBaseModulus, kStep), 1000u);
  EXPECT_EQ(lift_over_wrap(900, 1000, kBaseModulus, kStep), 900u);
  // Over the end of the 41 bits and the device's wrap at once.
  constexpr std::uint64_t kLap = 6 * kBaseModulus;
  EXPECT_EQ(lift_over_wrap(10, kDevicePeriodPs - 10, kBaseModulus, kStep), kDevicePeriodPs + 10);
  EXPECT_EQ(lift_over_wrap(10, kLap - 10, kBaseModulus, kStep), kLap + 10);
}

}  // namespace
