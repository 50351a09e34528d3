#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
// Texts from outside, so that they cannot disturb a terminal.
#include <cstddef>
#include <string>
#include <string_view>

namespace {

/// A text of a capture, cut to a line, with `?` for what is no printable ASCII.
inline std::string shown(std::string_view text) {
  constexpr std::size_t kMost = 60;
  std::string out;
  for (const char c : text.substr(0, kMost)) out += c >= ' ' && c <= '~' ? c : '?';
  return text.size() > kMost ? out + "..." : out;
}

/// A path, with `?` for control characters.
inline std::string shown_path(std::string_view path) {
  std::string out(path);
  for (char& c : out) {
    if (static_cast<unsigned char>(c) < ' ' || c == 0x7F) c = '?';
  }
  return out;
}

}  // namespace
