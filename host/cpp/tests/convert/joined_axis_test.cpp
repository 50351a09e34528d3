#include "convert/joined_axis.hpp"

#include <gtest/gtest.h>

#include <cstdint>

#include "support/encoded.hpp"
#include "support/failure.hpp"

namespace {

using namespace orvo::test;

constexpr std::int64_t kPeriodPs = 14'315'125'997'568;  // 3333 * 2^32
constexpr std::int64_t kLapPs = 2'199'023'255'552;      // 2^41
constexpr std::int64_t kMillisecondPs = 1'000'000'000;

TEST(JoinedAxis, LeavesTimesThatLieAfterTheEnd) {
  EXPECT_EQ(JoinedAxis({}).shift_ps(raw64_header(), 5'000, 4'000), 0);
  EXPECT_EQ(JoinedAxis({}).shift_ps(raw64_header(), 5'000, 5'000 + kMillisecondPs), 0) << "a late tag";
}

// A device clock that ran on and wrapped reads small again.
TEST(JoinedAxis, AddsTheDevicePeriodsThatThereMustHaveBeen) {
  EXPECT_EQ(JoinedAxis({}).shift_ps(raw64_header(), 5'000, 5'001 + kMillisecondPs), kPeriodPs);
  EXPECT_EQ(JoinedAxis({}).shift_ps(raw64_header(), 7, 3 * kPeriodPs + 2 * kMillisecondPs), 4 * kPeriodPs);
  EXPECT_EQ(JoinedAxis({}).shift_ps(raw64_header(), kPeriodPs - 1, 3 * kPeriodPs), 2 * kPeriodPs) << "just late";
  EXPECT_EQ(JoinedAxis({}).shift_ps(raw64_header(), kPeriodPs - 1, 3 * kPeriodPs + 2 * kMillisecondPs),
            3 * kPeriodPs);
}

// Time bases have laps of 2^41 ps, and the last lap of a device period is cut off.
TEST(JoinedAxis, AddsLapsOfTheTimeBases) {
  const std::int64_t two_ms = 2 * kMillisecondPs;
  EXPECT_EQ(JoinedAxis({}).shift_ps(delta32_header(), 0, two_ms), kLapPs);
  EXPECT_EQ(JoinedAxis({}).shift_ps(delta32_header(), 5, 2 * kLapPs + two_ms), 3 * kLapPs);
  EXPECT_EQ(JoinedAxis({}).shift_ps(delta32_header(), 5, 6 * kLapPs + two_ms), kPeriodPs);
  EXPECT_EQ(JoinedAxis({}).shift_ps(delta32_header(), two_ms, kPeriodPs), kPeriodPs);
  // Where a period ends, a clock reads 0 and not the rest of its last lap: that comes a period later.
  EXPECT_EQ(JoinedAxis({}).shift_ps(delta32_header(), kPeriodPs - 6 * kLapPs, kPeriodPs - 1 + kMillisecondPs),
            kPeriodPs);
  EXPECT_EQ(JoinedAxis({}).shift_ps(packed_header({.quantum_ps = 1}), 0, two_ms), kLapPs);
  EXPECT_EQ(JoinedAxis({}).shift_ps(packed_header({.quantum_ps = 4}), 0, two_ms), 4 * kLapPs);
  EXPECT_EQ(JoinedAxis({}).shift_ps(packed_header({.quantum_ps = 8}), 0, two_ms), kPeriodPs);
}

TEST(JoinedAxis, PlacesTheFirstTagAGapAfterTheEnd) {
  EXPECT_EQ(JoinedAxis(250).shift_ps(raw64_header(), 5'000, 70'000), 65'250);
  EXPECT_EQ(JoinedAxis(0).shift_ps(raw64_header(), 90'000, 70'000), -20'000);
}

TEST(JoinedAxis, KnowsWhereTimesEnd) {
  EXPECT_EQ(failure_of([] { JoinedAxis(1).shift_ps(raw64_header(), 0, INT64_MAX); }),
            "joined inputs end after the end of all times (code -1)");
  EXPECT_EQ(failure_of([] { JoinedAxis({}).shift_ps(raw64_header(), 0, INT64_MAX); }),
            "joined inputs end after the end of all times (code -1)");
}

}  // namespace
