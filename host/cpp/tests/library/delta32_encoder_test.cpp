#include "orvo/timing/delta32_encoder.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "support/delta32_payload.hpp"
#include "support/encoded.hpp"
#include "support/failure.hpp"

namespace {

using namespace orvo::test;
using orvo::timing::TagEncoder;
using testing::HasSubstr;

constexpr std::int64_t kPeriodPs = 14'315'125'997'568;   // 3333 * 2^32
constexpr std::int64_t kLapPs = 2'199'023'255'552;       // 2^41
constexpr std::int64_t kWrapStepPs = 1'078'036'791'296;  // from the period up to 7 * 2^41
constexpr std::uint64_t kWrapStep = 1'078'036'791'296;
constexpr std::int64_t kSmallRestPs = 10'000'000'000;

TEST(Delta32Encoder, StartsEveryChannelWithABase) {
  EXPECT_EQ(
      encoded(delta32_header(), {tag(1, 123'456'789'012), tag(3, 123'456'789'112), tag(1, 123'456'790'000)}),
      d32_base(123'456'789'012) + d32_event(1, 0) + d32_base(123'456'789'112) + d32_event(3, 0) + d32_event(1, 988));
}

TEST(Delta32Encoder, WritesLongGapsWithAnExtension) {
  EXPECT_EQ(encoded(delta32_header(), {tag(0, 0), tag(0, 33'554'431), tag(0, 67'108'863), tag(0, 1'000'067'108'863)}),
            d32_base(0) + d32_event(0, 0) + d32_event(0, 33'554'431) + d32_extension(1) + d32_event(0, 0) +
                d32_extension(29'802) + d32_event(0, 10'817'536));
}

TEST(Delta32Encoder, WritesHoursWithSeveralExtensions) {
  const std::int64_t hour_ps = 3'600'000'000'000'000;
  const Tags tags{tag(0, 0), tag(0, hour_ps), tag(1, 5), tag(0, hour_ps + 7), tag(0, 40 * hour_ps)};
  EXPECT_EQ(encoded(delta32_header(), {tags[0], tags[1]}),
            d32_base(0) + d32_event(0, 0) + d32_gap(0, 3'600'000'000'000'000 + kWrapStep));
  EXPECT_EQ(decoded_again(delta32_header(), tags), tags);
}

TEST(Delta32Encoder, RepeatsTheBaseAsOftenAsAsked) {
  const Bytes base_40 = d32_base(40) + d32_event(0, 0);
  EXPECT_EQ(
      encoded(delta32_header(), {tag(0, 10), tag(0, 20), tag(1, 25), tag(0, 40), tag(0, 50)}, {.anchor_every = 2}),
      d32_base(10) + d32_event(0, 0) + d32_event(0, 10) + d32_base(25) + d32_event(1, 0) + base_40 +
          d32_event(0, 10));
}

// An event on a base that is no later than the last one costs decoders their framing.
TEST(Delta32Encoder, PutsOffABaseThatIsDueAtATimeThatWas) {
  EXPECT_EQ(encoded(delta32_header(), {tag(0, 10), tag(0, 10), tag(0, 10), tag(0, 11)}, {.anchor_every = 1}),
            d32_base(10) + d32_event(0, 0) + d32_event(0, 0) + d32_event(0, 0) + d32_base(11) + d32_event(0, 0));
}

TEST(Delta32Encoder, TruncatesBasesTo41Bits) {
  TagEncoder encoder(delta32_header());
  EXPECT_EQ(encoded(encoder, {tag(0, kLapPs + 7), tag(1, kLapPs + 9)}),
            d32_base(7) + d32_event(0, 0) + d32_base(9) + d32_event(1, 0));
  EXPECT_EQ(encoder.axis_ps(0), -kLapPs);
  EXPECT_EQ(encoder.axis_ps(1), -kLapPs);
  EXPECT_EQ(encoder.axis_ps(2), 0);
}

TEST(Delta32Encoder, ReadsOneStepTooLongAcrossTheDevicesWrap) {
  EXPECT_EQ(encoded(delta32_header(), {tag(0, kPeriodPs - 100), tag(0, kPeriodPs + 5'000)}),
            d32_base(14'315'125'997'468) + d32_event(0, 0) + d32_gap(0, 5'100 + kWrapStep));
}

TEST(Delta32Encoder, DecodesToTheSameTimes) {
  for (const std::uint64_t anchor_every : {1u, 7u, 1000u}) {
    for (const std::int64_t start_ps : {std::int64_t{0}, kLapPs, kPeriodPs - 1'000'000'000}) {
      const Tags tags = tags_in_turn(anchor_every, 20'000, start_ps, 40'000'000);
      EXPECT_EQ(decoded_again(delta32_header(), tags, {.anchor_every = anchor_every}), tags);
    }
  }
}

TEST(Delta32Encoder, DecodesToTheSameTimesAcrossManyWrapsAndLongGaps) {
  for (const std::uint64_t anchor_every : {1u, 7u, 1000u}) {
    const Tags tags = tags_in_turn(anchor_every, 10'000, kPeriodPs - 1'000'000'000, 240'000'000'000);
    ASSERT_GT(tags.back().time_ps, 10 * kPeriodPs);
    EXPECT_EQ(decoded_again(delta32_header(), tags, {.anchor_every = anchor_every}), tags) << anchor_every;
  }
}

std::string refusal(const Tags& tags, const orvo::timing::EncoderSettings& settings = {}) {
  return failure_of([&] { encoded(delta32_header(), tags, settings); });
}

// A silence of the wrap step reads as one with the wrap in it, up to 10 ms on. A base that its event follows after
// 2^25 - 1 ps takes in the first 33 us of that.
TEST(Delta32Encoder, BridgesSilencesAboutTheWrapStepWhereABaseCan) {
  for (const std::int64_t gap_ps : {kWrapStepPs - 1, kWrapStepPs, kWrapStepPs + 1, kWrapStepPs + 33'554'431,
                                    kWrapStepPs + kSmallRestPs + 1, kLapPs - 1, kLapPs, kLapPs + 1, kPeriodPs}) {
    const Tags tags{tag(0, 1'000), tag(0, 1'000 + gap_ps), tag(0, 2'000 + gap_ps)};
    for (const std::uint64_t anchor_every : {1u, 1000u}) {
      EXPECT_EQ(decoded_again(delta32_header(), tags, {.anchor_every = anchor_every}), tags) << gap_ps;
    }
  }
  for (const std::int64_t gap_ps : {kWrapStepPs + 33'554'432, kWrapStepPs + kSmallRestPs}) {
    EXPECT_THAT(
        refusal({tag(0, 0), tag(0, gap_ps)}),
        HasSubstr("Delta32Encoder: channel 0 at " + std::to_string(gap_ps) + " ps: decoders would misplace it"));
  }
}

TEST(Delta32Encoder, RefusesATagEarlierThanItsChannelsLast) {
  EXPECT_THAT(refusal({tag(0, 100), tag(1, 90), tag(0, 99)}),
              HasSubstr("channel 0 at 99 ps: it is earlier than its"));
}

TEST(Delta32Encoder, RefusesChannelsThatStartOnAnotherLap) {
  EXPECT_EQ(refusal({tag(0, 5), tag(1, kLapPs + 33'554'430)}), "nothing thrown") << "the last base and 2^25 - 1 ps";
  EXPECT_THAT(refusal({tag(0, 5), tag(1, kLapPs + 33'554'431)}),
              HasSubstr("channel 1 at 2199056809983 ps: the channel's first tag lies on another lap"));
  EXPECT_THAT(refusal({tag(0, kLapPs), tag(1, kLapPs - 1)}),
              HasSubstr("channel 1 at 2199023255551 ps: the channel's"));
}

TEST(Delta32Encoder, RefusesTimesAndChannelsThatThereAreNot) {
  EXPECT_THAT(refusal({tag(1, -1)}), HasSubstr("channel 1 at -1 ps: the time lies before the axis"));
  EXPECT_THAT(refusal({tag(1, INT64_MIN)}), HasSubstr("the time lies before the axis"));
  EXPECT_THAT(refusal({tag(1, INT64_MAX), tag(1, INT64_MIN)}), HasSubstr("808 ps: the time lies before"));
  EXPECT_THAT(refusal({tag(9, 0)}), HasSubstr("channel 9 at 0 ps: there are channels 0 to 3"));
  EXPECT_THAT(refusal({tag(0, 0), tag(0, INT64_MAX)}), HasSubstr("channel 0 at 9223372036854775807 ps: decoders"));
}

TEST(Delta32Encoder, LetsChannelsStartOnTheirOwnLapsWhenAsked) {
  TagEncoder encoder(delta32_header(), {.channel_axes = true});
  EXPECT_EQ(encoded(encoder, {tag(0, kLapPs - 1), tag(1, kLapPs)}),
            d32_base(2'199'023'255'551) + d32_event(0, 0) + d32_base(0) + d32_event(1, 0));
  EXPECT_EQ(encoder.axis_ps(0), 0);
  EXPECT_EQ(encoder.axis_ps(1), -kLapPs);
}

TEST(Delta32Encoder, ATagExactlyAtTheWrapIsAcrossIt) {
  EXPECT_EQ(encoded(delta32_header(), {tag(0, kPeriodPs - 100), tag(0, kPeriodPs), tag(0, kPeriodPs + 7)}),
            d32_base(14'315'125'997'468) + d32_event(0, 0) + d32_gap(0, 100 + kWrapStep) + d32_event(0, 7));
  EXPECT_EQ(encoded(delta32_header(), {tag(0, kPeriodPs - 100), tag(0, kPeriodPs)}, {.anchor_every = 1}),
            d32_base(14'315'125'997'468) + d32_event(0, 0) + d32_base(0) + d32_event(0, 0));
}

}  // namespace
