// Captures read from files against the references, which get the same chunks: tags in stream order, lists per
// channel.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "orvo/timing/channel_times.hpp"
#include "orvo/timing/stream_file_reader.hpp"
#include "orvo/timing/stream_file_writer.hpp"
#include "reference/capture_file.hpp"
#include "support/as_reference.hpp"
#include "support/bytes.hpp"
#include "support/delta32_streams.hpp"
#include "support/packed_cases.hpp"
#include "support/sanitizer.hpp"
#include "support/streams.hpp"
#include "support/temp_directory.hpp"

namespace orvo::test {
namespace {

using reference::Tags;
using timing::StreamFileHeader;
using timing::StreamFormat;

/// A capture on disk, read again and again.
class Capture {
 public:
  Capture(const StreamFileHeader& header, const Bytes& payload) {
    timing::StreamFileWriter writer;
    writer.open(path(), header);
    writer.write(payload.data(), payload.size());
  }

  Tags tags_in_stream_order(std::uint64_t tags_per_call, std::uint64_t chunk_bytes) const {
    timing::StreamFileReader reader;
    reader.open(path());
    std::vector<timing::TimeTag> tags;
    for (auto more = tags; !(more = reader.decode_next_tags(tags_per_call, chunk_bytes)).empty();) {
      tags.insert(tags.end(), more.begin(), more.end());
    }
    return as_reference(tags);
  }

  timing::ChannelTimes times(std::uint64_t chunk_bytes) const {
    timing::StreamFileReader reader;
    reader.open(path());
    timing::ChannelTimes times;
    while (reader.decode_next_chunk(chunk_bytes, times)) {
    }
    return times;
  }

 private:
  std::string path() const { return (directory_ / "a.tagcap").string(); }

