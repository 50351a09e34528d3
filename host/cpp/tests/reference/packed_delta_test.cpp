// The reference of packed_delta, and the product's decoder beside it, on streams worked out by hand. With five bits
// of payload every record is one byte; on channel c: data x is c * 0x40 + x, overflow x is c * 0x40 + 0x20 + x, and a
// sync start is c * 0x40 + 0x3F, nine pieces following.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "support/bytes.hpp"
#include "support/checked_decoders.hpp"
#include "support/packed_streams.hpp"
#include "support/streams.hpp"

namespace orvo::test {
namespace {

using reference::Tags;
using testing::ElementsAre;
using testing::IsEmpty;
using timing::StreamFileHeader;
using timing::StreamMode;

reference::Tag tag(int channel, std::int64_t time_ps) {
  return {channel, time_ps};
}

/// A sync sequence for a time below 32 quanta.
Bytes short_sync(int channel, int quanta) {
  const int c = channel * 0x40;
  return bytes({c + 0x3F, c + quanta, c, c, c, c, c, c, c, c});
}

class ReferencePackedDelta : public testing::Test {
 protected:
  /// A decoder that is locked on channels 0 (time 3) and 1 (time 7); quanta of 1 ps.
  static CheckedPacked locked(StreamMode mode, int channel_mask = 3) {
    CheckedPacked model(packed_header(mode, channel_mask, 5, 1));
    EXPECT_THAT(model.feed(short_sync(0, 1) + bytes({2}) + short_sync(1, 3) + bytes({0x44})),
                ElementsAre(tag(0, 3), tag(1, 7)));
    EXPECT_TRUE(model.locked);
    model.lines.clear();
    return model;
  }
};

TEST_F(ReferencePackedDelta, AnAnchorIsTheSyncTimePlusTheNextRecord) {
  CheckedPacked model(packed_header(StreamMode::external, 1, 5, 1));
  EXPECT_THAT(model.feed(bytes({0x3F, 1, 1, 0, 0, 0, 0, 0, 0, 0, 2, 4})), ElementsAre(tag(0, 35), tag(0, 39)));
  EXPECT_THAT(model.pending, IsEmpty());
  EXPECT_THAT(model.lines, ElementsAre("locked bits=5 drop_bytes=0 bit_offset=0 raw_bytes=12"));
}

TEST_F(ReferencePackedDelta, TheQuantumIsThePowerOfTwoInTheHeadersValue) {
  const Bytes stream = short_sync(0, 1) + bytes({2, 4});
  EXPECT_THAT(CheckedPacked(packed_header(StreamMode::external, 1, 5, 0)).feed(stream),
              ElementsAre(tag(0, 24), tag(0, 56)));
  EXPECT_THAT(CheckedPacked(packed_header(StreamMode::external, 1, 5, 12)).feed(stream),
              ElementsAre(tag(0, 12), tag(0, 28)));
  EXPECT_THAT(CheckedPacked(packed_header(StreamMode::external, 1, 5, 9)).feed(stream),
              ElementsAre(tag(0, 3), tag(0, 7)));
}

TEST_F(ReferencePackedDelta, RecordsMayStartAtAnyBit) {
  CheckedPacked model(packed_header(StreamMode::external, 3, 0, 8));  // 16 bits of payload, records of 19
  const std::string ones(29, '1');
  const Bytes stream =
      bit_text(ones +
               "00 1 1111111111111111  00 0 0000000000000111  00 0 0000000000000000  00 0 0000000000000000"
               "00 0 0000000000000001  01 1 1111111111111111  01 0 0000000000000000  01 0 0000000000000001"
               "01 0 0000000000000000  01 0 0000000000000010  00 0 0000000000000011");
  EXPECT_THAT(model.feed(stream), ElementsAre(tag(0, 64), tag(1, 8 * (65'536 + 2)), tag(0, 88)));
  EXPECT_THAT(model.lines, ElementsAre("locked bits=16 drop_bytes=3 bit_offset=5 raw_bytes=27"));
  EXPECT_EQ(model.pending.size(), 1u);  // 29 + 11 * 19 = 238 bits: the last byte is not used up
  EXPECT_EQ(model.bit_offset, 6u);
}

TEST_F(ReferencePackedDelta, OverflowsAddUpForTheNextDifferenceOfTheirChannel) {
  CheckedPacked model = locked(StreamMode::external);
  EXPECT_THAT(model.feed(bytes({0x21, 0x22, 0x41, 0x05, 0x01})),
              ElementsAre(tag(1, 8), tag(0, 3 + 3 * 32 + 5), tag(0, 3 + 3 * 32 + 6)));
}

TEST_F(ReferencePackedDelta, ASyncStartForgetsAnOverflow) {
  CheckedPacked model = locked(StreamMode::external);
  EXPECT_THAT(model.feed(bytes({0x21}) + short_sync(0, 9) + bytes({1})), ElementsAre(tag(0, 10)));
}

TEST_F(ReferencePackedDelta, AnOverflowMayComeBetweenSyncAndAnchor) {
  CheckedPacked model = locked(StreamMode::external);
  EXPECT_THAT(model.feed(short_sync(0, 9) + bytes({0x21, 0x41, 1})), ElementsAre(tag(1, 8), tag(0, 9 + 33)));
}

TEST_F(ReferencePackedDelta, OnlyOneChannelCanWaitForItsAnchor) {
  CheckedPacked model(packed_header(StreamMode::external, 3, 5, 1));
  EXPECT_THAT(model.feed(short_sync(0, 1) + short_sync(1, 2) + bytes({5, 0x46, 1})), ElementsAre(tag(1, 8)));
}

TEST_F(ReferencePackedDelta, AChannelWithoutAnAnchorIsPassedOver) {
  CheckedPacked model = locked(StreamMode::external, 15);
  EXPECT_THAT(model.feed(bytes({0x81, 0xA1, 0xC1, 0x01})), ElementsAre(tag(0, 4)));
  EXPECT_THAT(model.feed(short_sync(2, 4) + bytes({0x81})), ElementsAre(tag(2, 5)));
}

TEST_F(ReferencePackedDelta, WhatDropsTheLockIsConsumedAndTheRestWaits) {
  const auto drop = [](const Bytes& chunk, std::size_t left, const Tags& expected) {
    CheckedPacked model = locked(StreamMode::external);
    EXPECT_EQ(model.feed(chunk), expected);
    EXPECT_FALSE(model.locked);
    EXPECT_EQ(model.pending.size(), left);
    EXPECT_THAT(model.has_time, ElementsAre(false, false, false, false));
    return model.lines.size() == 1 ? model.lines[0] : "";
  };
  EXPECT_EQ(drop(bytes({0x01, 0xC1, 0x01, 0x01}), 2, {tag(0, 4)}),
            "drop inactive ch=3 active_mask=0x3 record=1 records=4");
  EXPECT_EQ(drop(bytes({0x3F, 0x01, 0x41}), 0, {}),
            "drop sync channel mismatch ch=1 expected=0 record=2 chunks_left=8");
  EXPECT_EQ(drop(bytes({0x7F, 0x7F, 0x41}), 1, {}), "drop ovf in sync ch=1 record=1 chunks_left=9");
  EXPECT_EQ(drop(short_sync(0, 3) + bytes({0}), 0, {}),
            "drop implausible sync delta ch=0 delta=0 next=3 prev=3 record=10");
}

TEST_F(ReferencePackedDelta, ImbalanceIsJudgedInInternalModeFrom4096TagsOn) {
  const auto dropped = [](StreamMode mode, std::size_t on_0, std::size_t on_1) {
    CheckedPacked model = locked(mode);
    const Tags tags = model.feed(Bytes(on_0, 0x01) + Bytes(on_1, 0x41));
    EXPECT_EQ(tags.size(), model.locked ? on_0 + on_1 : 0);
    EXPECT_THAT(model.pending, IsEmpty());
    return model.locked ? "" : model.lines.back();
  };
  EXPECT_EQ(dropped(StreamMode::internal, 5000, 0),
            "drop internal imbalanced lock min=0 max=5000 total=5000 records=5000");
  EXPECT_EQ(dropped(StreamMode::external, 5000, 0), "");
  EXPECT_EQ(dropped(StreamMode::internal, 4095, 0), "");
  EXPECT_EQ(dropped(StreamMode::internal, 4096, 0),
            "drop internal imbalanced lock min=0 max=4096 total=4096 records=4096");
  EXPECT_EQ(dropped(StreamMode::internal, 4000, 500), "");
  EXPECT_EQ(dropped(StreamMode::internal, 4001, 500),
            "drop internal imbalanced lock min=500 max=4001 total=4501 records=4501");
}

TEST_F(ReferencePackedDelta, AStreamWithoutAlignmentIsTrimmed) {
  CheckedPacked model(packed_header(StreamMode::external, 1, 5, 1));
  const auto feed_ones = [&](std::size_t count) {
    EXPECT_THAT(model.feed(Bytes(count, 0xFF)), IsEmpty());
    return model.pending.size();
  };
  EXPECT_EQ(feed_ones(4095), 4095u);
  EXPECT_THAT(model.lines, IsEmpty());
  EXPECT_EQ(feed_ones(1), 4096u);
  EXPECT_EQ(feed_ones(61'440), 65'536u);
  EXPECT_EQ(feed_ones(1), 4096u);
  EXPECT_THAT(model.lines,
              ElementsAre("no alignment bits=5 width=8 raw_bytes=4096", "no alignment bits=5 width=8 raw_bytes=65536",
                          "no alignment bits=5 width=8 raw_bytes=65537"));
  for (int i = 0; i < 200; ++i) feed_ones(1);
  EXPECT_EQ(model.lines.size(), 200u);
}

TEST_F(ReferencePackedDelta, PayloadsOfMoreThan31BitsAreNotDecoded) {
  CheckedPacked model(packed_header(StreamMode::external, 1, 32, 1));
  EXPECT_THAT(model.feed(Bytes(100'000, 0x3F)), IsEmpty());
  EXPECT_EQ(model.pending.size(), 100'000u);
  EXPECT_THAT(model.lines, IsEmpty());
}

}  // namespace
}  // namespace orvo::test
