#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
#include <cstddef>
#include <string>
#include <string_view>

namespace {

/// Text as it may stand anywhere in a page, cut to a bearable length: nothing in it can become markup.
inline std::string html_text(std::string_view text, std::size_t most = 1000) {
  std::string out;
  for (const char c : text.substr(0, most)) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      case '\'':
        out += "&#39;";
        break;
      default:
        out += static_cast<unsigned char>(c) < ' ' || c == 0x7F ? '?' : c;
    }
  }
  return text.size() > most ? out + "..." : out;
}

}  // namespace
