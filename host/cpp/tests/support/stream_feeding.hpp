#pragma once
// Tags and payloads in pieces, as tests feed them to decoders, and whole capture files.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "orvo/timing/stream_decoder.hpp"
#include "orvo/timing/stream_file_reader.hpp"
#include "support/bytes.hpp"
#include "support/temp_directory.hpp"

namespace orvo::timing {

inline void PrintTo(const TimeTag& tag, std::ostream* out) {
  *out << "ch" << static_cast<int>(tag.channel) << " at " << tag.time_ps << " ps";
}

inline void PrintTo(const PackedAlignment& alignment, std::ostream* out) {
  *out << (alignment.found ? "found" : "not found") << ", drop " << alignment.drop_bytes << " bytes, bit "
       << alignment.bit_offset;
}

}  // namespace orvo::timing

namespace orvo::test {

using Tags = std::vector<timing::TimeTag>;

inline timing::TimeTag tag(unsigned channel, std::int64_t time_ps) {
  return {static_cast<std::uint8_t>(channel), time_ps};
}

inline Tags operator+(Tags left, const Tags& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

inline Bytes pending(const timing::StreamDecoder& decoder) {
  return Bytes(decoder.pending_bytes.begin(), decoder.pending_bytes.end());
}

inline Bytes first(std::size_t count, const Bytes& of) {
  return Bytes(of.begin(), of.begin() + static_cast<std::ptrdiff_t>(std::min(count, of.size())));
}

inline Bytes all_but_first(std::size_t count, const Bytes& of) {
  return Bytes(of.begin() + static_cast<std::ptrdiff_t>(std::min(count, of.size())), of.end());
}

/// `pattern`, `count` times.
inline Bytes repeated(const Bytes& pattern, std::size_t count) {
  Bytes out(pattern.size() * count);
  for (std::size_t i = 0; i < out.size(); ++i) out[i] = pattern[i % pattern.size()];
  return out;
}

/// Compares long lists of tags, and shows the first difference instead of all of them.
inline void expect_same(const Tags& actual, const Tags& expected) {
  EXPECT_EQ(actual.size(), expected.size());
  const auto [at, wanted] = std::mismatch(actual.begin(), actual.end(), expected.begin(), expected.end());
  if (at == actual.end() || wanted == expected.end()) return;
  EXPECT_EQ(*at, *wanted) << "tag " << at - actual.begin();
}

/// The tags that `decode` gives for all of `payload`, in chunks of `chunk_bytes`, the last one shorter.
template <class Decode>
Tags in_chunks(std::span<const std::uint8_t> payload, std::size_t chunk_bytes, Decode decode) {
  Tags tags;
  for (; !payload.empty(); payload = payload.subspan(std::min(chunk_bytes, payload.size()))) {
    tags = std::move(tags) + decode(payload.first(std::min(chunk_bytes, payload.size())));
  }
  return tags;
}

/// All tags of a capture file of this header and payload, read as the tool reads: 65536 tags, 1 MiB at a time.
inline Tags read_capture(std::string_view header_json, const Bytes& payload) {
  const TempDirectory directory;
  const std::string path = (directory / "a.tagcap").string();
  write_file(path, capture_bytes(header_json, payload));
  timing::StreamFileReader reader;
  reader.open(path);
  Tags tags;
  for (;;) {
    const Tags batch = reader.decode_next_tags(65536, 1048576);
    if (batch.empty()) return tags;
    tags.insert(tags.end(), batch.begin(), batch.end());
  }
}

}  // namespace orvo::test
