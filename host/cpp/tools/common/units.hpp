#pragma once
// What the programs share: file-local throughout.
// Numbers for people to read: three digits and a unit, as in "1.25 MHz", "3.20 s" or "4.10 GiB".
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <iomanip>
#include <ios>
#include <locale>
#include <sstream>
#include <string>
#include <string_view>

namespace {

/// Three significant digits, without an exponent: "1.25", "12.5", "125", and all digits of larger numbers.
inline std::string three_digits(double value) {
  const double magnitude = std::abs(value);
  std::ostringstream text;
  text.imbue(std::locale::classic());
  text << std::fixed << std::setprecision(magnitude < 9.995 ? 2 : magnitude < 99.95 ? 1 : 0) << value;
  return text.str();
}

/// The value in the largest of `units` that leaves at least 1 before the point. Each unit is `step` times the one
/// before; `value` is in the first.
template <std::size_t Count>
std::string in_largest_unit(double value, double step, const std::string_view (&units)[Count]) {
  std::size_t unit = 0;
  // 999.5 would read "1000".
  while (unit + 1 < Count && std::abs(value) >= step - 0.5) {
    value /= step;
    ++unit;
  }
  return three_digits(value) + ' ' + std::string(units[unit]);
}

/// Events per second: "1.25 MHz".
inline std::string text_of_rate_hz(double rate_hz) {
  return in_largest_unit(rate_hz, 1000, {"Hz", "kHz", "MHz", "GHz"});
}

/// A time of any length: "160 ps", "3.20 s", "86400 s".
inline std::string text_of_time_ps(double time_ps) {
  return in_largest_unit(time_ps, 1000, {"ps", "ns", "us", "ms", "s"});
}

/// An amount of data: "17 B", "4.10 GiB".
inline std::string text_of_bytes(std::uint64_t bytes) {
  if (bytes < 1024) return std::to_string(bytes) + " B";
  return in_largest_unit(static_cast<double>(bytes), 1024, {"B", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"});
}

}  // namespace
