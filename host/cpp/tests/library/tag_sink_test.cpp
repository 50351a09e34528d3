#include "orvo/timing/tag_sink.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "orvo/timing/stream_decoder.hpp"
#include "support/bytes.hpp"
#include "support/stream_feeding.hpp"

namespace {

using orvo::test::Bytes;
using orvo::test::tag;
using orvo::timing::StreamDecoder;
using orvo::timing::StreamFileHeader;
using orvo::timing::TagList;
using orvo::timing::TagSink;
using orvo::timing::TimeTag;
using testing::ElementsAre;

/// The example of the header.
struct TagCounter {
  void begin_chunk(std::size_t) { counted_before = count; }
  void add(unsigned, std::int64_t) { ++count; }
  void end_chunk() {}
  void discard_chunk() { count = counted_before; }

  std::uint64_t count = 0;
  std::uint64_t counted_before = 0;
};
static_assert(TagSink<TagCounter>);

struct NeverForgets {
  void begin_chunk(std::size_t) {}
  void add(unsigned, std::int64_t) {}
  void end_chunk() {}
};
static_assert(!TagSink<NeverForgets> && !TagSink<int>);

/// Two raw64 words of the tag format "ps": channel 0 at 10000 ps, channel 1 at 10160 ps.
const Bytes kTwoTags = {0, 0, 0, 0, 0, 0, 0x27, 0x10, 0x20, 0, 0, 0, 0, 0, 0x27, 0xB0};

StreamFileHeader raw64_ps() {
  StreamFileHeader header;
  header.stream_format = orvo::timing::StreamFormat::raw64;
  return header;
}

TEST(TagSink, AnySinkTakesWhatADecoderIsFed) {
  StreamDecoder decoder(raw64_ps());
  TagCounter counter;
  decoder.feed(kTwoTags, counter);
  decoder.feed(kTwoTags, counter);
  EXPECT_EQ(counter.count, 4u);
}

TEST(TagSink, AListForgetsTheDiscardedChunkAlone) {
  std::vector<TimeTag> tags;
  TagList list(tags);
  list.begin_chunk(8);
  list.add(3, 7);
  list.end_chunk();
  list.begin_chunk(8);
  list.add(2, 8);
  list.add(2, 9);
  list.discard_chunk();
  EXPECT_THAT(tags, ElementsAre(tag(3, 7)));
}

TEST(StreamDecoder, FeedDecodesInTheEncodingThatTheHeaderNames) {
  EXPECT_THAT(StreamDecoder(raw64_ps()).feed(kTwoTags), ElementsAre(tag(0, 10'000), tag(1, 10'160)));
  StreamFileHeader delta32;
  delta32.stream_format = orvo::timing::StreamFormat::delta32;
  // sync, base low 10000, base high 0, event of channel 2 after 5 ps
  const Bytes stream = {0xEB, 0x5A, 0x55, 0xAA, 0xAA, 0x00, 0x27, 0x10,
                        0xCA, 0x00, 0x00, 0x00, 0x54, 0x00, 0x00, 0x05};
  EXPECT_THAT(StreamDecoder(delta32).feed(stream), ElementsAre(tag(2, 10'005)));
}

TEST(StreamDecoder, FeedKeepsWhatIsLeftOfARecordForTheNextBytes) {
  StreamDecoder decoder(raw64_ps());
  std::vector<TimeTag> tags;
  for (const std::uint8_t byte : kTwoTags) {
    for (const TimeTag& one : decoder.feed({&byte, 1})) tags.push_back(one);
  }
  EXPECT_THAT(tags, ElementsAre(tag(0, 10'000), tag(1, 10'160)));
  EXPECT_TRUE(decoder.pending_bytes.empty());
}

TEST(StreamDecoder, FeedOfNothingDecodesWhatWasLaidIntoPendingBytes) {
  StreamDecoder decoder(raw64_ps());
  decoder.pending_bytes.assign(kTwoTags.begin(), kTwoTags.end());
  EXPECT_THAT(decoder.feed({}), ElementsAre(tag(0, 10'000), tag(1, 10'160)));
}

TEST(StreamDecoder, FeedOfAnUnknownEncodingYieldsNothingAndKeepsTheBytes) {
  StreamFileHeader unknown;
  unknown.stream_format = static_cast<orvo::timing::StreamFormat>(7);
  StreamDecoder decoder(unknown);
  EXPECT_TRUE(decoder.feed(kTwoTags).empty());
  EXPECT_EQ(decoder.pending_bytes, kTwoTags);
}

}  // namespace
