#pragma once
// The spellings of a capture header, and the header as one line of JSON.
#include <time.h>

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

#include "orvo/timing/detail/ascii_lower.hpp"
#include "orvo/timing/detail/json_text.hpp"
#include "orvo/timing/stream_file_header.hpp"

namespace orvo::timing {

/// As headers and reports spell it; a number that is none of the enumerators reads as raw64.
inline std::string_view to_text(StreamFormat format) {
  switch (format) {
    case StreamFormat::delta32:
      return "delta32";
    case StreamFormat::packed_delta:
      return "packed_delta";
    case StreamFormat::raw64:
      break;
  }
  return "raw64";  // whatever else the number is
}

/// Anything but 0 is external.
inline std::string_view to_text(StreamMode mode) {
  return mode == StreamMode::internal ? "internal" : "external";
}

/// A number that is none of the enumerators reads as uart.
inline std::string_view to_text(StreamTransport transport) {
  switch (transport) {
    case StreamTransport::usb:
      return "usb";
    case StreamTransport::usb_async:
      return "usb_async";
    case StreamTransport::uart:
      break;
  }
  return "uart";  // whatever else the number is
}

namespace detail {

/// Unknown words are raw64: recordings older than the other encodings carry words of their own.
inline StreamFormat stream_format_from_text(const std::string& text) {
  const std::string word = ascii_lower(text);
  if (word == "delta32") return StreamFormat::delta32;
  if (word == "packed_delta" || word == "packeddelta") return StreamFormat::packed_delta;
  return StreamFormat::raw64;
}

inline StreamMode stream_mode_from_text(const std::string& text) {
  return ascii_lower(text) == "internal" ? StreamMode::internal : StreamMode::external;
}

inline StreamTransport stream_transport_from_text(const std::string& text) {
  const std::string word = ascii_lower(text);
  if (word == "usb") return StreamTransport::usb;
  if (word == "usb_async" || word == "usb-async" || word == "usbasync") return StreamTransport::usb_async;
  return StreamTransport::uart;
}

/// Tag format of raw64 records where a header leaves it empty: internal recordings carry coarse and fine counts.
inline std::string default_raw64_tag_format(StreamMode mode) {
  return mode == StreamMode::internal ? "raw_cf" : "ps";
}

/// Now in UTC with six decimals of a second: 2025-03-07T09:05:01.000042Z.
inline std::string utc_now_text() {
  using namespace std::chrono;
  const auto since_epoch = duration_cast<microseconds>(system_clock::now().time_since_epoch());
  const auto whole_seconds = floor<seconds>(since_epoch);
  const time_t calendar = static_cast<time_t>(whole_seconds.count());
  std::tm utc{};
  ::gmtime_r(&calendar, &utc);
  char date[32];
  const std::size_t length = std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &utc);
  const std::string fraction = std::to_string((since_epoch - whole_seconds).count());
  return std::string(date, length) + '.' + std::string(6 - fraction.size(), '0') + fraction + 'Z';
}

}  // namespace detail

/// The header as one line of JSON without white space. An empty `created_utc` is written as now, an empty
/// `raw64_tag_format` as the mode's.
inline std::string stream_header_to_json(StreamFileHeader header) {
  if (header.created_utc.empty()) header.created_utc = detail::utc_now_text();
  if (header.raw64_tag_format.empty()) header.raw64_tag_format = detail::default_raw64_tag_format(header.mode);
  const auto text = [](std::string_view value) { return '"' + detail::json_escape(value) + '"'; };
  const auto number = [](unsigned value) { return std::to_string(value); };
  // clang-format off: one line for each member.
  return R"({"file_type":"orvo_timing_raw_stream_capture")"
         R"(,"schema_version":1)"
         R"(,"created_utc":)" +
         text(header.created_utc) + R"(,"application":)" + text(header.application) + R"(,"device_product":)" +
         text(header.device_product) + R"(,"device_serial":)" + text(header.device_serial) + R"(,"device_port":)" +
         text(header.device_port) + R"(,"stream_format":)" + text(to_text(header.stream_format)) + R"(,"mode":)" +
         text(to_text(header.mode)) + R"(,"stream_transport":)" + text(to_text(header.stream_transport)) +
         R"(,"raw64_tag_format":)" + text(header.raw64_tag_format) + R"(,"channel_mask":)" +
         number(header.channel_mask & 0x0Fu) + R"(,"tdl_index":)" + number(header.tdl_index) +
         R"(,"packed_delta_config":{"delta_bits":)" + number(header.delta_bits) + R"(,"quantum_ps":)" +
         number(header.quantum_ps) + "}}";
  // clang-format on
}

/// The header that the text describes. Never fails: a field whose key yields no value keeps its default, numbers are
/// cut to their field's width.
inline StreamFileHeader stream_header_from_json(std::string_view json) {
  StreamFileHeader header;
  if (const auto text = detail::json_find_string(json, "stream_format"))
    header.stream_format = detail::stream_format_from_text(*text);
  if (const auto text = detail::json_find_string(json, "mode")) header.mode = detail::stream_mode_from_text(*text);
  if (const auto text = detail::json_find_string(json, "stream_transport")) {
    header.stream_transport = detail::stream_transport_from_text(*text);
  }
  const auto read_text = [json](std::string_view key, std::string& field) {
    if (auto text = detail::json_find_string(json, key)) field = *std::move(text);
  };
  read_text("raw64_tag_format", header.raw64_tag_format);
  read_text("created_utc", header.created_utc);
  read_text("application", header.application);
  read_text("device_product", header.device_product);
  read_text("device_serial", header.device_serial);
  read_text("device_port", header.device_port);
  const auto read_number = [json]<class Number>(std::string_view key, Number& field) {
    if (const auto number = detail::json_find_uint(json, key)) field = static_cast<Number>(*number);
  };
  read_number("channel_mask", header.channel_mask);
  header.channel_mask &= 0x0F;
  read_number("tdl_index", header.tdl_index);
  read_number("delta_bits", header.delta_bits);
  read_number("quantum_ps", header.quantum_ps);
  if (header.raw64_tag_format.empty()) header.raw64_tag_format = detail::default_raw64_tag_format(header.mode);
  return header;
}

}  // namespace orvo::timing
