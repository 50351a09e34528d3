// The reference of delta32, and the product's decoder beside it, on streams worked out by hand and on streams whose
// times are known.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "support/bytes.hpp"
#include "support/checked_decoders.hpp"
#include "support/delta32_streams.hpp"
#include "support/streams.hpp"

namespace orvo::test {
namespace {

using reference::Tags;
using testing::ElementsAre;
using testing::IsEmpty;

reference::Tag tag(int channel, std::int64_t time_ps) {
  return {channel, time_ps};
}

/// 32-bit words, most significant byte first.
Bytes words(std::initializer_list<std::uint32_t> values) {
  Bytes out;
  for (const std::uint32_t value : values) out += big_endian(value, 4);
  return out;
}

constexpr std::uint32_t kSync = 0xEB5A55AA;
constexpr std::uint32_t kBaseLow = 0xAA000000;   // F 1, channel 1, type 5
constexpr std::uint32_t kBaseHigh = 0xCA000000;  // F 1, channel 2, type 5
constexpr std::uint32_t kExtension = 0x8A000000;
constexpr std::uint32_t kEvent0 = 0x14000000;  // F 0, channel 0, type 10
constexpr std::uint32_t kEvent1 = 0x34000000;
constexpr std::uint32_t kEvent3 = 0x74000000;

class ReferenceDelta32 : public testing::Test {
 protected:
  Tags feed(std::initializer_list<std::uint32_t> values) { return model_.feed(words(values)); }
  Tags feed_bytes(std::initializer_list<int> values) { return model_.feed(bytes(values)); }

