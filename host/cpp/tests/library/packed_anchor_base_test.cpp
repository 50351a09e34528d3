// packed_delta anchors: the base that a sync sequence gives, placed near the time of its channel.
//
//   quantum    modulus of a base               wrap step
//   1 ps       2^41 = 2'199'023'255'552        1'078'036'791'296
//   2 ps       2^42 = 4'398'046'511'104        3'277'060'046'848
//   4 ps       2^43 = 8'796'093'022'208        3'277'060'046'848
//   8 ps up    P    = 14'315'125'997'568       none: the base wraps with the device
#include <gtest/gtest.h>

#include <cstdint>

#include "orvo/timing/stream_decoder.hpp"
#include "support/checked_feeding.hpp"
#include "support/packed_payload.hpp"

namespace {

using namespace orvo::test;
using orvo::timing::StreamDecoder;

/// The base that a sync sequence of `quanta` on channel 2 leaves for its anchor.
std::uint64_t base_in(StreamDecoder decoder, std::uint64_t quanta) {
  EXPECT_TRUE(feed(decoder, PackedWriter(16).sync(2, quanta).bytes()).empty());
  EXPECT_EQ(decoder.pk_anchor_channel, 2);
  return decoder.pk_anchor_base;
}

std::uint64_t first_base(unsigned quantum_ps, std::uint64_t quanta) {
  return base_in(locked_decoder({.quantum_ps = quantum_ps}), quanta);
}

std::uint64_t base_near(std::int64_t last_ps, unsigned quantum_ps, std::uint64_t quanta) {
  return base_in(running_decoder({.quantum_ps = quantum_ps}, 2, last_ps), quanta);
}

TEST(PackedAnchorBase, WithoutAReferenceIsTheValueInQuanta) {
  EXPECT_EQ(first_base(1, 1000), 1000u);
  EXPECT_EQ(first_base(2, 1000), 2000u);
  EXPECT_EQ(first_base(12, 1000), 4000u);
  EXPECT_EQ(first_base(8, 1000), 8000u);
  EXPECT_EQ(first_base(0x8000, 1000), 32'768'000u);
}

TEST(PackedAnchorBase, BelowEightPicosecondsAllOf41BitsFit) {
  EXPECT_EQ(first_base(1, 0x1FF'FFFF'FFFF), 2'199'023'255'551u);
  EXPECT_EQ(first_base(2, 0x1FF'FFFF'FFFF), 4'398'046'511'102u);
  EXPECT_EQ(first_base(4, 0x1FF'FFFF'FFFF), 8'796'093'022'204u);
}

TEST(PackedAnchorBase, FromEightPicosecondsIsFoldedIntoOneDevicePeriod) {
  EXPECT_EQ(first_base(8, 0x1A0'A000'0000 - 1), 14'315'125'997'560u);  // one quantum below P
  EXPECT_EQ(first_base(8, 0x1A0'A000'0000), 0u);
  EXPECT_EQ(first_base(8, 0x1A0'A000'0001), 8u);
  EXPECT_EQ(first_base(8, 0x1FF'FFFF'FFFF), 3'277'060'046'840u);
  EXPECT_EQ(first_base(16, 0x1FF'FFFF'FFFF), 6'554'120'093'680u);
  EXPECT_EQ(first_base(0x8000, 0x1FF'FFFF'FFFF), 9'564'892'135'424u);
}

TEST(PackedAnchorBase, CountsOnlyTheLow41Bits) {
  EXPECT_EQ(first_base(1, 0xFE00'0000'0007), 7u);
  EXPECT_EQ(first_base(8, 0xFFFF'FFFF'FFFF), 3'277'060'046'840u);
}

TEST(PackedAnchorBase, RefersToTheChannelsTimeElseToItsLastTag) {
  StreamDecoder decoder = locked_decoder({});
  decoder.pk_emitted_time[2] = 10'995'116'278'760;  // 5 * 2^41 + 1000
  decoder.pk_last_time[2] = 2'199'023'255'652;      // 2^41 + 100
  EXPECT_EQ(base_in(decoder, 2000), 2000u);
  decoder.pk_has_emitted[2] = true;
  EXPECT_EQ(base_in(decoder, 2000), 10'995'116'279'760u);
  decoder.pk_has_time[2] = true;
  EXPECT_EQ(base_in(decoder, 2000), 2'199'023'257'552u);
}

TEST(PackedAnchorBase, OtherChannelsAreNoReference) {
  EXPECT_EQ(base_in(running_decoder({}, 1, 10'995'116'278'760), 2000), 2000u);
}

TEST(PackedAnchorBase, ANegativeReferenceIsZero) {
  EXPECT_EQ(base_near(-2'199'023'255'552, 1, 2000), 2000u);
  StreamDecoder decoder = locked_decoder({});
  decoder.pk_emitted_time[2] = -7;
  decoder.pk_has_emitted[2] = true;
  EXPECT_EQ(base_in(decoder, 0x1FF'FFFF'FFFF), 2'199'023'255'551u);
  EXPECT_EQ(base_near(-7, 1, 1'078'036'791'297), 1u);  // wrap step and 1 ps
}

TEST(PackedAnchorBase, GoesOneModulusUpWhenMoreThanHalfOfItBehind) {
  EXPECT_EQ(base_near(12'094'627'905'536, 1, 0), 10'995'116'277'760u);  // 5 * 2^41, exactly half before it
  EXPECT_EQ(base_near(12'094'627'905'537, 1, 0), 13'194'139'533'312u);  // 6 * 2^41
  EXPECT_EQ(base_near(15'393'162'788'864, 2, 0), 13'194'139'533'312u);  // 3 * 2^42
  EXPECT_EQ(base_near(15'393'162'788'865, 2, 0), 17'592'186'044'416u);  // 4 * 2^42
  EXPECT_EQ(base_near(21'990'232'555'520, 4, 0), 17'592'186'044'416u);  // 2 * 2^43
  EXPECT_EQ(base_near(21'990'232'555'521, 4, 0), 26'388'279'066'624u);  // 3 * 2^43
}

TEST(PackedAnchorBase, FromEightPicosecondsGoesOneDevicePeriodUp) {
  EXPECT_EQ(base_near(50'102'940'991'488, 8, 0), 42'945'377'992'704u);  // 3 P and half a period
  EXPECT_EQ(base_near(50'102'940'991'489, 8, 0), 57'260'503'990'272u);  // 4 P
  EXPECT_EQ(base_near(50'102'940'991'489, 0x8000, 0), 57'260'503'990'272u);
  EXPECT_EQ(base_near(14'315'125'997'567, 8, 1), 14'315'125'997'576u);  // the device wrapped just now
}

TEST(PackedAnchorBase, AGapOfTheWrapStepItselfStays) {
  EXPECT_EQ(base_near(1'000'000, 1, 1'078'037'791'296), 1'078'037'791'296u);
  EXPECT_EQ(base_near(1'000'000, 2, 1'638'530'523'424), 3'277'061'046'848u);
  EXPECT_EQ(base_near(1'000'000, 4, 819'265'261'712), 3'277'061'046'848u);
}

TEST(PackedAnchorBase, AGapBeyondTheWrapStepByUpToTenMillisecondsLosesIt) {
  EXPECT_EQ(base_near(1'000'000, 1, 1'078'037'791'297), 1'000'001u);
  EXPECT_EQ(base_near(1'000'000, 1, 1'088'037'791'296), 10'001'000'000u);
  EXPECT_EQ(base_near(1'000'000, 1, 1'088'037'791'297), 1'088'037'791'297u);
  EXPECT_EQ(base_near(1'000'000, 2, 1'638'530'523'425), 1'000'002u);
  EXPECT_EQ(base_near(1'000'000, 2, 1'643'530'523'424), 10'001'000'000u);
  EXPECT_EQ(base_near(1'000'000, 2, 1'643'530'523'425), 3'287'061'046'850u);
  EXPECT_EQ(base_near(1'000'000, 4, 819'265'261'713), 1'000'004u);
  EXPECT_EQ(base_near(1'000'000, 4, 821'765'261'712), 10'001'000'000u);
  EXPECT_EQ(base_near(1'000'000, 4, 821'765'261'713), 3'287'061'046'852u);
}

TEST(PackedAnchorBase, FromEightPicosecondsAGapLosesNothing) {
  EXPECT_EQ(base_near(1'000'000, 8, 409'632'630'857), 3'277'061'046'856u);
  EXPECT_EQ(base_near(0, 8, 409'632'505'857), 3'277'060'046'856u);
}

TEST(PackedAnchorBase, ALargerGapThatReachesTheDevicePeriodLosesTheWrapStep) {
  // 20 ms before the wrap; base 0 is 7 * 2^41, or 2 * 2^43 there.
  EXPECT_EQ(base_near(14'295'125'997'568, 1, 0x1FF'FFFF'FFFF), 15'393'162'788'863u);
  EXPECT_EQ(base_near(14'295'125'997'568, 1, 0), 14'315'125'997'568u);
  EXPECT_EQ(base_near(14'295'125'997'568, 1, 1), 14'315'125'997'569u);
  EXPECT_EQ(base_near(14'295'125'997'568, 4, 0x1FF'FFFF'FFFF), 17'592'186'044'412u);
  EXPECT_EQ(base_near(14'295'125'997'568, 4, 0), 14'315'125'997'568u);
  // 13 * 2^42 is 85'899'345'920 ps before the fourth wrap.
  EXPECT_EQ(base_near(57'174'604'644'352, 2, 1'681'479'696'383), 60'537'564'037'118u);
  EXPECT_EQ(base_near(57'174'604'644'352, 2, 1'681'479'696'384), 57'260'503'990'272u);
}

TEST(PackedAnchorBase, CountsTheDevicePeriodFromItsLastWrap) {
  // 20 ms before the third wrap.
  EXPECT_EQ(base_near(42'925'377'992'704, 1, 42'949'672'959), 44'023'414'783'999u);
  EXPECT_EQ(base_near(42'925'377'992'704, 1, 42'949'672'960), 42'945'377'992'704u);
}

TEST(PackedAnchorBase, ReplacesTheBaseOfAnAnchorThatNeverCame) {
  StreamDecoder decoder = running_decoder({}, 2, 500);
  feed(decoder, PackedWriter(16).sync(2, 1000).sync(2, 7000).bytes());
  EXPECT_EQ(decoder.pk_anchor_base, 7000u);
  EXPECT_EQ(decoder.pk_last_time[2], 500);
}

}  // namespace
