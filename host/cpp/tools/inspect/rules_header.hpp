#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
// Findings about the header: whether it is what a writer writes, and whether searching it found what it says.
#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "inspect/finding.hpp"
#include "inspect/inspection.hpp"
#include "inspect/shown_text.hpp"
#include "inspect/strict_header.hpp"
#include "orvo/timing/detail/ascii_lower.hpp"
#include "orvo/timing/stream_file_header.hpp"
#include "orvo/timing/stream_header_json.hpp"

namespace {

/// What may stand at a key, and what decoding used.
struct HeaderRule {
  std::string_view key;
  bool number = false;
  std::vector<std::string_view> words;  ///< allowed texts, in lower case; empty = any
  std::uint64_t least = 0;
  std::uint64_t most = 0;
  std::string used;  ///< empty = the reader does not use it
};

inline std::vector<HeaderRule> header_rules(const orvo::timing::StreamFileHeader& header) {
  using orvo::timing::to_text;
  const auto text = [](std::string_view key, std::vector<std::string_view> words, std::string used) {
    return HeaderRule{key, false, std::move(words), 0, 0, std::move(used)};
  };
  const auto number = [](std::string_view key, std::uint64_t least, std::uint64_t most, unsigned used) {
    return HeaderRule{key, true, {}, least, most, std::to_string(used)};
  };
  return {
      text("file_type", {"orvo_timing_raw_stream_capture"}, ""),
      {"schema_version", true, {}, 1, 1, ""},
      text("created_utc", {}, header.created_utc),
      text("application", {}, header.application),
      text("device_product", {}, header.device_product),
      text("device_serial", {}, header.device_serial),
      text("device_port", {}, header.device_port),
      text("stream_format", {"raw64", "delta32", "packed_delta", "packeddelta"},
           std::string(to_text(header.stream_format))),
      text("mode", {"internal", "external"}, std::string(to_text(header.mode))),
      text("stream_transport", {"uart", "usb", "usb_async", "usb-async", "usbasync"},
           std::string(to_text(header.stream_transport))),
      text("raw64_tag_format", {"ps", "raw_cf", ""}, header.raw64_tag_format),
      number("channel_mask", 1, 15, header.channel_mask),
      number("tdl_index", 0, 255, header.tdl_index),
      number("delta_bits", 1, 31, header.delta_bits),
      number("quantum_ps", 1, 65'535, header.quantum_ps),
  };
}

/// A strict value as the header record would show it: the two must agree.
inline std::string as_used(const HeaderRule& rule, const StrictValue& value) {
  using namespace orvo::timing::detail;
  if (value.type == StrictValue::Type::number) return std::to_string(value.number);
  if (rule.key == "stream_format") return std::string(to_text(stream_format_from_text(value.text)));
  if (rule.key == "mode") return std::string(to_text(stream_mode_from_text(value.text)));
  if (rule.key == "stream_transport") return std::string(to_text(stream_transport_from_text(value.text)));
  return value.text;
}

inline std::string shown(const StrictValue& value) {
  if (value.type == StrictValue::Type::number) return std::to_string(value.number);
  return value.type == StrictValue::Type::text ? '"' + shown(value.text) + '"' : "of another type";
}

/// What is wrong with the value at a key; empty when nothing is.
inline std::string wrong_value(const HeaderRule& rule, const StrictValue& value) {
  const auto wanted = rule.number ? StrictValue::Type::number : StrictValue::Type::text;
  if (value.type != wanted) return rule.number ? "is not a whole number" : "is not a text";
  if (rule.number && (value.number < rule.least || value.number > rule.most)) {
    return "is not in " + std::to_string(rule.least) + " to " + std::to_string(rule.most);
  }
  const std::string word = orvo::timing::detail::ascii_lower(value.text);
  if (!rule.words.empty() && std::find(rule.words.begin(), rule.words.end(), word) == rule.words.end()) {
    return "is no word that is known there";
  }
  const bool default_filled = rule.key == "raw64_tag_format" && value.text.empty();
  if (!rule.used.empty() && !default_filled && as_used(rule, value) != rule.used) {
    return "is not what a search of the header finds";
  }
  return {};
}

inline void judge_values(const StrictHeader& strict, const Inspection& of, Findings& findings) {
  for (const HeaderRule& rule : header_rules(of.header())) {
    const auto found = strict.values.find(std::string(rule.key));
    if (found == strict.values.end()) continue;
    const std::string key(rule.key);
    const std::string wrong = wrong_value(rule, found->second);
    const std::string used = rule.used.empty() ? "" : "; decoding used " + shown(rule.used);
    if (!wrong.empty()) {
      findings.push_back({Level::suspect, "header_value", {}, key + " " + shown(found->second) + " " + wrong + used});
    }
    if (std::find(strict.twice.begin(), strict.twice.end(), key) != strict.twice.end()) {
      findings.push_back({Level::suspect, "header_value", {}, key + " stands there twice" + used});
    }
  }
}

/// The keys that are not among `known`, as a list for a sentence.
inline std::string listed(const std::vector<std::string>& keys) {
  constexpr std::size_t kMost = 8;
  std::string text;
  for (std::size_t i = 0; i < std::min(keys.size(), kMost); ++i) text += (i == 0 ? "" : ", ") + shown(keys[i]);
  return keys.size() > kMost ? text + " and " + std::to_string(keys.size() - kMost) + " more" : text;
}

inline void judge_keys(const StrictHeader& strict, Findings& findings) {
  constexpr std::array<std::string_view, 16> kKeys = {
      "file_type",   "schema_version",      "created_utc", "application",      "device_product",   "device_serial",
      "device_port", "stream_format",       "mode",        "stream_transport", "raw64_tag_format", "channel_mask",
      "tdl_index",   "packed_delta_config", "delta_bits",  "quantum_ps"};
  std::vector<std::string> missing;
  std::vector<std::string> others;
  for (const std::string_view key : kKeys) {
    if (strict.values.count(std::string(key)) == 0) missing.emplace_back(key);
  }
  for (const auto& [key, value] : strict.values) {
    if (std::find(kKeys.begin(), kKeys.end(), key) == kKeys.end()) others.push_back(key);
  }
  if (!missing.empty()) {
    findings.push_back({Level::note,
                        "header_fields",
                        {},
                        "not in the header: " + listed(missing) + "; defaults were used where decoding needs them"});
  }
  if (!others.empty()) {
    findings.push_back({Level::note, "header_fields", {}, "in the header, but meaning nothing: " + listed(others)});
  }
}

inline void judge_header(const Inspection& of, Findings& findings) {
  const StrictHeader strict = strict_header(of.input().header_text());
  const std::uint64_t bytes = of.input().header_bytes();
  if (bytes > of.input().header_text().size()) {
    findings.push_back({Level::suspect,
                        "header_not_json",
                        {},
                        "the header has " + std::to_string(bytes) + " bytes; only the first " +
                            std::to_string(of.input().header_text().size()) + " were looked at"});
  } else if (!strict.is_object) {
    findings.push_back({Level::suspect,
                        "header_not_json",
                        {},
                        "the header is not exactly one JSON object; its values were found by text search"});
  } else {
    judge_values(strict, of, findings);
    judge_keys(strict, findings);
  }
  const auto& header = of.decoded_header();
  if (!of.is_packed()) return;
  if (header.delta_bits > 31) {
    findings.push_back(
        {Level::broken,
         "header_value",
         {},
         "delta_bits " + std::to_string(header.delta_bits) + " is more than 31: no packed record can be decoded"});
  }
  if (!std::has_single_bit(header.quantum_ps)) {
    const unsigned used = 1u << std::countr_zero(header.quantum_ps);
    findings.push_back({Level::note,
                        "header_fields",
                        {},
                        "quantum_ps " + std::to_string(header.quantum_ps) + " is no power of two; decoding used " +
                            std::to_string(used)});
  }
}

}  // namespace
