#include "orvo/timing/stream_decoder.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <utility>
#include <vector>

namespace {

using orvo::timing::StreamDecoder;
using orvo::timing::StreamFileHeader;
using orvo::timing::StreamFormat;
using orvo::timing::StreamMode;
using orvo::timing::StreamTransport;
using testing::Each;
using testing::ElementsAre;

StreamDecoder decoder_of(std::uint8_t delta_bits, std::uint16_t quantum_ps) {
  StreamFileHeader header;
  header.delta_bits = delta_bits;
  header.quantum_ps = quantum_ps;
  return StreamDecoder(header);
}

TEST(StreamDecoder, KeepsAFullCopyOfTheHeader) {
  const StreamFileHeader header{StreamFormat::delta32,
                                StreamMode::internal,
                                StreamTransport::usb_async,
                                0xF5,
                                200,
                                31,
                                65535,
                                "raw_cf",
                                "created",
                                "application",
                                "product",
                                "serial",
                                "port"};
  EXPECT_EQ(StreamDecoder(header).header, header);
}

TEST(StreamDecoder, DeltaBitsOfZeroBecome16) {
  EXPECT_EQ(decoder_of(0, 4).header.delta_bits, 16);
  EXPECT_EQ(decoder_of(0, 4).header.quantum_ps, 4);
  EXPECT_EQ(decoder_of(1, 4).header.delta_bits, 1);
  EXPECT_EQ(decoder_of(255, 4).header.delta_bits, 255);
}

TEST(StreamDecoder, QuantumOfZeroBecomes8) {
  EXPECT_EQ(decoder_of(12, 0).header.quantum_ps, 8);
  EXPECT_EQ(decoder_of(12, 0).header.delta_bits, 12);
  EXPECT_EQ(decoder_of(12, 1).header.quantum_ps, 1);
  EXPECT_EQ(decoder_of(12, 65535).header.quantum_ps, 65535);
}

TEST(StreamDecoder, EmptyTagFormatAndMaskAreNotDefaulted) {
  StreamFileHeader header;
  header.raw64_tag_format = "";
  header.channel_mask = 0;
  EXPECT_EQ(StreamDecoder(header).header, header);
}

TEST(StreamDecoder, QuantumShiftCountsTheTrailingZeroBitsOfTheQuantum) {
  const std::pair<int, unsigned> cases[] = {{8, 3}, {12, 2},    {1, 0},      {2, 1},      {3, 0},  {6, 1},
                                            {0, 3}, {65535, 0}, {32768, 15}, {49152, 14}, {16, 4}, {1000, 3}};
  for (const auto& [quantum_ps, shift] : cases) {
    EXPECT_EQ(decoder_of(16, static_cast<std::uint16_t>(quantum_ps)).quantum_shift, shift) << quantum_ps;
  }
}

TEST(StreamDecoder, FineTableHoldsHalfPicosecondStepsRoundedUpAndSaturated) {
  const std::vector<std::int64_t> table = decoder_of(16, 8).fine_table_ps;
  ASSERT_EQ(table.size(), 8192u);
  EXPECT_THAT(std::vector(table.begin(), table.begin() + 6), ElementsAre(0, 19, 37, 56, 74, 93));
  EXPECT_EQ(table[100], 1850);
  EXPECT_EQ(table[179], 3312);  // 3311.5
  EXPECT_EQ(table[180], 3330);
  EXPECT_THAT(std::vector(table.begin() + 181, table.end()), Each(3332));
}

TEST(StreamDecoder, FineTableStepsAre18And19InTurnUpToSaturation) {
  const std::vector<std::int64_t> table = decoder_of(16, 8).fine_table_ps;
  for (std::size_t code = 1; code <= 180; ++code) {
    EXPECT_EQ(table[code] - table[code - 1], code % 2 == 1 ? 19 : 18) << code;
  }
}

TEST(StreamDecoder, StartsEmptyAndUnlocked) {
  const StreamDecoder decoder = decoder_of(16, 8);
  EXPECT_TRUE(decoder.pending_bytes.empty());
  EXPECT_EQ(decoder.pending_bytes.size(), 0u);
  EXPECT_EQ(decoder.bit_offset, 0u);
  EXPECT_THAT(decoder.raw64_prev, ElementsAre(0, 0, 0, 0));
  EXPECT_THAT(decoder.raw64_prev_valid, ElementsAre(false, false, false, false));
  EXPECT_THAT(decoder.raw64_epoch, ElementsAre(0, 0, 0, 0));
}

TEST(StreamDecoder, StartsWithNoDelta32State) {
  const StreamDecoder decoder = decoder_of(16, 8);
  EXPECT_THAT(decoder.d32_last_time, ElementsAre(0, 0, 0, 0));
  EXPECT_THAT(decoder.d32_has_time, ElementsAre(false, false, false, false));
  EXPECT_FALSE(decoder.d32_synced);
  EXPECT_EQ(decoder.d32_frame_state, 0u);
  EXPECT_EQ(decoder.d32_base_low, 0u);
  EXPECT_EQ(decoder.d32_base, 0u);
  EXPECT_FALSE(decoder.d32_base_valid);
  EXPECT_EQ(decoder.d32_extension, 0u);
}

TEST(StreamDecoder, StartsWithNoPackedStateAndNoAnchorChannel) {
  const StreamDecoder decoder = decoder_of(16, 8);
  EXPECT_FALSE(decoder.packed_locked);
  EXPECT_THAT(decoder.pk_last_time, ElementsAre(0, 0, 0, 0));
  EXPECT_THAT(decoder.pk_has_time, ElementsAre(false, false, false, false));
  EXPECT_THAT(decoder.pk_overflow, ElementsAre(0, 0, 0, 0));
  EXPECT_THAT(decoder.pk_last_delta, ElementsAre(0, 0, 0, 0));
  EXPECT_THAT(decoder.pk_emitted_time, ElementsAre(0, 0, 0, 0));
  EXPECT_THAT(decoder.pk_has_emitted, ElementsAre(false, false, false, false));
  EXPECT_EQ(decoder.pk_sync_left, 0);
  EXPECT_EQ(decoder.pk_sync_channel, 0);
  EXPECT_EQ(decoder.pk_sync_value, 0u);
  EXPECT_EQ(decoder.pk_sync_bits, 0u);
  EXPECT_EQ(decoder.pk_anchor_channel, -1);
  EXPECT_EQ(decoder.pk_anchor_base, 0u);
  EXPECT_EQ(decoder.pk_debug_lines, 0u);
}

TEST(StreamDecoder, FeedingNothingYieldsNothing) {
  StreamDecoder decoder = decoder_of(16, 8);
  EXPECT_TRUE(decoder.feed_raw64().empty());
  EXPECT_TRUE(decoder.feed_delta32().empty());
  EXPECT_TRUE(decoder.feed_packed_delta().empty());
  EXPECT_TRUE(decoder.pending_bytes.empty());
}

}  // namespace
