#include "verify/config.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <sstream>
#include <string>

namespace {

constexpr const char* kBadChannels = "channels must be distinct and in 0..3\n";
constexpr const char* kBadWidths = "range_ps and bin_ps must be positive\n";

// What validation says; nothing if the settings are good.
std::string complaint(const Config& config) {
  std::ostringstream err;
  const bool valid = validate(config, err);
  EXPECT_EQ(valid, err.str().empty());
  return err.str();
}

std::string complaint_of_channels(std::int32_t channel_a, std::int32_t channel_b) {
  Config config;
  config.channel_a = channel_a;
  config.channel_b = channel_b;
  return complaint(config);
}

std::string complaint_of_widths(std::int64_t range_ps, std::int64_t bin_ps) {
  Config config;
  config.range_ps = range_ps;
  config.bin_ps = bin_ps;
  return complaint(config);
}

TEST(Config, DefaultsAreThoseOfARunWithoutSettings) {
  const Config config;
  EXPECT_FALSE(config.input_file.has_value());
  EXPECT_FALSE(config.output_prefix.has_value());
  EXPECT_EQ(config.channel_a, 0);
  EXPECT_EQ(config.channel_b, 1);
  EXPECT_EQ(config.range_ps, 5000);
  EXPECT_EQ(config.bin_ps, 8);
  EXPECT_EQ(config.offset, "auto");
  EXPECT_EQ(config.max_tags, 0u);
}

TEST(Validation, AcceptsTheDefaults) {
  EXPECT_EQ(complaint({}), "");
}

TEST(Validation, AcceptsAnyTwoDistinctChannels) {
  for (int a = 0; a <= 3; ++a) {
    for (int b = 0; b <= 3; ++b) EXPECT_EQ(complaint_of_channels(a, b), a == b ? kBadChannels : "") << a << ' ' << b;
  }
}

TEST(Validation, RefusesChannelsOutsideZeroToThree) {
  for (const std::int32_t channel : {-1, 4, 7, INT32_MIN, INT32_MAX}) {
    EXPECT_EQ(complaint_of_channels(channel, 1), kBadChannels) << channel;
    EXPECT_EQ(complaint_of_channels(0, channel), kBadChannels) << channel;
  }
}

TEST(Validation, RefusesWidthsOfZeroAndLess) {
  for (const std::int64_t width : {std::int64_t{0}, std::int64_t{-1}, std::int64_t{INT64_MIN}}) {
    EXPECT_EQ(complaint_of_widths(width, 8), kBadWidths) << width;
    EXPECT_EQ(complaint_of_widths(5000, width), kBadWidths) << width;
  }
  EXPECT_EQ(complaint_of_widths(1, 1), "");
  EXPECT_EQ(complaint_of_widths(1, INT64_MAX), "");
  EXPECT_EQ(complaint_of_widths(INT64_MAX, 1), "");
}

TEST(Validation, LooksAtTheChannelsFirst) {
  Config config;
  config.channel_b = 0;
  config.range_ps = 0;
  EXPECT_EQ(complaint(config), kBadChannels);
}

TEST(Validation, LeavesOffsetAndTagLimitToLaterSteps) {
  Config config;
  config.offset = "none";
  config.max_tags = UINT64_MAX;
  EXPECT_EQ(complaint(config), "");
}

}  // namespace
