#pragma once
// The reference decoders with the product's beside them: every chunk goes to both, and both must be in the same state
// afterwards.
#include <gtest/gtest.h>

#include <cstdint>
#include <span>
#include <string>

#include "orvo/timing/stream_decoder.hpp"
#include "orvo/timing/stream_file_header.hpp"
#include "support/as_reference.hpp"
#include "support/decoder_state.hpp"
#include "support/stream_feeding.hpp"

namespace orvo::test {

/// A reference decoder with the product's beside it.
template <class Reference>
class Checked : public Reference {
 public:
  explicit Checked(const timing::StreamFileHeader& header) : Reference(as_reference(header)), decoder_(header) {}

  /// The reference's tags. Fails the test, and fills `apart`, when the decoder's are others or its state is.
  reference::Tags feed(std::span<const std::uint8_t> chunk) {
    const reference::Tags tags = Reference::feed(chunk);
    apart = first_difference(as_reference(test::feed(decoder_, Bytes(chunk.begin(), chunk.end()))), tags);
    apart += difference(decoder_, *this);
    EXPECT_EQ(apart, "");
    return tags;
  }

  std::string apart;

 private:
  timing::StreamDecoder decoder_;
};

using CheckedRaw64 = Checked<reference::Raw64Decoder>;
using CheckedDelta32 = Checked<reference::Delta32Decoder>;
using CheckedPacked = Checked<reference::PackedDeltaDecoder>;

}  // namespace orvo::test
