// delta32: which words each framing state accepts, and what the others cost.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "orvo/timing/stream_decoder.hpp"
#include "support/checked_feeding.hpp"
#include "support/delta32_payload.hpp"

namespace {

using namespace orvo::test;
using orvo::timing::StreamDecoder;
using testing::ElementsAre;
using testing::IsEmpty;

// The same words again as bytes, so that no builder confirms itself.
const Bytes kSync = bytes({0xEB, 0x5A, 0x55, 0xAA});
const Bytes kBaseLow1000 = bytes({0xAA, 0x00, 0x03, 0xE8});
const Bytes kBaseHigh0 = bytes({0xCA, 0x00, 0x00, 0x00});
const Bytes kBaseHigh2 = bytes({0xCA, 0x00, 0x00, 0x02});
const Bytes kExtension3 = bytes({0x8A, 0x00, 0x00, 0x03});
const Bytes kEventOn1Delta5 = bytes({0x34, 0x00, 0x00, 0x05});
const Bytes kEventOn2Delta7 = bytes({0x54, 0x00, 0x00, 0x07});
const Bytes kEventOn3Delta9 = bytes({0x74, 0x00, 0x00, 0x09});
const Bytes kOtherControl3 = bytes({0xEB, 0x5A, 0x55, 0xAB});

StreamDecoder expecting_base_low() {
  StreamDecoder decoder = delta32_decoder();
  EXPECT_THAT(feed(decoder, kSync), IsEmpty());
  return decoder;
}
StreamDecoder expecting_base_high() {
  StreamDecoder decoder = expecting_base_low();
  EXPECT_THAT(feed(decoder, kBaseLow1000), IsEmpty());
  return decoder;
}
StreamDecoder with_pending_base() {
  StreamDecoder decoder = expecting_base_high();
  EXPECT_THAT(feed(decoder, kBaseHigh0), IsEmpty());
  return decoder;
}
/// In data state, channel 1 last at 1005 ps.
StreamDecoder with_time_on_1() {
  StreamDecoder decoder = with_pending_base();
  EXPECT_THAT(feed(decoder, kEventOn1Delta5), ElementsAre(tag(1, 1005)));
  return decoder;
}

void expect_sync_lost(const StreamDecoder& decoder) {
  EXPECT_FALSE(decoder.d32_synced);
  EXPECT_EQ(decoder.d32_frame_state, 0u);
  EXPECT_EQ(decoder.d32_base_low, 0u);
  EXPECT_EQ(decoder.d32_base, 0u);
  EXPECT_FALSE(decoder.d32_base_valid);
  EXPECT_EQ(decoder.d32_extension, 0u);
}

void expect_sync_reset(const StreamDecoder& decoder) {
  EXPECT_TRUE(decoder.d32_synced);
  EXPECT_EQ(decoder.d32_frame_state, 1u);
  EXPECT_EQ(decoder.d32_base_low, 0u);
  EXPECT_EQ(decoder.d32_base, 0u);
  EXPECT_FALSE(decoder.d32_base_valid);
  EXPECT_EQ(decoder.d32_extension, 0u);
}

/// The words that lose sync in a state, by their top seven bits, when the payload is 0x00123: one letter per word.
std::string losing_heads(const StreamDecoder& state) {
  std::string heads;
  for (std::uint32_t head = 0; head < 128; ++head) {
    StreamDecoder decoder = state;
    feed(decoder, big_endian(head << 25 | 0x00123, 4));
    heads += decoder.d32_synced ? '.' : 'x';
  }
  return heads;
}

std::string all_lose_except(std::initializer_list<std::size_t> heads) {
  std::string expected(128, 'x');
  for (const std::size_t head : heads) expected[head] = '.';
  return expected;
}

TEST(Delta32Framing, StartsUnsynchronised) {
  expect_sync_lost(delta32_decoder());
}

TEST(Delta32Framing, SyncWordOpensTheFrame) {
  const StreamDecoder decoder = expecting_base_low();
  expect_sync_reset(decoder);
  EXPECT_TRUE(decoder.pending_bytes.empty());
}

TEST(Delta32Framing, SyncThenBaseThenEventGivesTheFirstTag) {
  StreamDecoder decoder = delta32_decoder();
  const Bytes payload = kSync + kBaseLow1000 + kBaseHigh2 + kEventOn3Delta9;
  EXPECT_THAT(feed(decoder, payload), ElementsAre(tag(3, 67'108'864 + 1000 + 9)));
  EXPECT_TRUE(decoder.pending_bytes.empty());
}

TEST(Delta32Framing, BuildersGiveTheBytesOfTheFormat) {
  EXPECT_EQ(d32_sync(), kSync);
  EXPECT_EQ(d32_word({.control = 1, .channel = 3, .type = 5, .payload = 0x15A'55AA}), kSync);
  EXPECT_EQ(d32_base_low(1000), kBaseLow1000);
  EXPECT_EQ(d32_base_high(2), kBaseHigh2);
  EXPECT_EQ(d32_extension(3), kExtension3);
  EXPECT_EQ(d32_event(1, 5), kEventOn1Delta5);
  EXPECT_EQ(d32_event(3, 9), kEventOn3Delta9);
}

TEST(Delta32Framing, BaseLowStateTakesOnlyBaseLowAndSync) {
  EXPECT_EQ(losing_heads(expecting_base_low()), all_lose_except({0x55}));
  StreamDecoder decoder = expecting_base_low();
  feed(decoder, bytes({0xAB, 0xFF, 0xFF, 0xFF}));
  EXPECT_EQ(decoder.d32_frame_state, 2u);
  EXPECT_EQ(decoder.d32_base_low, 0x1FF'FFFFu);
}

TEST(Delta32Framing, BaseHighStateTakesOnlyBaseHighAndSync) {
  EXPECT_EQ(losing_heads(expecting_base_high()), all_lose_except({0x65}));
  StreamDecoder decoder = expecting_base_high();
  feed(decoder, bytes({0xCA, 0x00, 0xFF, 0xFF}));
  EXPECT_TRUE(decoder.d32_synced);
  EXPECT_EQ(decoder.d32_frame_state, 0u);
  EXPECT_EQ(decoder.d32_base_low, 0u);
  EXPECT_TRUE(decoder.d32_base_valid);
  EXPECT_EQ(decoder.d32_base, 0x1FF'FE00'0000u + 1000u);
}

TEST(Delta32Framing, DataStateTakesEventsExtensionsAndForeignControl3) {
  EXPECT_EQ(losing_heads(with_time_on_1()), all_lose_except({0x0A, 0x1A, 0x2A, 0x3A, 0x45, 0x75}));
}

TEST(Delta32Framing, DataStateWithPendingBaseTakesNoExtension) {
  EXPECT_EQ(losing_heads(with_pending_base()), all_lose_except({0x0A, 0x1A, 0x2A, 0x3A, 0x75}));
}

TEST(Delta32Framing, SyncWordResetsEverySynchronisedState) {
  for (StreamDecoder decoder : {expecting_base_low(), expecting_base_high(), with_pending_base(), with_time_on_1()}) {
    EXPECT_THAT(feed(decoder, kSync), IsEmpty());
    expect_sync_reset(decoder);
  }
}

TEST(Delta32Framing, SyncWordForgetsAnExtension) {
  StreamDecoder decoder = with_time_on_1();
  feed(decoder, kExtension3);
  EXPECT_EQ(decoder.d32_extension, 3u);
  feed(decoder, kSync);
  expect_sync_reset(decoder);
}

TEST(Delta32Framing, EveryStateLosesSyncWithAllItHeld) {
  StreamDecoder with_extension = with_time_on_1();
  feed(with_extension, kExtension3);
  for (StreamDecoder decoder :
       {expecting_base_low(), expecting_base_high(), with_pending_base(), with_time_on_1(), with_extension}) {
    EXPECT_THAT(feed(decoder, bytes({0, 0, 0, 0})), IsEmpty());
    expect_sync_lost(decoder);
  }
}

TEST(Delta32Framing, ForeignControl3IsIgnoredInDataState) {
  StreamDecoder decoder = with_time_on_1();
  feed(decoder, kExtension3);
  EXPECT_THAT(feed(decoder, kOtherControl3), IsEmpty());
  EXPECT_TRUE(decoder.d32_synced);
  EXPECT_EQ(decoder.d32_extension, 3u);
  EXPECT_THAT(feed(decoder, kEventOn1Delta5), ElementsAre(tag(1, 1005 + 100'663'296 + 5)));
}

TEST(Delta32Framing, ForeignControl3LeavesAPendingBasePending) {
  StreamDecoder decoder = with_pending_base();
  EXPECT_THAT(feed(decoder, kOtherControl3), IsEmpty());
  EXPECT_TRUE(decoder.d32_base_valid);
  EXPECT_THAT(feed(decoder, kEventOn2Delta7), ElementsAre(tag(2, 1007)));
}

TEST(Delta32Framing, ForeignControl3LosesSyncBeforeTheBaseIsComplete) {
  for (StreamDecoder decoder : {expecting_base_low(), expecting_base_high()}) {
    EXPECT_THAT(feed(decoder, kOtherControl3), IsEmpty());
    expect_sync_lost(decoder);
  }
}

TEST(Delta32Framing, BaseHighWithAnyOfItsZeroBitsSetLosesSync) {
  for (unsigned bit = 16; bit <= 24; ++bit) {
    StreamDecoder decoder = expecting_base_high();
    EXPECT_THAT(feed(decoder, d32_base_high(1u << bit)), IsEmpty());
    expect_sync_lost(decoder);
  }
}

TEST(Delta32Framing, ExtensionWithAnyOfItsZeroBitsSetLosesSync) {
  for (unsigned bit = 16; bit <= 24; ++bit) {
    StreamDecoder decoder = with_time_on_1();
    EXPECT_THAT(feed(decoder, d32_extension(1u << bit)), IsEmpty());
    expect_sync_lost(decoder);
  }
}

TEST(Delta32Framing, ExtensionWhileABaseIsPendingLosesSync) {
  StreamDecoder decoder = with_pending_base();
  EXPECT_THAT(feed(decoder, kExtension3 + kEventOn1Delta5), IsEmpty());
  expect_sync_lost(decoder);
}

TEST(Delta32Framing, TimesSurviveLossOfSyncAndReset) {
  StreamDecoder decoder = with_time_on_1();
  feed(decoder, bytes({0, 0, 0, 0}));
  EXPECT_TRUE(decoder.d32_has_time[1]);
  const Bytes base_5000_for_2 = kSync + bytes({0xAA, 0x00, 0x13, 0x88}) + kBaseHigh0 + kEventOn2Delta7;
  EXPECT_THAT(feed(decoder, base_5000_for_2 + kEventOn1Delta5), ElementsAre(tag(2, 5007), tag(1, 1010)));
}

TEST(Delta32Framing, EventsWaitForASyncWordAfterALoss) {
  StreamDecoder decoder = with_time_on_1();
  EXPECT_THAT(feed(decoder, bytes({0, 0, 0, 0}) + kEventOn1Delta5 + kEventOn1Delta5), IsEmpty());
  expect_sync_lost(decoder);
}

}  // namespace
