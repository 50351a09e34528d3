#pragma once
// Output as a page shows it: "..." stands for any text within a line or, as a line of its own, for any lines.
#include <cstddef>
#include <span>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace orvo::test {

inline constexpr std::string_view kDots = "...";

inline bool line_matches(std::string_view shown, std::string_view actual) {
  const std::size_t dots = shown.find(kDots);
  if (dots == shown.npos) return shown == actual;
  if (!actual.starts_with(shown.substr(0, dots))) return false;
  const std::string_view rest = shown.substr(dots + kDots.size());
  for (std::size_t at = dots; at <= actual.size(); ++at) {
    if (line_matches(rest, actual.substr(at))) return true;
  }
  return false;
}

inline bool lines_match(std::span<const std::string> shown, std::span<const std::string> actual) {
  if (shown.empty()) return actual.empty();
  if (shown.front() != kDots) {
    return !actual.empty() && line_matches(shown.front(), actual.front()) &&
           lines_match(shown.subspan(1), actual.subspan(1));
  }
  for (std::size_t skipped = 0; skipped <= actual.size(); ++skipped) {
    if (lines_match(shown.subspan(1), actual.subspan(skipped))) return true;
  }
  return false;
}

inline std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

inline bool output_matches(const std::string& shown, const std::string& actual) {
  return lines_match(lines_of(shown), lines_of(actual));
}

}  // namespace orvo::test
