// packed_delta, internal mode: a chunk whose tags are spread too unevenly was decoded on a wrong alignment.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <string>

#include "orvo/timing/stream_decoder.hpp"
#include "support/checked_feeding.hpp"
#include "support/packed_debug_output.hpp"
#include "support/packed_payload.hpp"

namespace {

using namespace orvo::test;
using orvo::timing::StreamDecoder;
using orvo::timing::StreamMode;
using testing::IsEmpty;
using testing::SizeIs;

/// 5 payload bits, so a record is a byte; every channel has a time of 0.
StreamDecoder running(StreamMode mode, unsigned channel_mask) {
  StreamDecoder decoder = locked_decoder({.mode = mode, .channel_mask = channel_mask, .delta_bits = 5});
  decoder.pk_has_time.fill(true);
  return decoder;
}

/// That many records, each 1 ps after the channel's last, channel by channel.
Bytes records(std::array<std::size_t, 4> counts) {
  return Bytes(counts[0], 0x01) + Bytes(counts[1], 0x41) + Bytes(counts[2], 0x81) + Bytes(counts[3], 0xC1);
}

void expect_accepted(StreamDecoder decoder, std::array<std::size_t, 4> counts) {
  EXPECT_THAT(feed(decoder, records(counts)), SizeIs(counts[0] + counts[1] + counts[2] + counts[3]));
  EXPECT_TRUE(decoder.packed_locked);
}

/// The output of a chunk that must be discarded.
std::string discarded(StreamDecoder decoder, const Bytes& chunk) {
  const std::string output = debug_output_of([&] { EXPECT_THAT(feed(decoder, chunk), IsEmpty()); });
  EXPECT_FALSE(decoder.packed_locked);
  EXPECT_FALSE(decoder.pk_has_time[0]);
  EXPECT_FALSE(decoder.pk_has_emitted[0]);
  EXPECT_TRUE(decoder.pending_bytes.empty());
  return output;
}

TEST(PackedImbalance, FiveThousandTagsOnOneOfTwoChannelsAreDiscarded) {
  EXPECT_EQ(discarded(running(StreamMode::internal, 0x3), records({5000, 0, 0, 0})),
            "packed-decoder: drop internal imbalanced lock min=0 max=5000 total=5000 records=5000\n");
}

TEST(PackedImbalance, ExternalModeAcceptsAnySpread) {
  expect_accepted(running(StreamMode::external, 0x3), {5000, 0, 0, 0});
  expect_accepted(running(StreamMode::external, 0xF), {0, 0, 100'000, 1});
}

TEST(PackedImbalance, IsJudgedFrom4096TagsOn) {
  expect_accepted(running(StreamMode::internal, 0x3), {4095, 0, 0, 0});
  EXPECT_EQ(discarded(running(StreamMode::internal, 0x3), records({0, 4096, 0, 0})),
            "packed-decoder: drop internal imbalanced lock min=0 max=4096 total=4096 records=4096\n");
}

TEST(PackedImbalance, EightToOneIsAccepted) {
  expect_accepted(running(StreamMode::internal, 0x3), {4096, 512, 0, 0});
  EXPECT_EQ(discarded(running(StreamMode::internal, 0x3), records({4097, 512, 0, 0})),
            "packed-decoder: drop internal imbalanced lock min=512 max=4097 total=4609 records=4609\n");
  EXPECT_EQ(discarded(running(StreamMode::internal, 0x3), records({511, 4096, 0, 0})),
            "packed-decoder: drop internal imbalanced lock min=511 max=4096 total=4607 records=4607\n");
}

TEST(PackedImbalance, ComparesTheLeastAndTheMostOfAllActiveChannels) {
  expect_accepted(running(StreamMode::internal, 0x0), {2000, 2000, 250, 2000});
  EXPECT_EQ(discarded(running(StreamMode::internal, 0x0), records({2000, 2000, 249, 2000})),
            "packed-decoder: drop internal imbalanced lock min=249 max=2000 total=6249 records=6249\n");
  EXPECT_EQ(discarded(running(StreamMode::internal, 0xB), records({3000, 3000, 0, 0})),
            "packed-decoder: drop internal imbalanced lock min=0 max=3000 total=6000 records=6000\n");
}

TEST(PackedImbalance, InactiveChannelsDoNotCount) {
  expect_accepted(running(StreamMode::internal, 0x5), {3000, 0, 3000, 0});
}

TEST(PackedImbalance, OneActiveChannelHasNothingToBeComparedWith) {
  expect_accepted(running(StreamMode::internal, 0x4), {0, 0, 100'000, 0});
}

TEST(PackedImbalance, OnlyTagsCount) {
  // Channel 1 has no time, so its records are skipped; overflow records give no tags either.
  StreamDecoder decoder = running(StreamMode::internal, 0x3);
  decoder.pk_has_time[1] = false;
  const Bytes overflows(3000, 0x60);
  EXPECT_EQ(discarded(decoder, records({4096, 5000, 0, 0}) + overflows),
            "packed-decoder: drop internal imbalanced lock min=0 max=4096 total=4096 records=12096\n");
  StreamDecoder few = running(StreamMode::internal, 0x3);
  few.pk_has_time[1] = false;
  EXPECT_THAT(feed(few, records({4095, 5000, 0, 0})), SizeIs(4095));
  EXPECT_TRUE(few.packed_locked);
}

TEST(PackedImbalance, IsJudgedPerCall) {
  StreamDecoder decoder = running(StreamMode::internal, 0x3);
  for (int call = 0; call < 4; ++call) EXPECT_THAT(feed(decoder, records({4095, 0, 0, 0})), SizeIs(4095));
  EXPECT_TRUE(decoder.packed_locked);
  // All tags of the call are discarded, although the next call would have brought those of channel 1.
  EXPECT_THAT(feed(decoder, records({4096, 0, 0, 0})), IsEmpty());
  EXPECT_FALSE(decoder.packed_locked);
  EXPECT_THAT(feed(decoder, records({0, 4000, 0, 0})), IsEmpty());
}

TEST(PackedImbalance, TakesOnlyTheTagsOfItsOwnCall) {
  StreamDecoder decoder = running(StreamMode::internal, 0x3);
  EXPECT_THAT(feed(decoder, records({2000, 2000, 0, 0})), SizeIs(4000));
  EXPECT_THAT(feed(decoder, records({5000, 1, 0, 0})), IsEmpty());
}

TEST(PackedImbalance, ALockDroppedBeforeTheEndOfTheChunkKeepsItsTags) {
  StreamDecoder decoder = running(StreamMode::internal, 0x3);
  const std::string output = debug_output_of([&] {
    EXPECT_THAT(feed(decoder, records({5000, 0, 1, 0}) + records({9, 0, 0, 0})), SizeIs(5000));
  });
  EXPECT_EQ(output, "packed-decoder: drop inactive ch=2 active_mask=0x3 record=5000 records=5010\n");
  EXPECT_EQ(decoder.pending_bytes.size(), 9u);
}

TEST(PackedImbalance, LeavesTheBitsBehindTheLastWholeRecord) {
  StreamDecoder decoder = running_decoder({.mode = StreamMode::internal, .channel_mask = 0x3}, 0, 0);
  PackedWriter payload(16);
  for (int i = 0; i < 4097; ++i) payload.data(0, 1);  // 77'843 bits: 9730 bytes and 3 bits
  payload.bits(0x1FFF, 13);
  EXPECT_THAT(feed(decoder, payload.bytes()), IsEmpty());
  EXPECT_EQ(pending(decoder), bytes({0x3F, 0xFF})) << "3 bits of the last record stay in the first byte";
  EXPECT_EQ(decoder.bit_offset, 0u);
}

TEST(PackedImbalance, TheStreamGoesOnBehindANewAnchorOfEveryChannel) {
  StreamDecoder decoder = running(StreamMode::internal, 0x3);
  EXPECT_THAT(feed(decoder, records({5000, 0, 0, 0})), IsEmpty());
  const Bytes anchors = PackedWriter(5).anchor(0, 700).anchor(1, 800).bytes();
  EXPECT_EQ(feed(decoder, anchors + records({1, 1, 0, 0})),
            (Tags{tag(0, 700), tag(1, 800), tag(0, 701), tag(1, 801)}));
}

}  // namespace
