#pragma once
#include <cstdint>
#include <string>

#include "orvo/timing/version.hpp"

namespace orvo::timing {

/// Encoding of a capture's payload.
enum class StreamFormat : std::uint32_t { raw64 = 0, delta32 = 1, packed_delta = 2 };

/// Clocking of the recording. Internal recordings hold all active channels at similar rates.
enum class StreamMode : std::uint32_t { internal = 0, external = 1 };

/// Link the tags came over.
enum class StreamTransport : std::uint32_t { uart = 0, usb = 1, usb_async = 2 };

/// What a capture says of itself in its JSON header. The defaults are those of a header that says nothing.
struct StreamFileHeader {
  StreamFormat stream_format = StreamFormat::packed_delta;
  StreamMode mode = StreamMode::external;
  StreamTransport stream_transport = StreamTransport::usb;
  std::uint8_t channel_mask = 0x0F;     ///< bit n = channel n is active; only bits 0 to 3 are stored in a file
  std::uint8_t tdl_index = 0;           ///< tapped delay line the tags were taken from; carried, not interpreted
  std::uint8_t delta_bits = 16;         ///< packed_delta: payload bits of a record
  std::uint16_t quantum_ps = 8;         ///< packed_delta: time quantum, of which the power of two counts
  std::string raw64_tag_format = "ps";  ///< raw64: "raw_cf" = coarse and fine counts, anything else = picoseconds
  std::string created_utc;              ///< UTC, as in 2025-03-07T09:05:01.000042Z; the writer fills an empty one
  std::string application;
  std::string device_product;
  std::string device_serial;
  std::string device_port;

  friend bool operator==(const StreamFileHeader&, const StreamFileHeader&) = default;
};

}  // namespace orvo::timing
