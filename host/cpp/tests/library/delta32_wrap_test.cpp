// delta32: differences that chain on a channel, extension words, and the wrap of the device time inside a difference.
//
// Device period P = 14'315'125'997'568 ps   wrap step W = 1'078'036'791'296 ps = 32128 * 2^25
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

/// A decoder in data state, channel 1 last at `time_ps`.
StreamDecoder running_at(std::int64_t time_ps) {
  StreamDecoder decoder = delta32_decoder();
  decoder.d32_synced = true;
  decoder.d32_last_time[1] = time_ps;
  decoder.d32_has_time[1] = true;
  return decoder;
}

/// The tags of one event on channel 1, `delta_ps` after `last_ps`.
Tags after(std::int64_t last_ps, std::uint64_t delta_ps) {
  StreamDecoder decoder = running_at(last_ps);
  return feed(decoder, d32_gap(1, delta_ps));
}

TEST(Delta32Chain, AddsEachDeltaToItsChannelsTime) {
  StreamDecoder decoder = running_at(1000);
  decoder.d32_last_time[2] = 50;
  decoder.d32_has_time[2] = true;
  const Bytes payload = d32_event(1, 1) + d32_event(2, 2) + d32_event(1, 0) + d32_event(1, 0x1FF'FFFF);
  EXPECT_THAT(feed(decoder, payload), ElementsAre(tag(1, 1001), tag(2, 52), tag(1, 1001), tag(1, 33'555'432)));
}

TEST(Delta32Chain, AnExtensionAdds2To25PerUnitToTheNextEvent) {
  StreamDecoder decoder = running_at(0);
  EXPECT_THAT(feed(decoder, bytes({0x8A, 0x00, 0x00, 0x01, 0x34, 0x00, 0x00, 0x05})),
              ElementsAre(tag(1, 33'554'437)));
  EXPECT_THAT(feed(decoder, d32_event(1, 3)), ElementsAre(tag(1, 33'554'440)));
}

TEST(Delta32Chain, AnExtensionMayBeZero) {
  StreamDecoder decoder = running_at(7);
  EXPECT_THAT(feed(decoder, d32_extension(0) + d32_event(1, 3)), ElementsAre(tag(1, 10)));
}

TEST(Delta32Chain, ExtensionsAddUpBeforeTheirEvent) {
  // 65535 + 65535 + 2 units of 2^25 ps are 2^42 ps; far from the device's wrap they count in full.
  StreamDecoder decoder = running_at(0);
  feed(decoder, d32_extension(65535) + d32_extension(65535) + d32_extension(2));
  EXPECT_EQ(decoder.d32_extension, 131072u);
  EXPECT_THAT(feed(decoder, d32_event(1, 9)), ElementsAre(tag(1, 4'398'046'511'113)));
  EXPECT_EQ(decoder.d32_extension, 0u);
}

TEST(Delta32Chain, AnExtensionGoesToTheNextEventOfWhateverChannel) {
  StreamDecoder decoder = running_at(1000);
  decoder.d32_last_time[3] = 50;
  decoder.d32_has_time[3] = true;
  EXPECT_THAT(feed(decoder, d32_extension(2) + d32_event(3, 2) + d32_event(1, 2)),
              ElementsAre(tag(3, 67'108'916), tag(1, 1002)));
}

TEST(Delta32Chain, AnEventWithoutATimeOnItsChannelStillUsesTheExtensionUp) {
  StreamDecoder decoder = running_at(1000);
  EXPECT_THAT(feed(decoder, d32_extension(2) + d32_event(0, 2) + d32_event(1, 2)), ElementsAre(tag(1, 1002)));
  EXPECT_TRUE(decoder.d32_synced);
  EXPECT_FALSE(decoder.d32_has_time[0]);
}

TEST(Delta32Chain, AnExtensionBeforeASyncWordIsForgotten) {
  StreamDecoder decoder = running_at(0);
  EXPECT_THAT(feed(decoder, d32_extension(2) + d32_base(700) + d32_event(1, 2)), ElementsAre(tag(1, 702)));
}

TEST(Delta32Chain, TheExtensionSumWrapsAt64Bits) {
  StreamDecoder decoder = running_at(10);
  decoder.d32_extension = std::uint64_t{1} << 39;  // times 2^25 is 2^64
  EXPECT_THAT(feed(decoder, d32_event(1, 5)), ElementsAre(tag(1, 15)));
}

TEST(Delta32Chain, TimesWrapAtTheEndOf64Bits) {
  constexpr std::int64_t kLargest = std::numeric_limits<std::int64_t>::max();
  constexpr std::int64_t kSmallest = std::numeric_limits<std::int64_t>::min();
  EXPECT_THAT(after(kLargest, 1), ElementsAre(tag(1, kSmallest)));
  EXPECT_THAT(after(kLargest - 4, 10), ElementsAre(tag(1, kSmallest + 5)));
}

TEST(Delta32ChainWrap, ADeltaUpToTheWrapStepStays) {
  EXPECT_THAT(after(1'000'000, 1'078'036'791'295), ElementsAre(tag(1, 1'078'037'791'295)));  // W - 1
  EXPECT_THAT(after(1'000'000, 1'078'036'791'296), ElementsAre(tag(1, 1'078'037'791'296)));  // W
}

TEST(Delta32ChainWrap, ADeltaOfWAnd5000PsCountsAs5000Ps) {
  EXPECT_THAT(after(1'000'000, 1'078'036'796'296), ElementsAre(tag(1, 1'005'000)));
  // The same again as bytes: 32128 units, then 5000 ps.
  StreamDecoder decoder = running_at(1'000'000);
  const Bytes words = bytes({0x8A, 0x00, 0x7D, 0x80, 0x34, 0x00, 0x13, 0x88});
  EXPECT_THAT(feed(decoder, words), ElementsAre(tag(1, 1'005'000)));
}

TEST(Delta32ChainWrap, ARestOfUpToTenMillisecondsLosesTheWrapStep) {
  EXPECT_THAT(after(0, 1'078'036'791'297), ElementsAre(tag(1, 1)));                  // W + 1
  EXPECT_THAT(after(0, 1'088'036'791'295), ElementsAre(tag(1, 9'999'999'999)));      // W + 10^10 - 1
  EXPECT_THAT(after(0, 1'088'036'791'296), ElementsAre(tag(1, 10'000'000'000)));     // W + 10^10
  EXPECT_THAT(after(0, 1'088'036'791'297), ElementsAre(tag(1, 1'088'036'791'297)));  // W + 10^10 + 1
}

TEST(Delta32ChainWrap, ALargerRestLosesItOnlyWhenItReachesTheDevicePeriod) {
  // 20 ms before the wrap: a delta of W + 20 ms just reaches it.
  EXPECT_THAT(after(14'295'125'997'568, 1'098'036'791'295), ElementsAre(tag(1, 15'393'162'788'863)));
  EXPECT_THAT(after(14'295'125'997'568, 1'098'036'791'296), ElementsAre(tag(1, 14'315'125'997'568)));
  EXPECT_THAT(after(14'295'125'997'568, 1'098'036'791'297), ElementsAre(tag(1, 14'315'125'997'569)));
}

TEST(Delta32ChainWrap, CountsTheDevicePeriodFromItsLastWrap) {
  // 20 ms before the third wrap.
  EXPECT_THAT(after(42'925'377'992'704, 1'098'036'791'295), ElementsAre(tag(1, 44'023'414'783'999)));
  EXPECT_THAT(after(42'925'377'992'704, 1'098'036'791'296), ElementsAre(tag(1, 42'945'377'992'704)));
  // At the wrap itself a whole period is missing.
  EXPECT_THAT(after(14'315'125'997'568, 1'098'036'791'296), ElementsAre(tag(1, 15'413'162'788'864)));
}

TEST(Delta32ChainWrap, ARestOfAWholePeriodReachesItFromAnywhere) {
  EXPECT_THAT(after(0, 15'393'162'788'863), ElementsAre(tag(1, 15'393'162'788'863)));  // W + P - 1
  EXPECT_THAT(after(0, 15'393'162'788'864), ElementsAre(tag(1, 14'315'125'997'568)));  // W + P
}

TEST(Delta32ChainWrap, TakesANegativeTimeAsTheStartOfAPeriod) {
  EXPECT_THAT(after(-100, 1'078'036'791'301), ElementsAre(tag(1, -95)));                             // W + 5
  EXPECT_THAT(after(-1, 15'393'162'788'863), ElementsAre(tag(1, 15'393'162'788'862)));               // W + P - 1
  EXPECT_THAT(after(-1, 15'393'162'788'864), ElementsAre(tag(1, 14'315'125'997'567)));               // W + P
  EXPECT_THAT(after(-2'000'000'000'000, 1'098'036'791'296), ElementsAre(tag(1, -901'963'208'704)));  // no crossing
}

TEST(Delta32ChainWrap, EveryDeltaChainsOnTheTimeWithoutTheStep) {
  StreamDecoder decoder = running_at(0);
  const Bytes payload = d32_gap(1, 1'078'036'796'296) + d32_gap(1, 5) + d32_gap(1, 1'078'036'796'296);
  EXPECT_THAT(feed(decoder, payload), ElementsAre(tag(1, 5000), tag(1, 5005), tag(1, 10'005)));
}

}  // namespace
