// The delta32 decoder against a second one: both get the same chunks, and tags, waiting bytes and states must be
// equal after every chunk.
#include "model/delta32_model.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <span>
#include <string>
#include <vector>

#include "model/checked_models.hpp"
#include "model/delta32_streams.hpp"
#include "model/stream_generators.hpp"
#include "orvo/timing/stream_file_reader.hpp"
#include "support/bytes.hpp"
#include "support/temp_directory.hpp"

namespace orvo::test::model {
namespace {

using timing::StreamFileHeader;
using timing::TimeTag;
using Tags = std::vector<TimeTag>;

StreamFileHeader delta32_header() {
  StreamFileHeader header;
  header.stream_format = timing::StreamFormat::delta32;
  return header;
}

struct Totals {
  std::uint64_t words = 0, tags = 0;
};

/// Feeds the stream to both in the same chunks.
void compare_on(const Bytes& stream, Random& random, const std::string& name, Totals& totals) {
  CheckedDelta32 model{delta32_header()};
  for (std::size_t at = 0; at < stream.size();) {
    const std::size_t size = std::min(chunk_size(random), stream.size() - at);
    totals.tags += model.feed(std::span(stream).subspan(at, size)).size();
    ASSERT_EQ(model.apart, "") << name << ", chunk of " << size << " bytes at " << at;
    at += size;
  }
  totals.words += stream.size() / 4;
}

TEST(Delta32AgainstModel, ValidStreams) {
  Random random(3202);
  Totals totals;
  for (int i = 0; totals.words < 2'000'000 * rounds() && !HasFatalFailure(); ++i) {
    const std::size_t events = 1 + random.of_any_size(13);
    const bool aimed = random.one_in(2);
    const Bytes stream = aimed ? aimed_delta32(random, events) : clean_delta32(random, events).bytes;
    compare_on(stream, random, (aimed ? "aimed stream " : "clean stream ") + std::to_string(i), totals);
  }
  EXPECT_GT(totals.tags, 500'000 * rounds());
}

Bytes hostile_delta32(Random& random) {
  Bytes stream;
  switch (random.below(10)) {
    case 0:
      return noise(random, 1 + random.of_any_size(12));
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

TEST(Delta32AgainstModel, HostileStreams) {
  Random random(3203);
  Totals totals;
  for (int i = 0; totals.words < 2'000'000 * rounds() && !HasFatalFailure(); ++i) {
    Bytes stream;
    for (std::uint64_t parts = random.between(1, 4); parts > 0; --parts) stream += hostile_delta32(random);
    compare_on(stream, random, "hostile stream " + std::to_string(i), totals);
  }
  EXPECT_GT(totals.tags, 200'000 * rounds());
}

TEST(Delta32AgainstModel, WholeFiles) {
  const TempDirectory directory;
  Random random(3204);
  for (int file = 0; file < 2; ++file) {
    Bytes payload;
    while (payload.size() < 4'000'000) {
      Bytes part = random.one_in(2) ? aimed_delta32(random, 20'000) : clean_delta32(random, 20'000).bytes;
      if (file > 0) damage(random, part, random.below(20));
      payload += part;
    }
    const auto path = directory / ("capture" + std::to_string(file) + ".tagcap");
    write_file(path, capture_bytes(R"({"stream_format":"delta32"})", payload));

    Tags expected;
    Delta32Model model{delta32_header()};
    for (std::size_t at = 0; at < payload.size(); at += 1'048'576) {
      const Tags tags =
          model.feed(std::span(payload).subspan(at, std::min<std::size_t>(1'048'576, payload.size() - at)));
      expected.insert(expected.end(), tags.begin(), tags.end());
    }
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
