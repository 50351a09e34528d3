#include "orvo/timing/packed_delta_encoder.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "support/encoded.hpp"
#include "support/failure.hpp"
#include "support/packed_payload.hpp"

namespace {

using namespace orvo::test;
using orvo::timing::EncoderSettings;
using orvo::timing::TagEncoder;
using testing::HasSubstr;
constexpr auto kInternal = orvo::timing::StreamMode::internal;
constexpr auto kExternal = orvo::timing::StreamMode::external;

constexpr std::int64_t kPeriodPs = 14'315'125'997'568;  // 3333 * 2^32
constexpr std::int64_t kLapPs = 2'199'023'255'552;      // 2^41
constexpr std::int64_t kSecondPs = 1'000'000'000'000;

/// A stream that has begun: at least 65 bytes of overflow records of 0.
PackedWriter begun(unsigned delta_bits, unsigned start_bit = 0, unsigned channel = 0) {
  PackedWriter bits(delta_bits);
  bits.ones(start_bit);
  while (bits.bit_count() < start_bit + 8 * 65) bits.overflow(channel, 0);
  return bits;
}

/// The bytes, the last one filled up with the start of a sync start on `channel`.
Bytes filled(PackedWriter bits, unsigned channel = 0) {
  const unsigned sync_start = channel << 5 | 0b11111;  // of 4 payload bits; more are as good
  for (unsigned shift = 7; bits.bit_count() % 8 != 0;) bits.bits(sync_start >> --shift & 1, 1);
  return bits.bytes();
}

TEST(PackedDeltaEncoder, StartsEveryChannelWithAnAnchor) {
  PackedWriter expected = begun(16);
  expected.anchor(1, 1'000).anchor(2, 1'001).data(1, 5).data(2, 65'535);
  EXPECT_EQ(encoded(packed_header({.quantum_ps = 8}), {tag(1, 8'000), tag(2, 8'008), tag(1, 8'040), tag(2, 532'288)}),
            filled(expected));
}

TEST(PackedDeltaEncoder, StartsAtTheBitAskedForOnAnActiveChannel) {
  EXPECT_EQ(
      encoded(packed_header({.delta_bits = 13, .channel_mask = 0b1100}), {tag(3, 77), tag(2, 80)}, {.start_bit = 5}),
      filled(begun(13, 5, 2).anchor(3, 77).anchor(2, 80), 2));
}

TEST(PackedDeltaEncoder, WritesLongGapsWithOverflowRecords) {
  PackedWriter expected = begun(8);
  expected.anchor(0, 0).gap(0, 256).gap(0, 254 * 256 + 3).gap(0, 255 * 256 + 3).gap(0, 7 * 254 * 256 + 255);
  const std::int64_t gaps[] = {256, 254 * 256 + 3, 255 * 256 + 3, 7 * 254 * 256 + 255};
  Tags tags{tag(0, 0)};
  for (const std::int64_t gap : gaps) tags.push_back(tag(0, tags.back().time_ps + gap));
  EXPECT_EQ(encoded(packed_header({.delta_bits = 8, .channel_mask = 1}), tags), filled(expected));
}

// With 8 bits an anchor takes 8 records: 7 overflow records are cheaper or equal, 8 are not.
TEST(PackedDeltaEncoder, PrefersAnAnchorToManyOverflowRecords) {
  const std::int64_t gap = (7 * 254 + 1) * 256;
  EXPECT_EQ(encoded(packed_header({.delta_bits = 8, .channel_mask = 1}), {tag(0, 0), tag(0, gap), tag(0, gap + 1)}),
            filled(begun(8).anchor(0, 0).anchor(0, static_cast<std::uint64_t>(gap)).data(0, 1)));
}

TEST(PackedDeltaEncoder, RepeatsTheAnchorAsOftenAsAsked) {
  EXPECT_EQ(encoded(packed_header({.delta_bits = 20}), {tag(0, 10), tag(0, 20), tag(1, 25), tag(0, 40), tag(0, 50)},
                    {.anchor_every = 2}),
            filled(begun(20).anchor(0, 10).data(0, 10).anchor(1, 25).anchor(0, 40).data(0, 10)));
}

// An anchor at the last time costs decoders their lock.
TEST(PackedDeltaEncoder, PutsOffAnAnchorThatIsDueAtATimeThatWas) {
  EXPECT_EQ(encoded(packed_header({.channel_mask = 1}), {tag(0, 10), tag(0, 10), tag(0, 11)}, {.anchor_every = 1}),
            filled(begun(16).anchor(0, 10).data(0, 0).anchor(0, 11)));
}

// Past the wrap an anchor spells device time, a difference one wrap step too much: 2^44 ps less the device period.
TEST(PackedDeltaEncoder, ReadsOneStepTooLongAcrossTheDevicesWrap) {
  const std::uint64_t step_quanta = ((std::uint64_t{1} << 44) - 14'315'125'997'568) / 8;
  const Tags tags{tag(0, kPeriodPs - 80), tag(0, kPeriodPs + 800)};
  EXPECT_EQ(encoded(packed_header({.delta_bits = 28, .quantum_ps = 8, .channel_mask = 1}), tags),
            filled(begun(28).anchor(0, 1'789'390'749'686).gap(0, 110 + step_quanta)));
  EXPECT_EQ(encoded(packed_header({.delta_bits = 12, .quantum_ps = 8, .channel_mask = 1}), tags),
            filled(begun(12).anchor(0, 1'789'390'749'686).anchor(0, 100)));
}

TEST(PackedDeltaEncoder, DoesNotDependOnTheBlocks) {
  const auto header = packed_header({.delta_bits = 11, .quantum_ps = 4});
  const Tags tags = tags_in_turn(1, 3'000, 0, 1'000'000, 2);
  EXPECT_EQ(encoded(header, tags, {}, 1), encoded(header, tags));
}

TEST(PackedDeltaEncoder, DecodesToTheSameTimesForAnyWidthAndQuantum) {
  for (unsigned delta_bits = 1; delta_bits <= 31; ++delta_bits) {
    for (const unsigned quantum_ps : {1u, 4u, 12u, 32'768u}) {
      const unsigned shift = quantum_ps == 12 ? 2 : quantum_ps == 4 ? 2 : quantum_ps == 1 ? 0 : 15;
      const Tags tags = tags_in_turn(delta_bits, 1'500, kPeriodPs - 1'000'000'000, 4'000'000, shift);
      for (const auto mode : {kInternal, kExternal}) {
        const auto header = packed_header({.delta_bits = delta_bits, .quantum_ps = quantum_ps, .mode = mode});
        EXPECT_EQ(decoded_again(header, tags, {.start_bit = delta_bits % 8}), tags)
            << delta_bits << " bits of " << quantum_ps << " ps";
      }
    }
  }
}

TEST(PackedDeltaEncoder, DecodesToTheSameTimesAcrossManyWrapsAndLongGaps) {
  for (const unsigned shift : {0u, 1u, 2u, 3u, 4u, 10u}) {
    for (const unsigned delta_bits : {16u, 26u, 31u}) {
      for (const std::uint64_t anchor_every : {3u, 1'000'000u}) {
        const Tags tags = tags_in_turn(7, 2'000, kPeriodPs - 1'000'000'000, 240'000'000'000, shift);
        ASSERT_GT(tags.back().time_ps, 5 * kPeriodPs);
        for (const auto mode : {kInternal, kExternal}) {
          const auto header = packed_header({.delta_bits = delta_bits, .quantum_ps = 1u << shift, .mode = mode});
          EXPECT_EQ(decoded_again(header, tags, {.anchor_every = anchor_every}), tags)
              << delta_bits << " bits of 2^" << shift << " ps, an anchor every " << anchor_every;
        }
      }
    }
  }
}

// The anchor's own difference carries what the 41 bits leave open.
TEST(PackedDeltaEncoder, StartsAtTheTimeItselfWhereOverflowRecordsReachIt) {
  PackedWriter expected = begun(24);
  const auto seconds_6 = static_cast<std::uint64_t>(6 * kSecondPs);
  expected.sync(0, seconds_6 % (std::uint64_t{1} << 41)).gap(0, 2 * (std::uint64_t{1} << 41));
  TagEncoder encoder(packed_header({.delta_bits = 24, .channel_mask = 1}));
  EXPECT_EQ(encoded(encoder, {tag(0, 6 * kSecondPs)}), filled(expected));
  EXPECT_EQ(encoder.axis_ps(0), 0);
}

// With 16 bits a lap takes 512 overflow records, with 12 it takes 131 136: too many.
TEST(PackedDeltaEncoder, StartsAtTheReadingOtherwise) {
  for (const auto& [delta_bits, axis_ps] : {std::pair{16u, std::int64_t{0}}, std::pair{12u, -kLapPs}}) {
    TagEncoder encoder(packed_header({.delta_bits = delta_bits, .channel_mask = 3}));
    const Tags tags{tag(0, kLapPs + 5), tag(1, kLapPs + 9), tag(0, kLapPs + 11)};
    Tags again = decoded(packed_header({.delta_bits = delta_bits, .channel_mask = 3}), encoded(encoder, tags));
    for (auto& tag : again) tag.time_ps -= axis_ps;
    EXPECT_EQ(again, tags);
    EXPECT_EQ(encoder.axis_ps(0), axis_ps);
    EXPECT_EQ(encoder.axis_ps(1), axis_ps);
  }
}

std::string refusal(const PackedForm& form, const Tags& tags, const EncoderSettings& settings = {}) {
  return failure_of([&] { encoded(packed_header(form), tags, settings); });
}

TEST(PackedDeltaEncoder, RefusesChannelsThatStartOnALapOutOfReach) {
  const PackedForm form{.delta_bits = 12, .channel_mask = 3};
  EXPECT_EQ(refusal(form, {tag(0, 5), tag(1, kLapPs - 1)}), "nothing thrown");
  EXPECT_THAT(
      refusal(form, {tag(0, 5), tag(1, kLapPs)}),
      HasSubstr("PackedDeltaEncoder: channel 1 at 2199023255552 ps: the channel's first tag lies on another lap"));
  EXPECT_THAT(refusal(form, {tag(0, kLapPs), tag(1, 7)}), HasSubstr("channel 1 at 7 ps: the channel's first tag"));
}

TEST(PackedDeltaEncoder, KeepsTagsThatAreUpToAMicrosecondLate) {
  for (const unsigned delta_bits : {8u, 16u, 27u, 31u}) {
    for (const auto mode : {kInternal, kExternal}) {
      if (delta_bits == 8 && mode == kInternal) continue;
      const PackedForm form{.delta_bits = delta_bits, .channel_mask = 3, .mode = mode};
      const Tags tags{tag(0, 5 * kSecondPs),
                      tag(1, 5 * kSecondPs),
                      tag(0, 5 * kSecondPs - 1),
                      tag(1, 5 * kSecondPs - 7),
                      tag(0, 5 * kSecondPs - 1'000'001),
                      tag(0, 5 * kSecondPs - 1'000'001)};
      EXPECT_EQ(decoded_again(packed_header(form), tags), tags) << delta_bits;
    }
  }
  EXPECT_THAT(refusal({.channel_mask = 1}, {tag(0, 2'000'000), tag(0, 999'999)}),
              HasSubstr("channel 0 at 999999 ps: it is more than 1 us earlier"));
  EXPECT_THAT(refusal({.delta_bits = 8, .channel_mask = 1, .mode = kInternal}, {tag(0, 100), tag(0, 99)}),
              HasSubstr("channel 0 at 99 ps: to step back takes more than 65536 overflow records"));
}

TEST(PackedDeltaEncoder, BridgesSilencesThatReadAsWrapsWithAnAnchor) {
  const std::int64_t step_ps = 1'078'036'791'296;  // from the period up to 7 * 2^41
  for (const std::int64_t gap_ps :
       {step_ps, step_ps + 1, step_ps + 10'000'000'000, step_ps + 10'000'000'001, kLapPs - 1'000'000, kLapPs - 1,
        kLapPs, kLapPs + 1, 2 * kPeriodPs, 100 * kSecondPs}) {
    const Tags tags{tag(0, 77), tag(0, 77 + gap_ps), tag(1, 80), tag(0, 79 + gap_ps)};
    for (const unsigned delta_bits : {16u, 24u, 31u}) {
      const auto header = packed_header({.delta_bits = delta_bits, .channel_mask = 3});
      EXPECT_EQ(decoded_again(header, tags), tags) << gap_ps << ' ' << delta_bits;
      EXPECT_EQ(decoded_again(header, tags, {.anchor_every = 1}), tags) << gap_ps << ' ' << delta_bits;
    }
  }
  EXPECT_THAT(refusal({.delta_bits = 8, .channel_mask = 1}, {tag(0, 0), tag(0, 100 * kSecondPs)}),
              HasSubstr("channel 0 at 100000000000000 ps: the gap takes more than 65536 overflow records"));
}

TEST(PackedDeltaEncoder, RefusesASecondOfSilenceInInternalMode) {
  const PackedForm form{.delta_bits = 31, .channel_mask = 1, .mode = kInternal};
  EXPECT_EQ(refusal(form, {tag(0, 0), tag(0, kSecondPs)}), "nothing thrown");
  EXPECT_THAT(refusal(form, {tag(0, 0), tag(0, kSecondPs + 1)}),
              HasSubstr("channel 0 at 1000000000001 ps: the channel was quiet for more than a second"));
}

TEST(PackedDeltaEncoder, RefusesWhatNoRecordSays) {
  EXPECT_THAT(refusal({.quantum_ps = 8}, {tag(1, 12)}),
              HasSubstr("channel 1 at 12 ps: the time lies between two quanta"));
  EXPECT_THAT(refusal({}, {tag(1, -1)}), HasSubstr("channel 1 at -1 ps: the time lies before the axis"));
  EXPECT_THAT(refusal({.channel_mask = 3}, {tag(2, 1)}),
              HasSubstr("channel 2 at 1 ps: the header's channel mask does"));
  EXPECT_THAT(refusal({}, {tag(200, 1)}), HasSubstr("channel 200 at 1 ps: there are channels 0 to 3"));
  EXPECT_EQ(refusal({.delta_bits = 32}, {}), "PackedDeltaEncoder: delta_bits is 1 to 31 (code -1)");
}

TEST(PackedDeltaEncoder, RoundsToTheNearestQuantumWhenAsked) {
  const auto header = packed_header({.quantum_ps = 24, .channel_mask = 3});
  TagEncoder encoder(header, {.round = true});
  const Tags again = decoded(header, encoded(encoder, {tag(0, 16), tag(1, 19), tag(0, 20), tag(1, 31), tag(0, 40)}));
  EXPECT_EQ(again, (Tags{tag(0, 16), tag(1, 16), tag(0, 24), tag(1, 32), tag(0, 40)}));
  EXPECT_EQ(encoder.rounding().tags, 3u);
  EXPECT_EQ(encoder.rounding().largest_ps, 4);
}

TEST(PackedDeltaEncoder, RefusesCapturesThatDecodersWouldNotAlign) {
  constexpr const char* kWouldNotAlign = "decoders would not align this capture's first records";
  EXPECT_THAT(refusal({.channel_mask = 3}, {tag(0, 1), tag(0, 2)}), HasSubstr(kWouldNotAlign)) << "one of two";
  EXPECT_EQ(refusal({.channel_mask = 1}, {tag(0, 1), tag(0, 2)}), "nothing thrown");
  EXPECT_EQ(refusal({.channel_mask = 7}, {tag(0, 1), tag(1, 2)}), "nothing thrown");
  EXPECT_THAT(refusal({.channel_mask = 7, .mode = kInternal}, {tag(0, 1), tag(1, 2)}), HasSubstr(kWouldNotAlign));
  EXPECT_THAT(refusal({.channel_mask = 3, .mode = kInternal}, {tag(0, 1), tag(1, 2), tag(0, 3), tag(0, 4)}),
              HasSubstr(kWouldNotAlign))
      << "three to one";
  EXPECT_EQ(refusal({.channel_mask = 3}, {}), "nothing thrown") << "there is nothing to find";

  Tags late_channel;  // of 19 bits each
  for (int i = 0; i < 30'000; ++i) late_channel.push_back(tag(0, i));
  late_channel.push_back(tag(1, 30'000));
  EXPECT_THAT(refusal({.channel_mask = 3}, late_channel), HasSubstr(kWouldNotAlign)) << "not within 64 KiB";
}

// 2 MiB hold 883 011 records of 19 bits. 28 of them are the lead-in and 8 belong to the two anchors.
TEST(PackedDeltaEncoder, RefusesInternalReadsThatDecodersWouldDiscard) {
  const PackedForm form{.channel_mask = 3, .mode = kInternal};
  const auto uneven_from = [](int even, int uneven, int ratio) {
    Tags tags;
    for (int i = 0; i < even + uneven; ++i) {
      const bool second = i < even ? i % 2 == 1 : i % (ratio + 1) == 0;
      tags.push_back(tag(second ? 1 : 0, i));
    }
    return tags;
  };
  EXPECT_EQ(refusal(form, uneven_from(60'000, 400'000, 8)), "nothing thrown");
  EXPECT_THAT(refusal(form, uneven_from(200'000, 800'000, 1000), {.anchor_every = 1'000'000}),
              HasSubstr("channel 1 at 882975 ps: decoders of internal mode would discard the last 1 MiB"));
  EXPECT_EQ(refusal({.channel_mask = 3}, uneven_from(200'000, 800'000, 1000)), "nothing thrown") << "external";
  const Tags kept = uneven_from(60'000, 400'000, 8);
  EXPECT_EQ(decoded_again(packed_header(form), kept), kept);
}

}  // namespace
