#include "simulate/raw64_encoder.hpp"

#include <gtest/gtest.h>

#include <cstdint>

#include "simulate/encoded.hpp"
#include "support/bytes.hpp"

namespace {

constexpr std::int64_t kPeriodPs = 14'315'125'997'568;  // 3333 * 2^32

orvo::timing::StreamFileHeader header(const char* tag_format) {
  orvo::timing::StreamFileHeader header;
  header.stream_format = orvo::timing::StreamFormat::raw64;
  header.raw64_tag_format = tag_format;
  return header;
}

TEST(Raw64Encoder, WritesPicosecondsModuloTheDevicePeriod) {
  EXPECT_EQ(encoded(Raw64Encoder<PicosecondWord>{}, {tag(3, 10'000), tag(0, kPeriodPs - 1), tag(1, kPeriodPs + 5)}),
            ps_record(3, 10'000) + ps_record(0, 14'315'125'997'567) + ps_record(1, 5));
}

TEST(Raw64Encoder, WritesCoarseCountsAndFineCodes) {
  EXPECT_EQ(encoded(Raw64Encoder<CoarseFineWord>{}, {tag(2, 0), tag(1, 3333 - 19), tag(0, 2 * 3333 - 3330)}),
            cf_record(2, 0, 0) + cf_record(1, 1, 1) + cf_record(0, 2, 180));
}

TEST(Raw64Encoder, WrapsTheCoarseCount) {
  EXPECT_EQ(encoded(Raw64Encoder<CoarseFineWord>{}, {tag(2, kPeriodPs - 3333 - 19), tag(2, kPeriodPs - 37),
                                                     tag(2, kPeriodPs), tag(2, kPeriodPs + 3333)}),
            cf_record(2, 0xFFFF'FFFF, 1) + cf_record(2, 0, 2) + cf_record(2, 0, 0) + cf_record(2, 1, 0));
}

TEST(Raw64Encoder, DecodesToTheSameTimesAcrossWraps) {
  for (const std::int64_t start_ps : {std::int64_t{0}, kPeriodPs - 1'000'000}) {
    const Tags tags = random_tags(1, 2'000, start_ps, 200'000'000'000);
    ASSERT_GT(tags.back().time_ps, start_ps + 2 * kPeriodPs);
    EXPECT_EQ(decoded_again(header("ps"), Raw64Encoder<PicosecondWord>{}, tags), tags);
  }
}

TEST(Raw64Encoder, DecodesToTheSameCoarseAndFineTimesAcrossWraps) {
  for (const std::int64_t start_ps : {std::int64_t{0}, kPeriodPs - 1'000'000}) {
    Tags tags = random_tags(2, 2'000, start_ps, 200'000'000'000);
    for (auto& tag : tags) tag.time_ps = CoarseFineGrid{}.stored(tag.time_ps);
    EXPECT_EQ(decoded_again(header("raw_cf"), Raw64Encoder<CoarseFineWord>{}, tags), tags);
  }
}

TEST(Raw64Encoder, CountsTimesFromTheLapOfTheFirstTag) {
  EXPECT_EQ(Raw64Encoder<PicosecondWord>::axis_ps(kPeriodPs - 1), 0);
  EXPECT_EQ(Raw64Encoder<PicosecondWord>::axis_ps(kPeriodPs), -kPeriodPs);
  EXPECT_EQ(Raw64Encoder<CoarseFineWord>::axis_ps(kPeriodPs - 3333), 0);
  EXPECT_EQ(Raw64Encoder<CoarseFineWord>::axis_ps(kPeriodPs - 37), -kPeriodPs)
      << "the edge behind it is the lap's first";
}

}  // namespace
