#pragma once
// delta32 payloads by hand: 4-byte words, most significant byte first.
//
//   31 control | 30..29 channel or sub-type | 28..25 type | 24..0 payload
#include <cstdint>

#include "orvo/timing/stream_decoder.hpp"
#include "support/bytes.hpp"

namespace orvo::test {

struct Delta32Fields {
  std::uint32_t control = 0;
  std::uint32_t channel = 0;
  std::uint32_t type = 0;
  std::uint64_t payload = 0;
};

inline Bytes d32_word(const Delta32Fields& fields) {
  return big_endian(fields.control << 31 | fields.channel << 29 | fields.type << 25 | fields.payload, 4);
}

inline Bytes d32_sync() {
  return bytes({0xEB, 0x5A, 0x55, 0xAA});
}

/// Bits 24..0 of a time base.
inline Bytes d32_base_low(std::uint64_t payload) {
  return d32_word({.control = 1, .channel = 1, .type = 5, .payload = payload});
}

/// Bits 40..25 of a time base.
inline Bytes d32_base_high(std::uint64_t payload) {
  return d32_word({.control = 1, .channel = 2, .type = 5, .payload = payload});
}

/// `units` times 2^25 ps for the next event.
inline Bytes d32_extension(std::uint64_t units) {
  return d32_word({.control = 1, .channel = 0, .type = 5, .payload = units});
}

inline Bytes d32_event(std::uint32_t channel, std::uint64_t delta_ps) {
  return d32_word({.control = 0, .channel = channel, .type = 10, .payload = delta_ps});
}

/// Sync word and both halves of the low 41 bits of `time_ps`: a base for the next event.
inline Bytes d32_base(std::uint64_t time_ps) {
  return d32_sync() + d32_base_low(time_ps & 0x1FF'FFFF) + d32_base_high(time_ps >> 25 & 0xFFFF);
}

/// An event of any delta: as many extension words as it takes, at most 65535 units each, then the event word.
inline Bytes d32_gap(std::uint32_t channel, std::uint64_t delta_ps) {
  Bytes words;
  for (std::uint64_t units = delta_ps >> 25; units != 0;) {
    const std::uint64_t part = units < 65535 ? units : 65535;
    words += d32_extension(part);
    units -= part;
  }
  return words + d32_event(channel, delta_ps & 0x1FF'FFFF);
}

inline timing::StreamFileHeader delta32_header() {
  timing::StreamFileHeader header;
  header.stream_format = timing::StreamFormat::delta32;
  return header;
}

inline timing::StreamDecoder delta32_decoder() {
  return timing::StreamDecoder(delta32_header());
}

}  // namespace orvo::test
