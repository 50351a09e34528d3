#pragma once
// The product's records as the reference ring has them: its oracles share no type with the product.
#include <cstdint>
#include <string>
#include <vector>

#include "orvo/timing/stream_file_header.hpp"
#include "orvo/timing/time_tag.hpp"
#include "orvo/timing/xcorr_window.hpp"
#include "reference/header.hpp"
#include "reference/histogram.hpp"
#include "reference/tag.hpp"

namespace orvo::test {

inline reference::Header as_reference(const timing::StreamFileHeader& header) {
  return {.stream_format = static_cast<reference::Encoding>(header.stream_format),
          .mode = static_cast<int>(header.mode),
          .stream_transport = static_cast<int>(header.stream_transport),
          .channel_mask = header.channel_mask,
          .tdl_index = header.tdl_index,
          .delta_bits = header.delta_bits,
          .quantum_ps = header.quantum_ps,
          .raw64_tag_format = header.raw64_tag_format,
          .created_utc = header.created_utc,
          .application = header.application,
          .device_product = header.device_product,
          .device_serial = header.device_serial,
          .device_port = header.device_port};
}

inline reference::Window as_reference(const timing::XcorrWindow& window) {
  return {window.range_ps, window.bin_ps, window.offset_ps};
}

inline reference::Tags as_reference(const std::vector<timing::TimeTag>& tags) {
  reference::Tags out;
  out.reserve(tags.size());
  for (const timing::TimeTag& tag : tags) out.push_back({tag.channel, tag.time_ps});
  return out;
}

/// The enumerators mean the same under the same numbers.
static_assert(static_cast<int>(timing::StreamFormat::raw64) == static_cast<int>(reference::Encoding::raw64) &&
              static_cast<int>(timing::StreamFormat::delta32) == static_cast<int>(reference::Encoding::delta32) &&
              static_cast<int>(timing::StreamFormat::packed_delta) ==
                  static_cast<int>(reference::Encoding::packed_delta));

/// Where two lists of tags part; empty when they are equal.
inline std::string first_difference(const reference::Tags& a, const reference::Tags& b) {
  std::size_t i = 0;
  while (i < a.size() && i < b.size() && a[i] == b[i]) ++i;
  if (i == a.size() && i == b.size()) return {};
  const auto entry = [i](const reference::Tags& tags) {
    if (i == tags.size()) return std::string("the end");
    return std::to_string(tags[i].channel) + "@" + std::to_string(tags[i].time_ps);
  };
  return "tag " + std::to_string(i) + ": " + entry(a) + " and " + entry(b);
}

}  // namespace orvo::test
