// packed_delta: waiting for an alignment, locking on it, and what a drop costs.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>

#include "orvo/timing/stream_decoder.hpp"
#include "support/checked_feeding.hpp"
#include "support/packed_debug_output.hpp"
#include "support/packed_payload.hpp"

namespace {

using namespace orvo::test;
using orvo::timing::StreamDecoder;
using orvo::timing::StreamMode;
using testing::ElementsAre;
using testing::IsEmpty;

/// Bytes without six one bits in a row, so that no alignment of 8-bit records shows a sync sequence.
Bytes no_sync(std::size_t count) {
  Bytes out(count);
  for (std::size_t i = 0; i < count; ++i) out[i] = static_cast<std::uint8_t>(i % 16);
  return out;
}

/// One active channel, records of a byte.
StreamDecoder waiting() {
  return packed_decoder({.channel_mask = 0x1, .delta_bits = 5});
}

TEST(PackedLock, WaitsSilentlyForLessThan4096Bytes) {
  StreamDecoder decoder = waiting();
  EXPECT_EQ(debug_output_of([&] { EXPECT_THAT(feed(decoder, no_sync(4095)), IsEmpty()); }), "");
  EXPECT_EQ(pending(decoder), no_sync(4095));
  EXPECT_EQ(debug_output_of([&] { EXPECT_THAT(feed(decoder, bytes({3})), IsEmpty()); }),
            "packed-decoder: no alignment bits=5 width=8 raw_bytes=4096\n");
  EXPECT_EQ(decoder.pending_bytes.size(), 4096u);
}

TEST(PackedLock, KeepsUpTo65536Bytes) {
  StreamDecoder decoder = waiting();
  EXPECT_EQ(debug_output_of([&] { feed(decoder, no_sync(65'536)); }),
            "packed-decoder: no alignment bits=5 width=8 raw_bytes=65536\n");
  EXPECT_EQ(pending(decoder), no_sync(65'536));
  EXPECT_EQ(debug_output_of([&] { feed(decoder, bytes({1})); }),
            "packed-decoder: no alignment bits=5 width=8 raw_bytes=65537\n");
  EXPECT_EQ(pending(decoder), all_but_first(61'441, no_sync(65'536)) + bytes({1}));
  EXPECT_EQ(decoder.bit_offset, 0u);
}

TEST(PackedLock, ForgetsABitOffsetWhenItTrims) {
  StreamDecoder decoder = waiting();
  decoder.bit_offset = 6;
  feed(decoder, no_sync(65'536));
  EXPECT_EQ(decoder.bit_offset, 6u);
  feed(decoder, bytes({1}));
  EXPECT_EQ(decoder.bit_offset, 0u);
}

TEST(PackedLock, AStreamThatNeverAlignsStaysBounded) {
  StreamDecoder decoder = waiting();
  for (int read = 0; read < 8; ++read) {
    EXPECT_THAT(feed(decoder, no_sync(30'000)), IsEmpty());
    EXPECT_LE(decoder.pending_bytes.size(), 65'536u);
  }
}

TEST(PackedLock, FindsASequenceThatComesAfterTheTrim) {
  StreamDecoder decoder = waiting();
  feed(decoder, no_sync(70'000));
  EXPECT_EQ(decoder.pending_bytes.size(), 4096u);
  EXPECT_THAT(feed(decoder, PackedWriter(5).anchor(0, 900).data(0, 1).bytes()),
              ElementsAre(tag(0, 900), tag(0, 901)));
}

TEST(PackedLock, SaysWhereItLocked) {
  // 29 one bits, then five records that make an anchor: 124 bits in 16 bytes.
  StreamDecoder decoder = packed_decoder({.channel_mask = 0x1});
  const Bytes payload = PackedWriter(16).ones(29).anchor(0, 1000).bytes();
  ASSERT_EQ(payload.size(), 16u);
  EXPECT_EQ(debug_output_of([&] { EXPECT_THAT(feed(decoder, payload), ElementsAre(tag(0, 1000))); }),
            "packed-decoder: locked bits=16 drop_bytes=3 bit_offset=5 raw_bytes=13\n");
  EXPECT_TRUE(decoder.packed_locked);
  EXPECT_EQ(decoder.bit_offset, 4u);
  EXPECT_EQ(decoder.pending_bytes.size(), 1u);
}

TEST(PackedLock, HarmlessBitsBeforeTheStreamAreRecordsToo) {
  // 29 zero bits end in a data record of 19 bits, which does not count.
  StreamDecoder decoder = packed_decoder({.channel_mask = 0x1});
  const Bytes payload = PackedWriter(16).zeros(29).anchor(0, 1000).bytes();
  EXPECT_EQ(debug_output_of([&] { EXPECT_THAT(feed(decoder, payload), ElementsAre(tag(0, 1000))); }),
            "packed-decoder: locked bits=16 drop_bytes=1 bit_offset=2 raw_bytes=15\n");
}

TEST(PackedLock, KeepsTheLockBetweenChunks) {
  StreamDecoder decoder = waiting();
  feed(decoder, PackedWriter(5).anchor(0, 900).bytes());
  EXPECT_EQ(debug_output_of([&] {
              EXPECT_THAT(feed(decoder, bytes({2, 3})), ElementsAre(tag(0, 902), tag(0, 905)));
            }),
            "");
}

TEST(PackedLock, ADropLeavesTheRestToTheNextCall) {
  StreamDecoder decoder = waiting();
  feed(decoder, PackedWriter(5).anchor(0, 900).bytes());
  const Bytes second = PackedWriter(5).anchor(0, 5000).data(0, 1).bytes();
  EXPECT_THAT(feed(decoder, PackedWriter(5).data(0, 2).data(1, 0).bytes() + second), ElementsAre(tag(0, 902)));
  EXPECT_FALSE(decoder.packed_locked);
  EXPECT_EQ(pending(decoder), second);
  EXPECT_THAT(feed(decoder, bytes({2})), ElementsAre(tag(0, 5000), tag(0, 5001), tag(0, 5003)));
}

TEST(PackedLock, TheSearchPassesOverARecordThatWouldDropTheLock) {
  // Nothing before the record of channel 1 is decoded: the lock starts after it.
  StreamDecoder decoder = waiting();
  const Bytes second = PackedWriter(5).anchor(0, 5000).data(0, 1).bytes();
  EXPECT_THAT(feed(decoder, PackedWriter(5).anchor(0, 900).data(0, 2).data(1, 0).bytes() + second),
              ElementsAre(tag(0, 5000), tag(0, 5001)));
  EXPECT_TRUE(decoder.packed_locked);
}

TEST(PackedLock, ADropCostsTheTimesOfAllChannels) {
  StreamDecoder decoder = packed_decoder({.channel_mask = 0x7, .delta_bits = 5});
  feed(decoder, PackedWriter(5).anchor(0, 10).anchor(1, 20).anchor(2, 30).bytes());
  EXPECT_THAT(feed(decoder, PackedWriter(5).data(2, 1).data(3, 0).bytes()), ElementsAre(tag(2, 31)));
  // Two channels have new anchors; the third waits for its own sequence.
  const Bytes anew =
      PackedWriter(5).anchor(0, 40).anchor(1, 50).data(2, 1).data(0, 1).anchor(2, 60).data(2, 2).bytes();
  EXPECT_THAT(feed(decoder, anew), ElementsAre(tag(0, 40), tag(1, 50), tag(0, 41), tag(2, 60), tag(2, 62)));
}

TEST(PackedLock, InternalModeWaitsForEveryActiveChannel) {
  StreamDecoder decoder = packed_decoder({.mode = StreamMode::internal, .channel_mask = 0x7, .delta_bits = 5});
  EXPECT_THAT(feed(decoder, PackedWriter(5).anchor(0, 10).anchor(1, 20).bytes()), IsEmpty());
  EXPECT_FALSE(decoder.packed_locked);
  EXPECT_THAT(feed(decoder, PackedWriter(5).anchor(2, 30).bytes()), ElementsAre(tag(0, 10), tag(1, 20), tag(2, 30)));
}

TEST(PackedLock, ExternalModeWaitsForTwoOfSeveral) {
  StreamDecoder decoder = packed_decoder({.delta_bits = 5});
  EXPECT_THAT(feed(decoder, PackedWriter(5).anchor(3, 10).data(3, 1).bytes()), IsEmpty());
  EXPECT_THAT(feed(decoder, PackedWriter(5).anchor(1, 20).bytes()), ElementsAre(tag(3, 10), tag(3, 11), tag(1, 20)));
}

TEST(PackedLock, OneActiveChannelIsEnoughInBothModes) {
  for (const StreamMode mode : {StreamMode::internal, StreamMode::external}) {
    StreamDecoder decoder = packed_decoder({.mode = mode, .channel_mask = 0x8, .delta_bits = 5});
    EXPECT_THAT(feed(decoder, PackedWriter(5).anchor(3, 10).bytes()), ElementsAre(tag(3, 10)));
  }
}

TEST(PackedLock, AMaskWithoutAnyOfTheFourChannelsNeverLocks) {
  for (const StreamMode mode : {StreamMode::internal, StreamMode::external}) {
    StreamDecoder decoder = packed_decoder({.mode = mode, .channel_mask = 0xF0, .delta_bits = 5});
    EXPECT_THAT(feed(decoder, PackedWriter(5).anchor(0, 1).anchor(1, 2).anchor(2, 3).anchor(3, 4).bytes()),
                IsEmpty());
    EXPECT_FALSE(decoder.packed_locked);
  }
}

TEST(PackedLock, ConsumesRecordsByBits) {
  StreamDecoder decoder = packed_decoder({});  // 19-bit records
  const Bytes payload = no_sync(40);
  feed(decoder, payload);
  decoder.consume_packed_records(0);
  EXPECT_EQ(decoder.pending_bytes.size(), 40u);
  decoder.consume_packed_records(1);
  EXPECT_EQ(pending(decoder), all_but_first(2, payload));
  EXPECT_EQ(decoder.bit_offset, 3u);
  decoder.consume_packed_records(2);  // 3 + 38 bits
  EXPECT_EQ(pending(decoder), all_but_first(7, payload));
  EXPECT_EQ(decoder.bit_offset, 1u);
  decoder.consume_packed_records(8);  // 1 + 152 bits
  EXPECT_EQ(pending(decoder), all_but_first(26, payload));
  EXPECT_EQ(decoder.bit_offset, 1u);
  decoder.bit_offset = 21;
  decoder.consume_packed_records(0);
  EXPECT_EQ(pending(decoder), all_but_first(28, payload));
  EXPECT_EQ(decoder.bit_offset, 5u);
}

TEST(PackedLock, ConsumesLessThanAByteWithoutErasing) {
  StreamDecoder decoder = packed_decoder({.delta_bits = 1});  // 4-bit records
  feed(decoder, bytes({0x12, 0x34}));
  decoder.consume_packed_records(1);
  EXPECT_EQ(decoder.pending_bytes.size(), 2u);
  EXPECT_EQ(decoder.bit_offset, 4u);
  decoder.consume_packed_records(1);
  EXPECT_EQ(pending(decoder), bytes({0x34}));
  EXPECT_EQ(decoder.bit_offset, 0u);
}

}  // namespace
