// delta32 on meaningless payloads: no exception, no undefined behaviour, bounded memory.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>

#include "orvo/timing/stream_decoder.hpp"
#include "support/checked_feeding.hpp"
#include "support/delta32_payload.hpp"
#include "support/random.hpp"

namespace {

using namespace orvo::test;
using orvo::timing::StreamDecoder;

enum class Stray { words, bytes };

/// Words of every kind, mostly in an order that makes sense; now and then an unknown word, or stray bytes.
Bytes delta32_words(Random& random, std::size_t count, Stray stray) {
  Bytes payload;
  for (std::size_t i = 0; i < count; ++i) {
    switch (random.below(10)) {
      case 0:
        payload += random.bytes(stray == Stray::bytes ? random.below(6) : 4);
        break;
      case 1:
        payload += big_endian(random.bits32(), 4);
        break;
      case 2:
        payload += d32_word({.control = 1, .channel = random.bits32() & 3, .type = 5, .payload = 0});
        break;
      case 3:
        payload += d32_extension(random.bits32() & 0xFFFF);
        break;
      case 4:
        payload += d32_base(random.bits());
        break;
      default:
        payload += d32_event(random.bits32() & 3, random.bits32() & 0x1FF'FFFF);
        break;
    }
  }
  return payload;
}

TEST(Delta32Robustness, TakesAnyWordsInAnyChunks) {
  Random random(1);
  std::size_t tags = 0;
  for (int round = 0; round < 400; ++round) {
    StreamDecoder decoder = delta32_decoder();
    for (std::int64_t& time : decoder.d32_last_time) time = static_cast<std::int64_t>(random.bits());
    if (round % 2 == 0) decoder.d32_has_time.fill(true);
    const Bytes payload = round % 4 == 0 ? random.bytes(300) : delta32_words(random, 150, Stray::bytes);
    random.cut(payload, 1 + static_cast<std::size_t>(round) % 40, [&](const Bytes& chunk) {
      for (const auto& decoded : feed(decoder, chunk)) {
        ++tags;
        ASSERT_LT(decoded.channel, 4);
      }
      ASSERT_LE(decoder.pending_bytes.size(), 3u);
      ASSERT_LE(decoder.d32_frame_state, 2u);
    });
  }
  EXPECT_GT(tags, 1000u) << "the words no longer reach the events";
}

TEST(Delta32Robustness, GivesTheSameTagsByteByByte) {
  // With stray bytes it need not: a sync word that begins inside an offending word counts only if a chunk ends
  // between the two.
  Random random(7);
  for (int round = 0; round < 60; ++round) {
    const Bytes payload = delta32_words(random, 200, Stray::words);
    StreamDecoder whole = delta32_decoder();
    StreamDecoder bytewise = delta32_decoder();
    ASSERT_EQ(feed(whole, payload), feed_in_chunks(bytewise, payload, 1)) << "round " << round;
    ASSERT_EQ(pending(whole), pending(bytewise));
  }
}

}  // namespace
