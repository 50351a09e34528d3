// The packed_delta decoder against its reference: both get the same chunks, and tags, waiting bytes, lock and states
// must be equal after every chunk.
#include <gtest/gtest.h>

#include <algorithm>
#include <span>
#include <string>
#include <vector>

#include "orvo/timing/stream_decoder.hpp"
#include "support/as_reference.hpp"
#include "support/bytes.hpp"
#include "support/checked_decoders.hpp"
#include "support/packed_cases.hpp"
#include "support/packed_debug_output.hpp"
#include "support/stream_feeding.hpp"
#include "support/streams.hpp"

namespace orvo::test {
namespace {

/// While the two search, chunks are mostly of the size of what waits already: that keeps the plain search bearable.
std::size_t next_chunk(Random& random, const PackedStream& stream, const reference::PackedDeltaDecoder& model) {
  const std::size_t size = std::clamp(chunk_size(random), stream.smallest_chunk, stream.largest_chunk);
  if (model.locked || random.one_in(10)) return size;
  return std::clamp<std::size_t>(size, model.pending.size(), 300 + model.pending.size());
}

/// Feeds the stream to both in the same chunks.
void compare_on(const PackedStream& stream, Random& random, int number, Totals& totals) {
  CheckedPacked model{stream.header};
  for (std::size_t at = 0; at < stream.bytes.size();) {
    const std::size_t size = std::min(next_chunk(random, stream, model), stream.bytes.size() - at);
    totals.tags += model.feed(std::span(stream.bytes).subspan(at, size)).size();
    ASSERT_EQ(model.apart, "") << stream.name << " stream " << number << ", chunk of " << size << " bytes at " << at;
    at += size;
  }
  totals.records += 8 * stream.bytes.size() / (stream.header.delta_bits + 3u);
  totals.add_lines(model.lines);
}

TEST(PackedDeltaAgainstReference, ValidStreams) {
  Random random(3302);
  Totals totals;
  for (int i = 0; totals.records < 1'200'000 * rounds() && !HasFatalFailure(); ++i) {
    compare_on(valid_packed(random), random, i, totals);
  }
  EXPECT_GT(totals.tags, 200'000 * rounds());
  expect_often(totals, 5 * rounds(), {"locked", "drop implausible", "drop nonmonotonic", "reject internal"});
}

TEST(PackedDeltaAgainstReference, HostileStreams) {
  Random random(3303);
  Totals totals;
  for (int i = 0; totals.records < 1'200'000 * rounds() && !HasFatalFailure(); ++i) {
    compare_on(hostile_packed(random), random, i, totals);
  }
  EXPECT_GT(totals.tags, 200'000 * rounds());
  expect_often(totals, 5 * rounds(),
               {"locked", "no alignment", "drop inactive", "drop sync", "drop ovf", "drop implausible",
                "drop nonmonotonic", "reject internal"});
}

TEST(PackedDeltaAgainstReference, LopsidedStreams) {
  Random random(3307);
  Totals totals;
  for (int i = 0; i < 20 && !HasFatalFailure(); ++i) compare_on(lopsided_stream(random), random, i, totals);
  expect_often(totals, 10, {"locked", "drop internal"});
}

TEST(PackedDeltaAgainstReference, LongStreamsWithoutAlignmentAreTrimmed) {
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

/// What the decoder writes to standard error over the stream, in chunks of `chunk` bytes.
std::string diagnostics(const PackedStream& stream, std::size_t chunk) {
  timing::StreamDecoder decoder{stream.header};
  return debug_output_of([&] { feed_in_chunks(decoder, stream.bytes, chunk); });
}

std::vector<std::string> expected_lines(const PackedStream& stream, std::size_t chunk) {
  reference::PackedDeltaDecoder model{as_reference(stream.header)};
  for (std::size_t at = 0; at < stream.bytes.size(); at += chunk) {
    model.feed(std::span(stream.bytes).subspan(at, std::min(chunk, stream.bytes.size() - at)));
  }
  return model.lines;
}

std::string as_written(const std::vector<std::string>& lines) {
  std::string out;
  for (const std::string& line : lines) out += "packed-decoder: " + line + "\n";
  return out;
}

TEST(PackedDeltaAgainstReference, DiagnosticLinesAreTheSame) {
  Random random(3306);
  Totals totals;
  for (std::uint64_t i = 0; i < 400 * rounds(); ++i) {
    const PackedStream stream = i < 10 ? lopsided_stream(random) : hostile_packed(random);
    const std::size_t chunk = std::max<std::size_t>(random.between(1, 400), stream.bytes.size() / (i < 10 ? 3 : 12));
    const std::vector<std::string> lines = expected_lines(stream, chunk);
    ASSERT_EQ(diagnostics(stream, chunk), as_written(lines))
        << stream.name << " stream " << i << ", chunks of " << chunk;
    totals.add_lines(lines);
  }
  expect_often(totals, 2,
               {"locked", "no alignment", "drop inactive", "drop internal", "drop sync", "drop ovf",
                "drop implausible", "drop nonmonotonic", "reject internal"});
}

}  // namespace
}  // namespace orvo::test
