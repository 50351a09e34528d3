// packed_delta sync sequences: a flag with all payload bits set, then the time in pieces, least significant first.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>

#include "orvo/timing/stream_decoder.hpp"
#include "support/checked_feeding.hpp"
#include "support/packed_payload.hpp"

namespace {

using namespace orvo::test;
using orvo::timing::StreamDecoder;
using testing::ElementsAre;
using testing::IsEmpty;

/// The pieces of a 41-bit time, for payloads of 1 to 31 bits.
constexpr std::array<int, 31> kPieces = {41, 21, 14, 11, 9, 7, 6, 6, 5, 5, 4, 4, 4, 3, 3, 3,
                                         3,  3,  3,  3,  2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2};

TEST(PackedSync, ItsLengthIsWhat41BitsNeed) {
  for (unsigned d = 1; d <= 31; ++d) {
    StreamDecoder decoder = locked_decoder({.delta_bits = d});
    PackedWriter start(d);
    start.sync_start(2);
    // Records of 4 to 7 bits: pieces up to a whole byte, or its zero bits would read as one.
    while (d < 5 && start.bit_count() % 8 != 0) start.data(2, 0);
    const auto extra = static_cast<int>(start.bit_count() / (d + 3)) - 1;
    EXPECT_THAT(feed(decoder, start.bytes()), IsEmpty());
    EXPECT_EQ(decoder.pk_sync_left, kPieces[d - 1] - extra) << d << " bits";
    EXPECT_EQ(decoder.pk_sync_channel, 2);
  }
}

TEST(PackedSync, BuilderWritesAsManyPieces) {
  for (unsigned d = 1; d <= 31; ++d) EXPECT_EQ(PackedWriter(d).sync_words(), static_cast<unsigned>(kPieces[d - 1]));
}

TEST(PackedSync, AssemblesThePiecesLeastSignificantFirst) {
  StreamDecoder decoder = locked_decoder({.delta_bits = 13});
  feed(decoder, bytes({0x7F, 0xFF}));  // sync start on channel 1
  EXPECT_EQ(decoder.pk_sync_left, 4);
  EXPECT_EQ(decoder.pk_sync_bits, 0u);
  feed(decoder, bytes({0x45, 0x67}));
  EXPECT_EQ(decoder.pk_sync_left, 3);
  EXPECT_EQ(decoder.pk_sync_value, 0x567u);
  EXPECT_EQ(decoder.pk_sync_bits, 13u);
  feed(decoder, bytes({0x49, 0x1A}));
  EXPECT_EQ(decoder.pk_sync_left, 2);
  EXPECT_EQ(decoder.pk_sync_value, 0x123'4567u);
  feed(decoder, bytes({0x40, 0x00}));
  EXPECT_EQ(decoder.pk_sync_left, 1);
  EXPECT_EQ(decoder.pk_sync_bits, 39u);
  EXPECT_EQ(decoder.pk_anchor_channel, -1);
  feed(decoder, bytes({0x40, 0x03}));  // bits 40 and 39
  EXPECT_EQ(decoder.pk_sync_left, 0);
  EXPECT_EQ(decoder.pk_sync_value, 0u);
  EXPECT_EQ(decoder.pk_sync_bits, 0u);
  EXPECT_EQ(decoder.pk_anchor_channel, 1);
  EXPECT_EQ(decoder.pk_anchor_base, 0x180'0123'4567u);
  EXPECT_THAT(feed(decoder, bytes({0x40, 0x09})), ElementsAre(tag(1, 0x180'0123'4570)));
  EXPECT_EQ(decoder.pk_anchor_channel, -1);
  EXPECT_EQ(decoder.pk_anchor_base, 0u);
}

TEST(PackedSync, PiecesBeyond41BitsDoNotCount) {
  // 16 bits: the third piece has 9 that count. 8 bits: the sixth piece has one.
  StreamDecoder decoder = locked_decoder({.delta_bits = 16});
  const Bytes payload = PackedWriter(16).sync_start(0).data(0, 7).data(0, 0).data(0, 0xFE00).data(0, 1).bytes();
  EXPECT_THAT(feed(decoder, payload), ElementsAre(tag(0, 8)));
  StreamDecoder narrow = locked_decoder({.delta_bits = 8});
  PackedWriter pieces(8);
  pieces.sync_start(0).data(0, 7).data(0, 0).data(0, 0).data(0, 0).data(0, 0).data(0, 0xFF).data(0, 1);
  EXPECT_THAT(feed(narrow, pieces.bytes()), ElementsAre(tag(0, 1'099'511'627'784)));  // 2^40 + 7 + 1
  StreamDecoder wide = locked_decoder({.delta_bits = 31});
  EXPECT_THAT(feed(wide, PackedWriter(31).sync_start(0).data(0, 7).data(0, 0x7FFF'FC00).data(0, 1).bytes()),
              ElementsAre(tag(0, 8)));
}

TEST(PackedSync, PiecesMayBeAllOnes) {
  StreamDecoder decoder = locked_decoder({.delta_bits = 16});
  EXPECT_THAT(feed(decoder, PackedWriter(16).sync(0, 0xFFFF'FFFF'FFFF).data(0, 0).bytes()),
              ElementsAre(tag(0, 2'199'023'255'551)));
}

TEST(PackedSync, ForgetsTheOverflowOfItsChannelOnly) {
  StreamDecoder decoder = locked_decoder({.delta_bits = 16});
  decoder.pk_has_time[1] = true;
  const Bytes payload = PackedWriter(16).overflow(0, 5).overflow(1, 1).anchor(0, 1000).data(1, 3).data(0, 2).bytes();
  EXPECT_THAT(feed(decoder, payload), ElementsAre(tag(0, 1000), tag(1, 65'539), tag(0, 1002)));
}

TEST(PackedSync, OverflowBetweenSequenceAndAnchorCountsForTheAnchor) {
  StreamDecoder decoder = locked_decoder({.delta_bits = 16});
  EXPECT_THAT(feed(decoder, PackedWriter(16).sync(0, 1000).overflow(0, 1).data(0, 2).bytes()),
              ElementsAre(tag(0, 66'538)));
}

TEST(PackedSync, RecordsOfOtherChannelsMayStandBeforeTheAnchor) {
  StreamDecoder decoder = running_decoder({.delta_bits = 16}, 1, 50);
  EXPECT_THAT(feed(decoder, PackedWriter(16).sync(0, 1000).data(1, 7).data(2, 8).data(0, 2).bytes()),
              ElementsAre(tag(1, 57), tag(0, 1002)));
}

TEST(PackedSync, ASecondSequenceOnTheChannelReplacesTheBase) {
  StreamDecoder decoder = locked_decoder({.delta_bits = 16});
  EXPECT_THAT(feed(decoder, PackedWriter(16).sync(0, 1000).sync(0, 2000).data(0, 2).data(0, 3).bytes()),
              ElementsAre(tag(0, 2002), tag(0, 2005)));
}

TEST(PackedSync, OnlyOneChannelAtATimeAwaitsItsAnchor) {
  StreamDecoder decoder = locked_decoder({.delta_bits = 16});
  const Bytes payload = PackedWriter(16).sync(0, 1000).sync(1, 2000).data(0, 2).data(1, 3).data(0, 4).bytes();
  EXPECT_THAT(feed(decoder, payload), ElementsAre(tag(1, 2003)));
  EXPECT_TRUE(decoder.packed_locked);
}

TEST(PackedSync, AnAwaitedAnchorIsADifferenceWhileAnotherSequenceTakesItsPlace) {
  StreamDecoder decoder = running_decoder({.delta_bits = 16}, 0, 50);
  const Bytes payload = PackedWriter(16).sync(0, 1000).sync(1, 2000).data(0, 2).data(1, 3).bytes();
  EXPECT_THAT(feed(decoder, payload), ElementsAre(tag(0, 52), tag(1, 2003)));
}

TEST(PackedSync, AnchorsOnEveryChannelFollowOneAnother) {
  StreamDecoder decoder = locked_decoder({.delta_bits = 16});
  const Bytes payload = PackedWriter(16).anchor(3, 1).anchor(1, 2).anchor(0, 3).anchor(2, 4).bytes();
  EXPECT_THAT(feed(decoder, payload), ElementsAre(tag(3, 1), tag(1, 2), tag(0, 3), tag(2, 4)));
}

TEST(PackedSync, SequenceAndAnchorMaySpanChunks) {
  const Bytes payload = PackedWriter(16).sync(0, 0x123'4567'89AB).data(0, 1).data(0, 2).bytes();
  StreamDecoder decoder = locked_decoder({.delta_bits = 16});
  EXPECT_THAT(feed_in_chunks(decoder, payload, 1), ElementsAre(tag(0, 0x123'4567'89AC), tag(0, 0x123'4567'89AE)));
}

TEST(PackedSync, AFlagWithOnePayloadBitClearIsOverflow) {
  for (unsigned bit = 0; bit < 16; ++bit) {
    StreamDecoder decoder = locked_decoder({.delta_bits = 16});
    feed(decoder, PackedWriter(16).overflow(1, 0xFFFFu ^ 1u << bit).bytes());
    EXPECT_EQ(decoder.pk_sync_left, 0);
    EXPECT_EQ(decoder.pk_overflow[1], 0xFFFFu ^ 1u << bit);
  }
}

}  // namespace
