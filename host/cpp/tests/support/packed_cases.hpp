#pragma once
// The packed_delta streams on which decoder and reference are compared, and the count of what happened in them.
#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "orvo/timing/stream_file_header.hpp"
#include "support/bytes.hpp"
#include "support/packed_aimed_streams.hpp"
#include "support/packed_streams.hpp"
#include "support/streams.hpp"

namespace orvo::test {

/// A stream with the header that it is decoded by, and the sizes of the chunks it comes in.
struct PackedStream {
  timing::StreamFileHeader header;
  Bytes bytes;
  std::string name;
  std::size_t smallest_chunk = 1, largest_chunk = 1'048'576;
};

inline PackedStream valid_packed(Random& random) {
  PackedStream stream{
      .header = random_packed_header(random, static_cast<int>(random.below(16))), .bytes = {}, .name = "clean"};
  const PackedSettings settings = settings_of(stream.header);
  const std::uint64_t kind = random.below(25);
  if (kind < 12) {
    constexpr std::uint64_t kAimEvery[] = {4, 30, 300};
    stream.name = "aimed";
    stream.bytes = AimedPacked(random, settings, kAimEvery[kind % 3]).with_events(1 + random.of_any_size(11)).bytes();
  } else {
    stream.bytes = clean_packed(random, settings, 1 + random.of_any_size(14)).bytes;
  }
  return stream;
}

inline PackedStream lopsided_stream(Random& random) {
  const int mask = 1 << random.below(4) | 1 << random.below(4) | 1 << random.below(4);
  PackedStream stream{
      .header = packed_header(timing::StreamMode::internal, mask, static_cast<int>(random.between(3, 13)), 8),
      .bytes = {},
      .name = "lopsided",
      .smallest_chunk = 5000};
  stream.bytes = lopsided_packed(random, settings_of(stream.header), 3).bytes();
  return stream;
}

/// A header that may not fit the stream.
inline timing::StreamFileHeader other_header(Random& random, timing::StreamFileHeader header) {
  switch (random.below(4)) {
    case 0:
      header.delta_bits = random.byte();
      break;
    case 1:
      header.quantum_ps = static_cast<std::uint16_t>(random.one_in(3) ? 0 : random.bits());
      break;
    case 2:
      header.channel_mask = random.byte();
      break;
    default:
      header.mode =
          header.mode == timing::StreamMode::internal ? timing::StreamMode::external : timing::StreamMode::internal;
  }
  return header;
}

inline PackedStream hostile_packed(Random& random) {
  PackedStream stream{
      .header = random_packed_header(random, static_cast<int>(random.below(16))), .bytes = {}, .name = "damaged"};
  const std::uint64_t kind = random.below(20);
  if (kind > 8) stream.header.delta_bits = static_cast<std::uint8_t>(random.between(9, 31));
  const PackedSettings settings = settings_of(stream.header);
  if (kind == 0) {
    stream.name = "meaningless";
    const std::size_t size = 1 + random.of_any_size(13);
    stream.bytes = random.one_in(2) ? random.bytes(size) : Bytes(size, random.one_in(2) ? 0 : 0xFF);
  } else if (kind < 4) {
    stream.name = "shuffled";
    stream.bytes = shuffled_packed(random, settings, 1 + random.of_any_size(11), 200).bytes();
    if (random.one_in(2)) stream.largest_chunk = 60;
  } else if (kind < 9) {
    stream.bytes = AimedPacked(random, settings, 30).with_events(1 + random.of_any_size(10)).bytes();
    damage(random, stream.bytes, random.below(6));
  } else {
    stream.bytes = clean_packed(random, settings, 1 + random.of_any_size(13), 15).bytes;
    damage(random, stream.bytes, stream.bytes.size() / random.between(500, 5000));
    stream.largest_chunk = 400;
  }
  if (stream.bytes.size() < 3000 && random.one_in(6)) stream.header = other_header(random, stream.header);
  return stream;
}

/// What a series of streams amounted to.
struct Totals {
  std::uint64_t records = 0, tags = 0;
  std::map<std::string, std::uint64_t> lines;  // by their first two words, or by "locked"

  void add_lines(const std::vector<std::string>& added) {
    for (const std::string& line : added) {
      const bool lock = line.starts_with("locked");
      lines[line.substr(0, line.find(' ', lock ? 0 : line.find(' ') + 1))] += 1;
    }
  }
};

/// Each of the lines was written `least` times or more.
inline void expect_often(const Totals& totals, std::uint64_t least, std::initializer_list<const char*> lines) {
  for (const auto& [line, count] : totals.lines) testing::Test::RecordProperty(line, std::to_string(count));
  for (const char* line : lines) {
    const auto found = totals.lines.find(line);
    EXPECT_GE(found == totals.lines.end() ? 0 : found->second, least) << line;
  }
}

}  // namespace orvo::test
