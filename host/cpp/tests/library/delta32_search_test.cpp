// delta32: finding the sync word at any byte, and what is kept while searching.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>

#include "orvo/timing/stream_decoder.hpp"
#include "support/checked_feeding.hpp"
#include "support/delta32_payload.hpp"

namespace {

using namespace orvo::test;
using orvo::timing::StreamDecoder;
using testing::ElementsAre;
using testing::IsEmpty;

Tags decode(const Bytes& payload) {
  StreamDecoder decoder = delta32_decoder();
  return feed(decoder, payload);
}

const Bytes kFrame = d32_base(1000) + d32_event(1, 5);

TEST(Delta32Search, FindsTheSyncWordAtEveryByteOffset) {
  for (std::size_t stray = 0; stray <= 13; ++stray) {
    EXPECT_THAT(decode(Bytes(stray, 0xEB) + kFrame), ElementsAre(tag(1, 1005))) << stray << " stray bytes";
  }
}

TEST(Delta32Search, IsNotMisledByTheBeginningOfASyncWord) {
  EXPECT_THAT(decode(bytes({0xEB, 0x5A}) + kFrame), ElementsAre(tag(1, 1005)));
  EXPECT_THAT(decode(bytes({0xEB, 0x5A, 0x55}) + kFrame), ElementsAre(tag(1, 1005)));
  EXPECT_THAT(decode(bytes({0xEB, 0x5A, 0x55, 0xEB}) + kFrame), ElementsAre(tag(1, 1005)));
  EXPECT_THAT(decode(bytes({0xAA, 0x55, 0x5A, 0xEB}) + d32_base_low(1) + kFrame), ElementsAre(tag(1, 1005)));
}

TEST(Delta32Search, ReadsNothingBeforeTheFirstSyncWord) {
  StreamDecoder decoder = delta32_decoder();
  const Bytes no_sync = d32_base_low(1000) + d32_base_high(0) + d32_event(1, 5);
  EXPECT_THAT(feed(decoder, no_sync), IsEmpty());
  EXPECT_FALSE(decoder.d32_synced);
  EXPECT_THAT(feed(decoder, kFrame), ElementsAre(tag(1, 1005)));
}

TEST(Delta32Search, KeepsAtMostTheLastThreeBytes) {
  const Bytes stray = bytes({1, 2, 3, 4, 5, 6, 7});
  for (std::size_t size = 0; size <= stray.size(); ++size) {
    StreamDecoder decoder = delta32_decoder();
    feed(decoder, first(size, stray));
    const Bytes kept = size < 3 ? first(size, stray) : all_but_first(size - 3, first(size, stray));
    EXPECT_EQ(pending(decoder), kept) << size << " bytes fed";
  }
}

TEST(Delta32Search, FindsASyncWordSplitAcrossTwoChunks) {
  for (std::size_t head = 1; head <= 3; ++head) {
    StreamDecoder decoder = delta32_decoder();
    EXPECT_THAT(feed(decoder, bytes({9, 9, 9, 9, 9}) + first(head, kFrame)), IsEmpty());
    EXPECT_EQ(decoder.pending_bytes.size(), 3u);
    EXPECT_THAT(feed(decoder, all_but_first(head, kFrame)), ElementsAre(tag(1, 1005))) << head << " bytes first";
  }
}

TEST(Delta32Search, FindsASyncWordThatArrivesByteByByte) {
  StreamDecoder decoder = delta32_decoder();
  EXPECT_THAT(feed_in_chunks(decoder, bytes({7, 0xEB, 0x5A}) + kFrame, 1), ElementsAre(tag(1, 1005)));
}

TEST(Delta32Search, ErasesTheSyncWordAndAllBeforeItWhenFound) {
  StreamDecoder decoder = delta32_decoder();
  feed(decoder, bytes({1, 2, 3, 4, 5}) + d32_sync() + bytes({0xAA, 0x00}));
  EXPECT_TRUE(decoder.d32_synced);
  EXPECT_EQ(pending(decoder), bytes({0xAA, 0x00}));
}

TEST(Delta32Search, ResumesBehindTheOffendingWord) {
  // The offending word ends in EB: with the next three bytes it would spell a sync word.
  const Bytes overlapping = bytes({0x00, 0x00, 0x00, 0xEB, 0x5A, 0x55, 0xAA, 0x00});
  EXPECT_THAT(decode(kFrame + overlapping + d32_base_low(2000) + d32_base_high(0) + d32_event(2, 7)),
              ElementsAre(tag(1, 1005)));
  // The word directly after it counts.
  EXPECT_THAT(decode(kFrame + bytes({0, 0, 0, 0}) + d32_base(2000) + d32_event(2, 7)),
              ElementsAre(tag(1, 1005), tag(2, 2007)));
}

TEST(Delta32Search, KeepsTheTailOfTheOffendingWordWhenNothingFollows) {
  StreamDecoder decoder = delta32_decoder();
  EXPECT_THAT(feed(decoder, kFrame + bytes({0x00, 0xEB, 0x5A, 0x55})), ElementsAre(tag(1, 1005)));
  EXPECT_EQ(pending(decoder), bytes({0xEB, 0x5A, 0x55}));
  // Here a read ends between the two words, so their common sync word does count.
  EXPECT_THAT(feed(decoder, bytes({0xAA}) + d32_base_low(2000) + d32_base_high(0) + d32_event(2, 7)),
              ElementsAre(tag(2, 2007)));
}

TEST(Delta32Search, KeepsTailsOfWordAndRemainderTogether) {
  StreamDecoder decoder = delta32_decoder();
  feed(decoder, kFrame + bytes({0x00, 0x00, 0x01, 0x02, 0x03, 0x04}));
  EXPECT_EQ(pending(decoder), bytes({0x02, 0x03, 0x04}));
  StreamDecoder shorter = delta32_decoder();
  feed(shorter, kFrame + bytes({0x00, 0x00, 0x01, 0x02, 0x03}));
  EXPECT_EQ(pending(shorter), bytes({0x01, 0x02, 0x03}));
}

TEST(Delta32Search, FindsAnUnalignedSyncWordAfterALoss) {
  for (std::size_t stray = 1; stray <= 5; ++stray) {
    const Bytes payload = kFrame + bytes({0, 0, 0, 0}) + Bytes(stray, 0x11) + d32_base(2000) + d32_event(2, 7);
    EXPECT_THAT(decode(payload), ElementsAre(tag(1, 1005), tag(2, 2007))) << stray << " stray bytes";
  }
}

TEST(Delta32Search, AnUnalignedSyncWordWhileFramedIsNoSyncWord) {
  // One byte late: 00 EB 5A 55 loses sync, and AA.. continues without one.
  EXPECT_THAT(decode(kFrame + bytes({0x00}) + kFrame + bytes({0x00, 0x00, 0x00})), ElementsAre(tag(1, 1005)));
}

TEST(Delta32Search, SearchesOnlyWhatFollowsWhenSyncIsLostTwice) {
  const Bytes lose = bytes({0, 0, 0, 0});
  EXPECT_THAT(decode(kFrame + lose + d32_base(2000) + lose + d32_event(1, 1) + d32_base(3000) + d32_event(0, 3)),
              ElementsAre(tag(1, 1005), tag(0, 3003)));
}

}  // namespace
