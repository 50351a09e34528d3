#include "simulate/damage.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>

#include "support/bytes.hpp"

namespace {

using namespace orvo::test;

Settings damaged(const DamageSettings& damage) {
  Settings settings;
  settings.damage = damage;
  return settings;
}

struct Spoilt {
  Bytes payload;
  std::uint64_t flipped_bits;
  std::uint64_t inserted_bytes;
};

Spoilt spoilt(const DamageSettings& settings, Bytes payload, std::size_t piece = 1000) {
  Damage damage(damaged(settings));
  Bytes out;
  const auto write = [&out](const std::uint8_t* data, std::size_t size) { out.insert(out.end(), data, data + size); };
  damage.begin(write);
  for (std::size_t at = 0; at < payload.size(); at += piece) {
    damage.pass(std::span(payload).subspan(at, std::min(piece, payload.size() - at)), write);
  }
  return {out, damage.flipped_bits(), damage.inserted_bytes()};
}

Bytes counting(std::size_t size) {
  Bytes bytes(size);
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<std::uint8_t>(i % 128);
  return bytes;
}

Bytes part(const Bytes& bytes, std::size_t from, std::size_t to) {
  return Bytes(bytes.begin() + static_cast<std::ptrdiff_t>(from), bytes.begin() + static_cast<std::ptrdiff_t>(to));
}

bool all_garbage(const Bytes& bytes) {
  return std::all_of(bytes.begin(), bytes.end(), [](std::uint8_t byte) { return byte >= 0x80; });
}

TEST(Damage, OfNoneLeavesThePayloadAsItIs) {
  EXPECT_FALSE(DamageSettings{}.any());
  EXPECT_EQ(spoilt({}, counting(5000)).payload, counting(5000));
}

TEST(Damage, PutsGarbageBeforeThePayload) {
  for (const std::size_t bytes : {1u, 7u, 65'536u, 200'000u}) {
    const Bytes payload = spoilt({.front_garbage_bytes = bytes}, counting(3000)).payload;
    ASSERT_EQ(payload.size(), bytes + 3000);
    EXPECT_TRUE(all_garbage(part(payload, 0, bytes)));
    EXPECT_EQ(part(payload, bytes, payload.size()), counting(3000));
  }
}

TEST(Damage, PutsGarbageIntoThePayloadWhereItWasAskedFor) {
  for (const std::size_t at : {0u, 1u, 999u, 1000u, 1001u, 2999u}) {
    for (const std::size_t piece : {1u, 1000u, 5000u}) {
      const Spoilt result = spoilt({.garbage_bytes = 20, .garbage_at = at}, counting(3000), piece);
      ASSERT_EQ(result.payload.size(), 3020u);
      EXPECT_EQ(result.inserted_bytes, 20u);
      EXPECT_EQ(part(result.payload, 0, at) + part(result.payload, at + 20, 3020), counting(3000)) << at;
      EXPECT_TRUE(all_garbage(part(result.payload, at, at + 20))) << at;
    }
  }
}

TEST(Damage, PutsNoGarbageBehindTheEnd) {
  const Spoilt result = spoilt({.garbage_bytes = 20, .garbage_at = 3000}, counting(3000));
  EXPECT_EQ(result.payload, counting(3000));
  EXPECT_EQ(result.inserted_bytes, 0u);
}

TEST(Damage, FlipsOneBitInEveryStretch) {
  for (const std::size_t every : {1u, 10u, 999u, 1000u, 1500u}) {
    for (const std::size_t piece : {7u, 1000u, 5000u}) {
      const Bytes sound = counting(3000);
      const Spoilt result = spoilt({.flip_every_bytes = every}, sound, piece);
      ASSERT_EQ(result.payload.size(), sound.size());
      std::uint64_t total = 0;
      for (std::size_t from = 0; from < sound.size(); from += every) {
        int flipped = 0;
        const std::size_t to = std::min(from + every, sound.size());
        for (std::size_t i = from; i < to; ++i) flipped += std::popcount(unsigned{sound[i]} ^ result.payload[i]);
        ASSERT_LE(flipped, 1);
        ASSERT_TRUE(flipped == 1 || to - from < every) << every << ' ' << from;
        total += static_cast<std::uint64_t>(flipped);
      }
      EXPECT_EQ(result.flipped_bits, total);
    }
  }
}

TEST(Damage, FlipsAllBitsAlike) {
  const Bytes flipped = spoilt({.flip_every_bytes = 1}, Bytes(80'000)).payload;
  for (unsigned bit = 0; bit < 8; ++bit) {
    const auto count = std::count(flipped.begin(), flipped.end(), 1 << bit);
    EXPECT_NEAR(static_cast<double>(count), 10'000, 500) << bit;
  }
}

TEST(Damage, IsTheSameForTheSameSeed) {
  const DamageSettings settings{
      .front_garbage_bytes = 9, .garbage_bytes = 9, .garbage_at = 9, .flip_every_bytes = 99};
  EXPECT_EQ(spoilt(settings, counting(3000)).payload, spoilt(settings, counting(3000), 10).payload);
}

}  // namespace
