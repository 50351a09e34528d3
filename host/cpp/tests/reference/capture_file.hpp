#pragma once
// Reading a capture of any encoding: the whole file in memory.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "reference/delta32.hpp"
#include "reference/header.hpp"
#include "reference/packed_delta.hpp"
#include "reference/raw64.hpp"
#include "reference/tag.hpp"

namespace orvo::test::reference {

using FileBytes = std::vector<std::uint8_t>;

/// Calls `use` with a new decoder of the encoding that the header names.
template <class Use>
auto with_decoder(const Header& header, Use use) {
  switch (header.stream_format) {
    case Encoding::raw64:
      return use(Raw64Decoder(header));
    case Encoding::delta32:
      return use(Delta32Decoder(header));
    case Encoding::packed_delta:
      return use(PackedDeltaDecoder(header));
  }
  throw std::logic_error("an encoding without a reference");
}

struct Capture {
  std::string failure;  // text and code of the failure; empty: the capture was opened
  int failure_code = 0;
  std::string header_json;
  Header header;
  std::uint64_t payload_offset = 0;
  FileBytes payload;
};

inline Capture failed_capture(const std::string& failure, int code) {
  Capture capture;
  capture.failure = failure;
  capture.failure_code = code;
  return capture;
}

/// Opens a capture whose bytes are `file`; nothing: there is no such file.
inline Capture read_capture(const std::string& path, const std::optional<FileBytes>& file) {
  if (!file) return failed_capture("StreamFileReader: cannot open " + path, -2);
  if (file->size() < 8) return failed_capture("StreamFileReader: truncated magic", -2);
  const std::string magic(file->begin(), file->begin() + 8);
  if (magic != "TAGCAP1\n" && magic != "VQSTRM1\n") {
    return failed_capture("StreamFileReader: not an Orvo timing stream file", -4);
  }
  if (file->size() < 12) return failed_capture("stream file: truncated header length", -2);
  std::uint64_t header_length = 0;
  for (std::size_t i = 12; i-- > 8;) header_length = header_length * 256 + (*file)[i];
  if (file->size() - 12 < header_length) return failed_capture("StreamFileReader: truncated JSON header", -2);

  Capture capture;
  const auto payload_begin = file->begin() + 12 + static_cast<std::int64_t>(header_length);
  capture.header_json = std::string(file->begin() + 12, payload_begin);
  capture.header = read_header(capture.header_json);
  capture.payload_offset = 12 + header_length;
  capture.payload = FileBytes(payload_begin, file->end());
  return capture;
}

/// The tags of a capture that is read `chunk_bytes` (at least 1) at a time. Where reads end is part of the result for
/// delta32 and packed_delta.
inline Tags decode(const Header& header, std::span<const std::uint8_t> payload, std::size_t chunk_bytes = 1'048'576) {
  return with_decoder(header, [&](auto decoder) {
    Tags tags;
    for (std::size_t at = 0; at < payload.size(); at += chunk_bytes) {
      const Tags more = decoder.feed(payload.subspan(at, std::min(chunk_bytes, payload.size() - at)));
      tags.insert(tags.end(), more.begin(), more.end());
    }
    return tags;
  });
}

}  // namespace orvo::test::reference