  CheckedDelta32 model_{delta32_header()};
};

TEST_F(ReferenceDelta32, ABaseGivesTheFirstTimeAndDifferencesChainFromIt) {
  EXPECT_THAT(feed({kSync, kBaseLow | 1000, kBaseHigh, kEvent0 | 100, kEvent0 | 50, kEvent1 | 5}),
              ElementsAre(tag(0, 1100), tag(0, 1150)));
  EXPECT_THAT(model_.pending, IsEmpty());
}

TEST_F(ReferenceDelta32, TheHighPartOfABaseCounts2To25) {
  EXPECT_THAT(feed({kSync, kBaseLow | 1000, kBaseHigh | 0xFFFF, kEvent3 | 1}),
              ElementsAre(tag(3, 65'535LL * 33'554'432 + 1001)));
}

TEST_F(ReferenceDelta32, ExtensionsAddUpForOneEventOfAnyChannel) {
  feed({kSync, kBaseLow | 1000, kBaseHigh, kEvent0});
  EXPECT_THAT(feed({kExtension | 3, kExtension | 1, kEvent0 | 7, kEvent0 | 1}),
              ElementsAre(tag(0, 1000 + 4 * 33'554'432 + 7), tag(0, 1000 + 4 * 33'554'432 + 8)));
  EXPECT_THAT(feed({kExtension | 3, kEvent1 | 7, kEvent0 | 1}), ElementsAre(tag(0, 1000 + 4 * 33'554'432 + 9)));
}

// The wrap step is 0xFB00000000 ps = 0x7D80 extension units; 10^10 ps are 298 units and 779264 ps.
TEST_F(ReferenceDelta32, AWrapStepIsTakenOutOfADifferenceWithASmallRest) {
  feed({kSync, kBaseLow, kBaseHigh, kEvent0});
  EXPECT_THAT(feed({kExtension | 0x7D80, kEvent0}), ElementsAre(tag(0, 0xFB00000000)));  // the step itself stays
  EXPECT_THAT(feed({kExtension | 0x7D80, kEvent0 | 5000}), ElementsAre(tag(0, 0xFB00000000 + 5000)));
  EXPECT_THAT(feed({kExtension | (0x7D80 + 298), kEvent0 | 779'264}),
              ElementsAre(tag(0, 0xFB00000000 + 5000 + 10'000'000'000)));
  EXPECT_THAT(feed({kExtension | (0x7D80 + 298), kEvent0 | 779'265}),
              ElementsAre(tag(0, 2 * 0xFB00000000 + 5000 + 20'000'000'001)));
}

// The device period is 14315125997568 ps; 20 * 10^9 ps before its end are 6 * 65535 + 32817 units and 31995904 ps.
TEST_F(ReferenceDelta32, ALargeRestIsTakenWhenItLeadsToTheEndOfTheDevicePeriod) {
  const std::initializer_list<std::uint32_t> near_end = {kSync,
                                                         kBaseLow,
                                                         kBaseHigh,
                                                         kEvent0,
                                                         kExtension | 65535,
                                                         kExtension | 65535,
                                                         kExtension | 65535,
                                                         kExtension | 65535,
                                                         kExtension | 65535,
                                                         kExtension | 65535,
                                                         kExtension | 32817,
                                                         kEvent0 | 31'995'904};
  EXPECT_THAT(feed(near_end), ElementsAre(tag(0, 0), tag(0, 14'295'125'997'568)));
  // The step and 20 * 10^9 ps are 32724 units and 1558528 ps.
  CheckedDelta32 just_not = model_;
  EXPECT_THAT(just_not.feed(words({kExtension | 32724, kEvent0 | 1'558'527})),
              ElementsAre(tag(0, 14'315'125'997'568 + 0xFB00000000 - 1)));
  EXPECT_THAT(feed({kExtension | 32724, kEvent0 | 1'558'528}), ElementsAre(tag(0, 14'315'125'997'568)));
}

TEST_F(ReferenceDelta32, ABaseIsLiftedOverThe41Bits) {
  feed({kSync, kBaseLow | 0x1FFFFFF, kBaseHigh | 0xFFFF, kEvent0});  // 2^41 - 1
  EXPECT_THAT(feed({kSync, kBaseLow | 1000, kBaseHigh, kEvent0 | 1}), ElementsAre(tag(0, (1LL << 41) + 1001)));
}

TEST_F(ReferenceDelta32, ABaseIsLiftedOnlyWhenMoreThanHalfItsRangeBelow) {
  feed({kSync, kBaseLow | 1000, kBaseHigh | 0x8000, kEvent0});  // 2^40 + 1000
  CheckedDelta32 other = model_;
  EXPECT_THAT(other.feed(words({kSync, kBaseLow | 999, kBaseHigh, kEvent0})), ElementsAre(tag(0, (1LL << 41) + 999)));
  EXPECT_THAT(feed({kSync, kBaseLow | 1000, kBaseHigh, kEvent0}), IsEmpty());
  EXPECT_FALSE(model_.synced);
}

TEST_F(ReferenceDelta32, AWrapStepIsTakenOutOfABase) {
  feed({kSync, kBaseLow | 1000, kBaseHigh, kEvent0});
  EXPECT_THAT(feed({kSync, kBaseLow | 6000, kBaseHigh | 0x7D80, kEvent0 | 1}), ElementsAre(tag(0, 6001)));
}

TEST_F(ReferenceDelta32, ABaseThatDoesNotMoveAChannelForwardCostsTheEventAndTheSync) {
  feed({kSync, kBaseLow | 1000, kBaseHigh, kEvent0 | 100});
  EXPECT_THAT(feed({kSync, kBaseLow | 1000, kBaseHigh, kEvent0 | 100, kEvent0 | 1}), IsEmpty());
  EXPECT_THAT(feed({kSync, kBaseLow | 1000, kBaseHigh, kEvent0 | 101, kEvent0 | 1}),
              ElementsAre(tag(0, 1101), tag(0, 1102)));
}

TEST_F(ReferenceDelta32, EventsWithoutAnAnchorVanishAndKeepTheSync) {
  EXPECT_THAT(feed({kSync, kBaseLow | 1000, kBaseHigh, kEvent0 | 1, kExtension | 1, kEvent1 | 5, kEvent0 | 1}),
              ElementsAre(tag(0, 1001), tag(0, 1002)));
  EXPECT_TRUE(model_.synced);
}

TEST_F(ReferenceDelta32, TimesSurviveTheLossOfSync) {
  feed({kSync, kBaseLow | 1000, kBaseHigh, kEvent0 | 1, kEvent1 /* no anchor */, 0xFFFFFFFF, kEvent0 | 2});
  EXPECT_THAT(feed({kSync, kBaseLow | 2000, kBaseHigh, kEvent1 | 1, kEvent0 | 3}),
              ElementsAre(tag(1, 2001), tag(0, 1004)));
}

TEST_F(ReferenceDelta32, WhatLosesSyncAndWhatDoesNot) {
  const Bytes anchored = words({kSync, kBaseLow | 1000, kBaseHigh, kEvent0});
  const auto synced_after = [&](std::initializer_list<std::uint32_t> more) {
    CheckedDelta32 model{delta32_header()};
    model.feed(anchored + words(more));
    return model.synced;
  };
  EXPECT_TRUE(synced_after({0xEA000000}));          // type 5, channel 3: ignored among data
  EXPECT_FALSE(synced_after({kSync, 0xEA000000}));  // but not in place of a base
  EXPECT_FALSE(synced_after({kSync, kBaseLow, 0xEA000000}));
  EXPECT_TRUE(synced_after({kSync, kSync, kBaseLow, kSync, kBaseLow}));  // a sync word starts anew everywhere
  EXPECT_FALSE(synced_after({kBaseLow}));                                // a base outside its frame
  EXPECT_FALSE(synced_after({kBaseHigh}));
  EXPECT_FALSE(synced_after({kSync, kBaseHigh}));
  EXPECT_FALSE(synced_after({kSync, kBaseLow, kBaseHigh | 0x10000}));  // more than 16 bits
  EXPECT_FALSE(synced_after({kExtension | 0x10000}));
  EXPECT_FALSE(synced_after({kSync, kBaseLow, kBaseHigh, kExtension}));  // an extension while a base waits
  EXPECT_FALSE(synced_after({0x94000000}));                              // type 10 with the control flag
  EXPECT_FALSE(synced_after({0x0A000000}));                              // type 5 without it
}

TEST_F(ReferenceDelta32, WordsAndSyncWordsMayBeCutAnywhere) {
  EXPECT_THAT(feed_bytes({0x11, 0x22, 0xEB, 0x5A}), IsEmpty());
  EXPECT_THAT(model_.pending, ElementsAre(0x22, 0xEB, 0x5A));  // three bytes are kept, whatever they are
  EXPECT_THAT(feed_bytes({0x55, 0xAA, 0xAA, 0x00}), IsEmpty());
  EXPECT_THAT(model_.pending, ElementsAre(0xAA, 0x00));
  EXPECT_THAT(feed_bytes({0x03, 0xE8, 0xCA, 0, 0, 0, 0x14, 0, 0}), IsEmpty());
  EXPECT_THAT(feed_bytes({0x07}), ElementsAre(tag(0, 1007)));
}

// The search goes on after the word that lost the sync; only what a chunk's end leaves is looked at once more.
TEST_F(ReferenceDelta32, ASyncWordThatBeginsInTheOffendingWordIsFoundOnlyAcrossChunks) {
  CheckedDelta32 other = model_;
  other.feed(words({kSync, 0xFFEB5A55}) + bytes({0xAA, 1}));
  EXPECT_FALSE(other.synced);
  feed({kSync, 0xFFEB5A55});
  feed_bytes({0xAA, 1});
  EXPECT_TRUE(model_.synced);
  EXPECT_THAT(model_.pending, ElementsAre(1));
}

TEST(ReferenceDelta32OnCleanStreams, GivesTheEncodedTimes) {
  Random random(3201);
  for (int i = 0; i < 200; ++i) {
    const CleanStream clean = clean_delta32(random, 1000);
    EXPECT_EQ(first_difference(CheckedDelta32(delta32_header()).feed(clean.bytes), clean.tags), "") << "stream " << i;
  }
}

}  // namespace
}  // namespace orvo::test
