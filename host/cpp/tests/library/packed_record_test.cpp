// packed_delta records: fields of every width, quanta, overflow, and impossible widths.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

#include "orvo/timing/stream_decoder.hpp"
#include "support/checked_feeding.hpp"
#include "support/packed_payload.hpp"

namespace {

using namespace orvo::test;
using orvo::timing::StreamDecoder;
using testing::ElementsAre;
using testing::IsEmpty;

/// A locked decoder with a time of 0 on all four channels.
StreamDecoder at_zero(const PackedSetup& setup) {
  StreamDecoder decoder = locked_decoder(setup);
  decoder.pk_has_time.fill(true);
  return decoder;
}

TEST(PackedRecord, OfEightBitsIsAByte) {
  StreamDecoder decoder = at_zero({.delta_bits = 5});
  // 00 0 00011 | 01 0 11111 | 10 0 00000 | 11 0 10000
  EXPECT_THAT(feed(decoder, bytes({0x03, 0x5F, 0x80, 0xD0})),
              ElementsAre(tag(0, 3), tag(1, 31), tag(2, 0), tag(3, 16)));
  EXPECT_TRUE(decoder.pending_bytes.empty());
}

TEST(PackedRecord, OfSixteenBitsIsTwoBytes) {
  StreamDecoder decoder = at_zero({.delta_bits = 13});
  EXPECT_THAT(feed(decoder, bytes({0x00, 0x07, 0x5F, 0xFF, 0x90, 0x01, 0xC1, 0x00})),
              ElementsAre(tag(0, 7), tag(1, 8191), tag(2, 4097), tag(3, 256)));
}

TEST(PackedRecord, OfTwentyFourAndThirtyTwoBits) {
  StreamDecoder decoder = at_zero({.delta_bits = 21});
  EXPECT_THAT(feed(decoder, bytes({0x40, 0x01, 0x02, 0x9F, 0xFF, 0xFF})),
              ElementsAre(tag(1, 258), tag(2, 2'097'151)));
  StreamDecoder wider = at_zero({.delta_bits = 29});
  EXPECT_THAT(feed(wider, bytes({0x41, 0x00, 0x00, 0x02, 0xDF, 0xFF, 0xFF, 0xFF})),
              ElementsAre(tag(1, 16'777'218), tag(3, 536'870'911)));
}

TEST(PackedRecord, OfNineteenBitsFollowWithoutGaps) {
  StreamDecoder decoder = at_zero({.delta_bits = 16});
  // 10 0 0001001000110100 | 01 0 1000000000000001 | 00 0 0000000000000101: 57 bits and 7 to spare.
  EXPECT_THAT(feed(decoder, bytes({0x82, 0x46, 0x8A, 0x00, 0x04, 0x00, 0x02, 0x80})),
              ElementsAre(tag(2, 0x1234), tag(1, 0x8001), tag(0, 5)));
  EXPECT_EQ(pending(decoder), bytes({0x80}));
  EXPECT_EQ(decoder.bit_offset, 1u);
}

TEST(PackedRecord, StartsAtTheBitOffsetOfTheLock) {
  // 5 bits that do not count, then 01 0 1111000011110000.
  StreamDecoder decoder = at_zero({.delta_bits = 16});
  decoder.bit_offset = 5;
  EXPECT_THAT(feed(decoder, bytes({0xFA, 0xF0, 0xF0})), ElementsAre(tag(1, 0xF0F0)));
  EXPECT_TRUE(decoder.pending_bytes.empty());
  EXPECT_EQ(decoder.bit_offset, 0u);
}

TEST(PackedRecord, BuilderGivesTheBytesOfTheFormat) {
  EXPECT_EQ(PackedWriter(16).data(2, 0x1234).data(1, 0x8001).data(0, 5).bytes(),
            bytes({0x82, 0x46, 0x8A, 0x00, 0x04, 0x00, 0x02, 0x80}));
  EXPECT_EQ(PackedWriter(5).overflow(1, 3).sync_start(2).data(3, 1).bytes(), bytes({0x63, 0xBF, 0xC1}));
  EXPECT_EQ(PackedWriter(13).sync(0, 0x0123'4567).bytes(),  // pieces 0x0567, 0x091A, 0, 0
            bytes({0x3F, 0xFF, 0x05, 0x67, 0x09, 0x1A, 0x00, 0x00, 0x00, 0x00}));
}

TEST(PackedRecord, EveryWidthFrom1To31CarriesAnchorAndDifferences) {
  constexpr std::uint64_t kTime = 0x155'5555'5555;  // 41 bits
  for (unsigned d = 1; d <= 31; ++d) {
    PackedWriter payload(d);
    const std::uint64_t largest = (std::uint64_t{1} << d) - 1;
    payload.sync(0, kTime).data(0, 1).data(0, largest).data(0, largest / 2);
    while (payload.bit_count() % 8 != 0) payload.data(0, 0);
    StreamDecoder decoder = packed_decoder({.channel_mask = 1, .delta_bits = d});
    const Tags tags = feed(decoder, payload.bytes());
    const auto time = static_cast<std::int64_t>(kTime + 1);
    const auto step = static_cast<std::int64_t>(largest);
    ASSERT_GE(tags.size(), 3u) << d << " bits";
    EXPECT_THAT(Tags(tags.begin(), tags.begin() + 3),
                ElementsAre(tag(0, time), tag(0, time + step), tag(0, time + step + step / 2)))
        << d << " bits";
    EXPECT_TRUE(decoder.pending_bytes.empty()) << d << " bits";
  }
}

TEST(PackedRecord, ZeroBitsInTheHeaderMeanSixteen) {
  StreamDecoder decoder = at_zero({.delta_bits = 0});
  EXPECT_EQ(decoder.header.delta_bits, 16u);
  EXPECT_THAT(feed(decoder, PackedWriter(16).data(1, 40'000).bytes()), ElementsAre(tag(1, 40'000)));
}

TEST(PackedRecord, WidthsThatAreNoneLeaveTheBytesUntouched) {
  const Bytes payload = PackedWriter(16).anchor(0, 1000).data(0, 7).bytes() + Bytes(70'000, 0);
  for (unsigned d = 32; d <= 255; ++d) {
    StreamDecoder decoder = packed_decoder({.channel_mask = 1, .delta_bits = d});
    EXPECT_THAT(feed(decoder, payload), IsEmpty()) << d;
    ASSERT_EQ(pending(decoder), payload) << d;
    EXPECT_FALSE(decoder.packed_locked);
  }
  StreamDecoder locked = locked_decoder({.delta_bits = 32});
  EXPECT_THAT(feed(locked, payload), IsEmpty());
  EXPECT_EQ(pending(locked), payload);
  EXPECT_TRUE(locked.packed_locked);
}

TEST(PackedRecord, AWidthSetToZeroLaterLeavesTheBytesUntouched) {
  StreamDecoder decoder = packed_decoder({});
  decoder.header.delta_bits = 0;
  EXPECT_THAT(feed(decoder, bytes({1, 2, 3})), IsEmpty());
  EXPECT_EQ(pending(decoder), bytes({1, 2, 3}));
}

struct QuantumCase {
  unsigned quantum_ps;
  unsigned shift;
  std::int64_t three_quanta_ps;
};

TEST(PackedRecord, TheLargestPowerOfTwoInTheQuantumCounts) {
  for (const QuantumCase& c : {QuantumCase{0, 3, 24},
                               {1, 0, 3},
                               {2, 1, 6},
                               {7, 0, 3},
                               {8, 3, 24},
                               {12, 2, 12},
                               {24, 3, 24},
                               {1000, 3, 24},
                               {0x4000, 14, 49'152},
                               {0x8000, 15, 98'304},
                               {0xC000, 14, 49'152},
                               {0xFFFF, 0, 3}}) {
    StreamDecoder decoder = at_zero({.quantum_ps = c.quantum_ps});
    EXPECT_EQ(decoder.quantum_shift, c.shift) << c.quantum_ps;
    EXPECT_THAT(feed(decoder, PackedWriter(16).data(2, 3).bytes()), ElementsAre(tag(2, c.three_quanta_ps)));
  }
}

TEST(PackedRecord, OverflowIsTheUpperPartOfTheNextDifference) {
  StreamDecoder decoder = at_zero({.quantum_ps = 8});
  // (3 * 2^16 + 5) * 8
  EXPECT_THAT(feed(decoder, PackedWriter(16).overflow(1, 3).data(1, 5).bytes()), ElementsAre(tag(1, 1'572'904)));
}

TEST(PackedRecord, OverflowAddsUpAndIsUsedOnce) {
  StreamDecoder decoder = at_zero({});
  const Bytes payload =
      PackedWriter(16).overflow(1, 0xFFFE).overflow(1, 2).overflow(1, 0).data(1, 5).data(1, 6).bytes();
  EXPECT_THAT(feed(decoder, payload), ElementsAre(tag(1, 4'294'967'301), tag(1, 4'294'967'307)));
}

TEST(PackedRecord, OverflowBelongsToItsOwnChannel) {
  StreamDecoder decoder = at_zero({});
  const Bytes payload = PackedWriter(16).overflow(1, 1).overflow(2, 2).data(0, 5).data(2, 6).data(1, 7).bytes();
  EXPECT_THAT(feed(decoder, payload), ElementsAre(tag(0, 5), tag(2, 131'078), tag(1, 65'543)));
}

TEST(PackedRecord, OverflowIsUsedUpByASkippedRecord) {
  StreamDecoder decoder = locked_decoder({});
  EXPECT_THAT(feed(decoder, PackedWriter(16).overflow(1, 9).data(1, 5).bytes()), IsEmpty());
  EXPECT_EQ(decoder.pk_overflow[1], 0u);
}

TEST(PackedRecord, FollowsTheSameRulesFarFromTheEndOfAChunk) {
  StreamDecoder decoder = at_zero({});
  decoder.pk_has_time[3] = false;
  PackedWriter payload(16);
  payload.data(0, 1).overflow(1, 3).data(3, 9).data(1, 5).data(1, 6).overflow(3, 8).data(3, 7).data(2, 0xFFFF).data(
      0, 0);
  payload.anchor(3, 40).data(3, 2).overflow(0, 1).data(3, 1).data(0, 2).tail(2).tail(1);
  EXPECT_THAT(feed(decoder, payload.bytes()),
              ElementsAre(tag(0, 1), tag(1, 196'613), tag(1, 196'619), tag(2, 65'535), tag(0, 1), tag(3, 40),
                          tag(3, 42), tag(3, 43), tag(0, 65'539)));
}

TEST(PackedRecord, DifferencesWrapAt64Bits) {
  StreamDecoder decoder = at_zero({});
  decoder.pk_overflow[1] = std::uint64_t{1} << 48;  // times 2^16 is 2^64
  decoder.pk_overflow[2] = std::numeric_limits<std::uint64_t>::max();
  EXPECT_THAT(feed(decoder, PackedWriter(16).overflow(2, 1).data(1, 5).data(2, 6).bytes()),
              ElementsAre(tag(1, 5), tag(2, 6)));
}

TEST(PackedRecord, ASkippedRecordKeepsTheLock) {
  StreamDecoder decoder = locked_decoder({});
  EXPECT_THAT(feed(decoder, PackedWriter(16).data(0, 5).data(3, 6).bytes()), IsEmpty());
  EXPECT_TRUE(decoder.packed_locked);
  EXPECT_FALSE(decoder.pk_has_time[0]);
}

TEST(PackedRecord, AnEmittedTagLeavesItsTraces) {
  StreamDecoder decoder = at_zero({});
  feed(decoder, PackedWriter(16).data(3, 77).bytes());
  EXPECT_EQ(decoder.pk_last_time[3], 77);
  EXPECT_EQ(decoder.pk_emitted_time[3], 77);
  EXPECT_TRUE(decoder.pk_has_emitted[3]);
  EXPECT_EQ(decoder.pk_last_delta[3], 77u);
  EXPECT_FALSE(decoder.pk_has_emitted[0]);
}

TEST(PackedRecord, ALockedDecoderWaitsForAWholeRecord) {
  StreamDecoder decoder = at_zero({});
  EXPECT_THAT(feed(decoder, bytes({0x40, 0x00})), IsEmpty());
  EXPECT_EQ(decoder.pending_bytes.size(), 2u);
  EXPECT_THAT(feed(decoder, bytes({0x20})), ElementsAre(tag(1, 1)));
  decoder.bit_offset = 7;  // beyond the pending bits as well
  decoder.pending_bytes.clear();
  EXPECT_THAT(feed(decoder, {}), IsEmpty());
  EXPECT_TRUE(decoder.packed_locked);
}

}  // namespace
