// packed_delta: records, sequences and anchors across the ends of chunks.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>

#include "orvo/timing/stream_decoder.hpp"
#include "support/checked_feeding.hpp"
#include "support/packed_payload.hpp"

namespace {

using namespace orvo::test;
using orvo::timing::StreamDecoder;
using orvo::timing::StreamMode;
using testing::ElementsAre;
using testing::IsEmpty;

/// One channel in 19-bit records from bit 3 on: 272 bits in 34 bytes.
Bytes one_channel_payload() {
  return PackedWriter(16)
      .ones(3)
      .anchor(0, 1000)   // records end at bit 22, 41, 60, 79 and, with the tag, 98
      .data(0, 7)        // 117
      .overflow(0, 2)    // 136
      .data(0, 5)        // 155
      .sync(0, 200'000)  // 231
      .data(0, 9)        // 250
      .data(0, 0x7FFF)   // 269
      .bytes();
}

const Tags kOneChannelTags = {tag(0, 1000), tag(0, 1007), tag(0, 132'084), tag(0, 200'009), tag(0, 232'776)};
constexpr std::size_t kTagEndsAtBit[] = {98, 117, 155, 250, 269};

/// Two channels, 15-bit records from bit 0 on.
Bytes two_channel_payload() {
  return PackedWriter(12)
      .anchor(1, 500)
      .anchor(0, 700)
      .data(0, 1)
      .data(1, 2)
      .overflow(1, 1)
      .data(0, 3)
      .data(1, 4)
      .sync(0, 100'000)
      .data(1, 5)
      .data(0, 6)
      .data(1, 0xFFF)
      .bytes();
}

const Tags kTwoChannelTags = {tag(1, 500),  tag(0, 700),  tag(0, 701),     tag(1, 502), tag(0, 704),
                              tag(1, 4602), tag(1, 4607), tag(0, 100'006), tag(1, 8702)};

StreamDecoder one_channel() {
  return packed_decoder({.channel_mask = 0x1});
}
StreamDecoder two_channels(StreamMode mode) {
  return packed_decoder({.mode = mode, .channel_mask = 0x3, .delta_bits = 12});
}

TEST(PackedChunks, TruncationAnywhereCostsOnlyTheTagsNotComplete) {
  const Bytes payload = one_channel_payload();
  ASSERT_EQ(payload.size(), 34u);
  for (std::size_t size = 0; size <= payload.size(); ++size) {
    Tags expected;
    for (std::size_t i = 0; i < 5; ++i) {
      if (kTagEndsAtBit[i] <= 8 * size) expected.push_back(kOneChannelTags[i]);
    }
    StreamDecoder decoder = one_channel();
    EXPECT_EQ(feed(decoder, first(size, payload)), expected) << size << " bytes";
  }
}

TEST(PackedChunks, EverySplitInTwoGivesTheSameTags) {
  const Bytes payload = one_channel_payload();
  for (std::size_t split = 0; split <= payload.size(); ++split) {
    StreamDecoder decoder = one_channel();
    Tags tags = feed(decoder, first(split, payload));
    tags = tags + feed(decoder, all_but_first(split, payload));
    EXPECT_EQ(tags, kOneChannelTags) << "split at " << split;
  }
}

TEST(PackedChunks, EveryChunkSizeGivesTheSameTags) {
  for (std::size_t size = 1; size <= 34; ++size) {
    StreamDecoder decoder = one_channel();
    EXPECT_EQ(feed_in_chunks(decoder, one_channel_payload(), size), kOneChannelTags) << "chunks of " << size;
  }
}

TEST(PackedChunks, EverySplitOfTwoChannelsGivesTheSameTags) {
  const Bytes payload = two_channel_payload();
  for (const StreamMode mode : {StreamMode::internal, StreamMode::external}) {
    for (std::size_t split = 0; split <= payload.size(); ++split) {
      StreamDecoder decoder = two_channels(mode);
      Tags tags = feed(decoder, first(split, payload));
      tags = tags + feed(decoder, all_but_first(split, payload));
      EXPECT_EQ(tags, kTwoChannelTags) << "split at " << split;
    }
    StreamDecoder decoder = two_channels(mode);
    EXPECT_EQ(feed_in_chunks(decoder, payload, 1), kTwoChannelTags);
  }
}

TEST(PackedChunks, EveryWidthDecodesByteByByte) {
  for (unsigned d = 5; d <= 31; ++d) {
    const Bytes payload = PackedWriter(d).anchor(0, 1'000'000).data(0, 1).overflow(0, 3).data(0, 2).bytes();
    StreamDecoder decoder = packed_decoder({.channel_mask = 0x1, .delta_bits = d});
    const auto overflow = static_cast<std::int64_t>(std::uint64_t{3} << d);
    EXPECT_THAT(feed_in_chunks(decoder, payload, 1),
                ElementsAre(tag(0, 1'000'000), tag(0, 1'000'001), tag(0, 1'000'003 + overflow)))
        << d << " bits";
  }
}

TEST(PackedChunks, NothingIsDecodedBeforeTheAnchorIsComplete) {
  const Bytes payload = one_channel_payload();
  StreamDecoder decoder = one_channel();
  EXPECT_THAT(feed(decoder, first(12, payload)), IsEmpty());
  EXPECT_FALSE(decoder.packed_locked);
  EXPECT_EQ(pending(decoder), first(12, payload));
  EXPECT_THAT(feed(decoder, bytes({payload[12]})), ElementsAre(tag(0, 1000)));
  EXPECT_TRUE(decoder.packed_locked);
  EXPECT_EQ(decoder.bit_offset, 2u);
  EXPECT_EQ(pending(decoder), bytes({payload[12]}));
}

TEST(PackedChunks, AnOverflowWaitsForItsDifferenceInTheNextChunk) {
  StreamDecoder decoder = running_decoder({.delta_bits = 5}, 0, 50);
  EXPECT_THAT(feed(decoder, PackedWriter(5).overflow(0, 2).bytes()), IsEmpty());
  EXPECT_EQ(decoder.pk_overflow[0], 2u);
  EXPECT_THAT(feed(decoder, PackedWriter(5).data(0, 1).bytes()), ElementsAre(tag(0, 115)));
}

TEST(PackedChunks, RecordNumbersOfADropCountFromTheChunk) {
  StreamDecoder decoder = running_decoder({.channel_mask = 0x1, .delta_bits = 5}, 0, 50);
  EXPECT_THAT(feed(decoder, bytes({1, 1, 1})), ElementsAre(tag(0, 51), tag(0, 52), tag(0, 53)));
  EXPECT_THAT(feed(decoder, bytes({1, 0x40, 2})), ElementsAre(tag(0, 54)));
  EXPECT_EQ(pending(decoder), bytes({2}));
}

TEST(PackedChunks, AnEmptyChunkChangesNothing) {
  StreamDecoder decoder = running_decoder({.channel_mask = 0x1}, 0, 50);
  EXPECT_THAT(feed(decoder, {}), IsEmpty());
  EXPECT_TRUE(decoder.packed_locked);
  StreamDecoder unlocked = one_channel();
  EXPECT_THAT(feed(unlocked, {}), IsEmpty());
  EXPECT_FALSE(unlocked.packed_locked);
}

}  // namespace
