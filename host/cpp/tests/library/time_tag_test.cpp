#include "orvo/timing/time_tag.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <type_traits>

namespace {

using orvo::timing::TimeTag;

static_assert(std::is_same_v<decltype(TimeTag::channel), std::uint8_t>);
static_assert(std::is_same_v<decltype(TimeTag::time_ps), std::int64_t>);
static_assert(std::is_trivially_copyable_v<TimeTag>);

TEST(TimeTag, StartsAsChannelZeroAtTimeZero) {
  const TimeTag tag;
  EXPECT_EQ(tag.channel, 0);
  EXPECT_EQ(tag.time_ps, 0);
}

TEST(TimeTag, IsEqualOnlyWithBothFieldsEqual) {
  EXPECT_EQ((TimeTag{1, 160}), (TimeTag{1, 160}));
  EXPECT_NE((TimeTag{1, 160}), (TimeTag{2, 160}));
  EXPECT_NE((TimeTag{1, 160}), (TimeTag{1, -160}));
}

}  // namespace
