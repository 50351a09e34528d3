#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
// Numbers as reports and findings show them.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>

#include "common/units.hpp"

namespace {

/// "1 tag", "2 tags".
inline std::string counted(std::uint64_t count, const std::string& what) {
  return std::to_string(count) + ' ' + what + (count == 1 ? "" : "s");
}

/// Seconds with all twelve decimals that picoseconds have, without those that are zero at the end.
inline std::string exact_seconds(std::int64_t time_ps) {
  const bool negative = time_ps < 0;
  const std::uint64_t magnitude =
      negative ? 0 - static_cast<std::uint64_t>(time_ps) : static_cast<std::uint64_t>(time_ps);
  constexpr std::uint64_t kSecondPs = 1'000'000'000'000;
  std::string decimals = std::to_string(kSecondPs + magnitude % kSecondPs).substr(1);
  while (decimals.size() > 1 && decimals.back() == '0') decimals.pop_back();
  return (negative ? "-" : "") + std::to_string(magnitude / kSecondPs) + '.' + decimals + " s";
}

/// A time that passed, to be read at a glance.
inline std::string for_people(double time_ps) {
  return text_of_time_ps(time_ps);
}
inline std::string for_people(std::uint64_t time_ps) {
  return text_of_time_ps(static_cast<double>(time_ps));
}

/// A share in percent: "12.5 %"; what is not nothing never reads 0.
inline std::string percent(std::uint64_t part, std::uint64_t whole) {
  if (whole == 0) return "0 %";
  const double share = 100 * static_cast<double>(part) / static_cast<double>(whole);
  if (part != 0 && share < 0.005) return "< 0.01 %";
  return three_digits(share) + " %";
}

/// A small chance as a power of ten: "1e-12".
inline std::string chance(double natural_log) {
  const double exponent = std::floor(natural_log / std::log(10.0));
  if (exponent < -300) return "below 1e-300";
  char text[32];
  std::snprintf(text, sizeof text, "1e%.0f", exponent);
  return text;
}

/// A ratio: "3.00".
inline std::string ratio(double value) {
  return three_digits(value);
}

}  // namespace
