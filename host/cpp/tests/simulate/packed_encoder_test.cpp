#include "simulate/packed_encoder.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "simulate/encoded.hpp"
#include "support/packed_payload.hpp"

namespace {

constexpr std::int64_t kPeriodPs = 14'315'125'997'568;  // 3333 * 2^32

Settings packed(unsigned delta_bits, unsigned quantum_ps) {
  Settings settings;
  settings.encoding = orvo::timing::StreamFormat::packed_delta;
  for (ChannelSettings& channel : settings.channels) channel.active = true;
  settings.delta_bits = delta_bits;
  settings.quantum_ps = quantum_ps;
  return settings;
}

orvo::timing::StreamFileHeader header(const Settings& settings, orvo::timing::StreamMode mode) {
  orvo::timing::StreamFileHeader header;
  header.mode = mode;
  header.delta_bits = static_cast<std::uint8_t>(settings.delta_bits);
  header.quantum_ps = static_cast<std::uint16_t>(settings.quantum_ps);
  return header;
}

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

TEST(PackedEncoder, StartsEveryChannelWithAnAnchor) {
  PackedWriter expected = begun(16);
  expected.anchor(1, 1'000).anchor(2, 1'001).data(1, 5).data(2, 65'535);
  EXPECT_EQ(encoded(PackedEncoder(packed(16, 8)), {tag(1, 8'000), tag(2, 8'008), tag(1, 8'040), tag(2, 532'288)}),
            filled(expected));
}

TEST(PackedEncoder, StartsAtTheBitAskedForOnAnActiveChannel) {
  Settings settings = packed(13, 1);
  settings.start_bit = 5;
  settings.channels[0].active = settings.channels[1].active = false;
  EXPECT_EQ(encoded(PackedEncoder(settings), {tag(3, 77)}), filled(begun(13, 5, 2).anchor(3, 77), 2));
}

TEST(PackedEncoder, WritesLongGapsWithOverflowRecords) {
  PackedWriter expected = begun(8);
  expected.anchor(0, 0).gap(0, 256).gap(0, 254 * 256 + 3).gap(0, 255 * 256 + 3).gap(0, 7 * 254 * 256 + 255);
  const std::int64_t gaps[] = {256, 254 * 256 + 3, 255 * 256 + 3, 7 * 254 * 256 + 255};
  Tags tags{tag(0, 0)};
  for (const std::int64_t gap : gaps) tags.push_back(tag(0, tags.back().time_ps + gap));
  EXPECT_EQ(encoded(PackedEncoder(packed(8, 1)), tags), filled(expected));
}

// With 8 bits an anchor takes 8 records: 7 overflow records are cheaper or equal, 8 are not.
TEST(PackedEncoder, PrefersAnAnchorToManyOverflowRecords) {
  const std::int64_t gap = (7 * 254 + 1) * 256;
  EXPECT_EQ(encoded(PackedEncoder(packed(8, 1)), {tag(0, 0), tag(0, gap), tag(0, gap + 1)}),
            filled(begun(8).anchor(0, 0).anchor(0, static_cast<std::uint64_t>(gap)).data(0, 1)));
}

TEST(PackedEncoder, RepeatsTheAnchorAsOftenAsAsked) {
  Settings settings = packed(20, 1);
  settings.anchor_every = 2;
  EXPECT_EQ(encoded(PackedEncoder(settings), {tag(0, 10), tag(0, 20), tag(1, 25), tag(0, 40), tag(0, 50)}),
            filled(begun(20).anchor(0, 10).data(0, 10).anchor(1, 25).anchor(0, 40).data(0, 10)));
}

// Past the wrap an anchor spells device time, a difference one wrap step too much: 2^44 ps less the device period.
TEST(PackedEncoder, ReadsOneStepTooLongAcrossTheDevicesWrap) {
  const std::uint64_t step_quanta = ((std::uint64_t{1} << 44) - 14'315'125'997'568) / 8;
  const Tags tags{tag(0, kPeriodPs - 80), tag(0, kPeriodPs + 800)};
  EXPECT_EQ(encoded(PackedEncoder(packed(28, 8)), tags),
            filled(begun(28).anchor(0, 1'789'390'749'686).gap(0, 110 + step_quanta)));
  EXPECT_EQ(encoded(PackedEncoder(packed(12, 8)), tags),
            filled(begun(12).anchor(0, 1'789'390'749'686).anchor(0, 100)));
}

TEST(PackedEncoder, DoesNotDependOnTheBlocks) {
  const Settings settings = packed(11, 4);
  const Tags tags = random_tags(1, 3'000, 0, 1'000'000, 2);
  EXPECT_EQ(encoded(PackedEncoder(settings), tags, 1), encoded(PackedEncoder(settings), tags));
}

TEST(PackedEncoder, DecodesToTheSameTimesForAnyWidthAndQuantum) {
  for (unsigned delta_bits = 1; delta_bits <= 31; ++delta_bits) {
    for (const unsigned quantum_ps : {1u, 4u, 12u, 32'768u}) {
      Settings settings = packed(delta_bits, quantum_ps);
      settings.start_bit = delta_bits % 8;
      const Tags tags =
          random_tags(delta_bits, 1'500, kPeriodPs - 1'000'000'000, 4'000'000, settings.quantum_shift());
      for (const auto mode : {orvo::timing::StreamMode::internal, orvo::timing::StreamMode::external}) {
        EXPECT_EQ(decoded_again(header(settings, mode), PackedEncoder(settings), tags), tags)
            << delta_bits << " bits of " << quantum_ps << " ps";
      }
    }
  }
}

TEST(PackedEncoder, DecodesToTheSameTimesAcrossManyWrapsAndLongGaps) {
  for (const unsigned quantum_ps : {1u, 2u, 4u, 8u, 16u, 1024u}) {
    for (const unsigned delta_bits : {16u, 26u, 31u}) {
      for (const std::uint64_t anchor_every : {3u, 1'000'000u}) {
        Settings settings = packed(delta_bits, quantum_ps);
        settings.anchor_every = anchor_every;
        const Tags tags = random_tags(7, 2'000, kPeriodPs - 1'000'000'000, 240'000'000'000, settings.quantum_shift());
        ASSERT_GT(tags.back().time_ps, 5 * kPeriodPs);
        for (const auto mode : {orvo::timing::StreamMode::internal, orvo::timing::StreamMode::external}) {
          EXPECT_EQ(decoded_again(header(settings, mode), PackedEncoder(settings), tags), tags)
              << delta_bits << " bits of " << quantum_ps << " ps, an anchor every " << anchor_every;
        }
      }
    }
  }
}

}  // namespace
