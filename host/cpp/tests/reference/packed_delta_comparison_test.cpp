// The packed_delta decoder against its reference: both get the same chunks, and tags, waiting bytes, lock, states and
// diagnostic lines must be equal after every chunk.
#include <gtest/gtest.h>

#include <algorithm>
#include <span>

#include "orvo/timing/stream_decoder.hpp"
#include "support/as_reference.hpp"
#include "support/bytes.hpp"
#include "support/checked_feeding.hpp"
#include "support/packed_cases.hpp"
#include "support/packed_debug_output.hpp"
#include "support/streams.hpp"

namespace orvo::test {
namespace {

/// While the two search, chunks are mostly of the size of what waits already: that keeps the plain search bearable.
std::size_t next_chunk(Random& random, const PackedStream& stream, const timing::StreamDecoder& decoder) {
  const std::size_t size = std::clamp(chunk_size(random), stream.smallest_chunk, stream.largest_chunk);
  if (decoder.packed_locked || random.one_in(10)) return size;
  return std::clamp<std::size_t>(size, decoder.pending_bytes.size(), 300 + decoder.pending_bytes.size());
}

/// Feeds the stream to both in the same chunks.
void compare_on(const PackedStream& stream, Random& random, int number, Totals& totals) {
  timing::StreamDecoder decoder{stream.header};
  for (std::size_t at = 0; at < stream.bytes.size();) {
    const std::size_t size = std::min(next_chunk(random, stream, decoder), stream.bytes.size() - at);
    const Compared compared = compare_chunk(decoder, std::span(stream.bytes).subspan(at, size));
    ASSERT_EQ(compared.apart, "") << stream.name << " stream " << number << ", chunk of " << size << " bytes at "
                                  << at;
    totals.tags += compared.tags.size();
    totals.add_lines(compared.lines);
    at += size;
  }
  totals.records += 8 * stream.bytes.size() / (stream.header.delta_bits + 3u);
}

class PackedDeltaAgainstReference : public testing::Test {
 private:
  PackedDebugUnseen log_;
};

TEST_F(PackedDeltaAgainstReference, CleanStreamsGiveTheEncodedTimes) {
  Random random(3301);
  for (int i = 0; i < 160; ++i) {
    const timing::StreamFileHeader header = random_packed_header(random, i % 16);
    const CleanStream clean = clean_packed(random, settings_of(header), 800);
    timing::StreamDecoder decoder{header};
    EXPECT_EQ(first_difference(as_reference(feed(decoder, clean.bytes)), clean.tags), "")
        << "stream " << i << ", " << int{header.delta_bits} << " bits, quantum " << header.quantum_ps;
  }
}

TEST_F(PackedDeltaAgainstReference, ValidStreams) {
  Random random(3302);
  Totals totals;
  for (int i = 0; totals.records < rounds(1'200'000) && !HasFatalFailure(); ++i) {
    compare_on(valid_packed(random), random, i, totals);
  }
  EXPECT_GT(totals.tags, rounds(200'000));
  expect_often(totals, rounds(5), {"locked", "drop implausible", "drop nonmonotonic", "reject internal"});
}

TEST_F(PackedDeltaAgainstReference, HostileStreams) {
  Random random(3303);
  Totals totals;
  for (int i = 0; totals.records < rounds(1'200'000) && !HasFatalFailure(); ++i) {
    compare_on(hostile_packed(random), random, i, totals);
  }
  EXPECT_GT(totals.tags, rounds(200'000));
  expect_often(totals, rounds(5),
               {"locked", "no alignment", "drop inactive", "drop sync", "drop ovf", "drop implausible",
                "drop nonmonotonic", "reject internal"});
}

TEST_F(PackedDeltaAgainstReference, LopsidedStreams) {
  Random random(3307);
  Totals totals;
  for (int i = 0; i < 20 && !HasFatalFailure(); ++i) compare_on(lopsided_stream(random), random, i, totals);
  expect_often(totals, 10, {"locked", "drop internal"});
}

TEST_F(PackedDeltaAgainstReference, LongStreamsWithoutAlignmentAreTrimmed) {
  Random random(3304);
  Totals totals;
  for (int i = 0; i < 3 && !HasFatalFailure(); ++i) {
    PackedStream stream{
        .header = random_packed_header(random, 1 << i), .bytes = random.bytes(80'000), .name = "noise"};
    stream.header.delta_bits = 31;
    stream.smallest_chunk = 5'000;
    stream.largest_chunk = 30'000;
    compare_on(stream, random, i, totals);
  }
  EXPECT_GE(totals.lines["no alignment"], 9u);
}

}  // namespace
}  // namespace orvo::test
