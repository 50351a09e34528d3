// The delta32 decoder against its reference: both get the same chunks, and tags, waiting bytes and states must be
// equal after every chunk.
#include <gtest/gtest.h>

#include <algorithm>
#include <span>
#include <string>

#include "orvo/timing/stream_decoder.hpp"
#include "support/as_reference.hpp"
#include "support/bytes.hpp"
#include "support/checked_feeding.hpp"
#include "support/delta32_payload.hpp"
#include "support/delta32_streams.hpp"
#include "support/streams.hpp"

namespace orvo::test {
namespace {

struct Totals {
  std::uint64_t words = 0, tags = 0;
};

/// Feeds the stream to both in the same chunks.
void compare_on(const Bytes& stream, Random& random, const std::string& name, Totals& totals) {
  timing::StreamDecoder decoder = delta32_decoder();
  for (std::size_t at = 0; at < stream.size();) {
    const std::size_t size = std::min(chunk_size(random), stream.size() - at);
    const Compared compared = compare_chunk(decoder, std::span(stream).subspan(at, size));
    ASSERT_EQ(compared.apart, "") << name << ", chunk of " << size << " bytes at " << at;
    totals.tags += compared.tags.size();
    at += size;
  }
  totals.words += stream.size() / 4;
}

TEST(Delta32AgainstReference, CleanStreamsGiveTheEncodedTimes) {
  Random random(3201);
  for (int i = 0; i < 200; ++i) {
    const CleanStream clean = clean_delta32(random, 1000);
    timing::StreamDecoder decoder = delta32_decoder();
    EXPECT_EQ(first_difference(as_reference(feed(decoder, clean.bytes)), clean.tags), "") << "stream " << i;
  }
}

TEST(Delta32AgainstReference, ValidStreams) {
  Random random(3202);
  Totals totals;
  for (int i = 0; totals.words < rounds(2'000'000) && !HasFatalFailure(); ++i) {
    const std::size_t events = 1 + random.of_any_size(13);
    const bool aimed = random.one_in(2);
    const Bytes stream = aimed ? aimed_delta32(random, events) : clean_delta32(random, events).bytes;
    compare_on(stream, random, (aimed ? "aimed stream " : "clean stream ") + std::to_string(i), totals);
  }
  EXPECT_GT(totals.tags, rounds(500'000));
}

Bytes hostile_delta32(Random& random) {
  Bytes stream;
  switch (random.below(10)) {
    case 0:
      return random.bytes(1 + random.of_any_size(12));
    case 1:
      return Bytes(1 + random.of_any_size(12), random.one_in(2) ? 0 : 0xFF);
    case 2:
    case 3:
      stream = shuffled_delta32(random, 1 + random.of_any_size(12));
      break;
    case 4:
      for (std::uint64_t left = random.of_any_size(10); left > 0; --left) stream += bytes({0xEB, 0x5A, 0x55, 0xAA});
      break;
    case 5:
    case 6:
      stream = clean_delta32(random, 1 + random.of_any_size(12)).bytes;
      break;
    default:
      stream = aimed_delta32(random, 1 + random.of_any_size(12));
  }
  damage(random, stream, random.of_any_size(1 + stream.size() / 300 % 7));
  return stream;
}

TEST(Delta32AgainstReference, HostileStreams) {
  Random random(3203);
  Totals totals;
  for (int i = 0; totals.words < rounds(2'000'000) && !HasFatalFailure(); ++i) {
    Bytes stream;
    for (std::uint64_t parts = random.between(1, 4); parts > 0; --parts) stream += hostile_delta32(random);
    compare_on(stream, random, "hostile stream " + std::to_string(i), totals);
  }
  EXPECT_GT(totals.tags, rounds(200'000));
}

}  // namespace
}  // namespace orvo::test
