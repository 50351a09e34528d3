#include "simulate/delta32_encoder.hpp"

#include <gtest/gtest.h>

#include <cstdint>

#include "simulate/encoded.hpp"
#include "support/delta32_payload.hpp"

namespace {

constexpr std::int64_t kPeriodPs = 14'315'125'997'568;    // 3333 * 2^32
constexpr std::uint64_t kWrapStepPs = 1'078'036'791'296;  // from there up to 7 * 2^41

orvo::timing::StreamFileHeader header() {
  orvo::timing::StreamFileHeader header;
  header.stream_format = orvo::timing::StreamFormat::delta32;
  return header;
}

TEST(Delta32Encoder, StartsEveryChannelWithABase) {
  EXPECT_EQ(
      encoded(Delta32Encoder(1000), {tag(1, 123'456'789'012), tag(3, 123'456'789'112), tag(1, 123'456'790'000)}),
      d32_base(123'456'789'012) + d32_event(1, 0) + d32_base(123'456'789'112) + d32_event(3, 0) + d32_event(1, 988));
}

TEST(Delta32Encoder, WritesLongGapsWithAnExtension) {
  EXPECT_EQ(
      encoded(Delta32Encoder(1000), {tag(0, 0), tag(0, 33'554'431), tag(0, 67'108'863), tag(0, 1'000'067'108'863)}),
      d32_base(0) + d32_event(0, 0) + d32_event(0, 33'554'431) + d32_extension(1) + d32_event(0, 0) +
          d32_extension(29'802) + d32_event(0, 10'817'536));
}

TEST(Delta32Encoder, RepeatsTheBaseAsOftenAsAsked) {
  const Bytes base_40 = d32_base(40) + d32_event(0, 0);
  EXPECT_EQ(encoded(Delta32Encoder(2), {tag(0, 10), tag(0, 20), tag(1, 25), tag(0, 40), tag(0, 50)}),
            d32_base(10) + d32_event(0, 0) + d32_event(0, 10) + d32_base(25) + d32_event(1, 0) + base_40 +
                d32_event(0, 10));
}

TEST(Delta32Encoder, TruncatesBasesTo41Bits) {
  EXPECT_EQ(encoded(Delta32Encoder(1000), {tag(0, (std::int64_t{1} << 41) + 7)}), d32_base(7) + d32_event(0, 0));
}

TEST(Delta32Encoder, ReadsOneStepTooLongAcrossTheDevicesWrap) {
  EXPECT_EQ(encoded(Delta32Encoder(1000), {tag(0, kPeriodPs - 100), tag(0, kPeriodPs + 5'000)}),
            d32_base(14'315'125'997'468) + d32_event(0, 0) + d32_gap(0, 5'100 + kWrapStepPs));
}

TEST(Delta32Encoder, DecodesToTheSameTimes) {
  for (const std::uint64_t anchor_every : {1u, 7u, 1000u}) {
    for (const std::int64_t start_ps : {std::int64_t{0}, std::int64_t{1} << 41, kPeriodPs - 1'000'000'000}) {
      const Tags tags = random_tags(anchor_every, 20'000, start_ps, 40'000'000);
      EXPECT_EQ(decoded_again(header(), Delta32Encoder(anchor_every), tags), tags) << anchor_every << ' ' << start_ps;
    }
  }
}

TEST(Delta32Encoder, DecodesToTheSameTimesAcrossManyWrapsAndLongGaps) {
  for (const std::uint64_t anchor_every : {1u, 7u, 1000u}) {
    const Tags tags = random_tags(anchor_every, 10'000, kPeriodPs - 1'000'000'000, 240'000'000'000);
    ASSERT_GT(tags.back().time_ps, 10 * kPeriodPs);
    EXPECT_EQ(decoded_again(header(), Delta32Encoder(anchor_every), tags), tags) << anchor_every;
  }
}

TEST(Delta32Encoder, ATagExactlyAtTheWrapIsAcrossIt) {
  EXPECT_EQ(encoded(Delta32Encoder(1000), {tag(0, kPeriodPs - 100), tag(0, kPeriodPs), tag(0, kPeriodPs + 7)}),
            d32_base(14'315'125'997'468) + d32_event(0, 0) + d32_gap(0, 100 + kWrapStepPs) + d32_event(0, 7));
  EXPECT_EQ(encoded(Delta32Encoder(1), {tag(0, kPeriodPs - 100), tag(0, kPeriodPs)}),
            d32_base(14'315'125'997'468) + d32_event(0, 0) + d32_base(0) + d32_event(0, 0));
}

}  // namespace
