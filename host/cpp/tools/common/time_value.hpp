#pragma once
// What the programs share: file-local throughout.
#include <cstdint>
#include <limits>
#include <optional>
#include <string_view>
#include <utility>

#include "common/whole_number.hpp"

namespace {

/// A time as options take it: a whole number directly followed by ps, ns, us, ms or s, or of picoseconds without a
/// unit: "12ns", "-3s", "250". `nullopt` for anything else ("1.5s", "12 ns", "1NS") and for what does not fit.
inline std::optional<std::int64_t> parse_time_ps(std::string_view text) {
  constexpr std::int64_t kMostPs = std::numeric_limits<std::int64_t>::max();
  // "s" stands after the units that end in it, the empty one last.
  constexpr std::pair<std::string_view, std::int64_t> kUnits[] = {
      {"ps", 1}, {"ns", 1'000}, {"us", 1'000'000}, {"ms", 1'000'000'000}, {"s", 1'000'000'000'000}, {"", 1}};
  for (const auto& [unit, unit_ps] : kUnits) {
    if (!text.ends_with(unit)) continue;
    const auto units = parse_whole_number<std::int64_t>(text.substr(0, text.size() - unit.size()));
    if (!units || *units < -kMostPs / unit_ps || *units > kMostPs / unit_ps) return std::nullopt;
    return *units * unit_ps;
  }
  return std::nullopt;
}

}  // namespace
