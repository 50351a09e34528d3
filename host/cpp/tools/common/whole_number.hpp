#pragma once
// What the programs share: file-local throughout.
#include <charconv>
#include <cstddef>
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

/// A decimal number of at most that many digits after the point, as in "0.01" or "250"; 0 or more. `nullopt` for
/// anything else, exponents included.
inline std::optional<double> parse_decimal(std::string_view text, std::size_t most_decimals) {
  const auto point = text.find('.');
  const std::string_view whole = text.substr(0, point);
  const std::string_view decimals = point == text.npos ? "0" : text.substr(point + 1);
  const auto is_digits = [](std::string_view digits) {
    return !digits.empty() && digits.find_first_not_of("0123456789") == digits.npos;
  };
  if (!is_digits(whole) || !is_digits(decimals) || decimals.size() > most_decimals || whole.size() > 15) return {};
  double value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
  return value;
}

}  // namespace
