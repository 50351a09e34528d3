// The decoders beside their plain twins, as files are read: tags in stream order and lists per channel must be those
// of the twin that gets the same chunks.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "model/delta32_streams.hpp"
#include "model/packed_cases.hpp"
#include "model/stream_generators.hpp"
#include "orvo/timing/channel_times.hpp"
#include "orvo/timing/stream_file_reader.hpp"
#include "orvo/timing/stream_file_writer.hpp"
#include "plain/delta32_plain.hpp"
#include "plain/packed_delta_plain.hpp"
#include "plain/raw64_plain.hpp"
#include "support/bytes.hpp"
#include "support/temp_directory.hpp"

namespace orvo::test {
namespace {

using model::Random;
using timing::StreamFileHeader;
using timing::StreamFormat;
using Tags = std::vector<timing::TimeTag>;

/// A capture on disk, read again and again.
class Capture {
 public:
  Capture(const StreamFileHeader& header, const Bytes& payload) : header_(header), payload_(payload) {
    timing::StreamFileWriter writer;
    writer.open(path(), header);
    writer.write(payload.data(), payload.size());
  }

  template <class PlainDecoder>
  Tags plain_tags(std::size_t chunk_bytes) const {
    PlainDecoder decoder(header_);
    Tags tags;
    for (std::size_t at = 0; at < payload_.size(); at += chunk_bytes) {
      for (const timing::TimeTag& tag :
           decoder.feed(std::span(payload_).subspan(at, std::min(chunk_bytes, payload_.size() - at)))) {
        tags.push_back(tag);
      }
    }
    return tags;
  }

  Tags tags_in_stream_order(std::uint64_t tags_per_call, std::uint64_t chunk_bytes) const {
    timing::StreamFileReader reader;
    reader.open(path());
    Tags tags;
    for (Tags more; !(more = reader.decode_next_tags(tags_per_call, chunk_bytes)).empty();) {
      tags.insert(tags.end(), more.begin(), more.end());
    }
    return tags;
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
  const StreamFileHeader& header_;
  const Bytes& payload_;
};

std::string first_difference(const timing::ChannelTimes& times, const Tags& tags) {
  std::array<std::vector<std::int64_t>, 4> lists;
  for (const timing::TimeTag& tag : tags) lists[tag.channel].push_back(tag.time_ps);
  for (std::size_t c = 0; c < lists.size(); ++c) {
    if (!std::ranges::equal(times[c], lists[c])) return "the list of channel " + std::to_string(c);
  }
  return {};
}

/// Compares on one capture; the number of its tags.
template <class PlainDecoder>
std::size_t compare(const StreamFileHeader& header, const Bytes& payload, std::size_t chunk_bytes, Random& random) {
  const Capture capture(header, payload);
  const Tags expected = capture.plain_tags<PlainDecoder>(chunk_bytes);
  const Tags decoded = capture.tags_in_stream_order(random.between(1, 5000), chunk_bytes);
  EXPECT_EQ(model::first_difference(decoded, expected), "") << "chunks of " << chunk_bytes;
  EXPECT_EQ(first_difference(capture.times(chunk_bytes), expected), "") << "chunks of " << chunk_bytes;
  return expected.size();
}

/// A word that is a record or nearly one: a bit of what must be fixed may be wrong.
std::uint64_t raw64_word(Random& random, bool coarse_fine, std::uint64_t count, std::uint64_t fine) {
  const std::uint64_t channel = random.below(4) << 61;
  const std::uint64_t flaw = random.one_in(300) ? std::uint64_t{1} << random.between(44, 63) : 0;
  if (!coarse_fine) return (channel | (count & 0xFFF'FFFF'FFFF)) ^ flaw;
  return (channel | std::uint64_t{0xA5C3} << 45 | (count & 0xFFFF'FFFF) << 13 | fine) ^ flaw;
}

/// Times that mostly ascend, with every step that unwrapping may meet.
Bytes raw64_stream(Random& random, bool coarse_fine, std::size_t words) {
  const std::uint64_t period = coarse_fine ? std::uint64_t{1} << 32 : model::kDevicePeriod;
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
    if (random.one_in(400)) stream += model::noise(random, random.between(1, 20));
  }
  return stream;
}

TEST(Raw64AndItsPlainTwin, Agree) {
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
    if (random.one_in(3)) model::damage(random, stream, random.below(20));
    if (random.one_in(10)) stream = model::noise(random, stream.size());
    tags += compare<plain::Raw64Decoder>(header, stream, model::chunk_size(random), random);
  }
  EXPECT_GT(tags, 100'000u);
}

TEST(Delta32AndItsPlainTwin, Agree) {
  Random random(6402);
  StreamFileHeader header;
  header.stream_format = StreamFormat::delta32;
  std::size_t tags = 0;
  for (int i = 0; i < 300 && !HasFailure(); ++i) {
    const std::size_t events = 1 + random.of_any_size(13);
    Bytes stream =
        random.one_in(2) ? model::aimed_delta32(random, events) : model::clean_delta32(random, events).bytes;
    if (random.one_in(10)) stream = model::shuffled_delta32(random, events);
    if (random.one_in(3)) model::damage(random, stream, random.below(20));
    if (random.one_in(20)) stream = model::noise(random, stream.size());
    tags += compare<plain::Delta32Decoder>(header, stream, model::chunk_size(random), random);
  }
  EXPECT_GT(tags, 100'000u);
}

/// The plain twin searches for the alignment in every chunk until it has found it: chunks of few bytes are for short
/// streams.
std::size_t packed_chunk_size(Random& random, const Bytes& stream) {
  const std::size_t chunk_bytes = model::chunk_size(random);
  return std::max(chunk_bytes, stream.size() / 20 + 1);
}

TEST(PackedDeltaAndItsPlainTwin, AgreeOnGoodStreams) {
  Random random(6403);
  std::size_t tags = 0;
  for (int i = 0; i < 120 && !HasFailure(); ++i) {
    const model::PackedStream stream = model::valid_packed(random);
    tags += compare<plain::PackedDeltaDecoder>(stream.header, stream.bytes, packed_chunk_size(random, stream.bytes),
                                               random);
  }
  EXPECT_GT(tags, 50'000u);
}

TEST(PackedDeltaAndItsPlainTwin, AgreeOnDamageNoiseAndOtherHeaders) {
  Random random(6404);
  std::size_t tags = 0;
  for (int i = 0; i < 120 && !HasFailure(); ++i) {
    const model::PackedStream stream = model::hostile_packed(random);
    tags += compare<plain::PackedDeltaDecoder>(stream.header, stream.bytes, packed_chunk_size(random, stream.bytes),
                                               random);
  }
  EXPECT_GT(tags, 5'000u);
}

TEST(PackedDeltaAndItsPlainTwin, AgreeOnChunksThatAreDiscardedForTheirImbalance) {
  Random random(6405);
  for (int i = 0; i < 8 && !HasFailure(); ++i) {
    const model::PackedStream stream = model::lopsided_stream(random);
    compare<plain::PackedDeltaDecoder>(stream.header, stream.bytes, random.between(5000, 50'000), random);
  }
}

}  // namespace
}  // namespace orvo::test
