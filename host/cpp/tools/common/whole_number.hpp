#pragma once
// What the programs share: file-local throughout.
#include <charconv>
#include <optional>
#include <string_view>
#include <system_error>

namespace {

/// The whole text as a decimal number, "-" allowed for signed types. Nothing when it is anything else, blanks and a
/// "+" included, or does not fit the type.
template <class Integer>
std::optional<Integer> parse_whole_number(std::string_view text) {
  Integer value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
  return value;
}

}  // namespace
