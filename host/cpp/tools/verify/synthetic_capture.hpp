#pragma once
// Part of vq_verify_stream_file_xcorr: file-local throughout.
#include <cstdint>
#include <filesystem>
#include <vector>

#include "orvo/timing/stream_file_writer.hpp"
#include "verify/directories.hpp"

namespace {

/// Two periodic channels, channel 1 exactly 160 ps after channel 0, as raw64 records in picoseconds.
inline std::vector<std::uint8_t> synthetic_payload() {
  constexpr std::uint64_t kFirstPs = 10'000;
  constexpr std::uint64_t kPeriodPs = 20'000;
  constexpr std::uint64_t kPairs = 2'000;
  constexpr std::uint64_t kDelayPs = 160;
  constexpr std::uint64_t kChannel1 = std::uint64_t{1} << 61;
  std::vector<std::uint8_t> bytes;
  bytes.reserve(kPairs * 2 * 8);
  const auto append = [&bytes](std::uint64_t word) {
    for (int shift = 56; shift >= 0; shift -= 8) bytes.push_back(static_cast<std::uint8_t>(word >> shift));
  };
  for (std::uint64_t t = kFirstPs; t != kFirstPs + kPairs * kPeriodPs; t += kPeriodPs) {
    append(t);
    append(kChannel1 | (t + kDelayPs));
  }
  return bytes;
}

/// Writes a small capture with a known answer where runs search for captures, and returns its path. Later runs find
/// it.
inline std::filesystem::path make_synthetic_capture() {
  using namespace orvo::timing;
  const std::filesystem::path directory =
      capture_directory_of(std::filesystem::current_path() / "VRN-B") / "verification";
  std::filesystem::create_directories(directory);
  std::filesystem::path path = directory / "synthetic_raw64_xcorr.tagcap";

  StreamFileHeader header;
  header.stream_format = StreamFormat::raw64;
  header.mode = StreamMode::external;
  header.stream_transport = StreamTransport::usb;
  header.channel_mask = 0b0011;
  header.raw64_tag_format = "ps";

  const std::vector<std::uint8_t> payload = synthetic_payload();
  StreamFileWriter writer;
  writer.open(path.string(), header);
  writer.write(payload.data(), payload.size());
  return path;
}

}  // namespace
