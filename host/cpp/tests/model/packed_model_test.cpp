// The packed_delta decoder against a second one: both get the same chunks, and tags, waiting bytes, lock and states
// must be equal after every chunk.
#include "model/packed_model.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <span>
#include <string>
#include <vector>

#include "model/checked_models.hpp"
#include "model/packed_cases.hpp"
#include "model/packed_streams.hpp"
#include "model/stream_generators.hpp"
#include "orvo/timing/stream_file_reader.hpp"
#include "support/bytes.hpp"
#include "support/temp_directory.hpp"

namespace orvo::test::model {
namespace {

using timing::StreamFileHeader;
using timing::StreamMode;
using timing::TimeTag;
using Tags = std::vector<TimeTag>;

/// While the two search, chunks are mostly of the size of what waits already: that keeps the plain search bearable.
std::size_t next_chunk(Random& random, const PackedStream& stream, const PackedModel& model) {
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

TEST(PackedAgainstModel, ValidStreams) {
  Random random(3302);
  Totals totals;
  for (int i = 0; totals.records < 1'200'000 * rounds() && !HasFatalFailure(); ++i) {
    compare_on(valid_packed(random), random, i, totals);
  }
  EXPECT_GT(totals.tags, 200'000 * rounds());
  expect_often(totals, 5 * rounds(), {"locked", "drop implausible", "drop nonmonotonic", "reject internal"});
}

TEST(PackedAgainstModel, HostileStreams) {
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

TEST(PackedAgainstModel, LopsidedStreams) {
  Random random(3307);
  Totals totals;
  for (int i = 0; i < 20 && !HasFatalFailure(); ++i) compare_on(lopsided_stream(random), random, i, totals);
  expect_often(totals, 10, {"locked", "drop internal"});
}

TEST(PackedAgainstModel, LongStreamsWithoutAlignmentAreTrimmed) {
  Random random(3304);
  Totals totals;
  for (int i = 0; i < 3 && !HasFatalFailure(); ++i) {
    PackedStream stream{.header = random_header(random, 1 << i), .bytes = noise(random, 80'000), .name = "noise"};
    stream.header.delta_bits = 31;
    stream.smallest_chunk = 5'000;
    stream.largest_chunk = 30'000;
    compare_on(stream, random, i, totals);
  }
  EXPECT_GE(totals.lines["no alignment"], 9u);
}

TEST(PackedAgainstModel, WholeFiles) {
  const TempDirectory directory;
  Random random(3305);
  for (int file = 0; file < 3; ++file) {
    const StreamMode mode = file == 0 ? StreamMode::external : StreamMode::internal;
    const StreamFileHeader header = packed_header(mode, file == 0 ? 15 : 2 * file - 1, 10 + 9 * file, 8);
    Bytes payload;
    while (payload.size() < 3'400'000) payload += clean_packed(random, settings_of(header), 300'000).bytes;
    damage(random, payload, 10);
    const auto path = directory / ("capture" + std::to_string(file) + ".tagcap");
    const std::string text = std::string(R"({"stream_format":"packed_delta","mode":")") +
                             (mode == StreamMode::internal ? "internal" : "external") + R"(","channel_mask":)" +
                             std::to_string(header.channel_mask) + R"(,"delta_bits":)" +
                             std::to_string(header.delta_bits) + R"(,"quantum_ps":8})";
    write_file(path, capture_bytes(text, payload));

    Tags expected;
    PackedModel model{header};
    for (std::size_t at = 0; at < payload.size(); at += 1'048'576) {
      const Tags tags =
          model.feed(std::span(payload).subspan(at, std::min<std::size_t>(1'048'576, payload.size() - at)));
      expected.insert(expected.end(), tags.begin(), tags.end());
    }
    EXPECT_GT(model.lines.size(), 2u) << "no drop in file " << file;
    timing::StreamFileReader reader;
    reader.open(path.string());
    Tags decoded;
    for (Tags tags; !(tags = reader.decode_next_tags(65'536, 1'048'576)).empty();) {
      decoded.insert(decoded.end(), tags.begin(), tags.end());
    }
    EXPECT_GT(decoded.size(), 100'000u);
    EXPECT_EQ(first_difference(decoded, expected), "") << "file " << file;
  }
}

}  // namespace
}  // namespace orvo::test::model
