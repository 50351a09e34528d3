#pragma once
// Captures that the tests of the built tool share, written down byte by byte.
#include <cstdint>
#include <string>
#include <string_view>

#include "support/bytes.hpp"

namespace orvo::test {

inline constexpr std::string_view kRaw64Header =
    R"({"stream_format":"raw64","mode":"external","stream_transport":"usb","raw64_tag_format":"ps"})";

inline Bytes raw64_capture(const Bytes& payload) {
  return capture_bytes(kRaw64Header, payload);
}

/// One tag at 1000 ps on channel 0, one 160 ps later on channel 1.
inline Bytes single_pair_capture() {
  return raw64_capture(ps_record(0, 1000) + ps_record(1, 1160));
}

/// The capture behind run/golden/pairs.*: channel 2 clicks every microsecond, channel 0 answers 1200 ps earlier,
/// give or take; channels 1 and 3 click a little.
inline Bytes pairs_capture() {
  constexpr int kSpread[] = {-500, -37, -5, 5, -4, 4, 0, 3, 15, 16, 20, 24, 500, 501};
  Bytes payload = ps_record(1, 7) + ps_record(3, 8) + ps_record(3, 9);
  std::uint64_t click = 0;
  for (const int spread : kSpread) {
    click += 1'000'000;
    payload += ps_record(2, click) + ps_record(0, click - 1200 + static_cast<std::uint64_t>(spread));
  }
  return raw64_capture(payload);
}

/// `pairs` pairs of tags, 20 ns apart, channel 1 behind channel 0 by 160 ps.
inline Bytes periodic_capture(std::uint64_t pairs) {
  Bytes payload;
  payload.reserve(pairs * 16);
  for (std::uint64_t k = 0; k < pairs; ++k)
    payload += ps_record(0, 10'000 + 20'000 * k) + ps_record(1, 10'160 + 20'000 * k);
  return raw64_capture(payload);
}

}  // namespace orvo::test
