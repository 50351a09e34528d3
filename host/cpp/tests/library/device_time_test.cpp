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

}  // namespace
