#pragma once
// JSON as a capture's flat header needs it: an escaper, and values found by plain text search. There is no parser on
// purpose: headers are one level deep, and a search reads what a strict parser would refuse.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace orvo::timing::detail {

/// The text as it stands between the quotes of a JSON string. Control characters other than TAB, LF and CR become
/// "?"; bytes from 0x80 on pass unchanged, so UTF-8 stays UTF-8.
inline std::string json_escape(std::string_view text) {
  std::string out;
  out.reserve(text.size() + 8);
  for (const char c : text) {
    switch (c) {
      case '\t':
        out += "\\t";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\r':
        out += "\\r";
        break;
      case '"':
        out += "\\\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      default:
        out += static_cast<unsigned char>(c) < 0x20 ? '?' : c;
    }
  }
  return out;
}

/// What follows `found` at its first occurrence; nothing when it does not occur or nothing follows.
inline std::optional<std::string_view> text_after(std::string_view text, std::string_view found) {
  const auto at = text.find(found);
  if (at == text.npos || at + found.size() == text.size()) return std::nullopt;
  return text.substr(at + found.size());
}

/// What follows the colon of the first quoted `key`, wherever it stands.
inline std::optional<std::string_view> json_find_value(std::string_view json, std::string_view key) {
  const auto after_key = text_after(json, '"' + std::string(key) + '"');
  return after_key ? text_after(*after_key, ":") : std::nullopt;
}

/// The next quoted text after the colon of the first quoted `key`, unescaped; nothing when there is none or it does
/// not end. Deliberate: what lies between colon and quote is not looked at, so a bare number yields the text after
/// it.
inline std::optional<std::string> json_find_string(std::string_view json, std::string_view key) {
  const auto value = json_find_value(json, key);
  const auto content = value ? text_after(*value, "\"") : std::nullopt;
  if (!content) return std::nullopt;
  std::string out;
  for (std::size_t i = 0; i < content->size(); ++i) {
    char c = (*content)[i];
    if (c == '"') return out;
    if (c == '\\') {
      if (++i == content->size()) return std::nullopt;
      c = (*content)[i];
      c = c == 'r' ? '\r' : c == 't' ? '\t' : c == 'n' ? '\n' : c;
    }
    out += c;
  }
  return std::nullopt;
}

/// The decimal digits after the colon of the first quoted `key`, white space skipped, modulo 2^64; nothing when no
/// digit stands there.
inline std::optional<std::uint64_t> json_find_uint(std::string_view json, std::string_view key) {
  const auto value = json_find_value(json, key);
  const auto first = value ? value->find_first_not_of(" \t\n\v\f\r") : std::string_view::npos;
  if (first == std::string_view::npos) return std::nullopt;
  const auto is_digit = [](char c) { return c >= '0' && c <= '9'; };
  const std::string_view text = value->substr(first);
  if (!is_digit(text.front())) return std::nullopt;
  std::uint64_t number = 0;
  for (std::size_t i = 0; i < text.size() && is_digit(text[i]); ++i) {
    number = number * 10 + static_cast<std::uint64_t>(text[i] - '0');
  }
  return number;
}

}  // namespace orvo::timing::detail
