// write_capture FILE: writes a capture of a laser and a detector.
//
// The laser fires every microsecond, 10000 times. Channel 0 sees every fourth pulse, channel 1 sees each of them, 240
// to 260 ps later. Prints
//
//   12500 tags in 100000 bytes of payload
#include <array>
#include <cstdint>
#include <exception>
#include <iostream>
#include <orvo/timing/timing.hpp>
#include <vector>

/// Appends a raw64 word of the tag format "ps": the channel in bits 62 and 61, the device time below, first byte
/// highest. The device's clock wraps every 14.3 s; readers undo that, as long as no channel is quiet for half of it.
static void append_tag(std::vector<std::uint8_t>& payload, const orvo::timing::TimeTag& tag) {
  constexpr std::uint64_t kDevicePeriodPs = 14'315'125'997'568;
  const std::uint64_t word =
      std::uint64_t{tag.channel} << 61 | static_cast<std::uint64_t>(tag.time_ps) % kDevicePeriodPs;
  for (int shift = 56; shift >= 0; shift -= 8) payload.push_back(static_cast<std::uint8_t>(word >> shift));
}

static std::vector<std::uint8_t> laser_pulses() {
  constexpr std::array<std::int64_t, 4> kDelaysPs = {250, 240, 260, 250};
  constexpr std::int64_t kPeriodPs = 1'000'000;
  std::vector<std::uint8_t> payload;
  for (std::int64_t pulse = 0; pulse < 10'000; ++pulse) {
    const std::int64_t group = pulse / 4;
    if (pulse % 4 == 0) append_tag(payload, {0, pulse * kPeriodPs});
    append_tag(payload, {1, pulse * kPeriodPs + kDelaysPs[static_cast<std::size_t>(group % 4)]});
  }
  return payload;
}

int main(int argc, char** argv) try {
  if (argc != 2) {
    std::cerr << "usage: write_capture FILE\n";
    return 64;
  }
  orvo::timing::StreamFileHeader header;
  header.stream_format = orvo::timing::StreamFormat::raw64;
  header.raw64_tag_format = "ps";
  header.channel_mask = 0b0011;
  header.application = "write_capture";

  const std::vector<std::uint8_t> payload = laser_pulses();
  orvo::timing::StreamFileWriter writer;
  writer.open(argv[1], header);
  writer.write(payload.data(), payload.size());
  writer.close();
  std::cout << payload.size() / 8 << " tags in " << writer.payload_bytes() << " bytes of payload\n";
} catch (const std::exception& error) {
  std::cerr << error.what() << '\n';
  return 1;
}
