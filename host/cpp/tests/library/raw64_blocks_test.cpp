// Words of raw64 are looked at in blocks. Long quiet streams in which now and then something happens that a block
// must not overlook, compared with the reference.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "support/bytes.hpp"
#include "support/checked_feeding.hpp"
#include "support/random.hpp"

namespace {

using namespace orvo::test;

constexpr std::uint64_t kPeriodPs = 14'315'125'997'568;

orvo::timing::StreamFileHeader header_of(const std::string& tag_format) {
  orvo::timing::StreamFileHeader header;
  header.stream_format = orvo::timing::StreamFormat::raw64;
  header.raw64_tag_format = tag_format;
  return header;
}

Tags decoded(const std::string& tag_format, const Bytes& payload, std::size_t chunk_bytes = 1 << 20) {
  orvo::timing::StreamDecoder decoder(header_of(tag_format));
  return feed_in_chunks(decoder, payload, chunk_bytes);
}

void expect_as_reference(const std::string& tag_format, const Bytes& payload) {
  expect_same(decoded(tag_format, payload, 5000), decoded(tag_format, payload));
}

TEST(Raw64Blocks, QuietStreamsWithAnEventNowAndThen) {
  Random random(1);
  for (int i = 0; i < 300 && !HasFailure(); ++i) {
    const bool coarse_fine = i % 2 == 1;
    const std::uint64_t period = coarse_fine ? std::uint64_t{1} << 32 : kPeriodPs;
    const std::uint64_t channels = 1 + random.below(4);
    const std::uint64_t step = period >> (8 + random.below(20));
    std::uint64_t count = random.below(period);
    Bytes payload;
    for (int word = 0; word < 3000; ++word) {
      count = (count + random.below(step)) % period;
      std::uint64_t bits = coarse_fine ? cf_word(random.below(channels), count, random.below(8192))
                                       : ps_word(random.below(channels), count);
      switch (random.below(3000)) {
        case 0:  // somewhere else
          count = random.below(period);
          break;
        case 1:  // a step back that is just a wrap, or just not
          count = (count + period - period / 2 - random.below(3) + 1) % period;
          break;
        case 2:  // one bit wrong
          bits ^= std::uint64_t{1} << random.below(64);
          break;
        case 3:  // a byte too many
          payload.push_back(static_cast<std::uint8_t>(random.bits()));
          break;
        case 4:  // a channel that was not there
          bits ^= std::uint64_t{3} << 61;
          break;
        default:
          break;
      }
      payload += big_endian(bits, 8);
    }
    expect_as_reference(coarse_fine ? "raw_cf" : "ps", payload);
  }
}

// Channel 3 clicks once, late in the period, and again a whole period later than it seems. In between, channel 0
// fills blocks.
TEST(Raw64Blocks, AChannelThatWasSilentForLong) {
  Bytes payload;
  payload += ps_record(3, kPeriodPs - 1);
  for (std::uint64_t i = 0; i < 2000; ++i) payload += big_endian(ps_word(0, 1000 * i), 8);
  payload += big_endian(ps_word(3, 2'000'000), 8);
  for (std::uint64_t i = 2000; i < 3000; ++i) payload += big_endian(ps_word(0, 1000 * i), 8);
  const Tags tags = decoded("ps", payload);
  ASSERT_EQ(tags.size(), 3002u);
  EXPECT_EQ(tags[0], tag(3, kPeriodPs - 1));
  EXPECT_EQ(tags[2000], tag(0, 1'999'000));
  EXPECT_EQ(tags[2001], tag(3, kPeriodPs + 2'000'000));
  EXPECT_EQ(tags[3001], tag(0, 2'999'000));
}

// 44 bits hold more than a period: such a time counts from the period's start.
TEST(Raw64Blocks, TimesBeyondThePeriodInsideABlock) {
  Bytes payload;
  for (std::uint64_t i = 0; i < 512; ++i) payload += big_endian(ps_word(0, kPeriodPs - 512 + 2 * i), 8);
  const Tags tags = decoded("ps", payload);
  ASSERT_EQ(tags.size(), 512u);
  EXPECT_EQ(tags[255], tag(0, kPeriodPs - 2));
  EXPECT_EQ(tags[256], tag(0, kPeriodPs));  // folded to 0, which is a wrap
  EXPECT_EQ(tags[511], tag(0, kPeriodPs + 510));
}

TEST(Raw64Blocks, AStreamThatBeginsBeyondThePeriod) {
  Bytes payload;
  for (std::uint64_t i = 0; i < 256; ++i) payload += big_endian(ps_word(0, kPeriodPs + 1000 * i), 8);
  const Tags tags = decoded("ps", payload);
  ASSERT_EQ(tags.size(), 256u);
  EXPECT_EQ(tags.front(), tag(0, 0));
  EXPECT_EQ(tags.back(), tag(0, 255'000));
}

// Every word of a block in turn is the one that is no record.
TEST(Raw64Blocks, OneBadWordAnywhereInABlock) {
  for (std::size_t bad = 0; bad < 256; ++bad) {
    Bytes payload;
    for (std::uint64_t i = 0; i < 256; ++i) payload += big_endian(ps_word(i % 4, 1000 * i), 8);
    payload[8 * bad] |= 0x80;
    expect_as_reference("ps", payload);
    if (HasFailure()) return;
  }
}

}  // namespace
