#pragma once
// What the programs share: file-local throughout.
#include <charconv>
#include <optional>
#include <string_view>
#include <system_error>

namespace {

/// The whole text as a decimal number, with an optional "-" for signed types. `nullopt` for anything else, blanks and
/// "+" included, and for what does not fit the type.
template <class Integer>
std::optional<Integer> parse_whole_number(std::string_view text) {
  Integer value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
  return value;
}

}  // namespace
