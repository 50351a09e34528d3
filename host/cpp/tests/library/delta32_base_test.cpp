// delta32: a time base of 41 bits, placed near the time its channel already has.
//
// 2^40 = 1'099'511'627'776   2^41 = 2'199'023'255'552   wrap step W = 1'078'036'791'296
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

#include "orvo/timing/stream_decoder.hpp"
#include "support/checked_feeding.hpp"
#include "support/delta32_payload.hpp"

namespace {

using namespace orvo::test;
using orvo::timing::StreamDecoder;
using testing::ElementsAre;
using testing::IsEmpty;

StreamDecoder last_at(std::uint32_t channel, std::int64_t time_ps) {
  StreamDecoder decoder = delta32_decoder();
  decoder.d32_last_time[channel] = time_ps;
  decoder.d32_has_time[channel] = true;
  return decoder;
}

/// The tags of a base and one event on channel 1, which was last at `last_ps`.
Tags rebased(std::int64_t last_ps, std::uint64_t base_ps, std::uint32_t delta_ps = 0) {
  StreamDecoder decoder = last_at(1, last_ps);
  return feed(decoder, d32_base(base_ps) + d32_event(1, delta_ps));
}

TEST(Delta32Base, IsPutTogetherFrom25LowAnd16HighBits) {
  StreamDecoder decoder = delta32_decoder();
  feed(decoder, bytes({0xEB, 0x5A, 0x55, 0xAA, 0xAB, 0x23, 0x45, 0x67, 0xCA, 0x00, 0xAB, 0xCD}));
  EXPECT_TRUE(decoder.d32_base_valid);
  EXPECT_EQ(decoder.d32_base, 0x157'9B23'4567u);  // 0xABCD << 25 | 0x123'4567
  EXPECT_THAT(feed(decoder, d32_event(0, 1)), ElementsAre(tag(0, 1'475'776'562'536)));
}

TEST(Delta32Base, MayBeZeroAndAllOnes) {
  StreamDecoder decoder = delta32_decoder();
  EXPECT_THAT(feed(decoder, d32_base(0) + d32_event(0, 0)), ElementsAre(tag(0, 0)));
  EXPECT_THAT(feed(decoder, d32_base(0x1FF'FFFF'FFFF) + d32_event(3, 0x1FF'FFFF)),
              ElementsAre(tag(3, 2'199'023'255'551 + 33'554'431)));
}

TEST(Delta32Base, CountsOnlyItsLow41Bits) {
  StreamDecoder decoder = delta32_decoder();
  decoder.d32_synced = true;
  decoder.d32_base = 0xFFFF'FE00'0000'0007;
  decoder.d32_base_valid = true;
  EXPECT_THAT(feed(decoder, d32_event(2, 5)), ElementsAre(tag(2, 12)));
}

TEST(Delta32Base, ServesOneEventOnWhateverChannelThenDeltasChainPerChannel) {
  StreamDecoder decoder = last_at(0, 400);
  const Bytes payload = d32_base(1000) + d32_event(2, 5) + d32_event(2, 7) + d32_event(0, 9) + d32_event(2, 0);
  EXPECT_THAT(feed(decoder, payload), ElementsAre(tag(2, 1005), tag(2, 1012), tag(0, 409), tag(2, 1012)));
  EXPECT_FALSE(decoder.d32_base_valid);
  EXPECT_EQ(decoder.d32_base, 0u);
}

TEST(Delta32Base, EventsOnAChannelWithoutATimeGiveNoTags) {
  StreamDecoder decoder = delta32_decoder();
  const Bytes payload = d32_base(1000) + d32_event(2, 5) + d32_event(1, 7) + d32_event(3, 8) + d32_event(2, 1);
  EXPECT_THAT(feed(decoder, payload), ElementsAre(tag(2, 1005), tag(2, 1006)));
  EXPECT_TRUE(decoder.d32_synced);
  EXPECT_FALSE(decoder.d32_has_time[1]);
}

TEST(Delta32Base, AFirstTimeIsTakenAsItStands) {
  // Beyond the wrap step, where a later base would lose it.
  StreamDecoder decoder = delta32_decoder();
  EXPECT_THAT(feed(decoder, d32_base(1'078'036'796'296) + d32_event(0, 0)), ElementsAre(tag(0, 1'078'036'796'296)));
}

TEST(Delta32Base, TakesTheHighBitsOfTheLastTime) {
  EXPECT_THAT(rebased(10'995'116'278'760, 2000), ElementsAre(tag(1, 10'995'116'279'760)));  // 5 * 2^41 + 1000
}

TEST(Delta32Base, GoesOnePeriodUpWhenMoreThanHalfAPeriodBehind) {
  // The last time is 5 * 2^41 + 2^40 + 1, so a base of 0 is half a period and 1 ps before it.
  EXPECT_THAT(rebased(12'094'627'905'537, 0), ElementsAre(tag(1, 13'194'139'533'312)));  // 6 * 2^41
  // 50 ps before the end of a period: a base of 100 is 150 ps ahead.
  EXPECT_THAT(rebased(2'199'023'255'502, 100), ElementsAre(tag(1, 2'199'023'255'652)));
}

TEST(Delta32Base, StaysBehindAtHalfAPeriodExactly) {
  StreamDecoder decoder = last_at(1, 12'094'627'905'536);  // 5 * 2^41 + 2^40
  EXPECT_THAT(feed(decoder, d32_base(0) + d32_event(1, 0)), IsEmpty());
  EXPECT_FALSE(decoder.d32_synced);
}

TEST(Delta32Base, AnEventNotAfterTheLastTimeIsDroppedAndLosesSync) {
  for (const std::uint32_t delta : {0u, 999u, 1000u}) {
    StreamDecoder decoder = last_at(1, 5000);
    EXPECT_THAT(feed(decoder, d32_base(4000) + d32_event(1, delta) + d32_event(1, 7)), IsEmpty()) << delta;
    EXPECT_FALSE(decoder.d32_synced);
    EXPECT_FALSE(decoder.d32_base_valid);
    EXPECT_EQ(decoder.d32_base, 0u);
    EXPECT_EQ(decoder.d32_last_time[1], 5000);
    EXPECT_TRUE(decoder.d32_has_time[1]);
  }
  EXPECT_THAT(rebased(5000, 4000, 1001), ElementsAre(tag(1, 5001)));
}

TEST(Delta32Base, ResynchronisesBehindADroppedEvent) {
  StreamDecoder decoder = last_at(1, 5000);
  const Bytes payload = d32_base(4000) + d32_event(1, 3) + d32_event(1, 4) + d32_base(6000) + d32_event(1, 5);
  EXPECT_THAT(feed(decoder, payload), ElementsAre(tag(1, 6005)));
}

TEST(Delta32Base, TheLastTimeOfAnotherChannelDoesNotMatter) {
  StreamDecoder decoder = last_at(0, 10'995'116'278'760);
  EXPECT_THAT(feed(decoder, d32_base(4000) + d32_event(1, 0)), ElementsAre(tag(1, 4000)));
}

// A base that has passed the device's wrap reads W too far ahead.

TEST(Delta32BaseWrap, AGapOfTheWrapStepItselfStays) {
  EXPECT_THAT(rebased(1'000'000, 1'078'037'791'295), ElementsAre(tag(1, 1'078'037'791'295)));  // W - 1
  EXPECT_THAT(rebased(1'000'000, 1'078'037'791'296), ElementsAre(tag(1, 1'078'037'791'296)));  // W
}

TEST(Delta32BaseWrap, AGapJustBeyondTheWrapStepLosesIt) {
  EXPECT_THAT(rebased(1'000'000, 1'078'037'791'297), ElementsAre(tag(1, 1'000'001)));           // W + 1
  EXPECT_THAT(rebased(1'000'000, 1'088'037'791'295), ElementsAre(tag(1, 10'000'999'999)));      // rest 10^10 - 1
  EXPECT_THAT(rebased(1'000'000, 1'088'037'791'296), ElementsAre(tag(1, 10'001'000'000)));      // rest 10^10
  EXPECT_THAT(rebased(1'000'000, 1'088'037'791'296, 25), ElementsAre(tag(1, 10'001'000'025)));  // and a delta
}

TEST(Delta32BaseWrap, ALargerRestStaysWithinOneDevicePeriod) {
  EXPECT_THAT(rebased(1'000'000, 1'088'037'791'297), ElementsAre(tag(1, 1'088'037'791'297)));  // rest 10^10 + 1
}

TEST(Delta32BaseWrap, ALargerRestThatReachesTheDevicePeriodLosesTheWrapStep) {
  // 20 ms before the device's wrap. Base 0 is 7 * 2^41 there, so the rest is exactly those 20 ms.
  EXPECT_THAT(rebased(14'295'125'997'568, 0), ElementsAre(tag(1, 14'315'125'997'568)));
  EXPECT_THAT(rebased(14'295'125'997'568, 1), ElementsAre(tag(1, 14'315'125'997'569)));
  // 1 ps earlier the device has not wrapped yet.
  EXPECT_THAT(rebased(14'295'125'997'568, 0x1FF'FFFF'FFFF), ElementsAre(tag(1, 15'393'162'788'863)));
}

TEST(Delta32BaseWrap, CountsTheDevicePeriodFromItsLastWrap) {
  // 20 ms before the third wrap: 19 * 2^41 + 1'143'936'137'216. With W and those 20 ms more, 20 * 2^41 +
  // 42'949'672'960.
  EXPECT_THAT(rebased(42'925'377'992'704, 42'949'672'960), ElementsAre(tag(1, 42'945'377'992'704)));
  // 1 ps less is not enough: 20 * 2^41 + 42'949'672'959 stays.
  EXPECT_THAT(rebased(42'925'377'992'704, 42'949'672'959), ElementsAre(tag(1, 44'023'414'783'999)));
}

TEST(Delta32BaseWrap, TakesANegativeLastTimeAsZero) {
  EXPECT_THAT(rebased(-5, 0), ElementsAre(tag(1, 0)));
  EXPECT_THAT(rebased(-5, 1'078'036'791'303), ElementsAre(tag(1, 7)));  // W + 7
  EXPECT_THAT(rebased(-2'199'023'255'552, 100, 1), ElementsAre(tag(1, 101)));
}

TEST(Delta32BaseWrap, TimesWrapAtTheEndOf64Bits) {
  constexpr std::int64_t kLargest = std::numeric_limits<std::int64_t>::max();
  // The base before it is 2^63 - 2^41 + 2^41 - 1 = the last time itself; 2^63 is a negative time, not after the last.
  EXPECT_THAT(rebased(kLargest, 0x1FF'FFFF'FFFF), IsEmpty());
  EXPECT_THAT(rebased(kLargest, 0), IsEmpty());
  EXPECT_THAT(rebased(kLargest - 1, 0x1FF'FFFF'FFFF), ElementsAre(tag(1, kLargest)));
}

}  // namespace
