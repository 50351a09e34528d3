#pragma once
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <sstream>

#include "orvo/timing/stream_decoder_state.hpp"

namespace orvo::timing::detail {

inline constexpr std::uint64_t kMostPackedDebugLines = 200;

/// Tells on standard error why packed data was dropped, when ORVO_PACKED_DEBUG is set: one line, at most 200 of them
/// per decoder. Numbers are written in decimal.
template <class... Parts>
void packed_debug(StreamDecoder& decoder, const Parts&... parts) {
  if (decoder.pk_debug_lines >= kMostPackedDebugLines || std::getenv("ORVO_PACKED_DEBUG") == nullptr) return;
  ++decoder.pk_debug_lines;
  std::ostringstream line;
  line << "packed-decoder: ";
  (line << ... << parts);
  line << '\n';
  std::cerr << line.str();
}

}  // namespace orvo::timing::detail
