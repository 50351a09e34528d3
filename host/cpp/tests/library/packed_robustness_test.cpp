// packed_delta on meaningless payloads: no exception, no undefined behaviour, bounded memory. Without the reference
// where its search would take too long: packed_delta_comparison_test asks it.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <limits>

#include "orvo/timing/stream_decoder.hpp"
#include "support/checked_feeding.hpp"
#include "support/packed_payload.hpp"
#include "support/random.hpp"

namespace {

using namespace orvo::test;
using orvo::timing::StreamDecoder;
using orvo::timing::StreamMode;

/// Records of every kind, mostly in an order that makes sense.
Bytes packed_records(Random& random, unsigned d, std::size_t count) {
  PackedWriter payload(d);
  const std::uint64_t largest = (std::uint64_t{1} << d) - 1;
  payload.bits(random.bits(), static_cast<unsigned>(random.below(40)));
  for (unsigned channel = 0; channel < 4; ++channel) payload.anchor(channel, random.bits());
  for (std::size_t i = 0; i < count; ++i) {
    const auto channel = static_cast<unsigned>(random.below(4));
    switch (random.below(40)) {
      case 0:
        payload.bits(random.bits(), static_cast<unsigned>(random.below(64)));
        break;
      case 1:
        payload.sync_start(channel);
        break;
      case 2:
        payload.sync(channel, random.bits());
        break;
      case 3:
        payload.anchor(channel, random.bits());
        break;
      case 4:
      case 5:
        payload.overflow(channel, random.below(largest));
        break;
      default:
        payload.data(channel, random.bits() & largest);
        break;
    }
  }
  return payload.bytes();
}

PackedSetup any_setup(Random& random, unsigned delta_bits) {
  constexpr unsigned kMasks[] = {0x0, 0xF, 0x3, 0x1, 0x8, 0x6, 0x10, 0xFF};
  return {.mode = random.below(2) == 0 ? StreamMode::internal : StreamMode::external,
          .channel_mask = kMasks[random.below(8)],
          .delta_bits = delta_bits,
          .quantum_ps = static_cast<unsigned>(random.below(2) == 0 ? 1u << random.below(16) : random.below(65'536))};
}

TEST(PackedRobustness, TakesAnyRecordsOfAnyWidthInAnyChunks) {
  Random random(2);
  std::size_t tags = 0;
  for (unsigned d = 1; d <= 31; ++d) {
    for (std::size_t round = 0; round < 6; ++round) {
      const PackedSetup setup = any_setup(random, d);
      const unsigned active = setup.channel_mask == 0 ? 0xF : setup.channel_mask;
      StreamDecoder decoder = round % 3 == 0 ? packed_decoder(setup) : locked_decoder(setup);
      if (round % 3 == 1) decoder.pk_has_time.fill(true);
      for (std::int64_t& time : decoder.pk_last_time) time = static_cast<std::int64_t>(random.bits());
      const Bytes payload = round % 4 == 3 ? random.bytes(150) : packed_records(random, d, 50);
      random.cut(payload, round % 2 == 0 ? 40 : 1 + round, [&](const Bytes& chunk) {
        for (const auto& decoded : decoder.feed(chunk)) {
          ++tags;
          ASSERT_NE(active >> decoded.channel & 1, 0u);
        }
        if (decoder.packed_locked) {
          ASSERT_LT(decoder.bit_offset, 8u);
          ASSERT_LT(8 * decoder.pending_bytes.size(), decoder.bit_offset + d + 3);
        } else {
          ASSERT_EQ(decoder.bit_offset, 0u);
        }
      });
    }
  }
  EXPECT_GT(tags, 1000u) << "the records no longer reach the tags";
}

TEST(PackedRobustness, GivesTheSameTagsByteByByteWhileLocked) {
  Random random(8);
  for (unsigned d = 5; d <= 31; ++d) {
    for (const unsigned quantum_ps : {1u, 8u, 0x8000u}) {
      PackedWriter payload(d);
      const std::uint64_t largest = (std::uint64_t{1} << d) - 1;
      for (int i = 0; i < 300; ++i) {
        const auto channel = static_cast<unsigned>(random.below(4));
        if (random.below(8) == 0) payload.overflow(channel, random.below(largest));
        payload.data(channel, random.bits() & largest);
      }
      StreamDecoder whole = locked_decoder({.delta_bits = d, .quantum_ps = quantum_ps});
      whole.pk_has_time = {true, true, false, true};
      StreamDecoder bytewise = whole;
      ASSERT_EQ(feed(whole, payload.bytes()), feed_in_chunks(bytewise, payload.bytes(), 1)) << d << " bits";
      EXPECT_EQ(whole.pk_last_time, bytewise.pk_last_time);
      EXPECT_EQ(whole.pk_overflow, bytewise.pk_overflow);
      EXPECT_EQ(whole.pk_last_delta, bytewise.pk_last_delta);
      EXPECT_EQ(whole.pk_emitted_time, bytewise.pk_emitted_time);
      EXPECT_EQ(whole.bit_offset, bytewise.bit_offset);
    }
  }
}

TEST(PackedRobustness, TakesAnyStateOfTheChannels) {
  Random random(3);
  constexpr std::int64_t kTimes[] = {0, -1, std::numeric_limits<std::int64_t>::max(),
                                     std::numeric_limits<std::int64_t>::min(), 14'315'125'997'568};
  for (int round = 0; round < 2000; ++round) {
    const unsigned d = 1 + static_cast<unsigned>(random.below(31));
    StreamDecoder decoder = locked_decoder(any_setup(random, d));
    for (unsigned channel = 0; channel < 4; ++channel) {
      decoder.pk_last_time[channel] = kTimes[random.below(5)];
      decoder.pk_emitted_time[channel] = kTimes[random.below(5)];
      decoder.pk_has_time[channel] = random.below(4) != 0;
      decoder.pk_has_emitted[channel] = random.below(2) != 0;
      decoder.pk_overflow[channel] = random.bits() >> random.below(64);
    }
    decoder.pk_anchor_channel = static_cast<std::int32_t>(random.below(5)) - 1;
    decoder.pk_anchor_base = random.bits();
    PackedWriter payload(d);
    for (unsigned channel = 0; channel < 4; ++channel) payload.data(channel, random.bits());
    for (unsigned channel = 0; channel < 4; ++channel) payload.anchor(channel, random.bits());
    EXPECT_NO_THROW(feed(decoder, payload.bytes()));
  }
}

TEST(PackedRobustness, TakesAnyWidthInTheHeader) {
  Random random(4);
  const Bytes payload = random.bytes(64);
  for (unsigned d = 0; d <= 255; ++d) {
    StreamDecoder decoder = packed_decoder(any_setup(random, d));
    decoder.packed_locked = d % 2 == 0;
    random.cut(payload, 9, [&](const Bytes& chunk) { EXPECT_NO_THROW(feed(decoder, chunk)); });
    if (d >= 32) {
      EXPECT_EQ(pending(decoder), payload) << d;
    }
  }
}

TEST(PackedRobustness, SearchesAnyBytesForAnyWidth) {
  Random random(5);
  for (std::int32_t d = -2; d <= 31; ++d) {
    for (std::size_t size = 0; size < 30; ++size) {
      StreamDecoder decoder = packed_decoder(any_setup(random, 16));
      const Bytes payload = random.below(2) == 0 ? random.bytes(size) : Bytes(size, 0x3F);
      decoder.pending_bytes.append(payload.data(), payload.size());
      const auto alignment = decoder.probe_packed_alignment(d, d + 3);
      EXPECT_LT(alignment.bit_offset, 8u);
      EXPECT_LE(alignment.drop_bytes, size);
      EXPECT_FALSE(d < 1 && alignment.found);
    }
  }
}

TEST(PackedRobustness, StaysBoundedWithoutAnAlignment) {
  Random random(6);
  StreamDecoder decoder = packed_decoder({.channel_mask = 0xF0});
  for (int read = 0; read < 12; ++read) {
    EXPECT_TRUE(decoder.feed(random.bytes(20'000)).empty());
    EXPECT_LE(decoder.pending_bytes.size(), 65'536u);
  }
}

}  // namespace
