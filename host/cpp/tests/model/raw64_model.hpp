#pragma once
// Reading a capture and decoding raw64, in the plainest form: the whole file in memory, one word after the other.
#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "model/header_model.hpp"

namespace orvo::test::model {

using FileBytes = std::vector<std::uint8_t>;

struct Tag {
  int channel = 0;
  std::int64_t time_ps = 0;
  bool operator==(const Tag&) const = default;
};

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

/// Picoseconds that fine code `code` lies before the clock edge: 18.5 a code rounded half up, 3332 at most.
inline std::int64_t fine_ps(std::int64_t code) {
  const std::int64_t rounded = (37 * code + 1) / 2;
  return rounded < 3332 ? rounded : 3332;
}

inline std::vector<Tag> decode_raw64(const Header& header, const FileBytes& payload) {
  const bool coarse_fine = lower_case(header.raw64_tag_format) == "raw_cf";
  const std::uint64_t coarse_period = std::uint64_t{1} << 32;  // counts
  const std::uint64_t time_period = 3333 * coarse_period;      // ps
  const std::uint64_t period = coarse_fine ? coarse_period : time_period;
  std::array<std::optional<std::uint64_t>, 4> previous;
  std::array<std::uint64_t, 4> epoch{};

  std::vector<Tag> tags;
  std::size_t position = 0;
  while (position + 8 <= payload.size()) {
    std::uint64_t word = 0;
    for (std::size_t i = 0; i < 8; ++i) word = word * 256 + payload[position + i];

    const bool is_record = coarse_fine ? word >> 63 == 0 && (word >> 45 & 0xFFFF) == 0xA5C3
                                       : word >> 63 == 0 && (word >> 44 & 0x1FFFF) == 0;
    if (!is_record) {
      position += 1;
      continue;
    }
    position += 8;

    const std::size_t channel = word >> 61 & 3;
    const std::uint64_t value = coarse_fine ? word >> 13 & 0xFFFFFFFF : (word & 0xFFFFFFFFFFF) % time_period;
    if (previous[channel] && value < *previous[channel] && *previous[channel] - value > period / 2) {
      epoch[channel] += period;
    }
    previous[channel] = value;

    Tag tag;
    tag.channel = static_cast<int>(channel);
    tag.time_ps = static_cast<std::int64_t>(value + epoch[channel]);
    if (coarse_fine) tag.time_ps = tag.time_ps * 3333 - fine_ps(static_cast<std::int64_t>(word & 0x1FFF));
    tags.push_back(tag);
  }
  return tags;
}

}  // namespace orvo::test::model
