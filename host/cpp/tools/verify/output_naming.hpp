#pragma once
// Part of vq_verify_stream_file_xcorr: file-local throughout.
#include <time.h>

#include <cctype>
#include <ctime>
#include <filesystem>
#include <string>

#include "verify/directories.hpp"

namespace {

/// Now in local time, as in 20261115_130803.
inline std::string local_time_stamp() {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  ::localtime_r(&now, &local);
  char stamp[32];
  return {stamp, std::strftime(stamp, sizeof stamp, "%Y%m%d_%H%M%S", &local)};
}

/// The name with "_" for every byte that is no letter, digit, "_" or "-".
inline std::string safe_file_name(std::string name) {
  for (char& c : name) {
    if (std::isalnum(static_cast<unsigned char>(c)) == 0 && c != '_' && c != '-') c = '_';
  }
  return name;
}

/// Prefix of a run's reports, in a time-stamped directory that this creates.
inline std::filesystem::path default_output_prefix(const std::filesystem::path& input, int channel_a, int channel_b) {
  const std::filesystem::path directory = verification_output_root() / local_time_stamp();
  std::filesystem::create_directories(directory);
  const std::string stem = input.stem().string();
  return directory / (safe_file_name(stem.empty() ? "stream_file" : stem) + "_xcorr_ch" + std::to_string(channel_a) +
                      "_ch" + std::to_string(channel_b));
}

}  // namespace
