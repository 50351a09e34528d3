#pragma once
// Capture files decoded by the reference decoders, 1 MiB at a time.
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "reference/capture_file.hpp"

namespace orvo::bench {

/// Decodes a capture file, and hands the tags of each read to `take`.
template <class Take>
void decode_file_plainly(const std::string& path, Take take) {
  std::ifstream file(path, std::ios::binary);
  std::vector<std::uint8_t> bytes(12);
  const auto read = [&file](std::uint8_t* to, std::size_t size) {
    file.read(reinterpret_cast<char*>(to), static_cast<std::streamsize>(size));
    return static_cast<std::size_t>(file.gcount());
  };
  read(bytes.data(), 12);
  const std::size_t header_length =
      bytes[8] | std::size_t{bytes[9]} << 8 | std::size_t{bytes[10]} << 16 | std::size_t{bytes[11]} << 24;
  bytes.resize(12 + header_length);
  read(bytes.data() + 12, header_length);
  const test::reference::Capture capture = test::reference::read_capture(path, bytes);
  if (!capture.failure.empty()) throw std::runtime_error(capture.failure);

  test::reference::with_decoder(capture.header, [&](auto decoder) {
    std::vector<std::uint8_t> chunk(1'048'576);
    while (const std::size_t size = read(chunk.data(), chunk.size()))
      take(decoder.feed(std::span(chunk).first(size)));
  });
}

/// All tags of a capture file.
inline test::reference::Tags decode_file_plainly(const std::string& path) {
  test::reference::Tags tags;
  decode_file_plainly(path, [&tags](const test::reference::Tags& more) {
    for (const test::reference::Tag& tag : more) tags.push_back(tag);
  });
  return tags;
}

}  // namespace orvo::bench
