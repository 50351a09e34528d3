// The reference of the alignment search, pinned to windows worked out by hand.
#include "reference/packed_alignment.hpp"

#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "orvo/timing/stream_file_header.hpp"
#include "support/bytes.hpp"
#include "support/packed_streams.hpp"

namespace orvo::test {
namespace {

using reference::AlignmentAnswer;
using reference::AlignmentQuestion;
using reference::search_alignment;
using timing::StreamMode;

struct Window {
  StreamMode mode = StreamMode::external;
  std::uint8_t channel_mask = 15;
  int delta_bits = 5;
  Bytes bytes;

  AlignmentQuestion question() const {
    return {.channel_mask = channel_mask,
            .internal = mode == StreamMode::internal,
            .delta_bits = delta_bits,
            .width = delta_bits + 3,
            .bytes = bytes};
  }
};

/// "byte:bit" of the answer, or "none".
std::string place(const AlignmentAnswer& answer) {
  if (!answer.found) return "none";
  return std::to_string(answer.drop_bytes) + ":" + std::to_string(answer.bit_offset);
}

std::string place(const Window& window) {
  return place(search_alignment(window.question()));
}

// With 5 bits of payload every record is one byte; on channel c: data x is c * 0x40 + x, overflow x is
// c * 0x40 + 0x20 + x, and a sync start is c * 0x40 + 0x3F, nine pieces following.

Bytes sync(int channel) {
  const int c = channel * 0x40;
  return bytes({c + 0x3F, c + 1, c, c, c, c, c, c, c, c});
}
Bytes events(int channel, int count) {
  return Bytes(static_cast<std::size_t>(count), static_cast<std::uint8_t>(channel * 0x40 + 1));
}
Bytes anchored(int channel, int count) {
  return sync(channel) + events(channel, count);
}

Window external(int mask, Bytes bytes) {
  return {StreamMode::external, static_cast<std::uint8_t>(mask), 5, std::move(bytes)};
}
Window internal(int mask, Bytes bytes) {
  return {StreamMode::internal, static_cast<std::uint8_t>(mask), 5, std::move(bytes)};
}

TEST(ReferenceAlignment, OneAnchoredChannelIsEnoughWhereOnlyOneIsActive) {
  const AlignmentAnswer answer = search_alignment(external(1, anchored(0, 3)).question());
  EXPECT_EQ(place(answer), "0:0");
  EXPECT_EQ(answer.chosen.synced, 1u);
  EXPECT_EQ(answer.chosen.total, 3u);
  EXPECT_EQ(place(internal(1, anchored(0, 1))), "0:0");
  EXPECT_EQ(place(external(1, sync(0))), "none");  // the anchor itself is missing
  EXPECT_EQ(place(external(2, anchored(0, 3))), "none");
}

TEST(ReferenceAlignment, TwoOfFourChannelsAreEnoughInExternalModeAllMustBeThereInInternalMode) {
  const Bytes two = anchored(0, 3) + anchored(2, 2);
  EXPECT_EQ(place(external(15, two)), "0:0");
  EXPECT_EQ(place(external(0, two)), "0:0");
  EXPECT_EQ(place(external(15, anchored(0, 3))), "none");
  EXPECT_EQ(place(internal(15, two)), "none");
  EXPECT_EQ(place(internal(5, two)), "0:0");
  EXPECT_EQ(place(internal(0, two + anchored(1, 2) + anchored(3, 2))), "0:0");
}

TEST(ReferenceAlignment, AnInactiveRecordResetsAndMovesTheStart) {
  const AlignmentAnswer answer = search_alignment(external(1, bytes({0x01, 0x41}) + anchored(0, 2)).question());
  EXPECT_EQ(place(answer), "2:0");
  EXPECT_EQ(answer.chosen.skipped_records, 2u);
  EXPECT_EQ(place(external(1, anchored(0, 2) + bytes({0x41}))), "none");  // and forgets everything before it
}

TEST(ReferenceAlignment, AFlagInsideASequenceResetsOnlyWhenItIsNoStartOfTheSameChannel) {
  const Bytes broken_start = bytes({0x3F, 0x00});
  EXPECT_EQ(place(external(1, broken_start + anchored(0, 1))), "0:0");                  // started anew
  EXPECT_EQ(place(external(1, broken_start + bytes({0x21}) + anchored(0, 1))), "3:0");  // an overflow
  EXPECT_EQ(place(external(1, bytes({0x21}) + anchored(0, 1) + bytes({0x21, 0x01}))), "0:0");
  // The start of another channel resets and begins nothing: channel 1 is never anchored from the first byte on. The
  // candidate that starts after the broken start is.
  EXPECT_EQ(place(external(3, broken_start + anchored(1, 1) + anchored(0, 1))), "1:0");
}

TEST(ReferenceAlignment, ChannelsMayWaitForTheirAnchorsTogether) {
  const AlignmentAnswer answer =
      search_alignment(external(3, sync(0) + sync(1) + bytes({0x02, 0x42, 0x02})).question());
  EXPECT_EQ(place(answer), "0:0");
  EXPECT_EQ(answer.chosen.synced, 2u);
  EXPECT_EQ(answer.chosen.min, 1u);
  EXPECT_EQ(answer.chosen.max, 2u);
}

TEST(ReferenceAlignment, UnbalancedCandidatesAreRejectedInInternalMode) {
  EXPECT_EQ(place(internal(3, anchored(0, 4) + anchored(1, 2))), "0:0");
  const Bytes unbalanced = bytes({0x81}) + anchored(0, 5) + anchored(1, 2);
  const AlignmentAnswer answer = search_alignment(internal(3, unbalanced).question());
  EXPECT_EQ(place(answer), "none");
  EXPECT_EQ(answer.reject_line, "reject internal alignment drop_bytes=1 bit_offset=0 synced=2/2 min=2 max=5 total=7");
  EXPECT_EQ(place(external(3, unbalanced)), "1:0");
  EXPECT_EQ(search_alignment(external(3, unbalanced).question()).reject_line, "");
}

/// Records of 19 bits that start 29 bits in: anchors on channels 0 and 1.
Bytes from_bit_29(unsigned before) {
  PackedWriter out(16);
  for (int i = 0; i < 29; ++i) out.bits(before, 1);
  for (std::uint32_t channel = 0; channel < 2; ++channel) {
    out.sync(channel, 1000);
    out.data(channel, 5);
  }
  out.fill_byte(0);
  return out.bytes();
}

TEST(ReferenceAlignment, RecordsMayStartAtAnyBitAndHarmlessBitsBeforeThemTie) {
  EXPECT_EQ(place(Window{StreamMode::internal, 3, 16, from_bit_29(1)}), "3:5");
  const AlignmentAnswer zeros = search_alignment(Window{StreamMode::internal, 3, 16, from_bit_29(0)}.question());
  EXPECT_EQ(place(zeros), "1:2");  // one record of zeros earlier
  EXPECT_GT(zeros.equal_trials, 0u);
}

TEST(ReferenceAlignment, StartsReachTo64BytesOrTo16ForOneChannel) {
  // A start of channel 1 before the first sync sequence spoils it, unless the candidate starts after it.
  const Bytes spoilt = bytes({0x7F}) + anchored(0, 2) + anchored(1, 2);
  EXPECT_EQ(place(external(3, Bytes(63, 0x01) + spoilt)), "64:0");
  EXPECT_EQ(place(external(3, Bytes(64, 0x01) + spoilt)), "none");
  EXPECT_EQ(reference::all_trials(external(3, Bytes(100, 0)).question()).back().start_byte, 64u);
  EXPECT_EQ(reference::all_trials(external(1, Bytes(100, 0)).question()).back().start_byte, 16u);
  EXPECT_EQ(reference::all_trials(external(1, Bytes(10, 0)).question()).back().start_byte, 9u);
}

TEST(ReferenceAlignment, EmptyBytesAndFieldsWithoutBitsAreNotFound) {
  EXPECT_EQ(place(external(1, {})), "none");
  const Bytes found = anchored(0, 1);
  EXPECT_FALSE(search_alignment({.channel_mask = 1, .delta_bits = 0, .width = 3, .bytes = found}).found);
  EXPECT_FALSE(search_alignment({.channel_mask = 1, .delta_bits = 5, .width = 0, .bytes = found}).found);
}

}  // namespace
}  // namespace orvo::test
