#pragma once
// The encodings that are measured, and capture files of them.
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "orvo/timing/stream_file_header.hpp"
#include "orvo/timing/stream_file_writer.hpp"
#include "support/inputs.hpp"
#include "support/temp_directory.hpp"

namespace orvo::bench {

struct Encoding {
  std::string name;
  timing::StreamFormat format = timing::StreamFormat::raw64;
  std::string raw64_tag_format = "ps";
  unsigned delta_bits = 16;

  timing::StreamFileHeader header() const {
    timing::StreamFileHeader header;
    header.stream_format = format;
    header.raw64_tag_format = raw64_tag_format;
    header.channel_mask = 0b0011;
    header.delta_bits = static_cast<std::uint8_t>(delta_bits);
    return header;
  }
};

inline Encoding raw64_ps() {
  return {.name = "raw64 ps"};
}
inline Encoding raw64_cf() {
  return {.name = "raw64 raw_cf", .raw64_tag_format = "raw_cf"};
}
inline Encoding delta32() {
  return {.name = "delta32", .format = timing::StreamFormat::delta32};
}
inline Encoding packed(unsigned delta_bits) {
  return {.name = "packed_delta " + std::to_string(delta_bits) + " bits",
          .format = timing::StreamFormat::packed_delta,
          .delta_bits = delta_bits};
}

struct Payload {
  Bytes bytes;
  std::string note;  // what shares of records matter
};

inline Payload encoded(const Encoding& encoding, const std::vector<timing::TimeTag>& tags) {
  switch (encoding.format) {
    case timing::StreamFormat::raw64:
      return {encoding.raw64_tag_format == "ps" ? raw64_ps_payload(tags) : raw64_cf_payload(tags), {}};
    case timing::StreamFormat::delta32:
      return {delta32_payload(tags), {}};
    case timing::StreamFormat::packed_delta:
      break;
  }
  PackedPayload packed = packed_payload(in_quanta(tags), encoding.delta_bits);
  const std::uint64_t percent = (100 * packed.overflow_records + packed.records / 2) / packed.records;
  return {std::move(packed.bytes), std::to_string(percent) + " % overflows"};
}

/// Where capture files stay until the benchmarks end.
inline const test::TempDirectory& capture_directory() {
  static const test::TempDirectory directory;
  return directory;
}

inline std::string write_capture(const std::string& name, const Encoding& encoding, const Bytes& payload) {
  std::string path = (capture_directory() / (name + ".tagcap")).string();
  timing::StreamFileWriter writer;
  writer.open(path, encoding.header());
  writer.write(payload.data(), payload.size());
  return path;
}

}  // namespace orvo::bench
