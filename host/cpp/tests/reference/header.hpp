#pragma once
// The capture header: flat text search, one key at a time.
#include <cstdint>
#include <optional>
#include <string>

namespace orvo::test::reference {

enum class Encoding { raw64, delta32, packed_delta };

struct Header {
  Encoding stream_format = Encoding::packed_delta;
  int mode = 1;              // 0 internal, 1 external
  int stream_transport = 1;  // 0 uart, 1 usb, 2 usb_async
  std::uint64_t channel_mask = 15;
  std::uint64_t tdl_index = 0;
  std::uint64_t delta_bits = 16;
  std::uint64_t quantum_ps = 8;
  std::string raw64_tag_format = "ps";
  std::string created_utc;
  std::string application;
  std::string device_product;
  std::string device_serial;
  std::string device_port;

  bool operator==(const Header&) const = default;
};

/// The header field by field, to show.
inline std::string describe(const Header& header) {
  return "stream_format " + std::to_string(static_cast<int>(header.stream_format)) +  //
         "\nmode " + std::to_string(header.mode) +                                    //
         "\nstream_transport " + std::to_string(header.stream_transport) +            //
         "\nchannel_mask " + std::to_string(header.channel_mask) +                    //
         "\ntdl_index " + std::to_string(header.tdl_index) +                          //
         "\ndelta_bits " + std::to_string(header.delta_bits) +                        //
         "\nquantum_ps " + std::to_string(header.quantum_ps) +                        //
         "\nraw64_tag_format [" + header.raw64_tag_format + "]" +                     //
         "\ncreated_utc [" + header.created_utc + "]" +                               //
         "\napplication [" + header.application + "]" +                               //
         "\ndevice_product [" + header.device_product + "]" +                         //
         "\ndevice_serial [" + header.device_serial + "]" +                           //
         "\ndevice_port [" + header.device_port + "]\n";
}

inline std::string lower_case(std::string text) {
  for (char& c : text) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return text;
}

inline std::string json_escape(const std::string& text) {
  std::string out;
  for (const char c : text) {
    if (c == '\t') {
      out += "\\t";
    } else if (c == '\n') {
      out += "\\n";
    } else if (c == '\r') {
      out += "\\r";
    } else if (c == '"') {
      out += "\\\"";
    } else if (c == '\\') {
      out += "\\\\";
    } else if (static_cast<unsigned char>(c) < 0x20) {
      out += "?";
    } else {
      out += c;
    }
  }
  return out;
}

/// What follows the first colon after the first "key"; nothing without such a colon.
inline std::optional<std::string> text_after_key(const std::string& json, const std::string& key) {
  const std::string needle = "\"" + key + "\"";
  const std::size_t found = json.find(needle);
  if (found == std::string::npos) return std::nullopt;
  const std::string after_key = json.substr(found + needle.size());
  const std::size_t colon = after_key.find(':');
  if (colon == std::string::npos) return std::nullopt;
  return after_key.substr(colon + 1);
}

inline std::optional<std::string> find_string(const std::string& json, const std::string& key) {
  const std::optional<std::string> rest = text_after_key(json, key);
  if (!rest || rest->find('"') == std::string::npos) return std::nullopt;
  std::string value;
  for (std::size_t i = rest->find('"') + 1; i < rest->size(); ++i) {
    char c = (*rest)[i];
    if (c == '"') return value;
    if (c == '\\') {
      ++i;
      if (i == rest->size()) return std::nullopt;
      c = (*rest)[i];
      if (c == 'r')
        c = '\r';
      else if (c == 't')
        c = '\t';
      else if (c == 'n')
        c = '\n';
    }
    value.push_back(c);
  }
  return std::nullopt;  // no closing quote
}

inline std::optional<std::uint64_t> find_number(const std::string& json, const std::string& key) {
  const std::optional<std::string> rest = text_after_key(json, key);
  if (!rest) return std::nullopt;
  std::size_t i = 0;
  while (i < rest->size() && std::string(" \t\n\v\f\r").find((*rest)[i]) != std::string::npos) ++i;
  const std::size_t first_digit = i;
  std::uint64_t value = 0;
  while (i < rest->size() && (*rest)[i] >= '0' && (*rest)[i] <= '9') {
    value = value * 10 + static_cast<std::uint64_t>((*rest)[i] - '0');
    ++i;
  }
  if (i == first_digit) return std::nullopt;
  return value;
}

inline Header read_header(const std::string& json) {
  Header header;
  if (const auto text = find_string(json, "stream_format")) {
    const std::string word = lower_case(*text);
    header.stream_format = Encoding::raw64;
    if (word == "delta32") header.stream_format = Encoding::delta32;
    if (word == "packed_delta" || word == "packeddelta") header.stream_format = Encoding::packed_delta;
  }
  if (const auto text = find_string(json, "mode")) {
    header.mode = lower_case(*text) == "internal" ? 0 : 1;
  }
  if (const auto text = find_string(json, "stream_transport")) {
    const std::string word = lower_case(*text);
    header.stream_transport = 0;
    if (word == "usb") header.stream_transport = 1;
    if (word == "usb_async" || word == "usb-async" || word == "usbasync") header.stream_transport = 2;
  }
  if (const auto text = find_string(json, "raw64_tag_format")) header.raw64_tag_format = *text;
  if (const auto text = find_string(json, "created_utc")) header.created_utc = *text;
  if (const auto text = find_string(json, "application")) header.application = *text;
  if (const auto text = find_string(json, "device_product")) header.device_product = *text;
  if (const auto text = find_string(json, "device_serial")) header.device_serial = *text;
  if (const auto text = find_string(json, "device_port")) header.device_port = *text;
  if (const auto number = find_number(json, "channel_mask")) header.channel_mask = *number % 16;
  if (const auto number = find_number(json, "tdl_index")) header.tdl_index = *number % 256;
  if (const auto number = find_number(json, "delta_bits")) header.delta_bits = *number % 256;
  if (const auto number = find_number(json, "quantum_ps")) header.quantum_ps = *number % 65536;
  if (header.raw64_tag_format.empty()) header.raw64_tag_format = header.mode == 0 ? "raw_cf" : "ps";
  return header;
}

}  // namespace orvo::test::reference
