// packed_delta differences: small backward steps, the wrap of the device time inside a difference, and its bounds.
//
// A difference of the device counts modulo M = 2^41 quanta (of a power of two ps). Where the device time wraps at
// P = 14'315'125'997'568 ps, it reads too long by the step from P to the next multiple of M.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

#include "orvo/timing/stream_decoder.hpp"
#include "support/checked_feeding.hpp"
#include "support/packed_payload.hpp"

namespace {

using namespace orvo::test;
using orvo::timing::StreamDecoder;
using orvo::timing::StreamMode;
using testing::ElementsAre;
using testing::IsEmpty;

struct Quanta {
  unsigned quantum_ps;
  std::uint64_t modulus;      // 2^41
  std::uint64_t wrap_step;    // (ceil(P / M) * M - P) / quantum
  std::uint64_t microsecond;  // whole quanta in 1'000'000 ps
};

constexpr std::uint64_t kModulus = 2'199'023'255'552;
constexpr Quanta kQuanta[] = {
    {1, kModulus, 1'078'036'791'296, 1'000'000}, {2, kModulus, 1'638'530'023'424, 500'000},
    {4, kModulus, 819'265'011'712, 250'000},     {8, kModulus, 409'632'505'856, 125'000},
    {16, kModulus, 1'304'327'880'704, 62'500},   {32, kModulus, 1'751'675'568'128, 31'250},
    {64, kModulus, 1'975'349'411'840, 15'625},   {128, kModulus, 2'087'186'333'696, 7'812},
    {256, kModulus, 2'143'104'794'624, 3'906},   {512, kModulus, 2'171'064'025'088, 1'953},
    {1024, kModulus, 2'185'043'640'320, 976},    {2048, kModulus, 2'192'033'447'936, 488},
    {4096, kModulus, 2'195'528'351'744, 244},    {8192, kModulus, 2'197'275'803'648, 122},
    {16384, kModulus, 2'198'149'529'600, 61},    {32768, kModulus, 2'198'586'392'576, 30},
};

/// The tags of one difference on channel 1, `quanta` after `last_ps`: at the end of a chunk and further inside it.
Tags after(const PackedSetup& setup, std::int64_t last_ps, std::uint64_t quanta) {
  StreamDecoder decoder = running_decoder(setup, 1, last_ps);
  PackedWriter payload(setup.delta_bits);
  const Tags tags = feed(decoder, payload.gap(1, quanta).bytes());
  StreamDecoder inside = running_decoder(setup, 1, last_ps);
  EXPECT_EQ(feed(inside, payload.tail(1).bytes()), tags);
  return tags;
}

Tags external_after(unsigned quantum_ps, std::int64_t last_ps, std::uint64_t quanta) {
  return after({.delta_bits = 31, .quantum_ps = quantum_ps}, last_ps, quanta);
}

Tags internal_after(unsigned quantum_ps, std::int64_t last_ps, std::uint64_t quanta) {
  return after({.mode = StreamMode::internal, .delta_bits = 31, .quantum_ps = quantum_ps}, last_ps, quanta);
}

TEST(PackedBackwardStep, IsADifferenceOfUpToAMicrosecondBelowTheModulus) {
  for (const Quanta& q : kQuanta) {
    const auto microsecond = static_cast<std::int64_t>(q.microsecond * q.quantum_ps);
    const auto quantum = static_cast<std::int64_t>(q.quantum_ps);
    for (const StreamMode mode : {StreamMode::internal, StreamMode::external}) {
      const PackedSetup setup{.mode = mode, .delta_bits = 31, .quantum_ps = q.quantum_ps};
      EXPECT_THAT(after(setup, 5'000'000, q.modulus), ElementsAre(tag(1, 5'000'000))) << quantum;
      EXPECT_THAT(after(setup, 5'000'000, q.modulus - 1), ElementsAre(tag(1, 5'000'000 - quantum))) << quantum;
      EXPECT_THAT(after(setup, 5'000'000, q.modulus - q.microsecond), ElementsAre(tag(1, 5'000'000 - microsecond)))
          << quantum;
    }
  }
}

TEST(PackedBackwardStep, OfMoreThanAMicrosecondIsAForwardDifference) {
  EXPECT_THAT(external_after(1, 0, 2'199'022'255'551), ElementsAre(tag(1, 2'199'022'255'551)));  // 2^41 - 1'000'001
  EXPECT_THAT(internal_after(1, 0, 2'199'022'255'551), IsEmpty());
  EXPECT_THAT(external_after(2, 0, 2'199'022'755'551), ElementsAre(tag(1, 4'398'045'511'102)));
  EXPECT_THAT(external_after(4, 0, 2'199'023'005'551), ElementsAre(tag(1, 8'796'092'022'204)));
}

TEST(PackedBackwardStep, BeyondTheModulusIsAForwardDifference) {
  EXPECT_THAT(external_after(1, 0, 2'199'023'255'553), ElementsAre(tag(1, 2'199'023'255'553)));
  EXPECT_THAT(internal_after(1, 0, 2'199'023'255'553), IsEmpty());
  // With quanta of 8 ps and more, what is left of the wrap step is a whole device period, which the difference keeps.
  EXPECT_THAT(external_after(8, 0, 2'199'023'255'553), ElementsAre(tag(1, 14'315'125'997'576)));
}

TEST(PackedBackwardStep, MayGoBelowZero) {
  EXPECT_THAT(internal_after(1, 100, 2'199'022'255'552), ElementsAre(tag(1, -999'900)));
  EXPECT_THAT(internal_after(1, -999'900, 7), ElementsAre(tag(1, -999'893)));
  EXPECT_THAT(internal_after(1, -999'900, 2'199'023'255'545), ElementsAre(tag(1, -999'907)));
}

TEST(PackedWrapStep, AloneStaysInExternalMode) {
  for (const Quanta& q : kQuanta) {
    const auto step = static_cast<std::int64_t>(q.wrap_step * q.quantum_ps);
    EXPECT_THAT(external_after(q.quantum_ps, 0, q.wrap_step), ElementsAre(tag(1, step))) << q.quantum_ps;
  }
}

TEST(PackedWrapStep, GoesFromDifferencesJustBeyondItInBothModes) {
  for (const Quanta& q : kQuanta) {
    const auto quantum = static_cast<std::int64_t>(q.quantum_ps);
    EXPECT_THAT(external_after(q.quantum_ps, 500, q.wrap_step + 1), ElementsAre(tag(1, 500 + quantum))) << quantum;
    EXPECT_THAT(internal_after(q.quantum_ps, 500, q.wrap_step + 1), ElementsAre(tag(1, 500 + quantum))) << quantum;
    EXPECT_THAT(internal_after(q.quantum_ps, 500, q.wrap_step), IsEmpty()) << quantum;
  }
}

TEST(PackedWrapStep, GoesWhileTheRestIsAtMostTenMilliseconds) {
  EXPECT_THAT(external_after(1, 7, 1'088'036'791'296), ElementsAre(tag(1, 10'000'000'007)));
  EXPECT_THAT(external_after(1, 7, 1'088'036'791'297), ElementsAre(tag(1, 1'088'036'791'304)));
  EXPECT_THAT(internal_after(1, 7, 1'088'036'791'296), ElementsAre(tag(1, 10'000'000'007)));
  EXPECT_THAT(internal_after(1, 7, 1'088'036'791'297), IsEmpty());
  EXPECT_THAT(external_after(8, 7, 410'882'505'856), ElementsAre(tag(1, 10'000'000'007)));
  EXPECT_THAT(external_after(8, 7, 410'882'505'857), ElementsAre(tag(1, 3'287'060'046'863)));
}

TEST(PackedWrapStep, GoesFromALargerRestThatReachesTheDevicePeriod) {
  // 20 ms before the wrap.
  EXPECT_THAT(external_after(1, 14'295'125'997'568, 1'098'036'791'295), ElementsAre(tag(1, 15'393'162'788'863)));
  EXPECT_THAT(external_after(1, 14'295'125'997'568, 1'098'036'791'296), ElementsAre(tag(1, 14'315'125'997'568)));
  EXPECT_THAT(internal_after(1, 14'295'125'997'568, 1'098'036'791'296), ElementsAre(tag(1, 14'315'125'997'568)));
  EXPECT_THAT(internal_after(1, 14'295'125'997'568, 1'098'036'791'295), IsEmpty());
  EXPECT_THAT(external_after(8, 14'295'125'997'568, 412'132'505'855), ElementsAre(tag(1, 17'592'186'044'408)));
  EXPECT_THAT(external_after(8, 14'295'125'997'568, 412'132'505'856), ElementsAre(tag(1, 14'315'125'997'568)));
}

TEST(PackedWrapStep, CountsTheDevicePeriodFromItsLastWrap) {
  EXPECT_THAT(external_after(1, 42'925'377'992'704, 1'098'036'791'295), ElementsAre(tag(1, 44'023'414'783'999)));
  EXPECT_THAT(external_after(1, 42'925'377'992'704, 1'098'036'791'296), ElementsAre(tag(1, 42'945'377'992'704)));
}

TEST(PackedWrapStep, TakesANegativeTimeAsTheStartOfAPeriod) {
  EXPECT_THAT(external_after(1, -1, 15'393'162'788'863), ElementsAre(tag(1, 15'393'162'788'862)));  // step + P - 1
  EXPECT_THAT(external_after(1, -1, 15'393'162'788'864), ElementsAre(tag(1, 14'315'125'997'567)));  // step + P
}

TEST(PackedWrapStep, ASequenceOfDifferencesChainsWithoutIt) {
  StreamDecoder decoder = running_decoder({.delta_bits = 31}, 1, 0);
  const Bytes payload = PackedWriter(31).gap(1, 1'078'036'796'296).data(1, 5).gap(1, 2'199'023'255'550).bytes();
  EXPECT_THAT(feed(decoder, payload), ElementsAre(tag(1, 5000), tag(1, 5005), tag(1, 5003)));
}

TEST(PackedDifference, OfMoreThanASecondDropsTheLockInInternalModeOnly) {
  EXPECT_THAT(internal_after(1, 3, 999'999'999'999), ElementsAre(tag(1, 1'000'000'000'002)));
  EXPECT_THAT(internal_after(1, 3, 1'000'000'000'000), ElementsAre(tag(1, 1'000'000'000'003)));
  EXPECT_THAT(internal_after(1, 3, 1'000'000'000'001), IsEmpty());
  EXPECT_THAT(external_after(1, 3, 1'000'000'000'001), ElementsAre(tag(1, 1'000'000'000'004)));
  EXPECT_THAT(internal_after(8, 3, 125'000'000'000), ElementsAre(tag(1, 1'000'000'000'003)));
  EXPECT_THAT(internal_after(8, 3, 125'000'000'001), IsEmpty());
}

TEST(PackedDifference, IsJudgedWithoutTheWrapStepThatWentFromIt) {
  // A second before the wrap; the rest that reaches it is that second, or 1 ps more.
  constexpr std::int64_t kSecondBefore = 13'315'125'997'568;
  EXPECT_THAT(internal_after(1, kSecondBefore, 2'078'036'791'296), ElementsAre(tag(1, 14'315'125'997'568)));
  EXPECT_THAT(internal_after(1, kSecondBefore, 2'078'036'791'297), IsEmpty());
  EXPECT_THAT(external_after(1, kSecondBefore, 2'078'036'791'297), ElementsAre(tag(1, 14'315'125'997'569)));
}

TEST(PackedDifference, LastDeltaIsTheDifferenceAsAccepted) {
  StreamDecoder decoder = running_decoder({.delta_bits = 31}, 1, 14'295'125'997'568);
  feed(decoder, PackedWriter(31).gap(1, 1'098'036'791'297).bytes());
  EXPECT_EQ(decoder.pk_last_delta[1], 20'000'000'001u);
}

TEST(PackedDifference, TimesWrapAtTheEndOf64Bits) {
  constexpr std::int64_t kLargest = std::numeric_limits<std::int64_t>::max();
  constexpr std::int64_t kSmallest = std::numeric_limits<std::int64_t>::min();
  EXPECT_THAT(external_after(1, kLargest, 1), ElementsAre(tag(1, kSmallest)));
  EXPECT_THAT(internal_after(1, kLargest - 4, 10), ElementsAre(tag(1, kSmallest + 5)));
  EXPECT_THAT(internal_after(1, kSmallest, 2'199'023'255'551), ElementsAre(tag(1, kLargest)));  // 1 ps back
}

}  // namespace
