#pragma once
// Part of vq_verify_stream_file_xcorr: file-local throughout.
#include <cstdint>
#include <filesystem>
#include <optional>
#include <ostream>
#include <string>

namespace {

/// Settings of a run, named after their keys in the settings file.
struct Config {
  std::optional<std::filesystem::path> input_file;     ///< unset: the newest capture, or a synthetic one
  std::optional<std::filesystem::path> output_prefix;  ///< unset: a time-stamped directory under the output root
  std::int32_t channel_a = 0;
  std::int32_t channel_b = 1;
  std::int64_t range_ps = 5000;
  std::int64_t bin_ps = 8;
  std::string offset = "auto";  ///< "auto", or a decimal number of picoseconds
  std::uint64_t max_tags = 0;   ///< 0 = no limit
};

/// True when the analysis can run with these settings; otherwise says on `err` what is wrong.
inline bool validate(const Config& config, std::ostream& err) {
  const auto is_channel = [](std::int32_t channel) { return channel >= 0 && channel <= 3; };
  if (!is_channel(config.channel_a) || !is_channel(config.channel_b) || config.channel_a == config.channel_b) {
    err << "channels must be distinct and in 0..3\n";
    return false;
  }
  if (config.range_ps <= 0 || config.bin_ps <= 0) {
    err << "range_ps and bin_ps must be positive\n";
    return false;
  }
  return true;
}

}  // namespace
