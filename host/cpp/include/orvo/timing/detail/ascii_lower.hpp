#pragma once
#include <string>

namespace orvo::timing::detail {

/// The text with A to Z in lower case.
inline std::string ascii_lower(std::string text) {
  for (char& c : text) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  return text;
}

}  // namespace orvo::timing::detail
