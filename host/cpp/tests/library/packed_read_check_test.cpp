#include "orvo/timing/detail/packed_read_check.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <string>

#include "support/failure.hpp"

namespace {

using namespace orvo::test;
using orvo::timing::StreamFileHeader;
using orvo::timing::StreamFormat;
using orvo::timing::StreamMode;
using orvo::timing::detail::PackedReadCheck;

constexpr std::uint64_t kReadBits = 8'388'608;  // 1 MiB
constexpr const char* kUneven =
    " ps: decoders of internal mode would discard the last 1 MiB, in which another channel has more than 8 times the "
    "tags of this one (code -1)";

StreamFileHeader header(StreamMode mode, std::uint8_t channel_mask) {
  StreamFileHeader header;
  header.stream_format = StreamFormat::packed_delta;
  header.mode = mode;
  header.channel_mask = channel_mask;
  return header;
}

/// Tags of channels 0 and 1 that all end at that bit.
void add(PackedReadCheck& check, std::array<int, 2> counts, std::uint64_t end_bit) {
  for (std::uint8_t channel = 0; channel < 2; ++channel) {
    for (int i = 0; i < counts[channel]; ++i) check.add_tag({channel, 7}, end_bit);
  }
}

/// Of one read with so many tags of channels 0 and 1, the last at 999 ps.
std::string judged(int tags_0, int tags_1) {
  PackedReadCheck check(header(StreamMode::internal, 0b0011));
  add(check, {tags_0, tags_1}, 1000);
  return failure_of([&] { check.finish(false, 999); });
}

TEST(PackedReadCheck, EightTimesTheTagsOfAnotherChannelAreEven) {
  EXPECT_EQ(judged(512, 4096), "nothing thrown");
  EXPECT_EQ(judged(512, 4097), "PackedDeltaEncoder: channel 0 at 999" + std::string(kUneven));
  EXPECT_EQ(judged(4097, 512), "PackedDeltaEncoder: channel 1 at 999" + std::string(kUneven));
}

TEST(PackedReadCheck, FewerThan4096TagsAreNotJudged) {
  EXPECT_EQ(judged(4095, 0), "nothing thrown");
  EXPECT_EQ(judged(4096, 0), "PackedDeltaEncoder: channel 1 at 999" + std::string(kUneven));
}

TEST(PackedReadCheck, EachReadIsJudgedByItself) {
  PackedReadCheck check(header(StreamMode::internal, 0b0011));
  add(check, {3000, 300}, kReadBits);  // ends with the first read
  add(check, {3000, 380}, kReadBits + 1);
  EXPECT_EQ(failure_of([&] { check.finish(false, 999); }), "nothing thrown");
  PackedReadCheck uneven(header(StreamMode::internal, 0b0011));
  add(uneven, {5000, 300}, kReadBits);
  EXPECT_EQ(failure_of([&] { uneven.add_tag({0, 8}, kReadBits); }), "nothing thrown") << "the same read";
  EXPECT_EQ(failure_of([&] {
              uneven.add_tag({0, 9}, kReadBits + 1);
            }),
            "PackedDeltaEncoder: channel 1 at 9" + std::string(kUneven));
}

TEST(PackedReadCheck, WatchesSeveralChannelsOfInternalModeAlone) {
  EXPECT_TRUE(PackedReadCheck(header(StreamMode::internal, 0b0011)).watches_balance());
  EXPECT_TRUE(PackedReadCheck(header(StreamMode::internal, 0b1010)).watches_balance());
  EXPECT_FALSE(PackedReadCheck(header(StreamMode::internal, 0b0100)).watches_balance());
  EXPECT_FALSE(PackedReadCheck(header(StreamMode::external, 0b1111)).watches_balance());
}

TEST(PackedReadCheck, ReadsEndEveryMebibyte) {
  EXPECT_EQ(PackedReadCheck::left_in_read(0), 1'048'576u);
  EXPECT_EQ(PackedReadCheck::left_in_read(1'048'575), 1u);
  EXPECT_EQ(PackedReadCheck::left_in_read(1'048'576), 1'048'576u);
}

}  // namespace
