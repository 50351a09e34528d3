#include "orvo/timing/raw64_encoder.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "support/bytes.hpp"
#include "support/encoded.hpp"
#include "support/failure.hpp"

namespace {

using namespace orvo::test;
using orvo::timing::EncoderSettings;
using orvo::timing::TagEncoder;
using testing::HasSubstr;

constexpr std::int64_t kPeriodPs = 14'315'125'997'568;  // 3333 * 2^32
constexpr std::int64_t kHalfPs = 7'157'562'998'784;

TEST(Raw64Encoder, WritesPicosecondsModuloTheDevicePeriod) {
  EXPECT_EQ(encoded(raw64_header(), {tag(3, 10'000), tag(0, kPeriodPs - 1), tag(0, kPeriodPs + 5)}),
            ps_record(3, 10'000) + ps_record(0, 14'315'125'997'567) + ps_record(0, 5));
}

TEST(Raw64Encoder, WritesCoarseCountsAndFineCodes) {
  EXPECT_EQ(encoded(raw64_header("RAW_cf"), {tag(2, 0), tag(1, 3333 - 19), tag(0, 2 * 3333 - 3330)}),
            cf_record(2, 0, 0) + cf_record(1, 1, 1) + cf_record(0, 2, 180));
}

TEST(Raw64Encoder, WrapsTheCoarseCount) {
  EXPECT_EQ(encoded(raw64_header("raw_cf"), {tag(2, kPeriodPs - 3333 - 19), tag(2, kPeriodPs - 37), tag(2, kPeriodPs),
                                             tag(2, kPeriodPs + 3333)}),
            cf_record(2, 0xFFFF'FFFF, 1) + cf_record(2, 0, 2) + cf_record(2, 0, 0) + cf_record(2, 1, 0));
}

// 3332 ps before an edge is what all codes from 181 on say.
TEST(Raw64Encoder, WritesTheLongestFineTime) {
  EXPECT_EQ(encoded(raw64_header("raw_cf"), {tag(0, 1), tag(1, -3332)}), cf_record(0, 1, 181) + cf_record(1, 0, 181));
  EXPECT_EQ(decoded_again(raw64_header("raw_cf"), {tag(0, 1), tag(1, -3332)}), (Tags{tag(0, 1), tag(1, -3332)}));
}

TEST(Raw64Encoder, DecodesToTheSameTimesAcrossWraps) {
  for (const std::int64_t start_ps : {std::int64_t{0}, kPeriodPs - 1'000'000'000'000, 5 * kPeriodPs}) {
    const Tags tags = tags_in_turn(1, 2'000, start_ps, 200'000'000'000);
    ASSERT_GT(tags.back().time_ps, start_ps + 2 * kPeriodPs);
    EXPECT_EQ(decoded_again(raw64_header(), tags), tags);
  }
}

TEST(Raw64Encoder, RoundsToTheNearestFineCodeWhenAsked) {
  Tags tags = tags_in_turn(2, 2'000, 3 * kPeriodPs, 200'000'000'000);
  TagEncoder encoder(raw64_header("raw_cf"), {.round = true});
  const Tags again = decoded(raw64_header("raw_cf"), encoded(encoder, tags));
  ASSERT_EQ(again.size(), tags.size());
  std::uint64_t moved = 0;
  std::int64_t largest_ps = 0;
  for (std::size_t i = 0; i < tags.size(); ++i) {
    const std::int64_t step_ps = again[i].time_ps + 3 * kPeriodPs - tags[i].time_ps;
    moved += step_ps != 0;
    largest_ps = std::max(largest_ps, step_ps < 0 ? -step_ps : step_ps);
  }
  EXPECT_EQ(largest_ps, 9);
  EXPECT_EQ(encoder.rounding().largest_ps, 9);
  EXPECT_EQ(encoder.rounding().tags, moved);
}

TEST(Raw64Encoder, CountsTimesFromTheLapOfTheFirstTag) {
  const auto axis_ps = [](const char* tag_format, std::int64_t time_ps) {
    TagEncoder encoder(raw64_header(tag_format));
    EXPECT_EQ(encoded(encoder, {tag(1, time_ps), tag(1, time_ps + 6'666)}).size(), 16u);
    return encoder.axis_ps(1);
  };
  EXPECT_EQ(axis_ps("ps", kPeriodPs - 1), 0);
  EXPECT_EQ(axis_ps("ps", kPeriodPs), -kPeriodPs);
  EXPECT_EQ(axis_ps("raw_cf", kPeriodPs - 3333), 0);
  EXPECT_EQ(axis_ps("raw_cf", kPeriodPs - 37), -kPeriodPs) << "the edge after it is the lap's first";
}

TEST(Raw64Encoder, KeepsLateTags) {
  const Tags tags{tag(0, kHalfPs + 100), tag(1, 50), tag(0, 100), tag(0, kHalfPs + 7)};
  EXPECT_EQ(encoded(raw64_header(), tags),
            ps_record(0, 7'157'562'998'884) + ps_record(1, 50) + ps_record(0, 100) + ps_record(0, 7'157'562'998'791));
  EXPECT_EQ(decoded_again(raw64_header(), tags), tags);
}

std::string refusal(const Tags& tags, const char* tag_format = "ps") {
  return failure_of([&] { encoded(raw64_header(tag_format), tags); });
}

TEST(Raw64Encoder, RefusesWhatDecodersWouldMisplace) {
  EXPECT_THAT(refusal({tag(2, 10), tag(2, kPeriodPs - 5), tag(2, kPeriodPs + kHalfPs - 6)}), "nothing thrown");
  EXPECT_THAT(refusal({tag(2, kHalfPs), tag(2, kPeriodPs)}),
              HasSubstr("Raw64Encoder: channel 2 at 14315125997568 ps: decoders would misplace it"))
      << "quiet for half a period with a wrap in it";
  EXPECT_THAT(refusal({tag(2, kHalfPs + 1), tag(2, kPeriodPs)}), "nothing thrown");
  EXPECT_THAT(refusal({tag(2, 5), tag(2, kPeriodPs + 10)}), HasSubstr("channel 2 at 14315125997578 ps: decoders"));
  EXPECT_THAT(refusal({tag(0, kHalfPs), tag(1, 3), tag(0, kPeriodPs - 1), tag(0, kPeriodPs), tag(0, kPeriodPs - 1)}),
              HasSubstr("channel 0 at 14315125997567 ps: decoders"))
      << "late across the wrap";
  EXPECT_THAT(refusal({tag(0, kHalfPs + 101), tag(0, 100)}), HasSubstr("channel 0 at 100 ps: decoders"));
}

TEST(Raw64Encoder, RefusesChannelsThatStartOnAnotherLap) {
  EXPECT_THAT(refusal({tag(0, kPeriodPs - 1), tag(1, kPeriodPs)}),
              HasSubstr("channel 1 at 14315125997568 ps: the channel's first tag lies on another lap"));
  EXPECT_THAT(refusal({tag(0, kPeriodPs), tag(1, kPeriodPs - 1)}),
              HasSubstr("channel 1 at 14315125997567 ps: the ch"));
}

TEST(Raw64Encoder, RefusesTimesThatNoWordSays) {
  EXPECT_THAT(refusal({tag(1, -1)}), HasSubstr("channel 1 at -1 ps: the time lies before the axis"));
  EXPECT_THAT(refusal({tag(1, -3333)}, "raw_cf"), HasSubstr("channel 1 at -3333 ps: the time lies before the axis"));
  EXPECT_THAT(refusal({tag(1, 3333 - 18)}, "raw_cf"), HasSubstr("channel 1 at 3315 ps: no fine code stands for"));
  EXPECT_THAT(refusal({tag(1, INT64_MIN)}), HasSubstr("channel 1 at -9223372036854775808 ps: the time lies before"));
  EXPECT_THAT(refusal({tag(1, INT64_MAX), tag(1, INT64_MIN)}), HasSubstr("808 ps: the time lies before"));
  EXPECT_THAT(refusal({tag(4, 0)}), HasSubstr("channel 4 at 0 ps: there are channels 0 to 3"));
}

TEST(Raw64Encoder, RoundsNoTimeBeforeTheAxis) {
  for (const std::int64_t time_ps : {-3333, -3340, -5000}) {
    TagEncoder encoder(raw64_header("raw_cf"), {.round = true});
    EXPECT_EQ(failure_of([&] { encoded(encoder, {tag(1, time_ps)}); }),
              "Raw64Encoder: channel 1 at " + std::to_string(time_ps) +
                  " ps: the time lies before the axis, which starts at 0 (code -1)");
    EXPECT_EQ(encoder.rounding().tags, 0u);
  }
}

TEST(Raw64Encoder, GoesOnAfterARefusal) {
  TagEncoder encoder(raw64_header());
  orvo::timing::ByteQueue payload;
  EXPECT_THROW(encoder.encode(Tags{tag(0, 7), tag(0, -1), tag(0, 9)}, payload), orvo::timing::Error);
  encoder.encode(Tags{tag(0, 9)}, payload);
  EXPECT_EQ(Bytes(payload.begin(), payload.end()), ps_record(0, 7) + ps_record(0, 9));
}

// The device counts for each channel by itself.
TEST(Raw64Encoder, LetsChannelsStartOnTheirOwnLapsWhenAsked) {
  TagEncoder encoder(raw64_header(), {.channel_axes = true});
  EXPECT_EQ(encoded(encoder, {tag(0, kPeriodPs - 1), tag(1, kPeriodPs)}),
            ps_record(0, 14'315'125'997'567) + ps_record(1, 0));
  EXPECT_EQ(encoder.axis_ps(0), 0);
  EXPECT_EQ(encoder.axis_ps(1), -kPeriodPs);
  EXPECT_EQ(encoder.axis_ps(2), 0);
}

}  // namespace
