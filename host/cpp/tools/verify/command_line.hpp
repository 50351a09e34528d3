#pragma once
// Part of vq_verify_stream_file_xcorr: file-local throughout.
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "orvo/timing/stream_header_json.hpp"
#include "verify/config.hpp"

namespace {

/// Value of the flag "--name=value" or "--name value"; the first that is there decides. Deliberate: the word
/// after "--name" is its value even when it looks like a flag.
inline std::optional<std::string> get_flag(int argc, const char* const* argv, std::string_view name) {
  const std::string word = "--" + std::string(name);
  for (int i = 1; i < argc; ++i) {
    const std::string_view argument = argv[i];
    if (argument.starts_with(word + '=')) return std::string(argument.substr(word.size() + 1));
    if (argument != word) continue;
    if (i + 1 == argc) return std::nullopt;
    return argv[i + 1];
  }
  return std::nullopt;
}

/// Arguments that are neither flags nor their values. A flag without "=", known or not, takes the next argument
/// along.
inline std::vector<std::string> positional_arguments(int argc, const char* const* argv) {
  std::vector<std::string> positional;
  for (int i = 1; i < argc; ++i) {
    const std::string_view argument = argv[i];
    if (!argument.starts_with("--")) {
      positional.emplace_back(argument);
    } else if (argument.find('=') == argument.npos) {
      ++i;
    }
  }
  return positional;
}

/// Positional arguments, then flags. Throws the standard library's exceptions for numbers that are none.
inline void apply_command_line(Config& config, int argc, const char* const* argv) {
  const std::vector<std::string> positional = positional_arguments(argc, argv);
  if (positional.size() > 0) config.input_file = positional[0];
  if (positional.size() > 1) config.channel_a = std::stoi(positional[1]);
  if (positional.size() > 2) config.channel_b = std::stoi(positional[2]);

  if (const auto value = get_flag(argc, argv, "range")) config.range_ps = std::stoll(*value);
  if (const auto value = get_flag(argc, argv, "bin")) config.bin_ps = std::stoll(*value);
  if (const auto value = get_flag(argc, argv, "offset")) config.offset = orvo::timing::detail::ascii_lower(*value);
  if (const auto value = get_flag(argc, argv, "max-tags")) config.max_tags = std::stoull(*value);
  if (const auto value = get_flag(argc, argv, "out-prefix")) config.output_prefix = *value;
}

/// Makes relative paths of the settings absolute. Deliberate: wherever they were given, they are relative to the
/// settings file that was read, or to the current directory when there is none.
inline void resolve_paths(Config& config, const std::filesystem::path& base) {
  for (std::optional<std::filesystem::path>* path : {&config.input_file, &config.output_prefix}) {
    if (*path && !(*path)->has_root_directory()) *path = std::filesystem::absolute(base / **path);
  }
}

}  // namespace