  TempDirectory directory_;
};

std::string list_apart(const timing::ChannelTimes& times, const Tags& tags) {
  for (std::size_t c = 0; c < 4; ++c) {
    reference::Times expected;
    for (const reference::Tag& tag : tags) {
      if (tag.channel == static_cast<int>(c)) expected.push_back(tag.time_ps);
    }
    if (!std::ranges::equal(times[c], expected)) return "the list of channel " + std::to_string(c);
  }
  return {};
}

/// Compares on one capture; the number of its tags.
std::size_t compare(const StreamFileHeader& header, const Bytes& payload, std::size_t chunk_bytes,
                    std::size_t tags_per_call) {
  const Capture capture(header, payload);
  const Tags expected = reference::decode(as_reference(header), payload, chunk_bytes);
  const Tags decoded = capture.tags_in_stream_order(tags_per_call, chunk_bytes);
  EXPECT_EQ(first_difference(decoded, expected), "") << "chunks of " << chunk_bytes;
  EXPECT_EQ(list_apart(capture.times(chunk_bytes), expected), "") << "chunks of " << chunk_bytes;
  return expected.size();
}

/// A word that is a record or nearly one: a bit of what must be fixed may be wrong.
std::uint64_t raw64_word(Random& random, bool coarse_fine, std::uint64_t count, std::uint64_t fine) {
  const std::uint64_t channel = random.below(4);
  const std::uint64_t flaw = random.one_in(300) ? std::uint64_t{1} << random.between(44, 63) : 0;
  return flaw ^
         (coarse_fine ? cf_word(channel, count & 0xFFFF'FFFF, fine) : ps_word(channel, count & 0xFFF'FFFF'FFFF));
}

/// Times that mostly ascend, with every step that unwrapping may meet.
Bytes raw64_stream(Random& random, bool coarse_fine, std::size_t words) {
  const std::uint64_t period = coarse_fine ? std::uint64_t{1} << 32 : kDevicePeriod;
  std::uint64_t count = random.below(period);
  Bytes stream;
  for (std::size_t i = 0; i < words; ++i) {
    if (random.one_in(50)) {
      const std::uint64_t steps[] = {period / 2, period / 2 + 1, period - 1, random.of_any_size(44),
                                     0 - random.below(1000)};
      count += steps[random.below(5)];
    } else {
      count += random.of_any_size(coarse_fine ? 10 : 20);
    }
    // Picosecond times have room beyond the period.
    if (!random.one_in(100)) count %= period;
    stream += big_endian(raw64_word(random, coarse_fine, count, random.below(8192)), 8);
    if (random.one_in(400)) stream += random.bytes(random.between(1, 20));
  }
  return stream;
}

TEST(ReaderAgainstReference, Raw64) {
  Random random(6401);
  std::size_t tags = 0;
  for (int i = 0; i < 300 && !HasFailure(); ++i) {
    const bool coarse_fine = random.one_in(2);
    StreamFileHeader header;
    header.stream_format = StreamFormat::raw64;
    const char* formats[] = {"ps", "", "raw-cf", "raw_cf", "RAW_CF", "Raw_Cf"};
    header.raw64_tag_format = formats[random.below(3) + (coarse_fine ? 3 : 0)];
    if (random.one_in(20)) header.raw64_tag_format = formats[random.below(6)];  // that of the other words
    header.mode = timing::StreamMode::external;
    Bytes stream = raw64_stream(random, coarse_fine, 1 + random.of_any_size(13));
    if (random.one_in(3)) damage(random, stream, random.below(20));
    if (random.one_in(10)) stream = random.bytes(stream.size());
    tags += compare(header, stream, chunk_size(random), random.between(1, 5000));
  }
  EXPECT_GT(tags, 100'000u);
}

TEST(ReaderAgainstReference, Delta32) {
  Random random(6402);
  StreamFileHeader header;
  header.stream_format = StreamFormat::delta32;
  std::size_t tags = 0;
  for (int i = 0; i < 300 && !HasFailure(); ++i) {
    const std::size_t events = 1 + random.of_any_size(13);
    Bytes stream = random.one_in(2) ? aimed_delta32(random, events) : clean_delta32(random, events).bytes;
    if (random.one_in(10)) stream = shuffled_delta32(random, events);
    if (random.one_in(3)) damage(random, stream, random.below(20));
    if (random.one_in(20)) stream = random.bytes(stream.size());
    tags += compare(header, stream, chunk_size(random), random.between(1, 5000));
  }
  EXPECT_GT(tags, 100'000u);
}

/// The reference searches for the alignment in every chunk until it has found it: chunks of few bytes are for short
/// streams.
std::size_t packed_chunk_size(Random& random, const Bytes& stream) {
  const std::size_t chunk_bytes = chunk_size(random);
  return std::max(chunk_bytes, stream.size() / 20 + 1);
}

TEST(ReaderAgainstReference, PackedDelta) {
  Random random(6403);
  std::size_t tags = 0;
  for (int i = 0; i < 120 && !HasFailure(); ++i) {
    const PackedStream stream = valid_packed(random);
    tags += compare(stream.header, stream.bytes, packed_chunk_size(random, stream.bytes), random.between(1, 5000));
  }
  EXPECT_GT(tags, 50'000u);
}

TEST(ReaderAgainstReference, PackedDeltaWithDamageNoiseAndOtherHeaders) {
  Random random(6404);
  std::size_t tags = 0;
  for (int i = 0; i < 120 && !HasFailure(); ++i) {
    const PackedStream stream = hostile_packed(random);
    tags += compare(stream.header, stream.bytes, packed_chunk_size(random, stream.bytes), random.between(1, 5000));
  }
  EXPECT_GT(tags, 5'000u);
}

TEST(ReaderAgainstReference, PackedDeltaWithChunksThatAreDiscardedForTheirImbalance) {
  Random random(6405);
  for (int i = 0; i < 8 && !HasFailure(); ++i) {
    const PackedStream stream = lopsided_stream(random);
    compare(stream.header, stream.bytes, random.between(5000, 50'000), 5000);
  }
}

/// Several reads of 1 MiB, as the tool reads.
TEST(ReaderAgainstReference, FilesOfSeveralReads) {
  constexpr std::size_t kPayloadBytes = orvo::test::kUnderAddressSanitizer ? 2'300'000 : 3'400'000;
  Random random(6406);
  for (const bool damaged : {false, true}) {
    StreamFileHeader header;
    header.stream_format = StreamFormat::delta32;
    Bytes payload;
    while (payload.size() < kPayloadBytes) {
      Bytes part = random.one_in(2) ? aimed_delta32(random, 20'000) : clean_delta32(random, 20'000).bytes;
      if (damaged) damage(random, part, random.below(20));
      payload += part;
    }
    EXPECT_GT(compare(header, payload, 1'048'576, 65'536), 100'000u) << "delta32";

    header = damaged ? packed_header(timing::StreamMode::internal, 3, 19, 8)
                     : packed_header(timing::StreamMode::external, 15, 10, 8);
    payload.clear();
    while (payload.size() < kPayloadBytes) payload += clean_packed(random, settings_of(header), 300'000).bytes;
    damage(random, payload, 10);
    EXPECT_GT(compare(header, payload, 1'048'576, 65'536), 100'000u) << "packed_delta";
  }
}

}  // namespace
}  // namespace orvo::test
