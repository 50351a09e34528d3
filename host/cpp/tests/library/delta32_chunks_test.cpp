// delta32: words and sync words across the ends of chunks, from single bytes to the reads of a large file.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>

#include "orvo/timing/stream_decoder.hpp"
#include "reference/capture_file.hpp"
#include "support/as_reference.hpp"
#include "support/checked_feeding.hpp"
#include "support/delta32_payload.hpp"

namespace {

using namespace orvo::test;
using orvo::timing::StreamDecoder;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::size_t kRead = 1048576;
constexpr const char* kHeaderJson = R"({"stream_format":"delta32"})";

/// Stray bytes, a base, a chain with an extension, a loss of sync and a second base: 63 bytes.
Bytes mixed_payload() {
  return bytes({1, 2, 3})                                            //  0: stray
         + d32_base(1000) + d32_event(1, 5) + d32_event(1, 6)        //  3: tags end at byte 19 and 23
         + d32_extension(1) + d32_event(1, 7)                        // 23: a tag ends at byte 31
         + bytes({0, 0, 0, 0}) + bytes({4, 5, 6, 7})                 // 31: sync lost, stray
         + d32_base(40'000'000) + d32_event(2, 8) + d32_event(1, 9)  // 39: tags end at byte 55 and 59
         + d32_word({.control = 1, .channel = 3, .type = 5, .payload = 1});
}

const Tags kMixedTags = {tag(1, 1005), tag(1, 1011), tag(1, 33'555'450), tag(2, 40'000'008), tag(1, 33'555'459)};

TEST(Delta32Chunks, TruncationAnywhereCostsOnlyTheTagsNotComplete) {
  const Bytes payload = mixed_payload();
  ASSERT_EQ(payload.size(), 63u);
  for (std::size_t size = 0; size <= payload.size(); ++size) {
    StreamDecoder decoder = delta32_decoder();
    const std::size_t complete = size < 19 ? 0 : size < 23 ? 1 : size < 31 ? 2 : size < 55 ? 3 : size < 59 ? 4 : 5;
    const Tags expected(kMixedTags.begin(), kMixedTags.begin() + static_cast<std::ptrdiff_t>(complete));
    EXPECT_EQ(feed(decoder, first(size, payload)), expected) << size << " bytes";
  }
}

TEST(Delta32Chunks, EverySplitInTwoGivesTheSameTags) {
  const Bytes payload = mixed_payload();
  for (std::size_t split = 0; split <= payload.size(); ++split) {
    StreamDecoder decoder = delta32_decoder();
    Tags tags = feed(decoder, first(split, payload));
    tags = tags + feed(decoder, all_but_first(split, payload));
    EXPECT_EQ(tags, kMixedTags) << "split at " << split;
  }
}

TEST(Delta32Chunks, EveryChunkSizeGivesTheSameTags) {
  for (std::size_t size = 1; size <= mixed_payload().size(); ++size) {
    StreamDecoder decoder = delta32_decoder();
    EXPECT_EQ(feed_in_chunks(decoder, mixed_payload(), size), kMixedTags) << "chunks of " << size;
    EXPECT_EQ(reference::decode(as_reference(delta32_header()), mixed_payload(), size), as_reference(kMixedTags));
  }
}

TEST(Delta32Chunks, TheBeginningOfAWordWaitsForItsEnd) {
  for (std::size_t head = 1; head <= 3; ++head) {
    StreamDecoder decoder = delta32_decoder();
    const Bytes word = d32_event(1, 6);
    EXPECT_THAT(feed(decoder, d32_base(1000) + d32_event(1, 5) + first(head, word)), ElementsAre(tag(1, 1005)));
    EXPECT_EQ(pending(decoder), first(head, word));
    EXPECT_THAT(feed(decoder, {}), IsEmpty());
    EXPECT_EQ(pending(decoder), first(head, word));
    EXPECT_THAT(feed(decoder, all_but_first(head, word)), ElementsAre(tag(1, 1011)));
    EXPECT_TRUE(decoder.pending_bytes.empty());
  }
}

TEST(Delta32Chunks, AnEmptyChunkChangesNothing) {
  StreamDecoder decoder = delta32_decoder();
  EXPECT_THAT(feed(decoder, {}), IsEmpty());
  feed(decoder, d32_base(1000));
  EXPECT_THAT(feed(decoder, {}), IsEmpty());
  EXPECT_TRUE(decoder.d32_base_valid);
}

// Files of several reads.

TEST(Delta32File, WordsAcrossTheEndsOfReadsDecodeOnce) {
  constexpr std::size_t kEvents = 700'000;  // 2.8 MB: three reads
  Tags expected(kEvents);
  for (std::size_t i = 0; i < kEvents; ++i) expected[i] = tag(1, static_cast<std::int64_t>(1000 * (i + 1)));
  for (const std::size_t stray : {0u, 1u, 2u, 3u}) {
    const Bytes payload = Bytes(stray, 0x33) + d32_base(0) + repeated(d32_event(1, 1000), kEvents);
    expect_same(read_capture(kHeaderJson, payload), expected);
  }
}

TEST(Delta32File, ASyncWordAcrossTheEndOfAReadIsFound) {
  for (std::size_t head = 0; head <= 4; ++head) {
    const Bytes payload = Bytes(kRead - head, 0x44) + d32_base(1000) + d32_event(1, 5);
    EXPECT_THAT(read_capture(kHeaderJson, payload), ElementsAre(tag(1, 1005))) << head << " bytes in the first read";
  }
}

TEST(Delta32File, SyncLostInOneReadIsFoundAgainInALaterOne) {
  const Bytes payload = d32_base(1000) + d32_event(1, 5) + bytes({0, 0, 0, 0}) + Bytes(2 * kRead, 0x11) +
                        d32_base(33'000) + d32_event(3, 7) + d32_event(1, 8);
  EXPECT_THAT(read_capture(kHeaderJson, payload), ElementsAre(tag(1, 1005), tag(3, 33'007), tag(1, 1013)));
}

TEST(Delta32File, AFrameAcrossTheEndOfAReadDecodesAtEverySplit) {
  const Bytes frame = d32_base(50'000'000) + d32_event(2, 9);
  for (std::size_t head = 0; head <= frame.size(); ++head) {
    // Whole words up to the frame: the base that opens the file, then control words without meaning.
    Bytes payload = Bytes((kRead - head) % 4, 0x55) + d32_base(1000) + d32_event(1, 5);
    const Bytes filler = d32_word({.control = 1, .channel = 3, .type = 5, .payload = 1});
    payload += repeated(filler, (kRead - head - payload.size()) / 4);
    ASSERT_EQ(payload.size() + head, kRead);
    EXPECT_THAT(read_capture(kHeaderJson, payload + frame + d32_event(1, 1)),
                ElementsAre(tag(1, 1005), tag(2, 50'000'009), tag(1, 1006)))
        << head << " bytes in the first read";
  }
}

}  // namespace
