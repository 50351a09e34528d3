// Header text: reading it agrees with the reference, and what is written from it is sound JSON that reads back.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "fuzz/support/require.hpp"
#include "orvo/timing/stream_header_json.hpp"
#include "reference/header.hpp"
#include "support/as_reference.hpp"
#include "support/strict_json.hpp"

namespace {

using orvo::fuzz::require;
using orvo::test::StrictJson;
using orvo::timing::StreamFileHeader;

std::array<std::string*, 6> texts(StreamFileHeader& header) {
  return {&header.raw64_tag_format, &header.created_utc,   &header.application,
          &header.device_product,   &header.device_serial, &header.device_port};
}

/// The search for keys is flat: a value that reads as a quoted key, at its end or as a whole, is taken for that key.
bool reads_as_a_key(const std::string& value) {
  constexpr std::string_view kKeys[] = {"stream_format", "mode",         "stream_transport", "raw64_tag_format",
                                        "created_utc",   "application",  "device_product",   "device_serial",
                                        "device_port",   "channel_mask", "tdl_index",        "delta_bits",
                                        "quantum_ps"};
  return std::any_of(std::begin(kKeys), std::end(kKeys), [&value](std::string_view key) {
    return value == key || value.ends_with('"' + std::string(key));
  });
}

bool is_utc_time(const std::string& text) {
  constexpr std::string_view kForm = "dddd-dd-ddTdd:dd:dd.ddddddZ";
  return text.size() == kForm.size() && std::equal(text.begin(), text.end(), kForm.begin(), [](char c, char form) {
           return form == 'd' ? c >= '0' && c <= '9' : c == form;
         });
}

void check_json_of(const StreamFileHeader& header, const std::string& json) {
  const auto leaves = StrictJson::parse(json);
  require(leaves.has_value(), "a written header is one JSON object");
  require(leaves->size() == 15, "a written header has fifteen values");
  require(json.find_first_of("\n\r\t") == json.npos, "a written header is one line");
  const auto is_text = [&](const char* key, const std::string& value) {
    return leaves->at(key) == orvo::test::JsonLeaf{true, value};
  };
  const auto is_number = [&](const char* key, unsigned value) {
    return leaves->at(key) == orvo::test::JsonLeaf{false, std::to_string(value)};
  };
  require(is_text("created_utc", header.created_utc) && is_text("application", header.application) &&
              is_text("device_product", header.device_product) && is_text("device_serial", header.device_serial) &&
              is_text("device_port", header.device_port) && is_text("raw64_tag_format", header.raw64_tag_format),
          "a written header holds the texts");
  require(is_number("channel_mask", header.channel_mask) && is_number("tdl_index", header.tdl_index) &&
              is_number("packed_delta_config.delta_bits", header.delta_bits) &&
              is_number("packed_delta_config.quantum_ps", header.quantum_ps),
          "a written header holds the numbers");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  StreamFileHeader header = orvo::timing::stream_header_from_json(text);
  namespace reference = orvo::test::reference;
  require(reference::describe(orvo::test::as_reference(header)) == reference::describe(reference::read_header(text)),
          "both readers agree");

  const std::string json = orvo::timing::stream_header_to_json(header);
  StreamFileHeader again = orvo::timing::stream_header_from_json(json);
  if (header.created_utc.empty()) {
    const auto leaves = StrictJson::parse(json);
    require(leaves && is_utc_time(leaves->at("created_utc").text), "an empty creation time is filled in");
    header.created_utc = leaves->at("created_utc").text;
  }
  for (std::string* const value : texts(header)) {
    std::replace_if(
        value->begin(), value->end(),
        [](char c) { return static_cast<unsigned char>(c) < 0x20 && c != '\t' && c != '\n' && c != '\r'; }, '?');
  }
  check_json_of(header, json);

  const auto values = texts(header);
  if (std::any_of(values.begin(), values.end(), [](const std::string* value) { return reads_as_a_key(*value); })) {
    return 0;
  }
  require(again == header, "a written header reads back");
  require(orvo::timing::stream_header_to_json(again) == json, "writing it again changes nothing");
  return 0;
}
