#pragma once
// A new decoder for every input, without its price: building the table of fine times takes longer than most inputs.
#include <cstdint>
#include <map>
#include <utility>

#include "orvo/timing/stream_decoder.hpp"

namespace orvo::fuzz {

/// The decoder that the constructor makes for this header. Only raw64 gets the table, which no other encoding may
/// touch.
inline timing::StreamDecoder fresh_decoder(const timing::StreamFileHeader& header) {
  using Settings = std::pair<std::uint8_t, std::uint16_t>;  // all of a header that the constructor looks at
  static std::map<Settings, timing::StreamDecoder> made;
  static const std::vector<std::int64_t> fine_table_ps = timing::StreamDecoder(header).fine_table_ps;
  if (made.size() > 10'000) made.clear();
  const Settings settings{header.delta_bits, header.quantum_ps};
  auto found = made.find(settings);
  if (found == made.end()) {
    found = made.emplace(settings, header).first;
    found->second.fine_table_ps = {};
  }
  timing::StreamDecoder decoder = found->second;
  decoder.header = header;
  decoder.header.delta_bits = found->second.header.delta_bits;
  decoder.header.quantum_ps = found->second.header.quantum_ps;
  if (header.stream_format == timing::StreamFormat::raw64) decoder.fine_table_ps = fine_table_ps;
  return decoder;
}

}  // namespace orvo::fuzz
