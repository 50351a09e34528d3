// packed_delta alignment: which candidates are tried, which qualify, and which of them is taken.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "support/checked_probe.hpp"
#include "support/packed_debug_output.hpp"
#include "support/packed_payload.hpp"

namespace {

using namespace orvo::test;
using orvo::timing::PackedAlignment;
using orvo::timing::StreamMode;

constexpr StreamMode kBothModes[] = {StreamMode::internal, StreamMode::external};

/// Records of a byte: 5 payload bits. An anchor is 11 bytes.
PackedAlignment probe(StreamMode mode, unsigned channel_mask, const Bytes& payload) {
  return orvo::test::probe({.mode = mode, .channel_mask = channel_mask, .delta_bits = 5}, payload);
}

std::string rejection(unsigned channel_mask, const Bytes& payload) {
  return debug_output_of([&] { EXPECT_EQ(probe(StreamMode::internal, channel_mask, payload), kNotFound); });
}

PackedWriter anchors(std::initializer_list<unsigned> channels) {
  PackedWriter payload(5);
  for (const unsigned channel : channels) payload.anchor(channel, 0);
  return payload;
}

Bytes data(unsigned channel, std::size_t count) {
  return Bytes(count, static_cast<std::uint8_t>(channel << 6));
}

/// Two streams in one buffer: `whole` on bit 0, and after it `half`, four bits late. On the other's bits each one
/// reads as records of channel 0 and overflows, so the first alignment counts one record of channel 0 for each of
/// `half`, except for its sync starts (if channel 0 is synced), and the second alignment skips `whole`.
Bytes interleaved(const Bytes& whole, const Bytes& half) {
  PackedWriter payload(5);
  for (const std::uint8_t byte : whole) payload.bits(byte, 8);
  payload.zeros(4);
  for (const std::uint8_t byte : half) payload.bits(byte, 8);
  return payload.bytes();
}

// How many channels must be synced.

TEST(PackedAlignmentChoice, InternalModeNeedsEveryActiveChannel) {
  EXPECT_EQ(probe(StreamMode::internal, 0x7, anchors({0, 1}).bytes()), kNotFound);
  EXPECT_EQ(probe(StreamMode::internal, 0x7, anchors({0, 1, 2}).bytes()), at(0, 0));
  EXPECT_EQ(probe(StreamMode::internal, 0x0, anchors({0, 1, 2}).bytes()), kNotFound);
  EXPECT_EQ(probe(StreamMode::internal, 0x0, anchors({0, 1, 2, 3}).bytes()), at(0, 0));
  EXPECT_EQ(probe(StreamMode::internal, 0xF2, anchors({1}).bytes()), at(0, 0));
}

TEST(PackedAlignmentChoice, ExternalModeNeedsTwoOfSeveral) {
  for (const unsigned mask : {0x0u, 0xFu, 0xBu, 0x3u}) {
    EXPECT_EQ(probe(StreamMode::external, mask, anchors({1}).bytes()), kNotFound) << mask;
    EXPECT_EQ(probe(StreamMode::external, mask, anchors({1, 0}).bytes()), at(0, 0)) << mask;
  }
}

TEST(PackedAlignmentChoice, OneActiveChannelIsEnough) {
  for (const StreamMode mode : kBothModes) EXPECT_EQ(probe(mode, 0x4, anchors({2}).bytes()), at(0, 0));
}

TEST(PackedAlignmentChoice, TooFewSyncedChannelsAreNoRejectedCandidate) {
  EXPECT_EQ(rejection(0x7, anchors({0, 1}).bytes() + data(0, 9)), "");
}

// Internal mode: no channel may have more than twice the tags of another.

TEST(PackedAlignmentChoice, TwoToOneIsBalanced) {
  EXPECT_EQ(probe(StreamMode::internal, 0x3, anchors({0, 1}).bytes() + data(0, 1)), at(0, 0));               // 2, 1
  EXPECT_EQ(probe(StreamMode::internal, 0x3, anchors({0, 1}).bytes() + data(0, 3) + data(1, 1)), at(0, 0));  // 4, 2
  EXPECT_EQ(probe(StreamMode::internal, 0x3, anchors({0, 1}).bytes() + data(0, 99) + data(1, 49)),
            at(0, 0));  // 100, 50
}

TEST(PackedAlignmentChoice, MoreThanTwoToOneIsRejectedAndSaidSo) {
  EXPECT_EQ(rejection(0x3, anchors({0, 1}).bytes() + data(0, 2)),
            "packed-decoder: reject internal alignment drop_bytes=0 bit_offset=0 synced=2/2 min=1 max=3 total=4\n");
  EXPECT_EQ(
      rejection(0x3, anchors({0, 1}).bytes() + data(0, 100) + data(1, 49)),
      "packed-decoder: reject internal alignment drop_bytes=0 bit_offset=0 synced=2/2 min=50 max=101 total=151\n");
  EXPECT_EQ(rejection(0xE, anchors({1, 2, 3}).bytes() + data(1, 1) + data(3, 4)),
            "packed-decoder: reject internal alignment drop_bytes=0 bit_offset=0 synced=3/3 min=1 max=5 total=8\n");
}

TEST(PackedAlignmentChoice, ExternalModeAndSingleChannelsKnowNoBalance) {
  EXPECT_EQ(probe(StreamMode::external, 0x3, anchors({0, 1}).bytes() + data(0, 500)), at(0, 0));
  EXPECT_EQ(probe(StreamMode::internal, 0x1, anchors({0}).bytes() + data(0, 500)), at(0, 0));
}

TEST(PackedAlignmentChoice, NamesTheRejectedCandidateWithTheLargestTotal) {
  // 4 anchors, then 44 records read as channel 0 or so; the second alignment has 4 anchors and 3 tags.
  EXPECT_EQ(rejection(0x0, interleaved(anchors({0, 1, 2, 3}).bytes(), anchors({0, 1, 2, 3}).bytes() + data(1, 3))),
            "packed-decoder: reject internal alignment drop_bytes=0 bit_offset=0 synced=4/4 min=1 max=45 total=48\n");
  // 100 differences of 2 quanta: the first alignment reads them as overflow.
  EXPECT_EQ(
      rejection(0x0, interleaved(anchors({0, 1, 2, 3}).bytes(), anchors({0, 1, 2, 3}).bytes() + Bytes(100, 0x42))),
      "packed-decoder: reject internal alignment drop_bytes=0 bit_offset=4 synced=4/4 min=1 max=101 total=104\n");
}

TEST(PackedAlignmentChoice, NamesTheEarliestOfEqualRejectedCandidates) {
  EXPECT_EQ(rejection(0x3, data(0, 7) + anchors({0, 1}).bytes() + data(0, 2)),
            "packed-decoder: reject internal alignment drop_bytes=0 bit_offset=0 synced=2/2 min=1 max=3 total=4\n");
}

TEST(PackedAlignmentChoice, ABalancedCandidateIsTakenWhateverWasRejected) {
  const Bytes payload = interleaved(anchors({0, 1, 2, 3}).bytes(), anchors({0, 1, 2, 3}).bytes());
  const std::string output = debug_output_of([&] { EXPECT_EQ(probe(StreamMode::internal, 0x0, payload), at(0, 4)); });
  EXPECT_EQ(output, "");
}

// Which of several that qualify is taken.

TEST(PackedAlignmentChoice, MoreSyncedChannelsComeFirst) {
  // 2 synced with a total of over 30 against 3 synced with a total of 3.
  const Bytes payload = interleaved(anchors({0, 1}).bytes(), anchors({0, 1, 2}).bytes());
  EXPECT_EQ(probe(StreamMode::external, 0xF, payload), at(0, 4));
}

TEST(PackedAlignmentChoice, ThenTheLargerLeastCount) {
  // Counts of 3 each against 1, 1, 1 and over 40.
  Bytes half = anchors({0, 1, 2, 3}).bytes();
  for (unsigned channel = 0; channel < 4; ++channel) half += data(channel, 2);
  EXPECT_EQ(probe(StreamMode::external, 0xF, interleaved(anchors({0, 1, 2, 3}).bytes(), half)), at(0, 4));
}

TEST(PackedAlignmentChoice, ThenTheLargerTotal) {
  EXPECT_EQ(probe(StreamMode::external, 0xF, interleaved(anchors({0, 1}).bytes(), anchors({1, 2}).bytes())),
            at(0, 0));
  const Bytes one_more = anchors({1, 2}).bytes() + data(1, 1);
  EXPECT_EQ(probe(StreamMode::external, 0xF, interleaved(anchors({1, 2}).bytes(), one_more)), at(0, 4));
}

TEST(PackedAlignmentChoice, ThenTheEarlier) {
  EXPECT_EQ(probe(StreamMode::external, 0xF, interleaved(anchors({1, 2}).bytes(), anchors({1, 2}).bytes())),
            at(0, 0));
  EXPECT_EQ(probe(StreamMode::external, 0x1, data(0, 9) + anchors({0}).bytes()), at(0, 0));
}

// Which candidates are tried: start bytes up to a limit, each looking 65536 bytes ahead.

TEST(PackedAlignmentChoice, OneChannelIsTriedFromByte0To16) {
  // Each later start sees one more record at the end, so the last one tried has the largest total.
  const Bytes payload = data(0, 100) + anchors({0}).bytes() + data(0, 65'600);
  for (const StreamMode mode : kBothModes) EXPECT_EQ(probe(mode, 0x1, payload), at(16, 0));
  EXPECT_EQ(probe(StreamMode::external, 0xF1, payload), at(16, 0));
}

TEST(PackedAlignmentChoice, SeveralChannelsAreTriedFromByte0To64) {
  Bytes payload = data(0, 100) + anchors({0, 1}).bytes();
  for (int i = 0; i < 33'000; ++i) payload += bytes({0x00, 0x40});
  EXPECT_EQ(probe(StreamMode::external, 0x3, payload), at(64, 0));
  // One record more raises the total or the least count, as it is one of channel 0 or 1.
  EXPECT_EQ(probe(StreamMode::internal, 0x3, payload), at(64, 0));
  EXPECT_EQ(probe(StreamMode::external, 0x0, payload), at(64, 0));
}

TEST(PackedAlignmentChoice, NoStartBeyondTheLastByteIsTried) {
  EXPECT_EQ(probe(StreamMode::external, 0x1, anchors({0}).bytes()), at(0, 0));
  EXPECT_EQ(probe(StreamMode::external, 0x1, bytes({0x3F})), kNotFound);
}

TEST(PackedAlignmentChoice, ATrialEndsAfter65536Bytes) {
  // From byte 16 the last byte seen is 65551: an anchor record there is just in reach.
  EXPECT_EQ(probe(StreamMode::external, 0x1, data(0, 65'541) + anchors({0}).bytes()), at(16, 0));
  EXPECT_EQ(probe(StreamMode::external, 0x1, data(0, 65'542) + anchors({0}).bytes()), kNotFound);
  EXPECT_EQ(probe(StreamMode::external, 0x3, data(0, 65'578) + anchors({0, 1}).bytes()), at(64, 0));
  EXPECT_EQ(probe(StreamMode::external, 0x3, data(0, 65'579) + anchors({0, 1}).bytes()), kNotFound);
}

}  // namespace
