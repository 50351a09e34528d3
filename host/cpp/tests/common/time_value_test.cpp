#include "common/time_value.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <optional>

namespace {

constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();

TEST(TimeValue, TakesAnyUnitAndPicosecondsWithoutOne) {
  EXPECT_EQ(parse_time_ps("250"), 250);
  EXPECT_EQ(parse_time_ps("250ps"), 250);
  EXPECT_EQ(parse_time_ps("-10ns"), -10'000);
  EXPECT_EQ(parse_time_ps("2us"), 2'000'000);
  EXPECT_EQ(parse_time_ps("1ms"), 1'000'000'000);
  EXPECT_EQ(parse_time_ps("3s"), 3'000'000'000'000);
  EXPECT_EQ(parse_time_ps("010ns"), 10'000);
}

TEST(TimeValue, ReachesTheEndsOf64Bits) {
  EXPECT_EQ(parse_time_ps("9223372036854775807"), kMost);
  EXPECT_EQ(parse_time_ps("-9223372036854775807ps"), -kMost);
  EXPECT_EQ(parse_time_ps("9223372s"), 9'223'372'000'000'000'000);
  EXPECT_EQ(parse_time_ps("-9223372s"), -9'223'372'000'000'000'000);
  EXPECT_EQ(parse_time_ps("9223372036854775ns"), 9'223'372'036'854'775'000);
  for (const char* text : {"9223373s", "-9223373s", "9223372036854776ns", "9223372036854775808"}) {
    EXPECT_EQ(parse_time_ps(text), std::nullopt) << text;
  }
}

TEST(TimeValue, IsNothingElse) {
  for (const char* text :
       {"", "s", "ps", "-", "-ns", "1.5ns", "1 ns", " 1ns", "1ns ", "+1ns", "1m", "1NS", "1sps", "1e3", "0x10"}) {
    EXPECT_EQ(parse_time_ps(text), std::nullopt) << text;
  }
}

}  // namespace
