#pragma once
#include <cstdint>
#include <span>
#include <variant>

#include "orvo/timing/byte_queue.hpp"
#include "orvo/timing/delta32_encoder.hpp"
#include "orvo/timing/encoder_settings.hpp"
#include "orvo/timing/packed_delta_encoder.hpp"
#include "orvo/timing/raw64_encoder.hpp"
#include "orvo/timing/stream_file_header.hpp"
#include "orvo/timing/time_tag.hpp"

namespace orvo::timing {

/// Tags to payload, in the encoding that a header names: the other way round of `StreamDecoder`. A decoder of the
/// same header, fed in reads of 1 MiB, gives the tags again, each plus `axis_ps`; what its encoding cannot carry so
/// is refused with an `Error` (see the encoder of each encoding).
class TagEncoder {
 public:
  /// Throws `Error` for a header whose encoding decodes to nothing.
  explicit TagEncoder(const StreamFileHeader& header, const EncoderSettings& settings = {})
      : encoder_(encoder_for(header, settings)) {}

  /// Appends the encoded tags to `payload`; up to 7 bits may wait for the next call. Of tags that end in an error
  /// those before it are appended.
  void encode(std::span<const TimeTag> tags, ByteQueue& payload) {
    std::visit([&](auto& encoder) { encoder.encode(tags, payload); }, encoder_);
  }
  /// Appends what still waits. Nothing can be encoded after that. Throws `Error` when a packed_delta capture so short
  /// could not be decoded.
  void finish(ByteQueue& payload) {
    std::visit([&](auto& encoder) { encoder.finish(payload); }, encoder_);
  }

  /// Decoded less given time of the tags of a channel (0 to 3); 0 as long as it has none. All channels have the same
  /// one, unless `EncoderSettings::channel_axes` is set.
  std::int64_t axis_ps(unsigned channel) const {
    return std::visit([channel](const auto& encoder) { return encoder.axis_ps(channel); }, encoder_);
  }
  /// What `EncoderSettings::round` has moved so far.
  Rounding rounding() const {
    return std::visit([](const auto& encoder) { return Rounding(encoder.rounding()); }, encoder_);
  }

 private:
  using AnyEncoder = std::variant<Raw64Encoder, Delta32Encoder, PackedDeltaEncoder>;

  static AnyEncoder encoder_for(const StreamFileHeader& header, const EncoderSettings& settings) {
    switch (header.stream_format) {
      case StreamFormat::raw64:
        return Raw64Encoder(header, settings);
      case StreamFormat::delta32:
        return Delta32Encoder(header, settings);
      case StreamFormat::packed_delta:
        return PackedDeltaEncoder(header, settings);
    }
    throw Error("TagEncoder: unknown stream format", kInvalidArgument);
  }

  AnyEncoder encoder_;
};

}  // namespace orvo::timing
