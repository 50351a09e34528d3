#include "orvo/timing/time_tag.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <new>
#include <type_traits>

namespace {

using orvo::timing::TimeTag;

static_assert(std::is_same_v<decltype(TimeTag::channel), std::uint8_t>);
static_assert(std::is_same_v<decltype(TimeTag::time_ps), std::int64_t>);
static_assert(std::is_trivially_copyable_v<TimeTag>);
static_assert(std::is_standard_layout_v<TimeTag>);

TEST(TimeTag, StartsAsChannelZeroAtTimeZero) {
  const TimeTag tag;
  EXPECT_EQ(tag.channel, 0);
  EXPECT_EQ(tag.time_ps, 0);
}

TEST(TimeTag, HasNoUndefinedByteWhereverItIsMade) {
  alignas(TimeTag) std::array<unsigned char, sizeof(TimeTag)> storage;
  const auto bytes_of = [&storage](auto make) {
    storage.fill(0xFF);
    make(storage.data());
    return storage;
  };
  const std::array<unsigned char, 16> zeros{};
  EXPECT_EQ(bytes_of([](void* at) { new (at) TimeTag; }), zeros);
  EXPECT_EQ(bytes_of([](void* at) { new (at) TimeTag(); }), zeros);
  EXPECT_EQ(bytes_of([](void* at) { new (at) TimeTag{}; }), zeros);
  std::array<unsigned char, 16> channel_3_at_minus_1 = zeros;
  channel_3_at_minus_1[0] = 3;
  for (std::size_t i = 8; i < 16; ++i) channel_3_at_minus_1[i] = 0xFF;
  EXPECT_EQ(bytes_of([](void* at) { new (at) TimeTag(3, -1); }), channel_3_at_minus_1);
}

TEST(TimeTag, IsEqualOnlyWithBothFieldsEqual) {
  EXPECT_EQ((TimeTag{1, 160}), (TimeTag{1, 160}));
  EXPECT_NE((TimeTag{1, 160}), (TimeTag{2, 160}));
  EXPECT_NE((TimeTag{1, 160}), (TimeTag{1, -160}));
}

}  // namespace
