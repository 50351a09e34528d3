#include "common/units.hpp"

#include <gtest/gtest.h>

#include <cstdint>

namespace {

TEST(Units, ShowThreeDigits) {
  EXPECT_EQ(text_of_rate_hz(1), "1.00 Hz");
  EXPECT_EQ(text_of_rate_hz(9.99), "9.99 Hz");
  EXPECT_EQ(text_of_rate_hz(9.996), "10.0 Hz");
  EXPECT_EQ(text_of_rate_hz(12.34), "12.3 Hz");
  EXPECT_EQ(text_of_rate_hz(99.96), "100 Hz");
  EXPECT_EQ(text_of_rate_hz(123.4), "123 Hz");
  EXPECT_EQ(text_of_rate_hz(0), "0.00 Hz");
}

TEST(Units, ChangeAtAThousand) {
  EXPECT_EQ(text_of_rate_hz(999.4), "999 Hz");
  EXPECT_EQ(text_of_rate_hz(999.5), "1.00 kHz");
  EXPECT_EQ(text_of_rate_hz(1'000), "1.00 kHz");
  EXPECT_EQ(text_of_rate_hz(1'250'000), "1.25 MHz");
  EXPECT_EQ(text_of_rate_hz(3e9), "3.00 GHz");
  EXPECT_EQ(text_of_rate_hz(1e13), "10000 GHz");
}

TEST(Units, ReachFromPicosecondsToSeconds) {
  EXPECT_EQ(text_of_time_ps(160), "160 ps");
  EXPECT_EQ(text_of_time_ps(-160), "-160 ps");
  EXPECT_EQ(text_of_time_ps(-12'500), "-12.5 ns");
  EXPECT_EQ(text_of_time_ps(2e6), "2.00 us");
  EXPECT_EQ(text_of_time_ps(5e9), "5.00 ms");
  EXPECT_EQ(text_of_time_ps(3.2e12), "3.20 s");
  EXPECT_EQ(text_of_time_ps(8.64e16), "86400 s");
}

TEST(Units, CountBytesInPowersOf1024) {
  EXPECT_EQ(text_of_bytes(0), "0 B");
  EXPECT_EQ(text_of_bytes(1023), "1023 B");
  EXPECT_EQ(text_of_bytes(1024), "1.00 KiB");
  EXPECT_EQ(text_of_bytes((std::uint64_t{1} << 20) - 1), "1.00 MiB");
  EXPECT_EQ(text_of_bytes(4'402'341'478), "4.10 GiB");
  EXPECT_EQ(text_of_bytes(~std::uint64_t{0}), "16.0 EiB");
}

}  // namespace
