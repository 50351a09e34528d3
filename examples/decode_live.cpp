// decode_live < CAPTURE: counts the tags of a stream as it comes in, from any pipe or socket. For the capture that
// write_capture makes it prints
//
//   ch0: 2500 tags
//   ch1: 10000 tags
//   ch2: 0 tags
//   ch3: 0 tags
//
// For a driver that delivers bare payload, without a header, fill in a StreamFileHeader by hand instead.
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <iostream>
#include <orvo/timing/timing.hpp>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

/// Reads as many bytes as have come, up to `size`; 0 at the end of the stream.
static std::size_t receive(std::uint8_t* bytes, std::size_t size) {
  const auto count = ::read(STDIN_FILENO, bytes, size);
  if (count < 0) throw std::runtime_error("cannot read from standard input");
  return static_cast<std::size_t>(count);
}

static std::string receive_exactly(std::size_t size) {
  std::string text(size, '\0');
  for (std::size_t done = 0; done < size;) {
    const std::size_t count = receive(reinterpret_cast<std::uint8_t*>(text.data()) + done, size - done);
    if (count == 0) throw std::runtime_error("the stream ends in its header");
    done += count;
  }
  return text;
}

/// What a capture starts with: the magic word, the length of the header's text, and the text.
static orvo::timing::StreamFileHeader receive_header() {
  if (receive_exactly(orvo::timing::kStreamFileMagicBytes) != orvo::timing::kStreamFileMagic) {
    throw std::runtime_error("the stream is no capture");
  }
  std::size_t length = 0;
  const std::string length_bytes = receive_exactly(4);
  for (std::size_t i = 4; i-- > 0;) length = length << 8 | static_cast<std::uint8_t>(length_bytes[i]);
  return orvo::timing::stream_header_from_json(receive_exactly(length));
}

int main() try {
  orvo::timing::StreamDecoder decoder(receive_header());
  std::array<std::uint64_t, orvo::timing::kChannels> tags{};
  std::vector<std::uint8_t> bytes(std::size_t{1} << 20);
  while (const std::size_t count = receive(bytes.data(), bytes.size())) {
    for (const orvo::timing::TimeTag& tag : decoder.feed(std::span(bytes).first(count))) ++tags[tag.channel];
  }
  for (std::size_t channel = 0; channel < tags.size(); ++channel) {
    std::cout << "ch" << channel << ": " << tags[channel] << " tags\n";
  }
} catch (const std::exception& error) {
  std::cerr << error.what() << '\n';
  return 1;
}
