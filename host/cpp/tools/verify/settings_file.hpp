#pragma once
// Part of vq_verify_stream_file_xcorr: file-local throughout.
#include <array>
#include <filesystem>
#include <fstream>
#include <istream>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

#include "orvo/timing/stream_header_json.hpp"
#include "verify/config.hpp"
#include "verify/directories.hpp"

namespace {

/// The text without leading and trailing white space (classic locale).
inline std::string trim(std::string_view text) {
  constexpr std::string_view kBlank = " \t\n\v\f\r";
  const auto first = text.find_first_not_of(kBlank);
  if (first == text.npos) return {};
  return std::string(text.substr(first, text.find_last_not_of(kBlank) - first + 1));
}

/// One setting; unknown keys are ignored. Throws the standard library's exceptions for numbers that are none.
inline void apply_setting(Config& config, const std::string& key, const std::string& value) {
  if (key == "input_file" || key == "source_file") config.input_file = value;
  if (key == "output_prefix" || key == "out_prefix") config.output_prefix = value;
  if (key == "channel_a" || key == "ch_a") config.channel_a = std::stoi(value);
  if (key == "channel_b" || key == "ch_b") config.channel_b = std::stoi(value);
  if (key == "range_ps") config.range_ps = std::stoll(value);
  if (key == "bin_ps") config.bin_ps = std::stoll(value);
  if (key == "offset") config.offset = orvo::timing::detail::ascii_lower(value);
  if (key == "max_tags") config.max_tags = std::stoull(value);
}

/// Lines of "key = value"; "#" starts a comment, other lines are skipped, empty values change nothing.
inline void read_settings(std::istream& in, Config& config) {
  for (std::string line; std::getline(in, line);) {
    const std::string_view content = std::string_view(line).substr(0, line.find('#'));
    const auto equals = content.find('=');
    if (equals == content.npos) continue;
    const std::string key = orvo::timing::detail::ascii_lower(trim(content.substr(0, equals)));
    const std::string value = trim(content.substr(equals + 1));
    if (!key.empty() && !value.empty()) apply_setting(config, key, value);
  }
}

/// The directory that `argv[0]` names; the current directory for a bare name, as when the program was found in PATH.
inline std::filesystem::path executable_directory(const char* argv0) {
  std::error_code error;
  const std::filesystem::path executable = std::filesystem::absolute(argv0 != nullptr ? argv0 : "", error);
  if (!error && executable.has_parent_path()) return executable.parent_path();
  return std::filesystem::current_path();
}

/// Where the settings file may be; the first that opens is used.
inline std::array<std::filesystem::path, 3> settings_file_candidates(const char* argv0) {
  constexpr const char* kName = "vq_verify_stream_file_xcorr.ini";
  return {executable_directory(argv0) / kName, std::filesystem::current_path() / kName,
          source_root() / "verification" / kName};
}

/// Applies the settings file, if there is one, and returns its path.
inline std::optional<std::filesystem::path> load_config(Config& config, const char* const* argv) {
  for (const std::filesystem::path& candidate : settings_file_candidates(argv[0])) {
    std::ifstream file(candidate);
    if (!file) continue;
    read_settings(file, config);
    return candidate;
  }
  return std::nullopt;
}

}  // namespace
