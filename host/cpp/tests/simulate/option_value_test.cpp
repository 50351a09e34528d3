#include "simulate/option_value.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

namespace {

using testing::ElementsAre;

constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();
constexpr Limits kAnyTime{std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::int64_t>::max()};

template <class Read>
std::string failure(Read read) {
  try {
    read();
  } catch (const UsageError& error) {
    return error.what();
  }
  return "none";
}

std::uint64_t number(const std::string& text, Limits limits) {
  return OptionValue("x", text, limits).number();
}
std::int64_t time_ps(const std::string& text) {
  return OptionValue("x", text, kAnyTime).time_ps();
}

TEST(OptionValue, ReadsNumbersWithinTheLimits) {
  EXPECT_EQ(number("3", {3, 7}), 3u);
  EXPECT_EQ(number("7", {3, 7}), 7u);
  EXPECT_EQ(number("18446744073709551615", {0, kMost}), kMost);
  EXPECT_EQ(failure([] { number("2", {3, 7}); }), "--x: '2' is not a whole number from 3 to 7");
  EXPECT_EQ(failure([] { number("8", {3, 7}); }), "--x: '8' is not a whole number from 3 to 7");
}

TEST(OptionValue, ReadsNothingElseAsANumber) {
  for (const char* text : {"", " 5", "5 ", "+5", "-5", "5.0", "0x5", "1e1", "five", "18446744073709551616"}) {
    EXPECT_EQ(failure([&] {
                number(text, {0, kMost});
              }),
              "--x: '" + std::string(text) + "' is not a whole number from 0 to 18446744073709551615");
  }
}

TEST(OptionValue, ReadsTimesInAnyUnit) {
  EXPECT_EQ(time_ps("250"), 250);
  EXPECT_EQ(time_ps("250ps"), 250);
  EXPECT_EQ(time_ps("-10ns"), -10'000);
  EXPECT_EQ(time_ps("2us"), 2'000'000);
  EXPECT_EQ(time_ps("1ms"), 1'000'000'000);
  EXPECT_EQ(time_ps("3s"), 3'000'000'000'000);
  EXPECT_EQ(time_ps("9223372036854775807"), std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(time_ps("-9223372s"), -9'223'372'000'000'000'000);
}

TEST(OptionValue, ReadsNothingElseAsATime) {
  for (const char* text :
       {"", "s", "1.5ns", "1 ns", "1m", "1NS", "1sps", "9223373s", "-9223373s", "9223372036854775808"}) {
    EXPECT_EQ(
        failure([&] {
          OptionValue("x", text, {-5, 7}).time_ps();
        }),
        "--x: '" + std::string(text) + "' is not a time from -5 ps to 7 ps, as in 250, 250ps, 10ns, 2us, 1ms or 3s");
  }
  EXPECT_EQ(failure([] {
              OptionValue("x", "1ns", {-5, 7}).time_ps();
            }),
            "--x: '1ns' is not a time from -5 ps to 7 ps, as in 250, 250ps, 10ns, 2us, 1ms or 3s");
}

TEST(OptionValue, ReadsAWordOfAList) {
  EXPECT_EQ(OptionValue("x", "red", {}).choice({"red", "green"}), 0u);
  EXPECT_EQ(OptionValue("x", "green", {}).choice({"red", "green"}), 1u);
  EXPECT_EQ(failure([] {
              OptionValue("x", "Red", {}).choice({"red", "green"});
            }),
            "--x: 'Red' is none of red, green");
}

TEST(OptionValue, ReadsDifferentChannels) {
  EXPECT_THAT(OptionValue("x", "2", {}).channels(), ElementsAre(2));
  EXPECT_THAT(OptionValue("x", "3,0,1", {}).channels(), ElementsAre(3, 0, 1));
  for (const char* text : {"", "4", "0,", ",0", "0,0", "0 1", "0;1", "-1", "0,1,2,3,0"}) {
    EXPECT_EQ(failure([&] { OptionValue("x", text, {}).channels(); }),
              "--x: '" + std::string(text) + "' is no list of different channels from 0 to 3, as in 0,1");
  }
}

TEST(OptionValue, SpreadsOneValueOverAllPlaces) {
  EXPECT_THAT(OptionValue("x", "5", {0, 9}).numbers(3), ElementsAre(5, 5, 5));
  EXPECT_THAT(OptionValue("x", "5,0,9", {0, 9}).numbers(3), ElementsAre(5, 0, 9));
  EXPECT_THAT(OptionValue("x", "5ns,1", kAnyTime).times_ps(2), ElementsAre(5000, 1));
  EXPECT_EQ(failure([] {
              OptionValue("x", "5,0", {0, 9}).numbers(3);
            }),
            "--x: give one value, or one for each of the 3 active channels, not 2");
  EXPECT_EQ(failure([] {
              OptionValue("x", "5,10,0", {0, 9}).numbers(3);
            }),
            "--x: '10' is not a whole number from 0 to 9");
  EXPECT_EQ(failure([] {
              OptionValue("x", "5,,0", {0, 9}).numbers(3);
            }),
            "--x: '' is not a whole number from 0 to 9");
}

}  // namespace
