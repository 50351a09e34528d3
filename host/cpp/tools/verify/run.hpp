#pragma once
// Part of vq_verify_stream_file_xcorr: file-local throughout.
#include <cstdint>
#include <exception>
#include <filesystem>
#include <optional>
#include <ostream>

#include "common/exit_status.hpp"
#include "orvo/timing/stream_file_reader.hpp"
#include "verify/command_line.hpp"
#include "verify/config.hpp"
#include "verify/correlation.hpp"
#include "verify/help_text.hpp"
#include "verify/input_discovery.hpp"
#include "verify/output_naming.hpp"
#include "verify/report_stage.hpp"
#include "verify/settings_file.hpp"
#include "verify/synthetic_capture.hpp"

namespace {

/// The capture to verify: the configured one, the newest, or a synthetic one made for the purpose.
inline std::filesystem::path choose_input(const Config& config, std::ostream& out) {
  if (config.input_file) return std::filesystem::absolute(*config.input_file);
  if (const auto newest = newest_tagcap_file()) return std::filesystem::absolute(*newest);
  std::filesystem::path synthetic = std::filesystem::absolute(make_synthetic_capture());
  out << "No stream capture found; generated synthetic verification file:\n"
      << "  " << synthetic.native() << '\n';
  return synthetic;
}

/// A run from its settings to its exit status; failures are thrown.
inline int verify(int argc, char** argv, std::uint64_t most_listed_bytes, std::ostream& out, std::ostream& err) {
  if (help_requested(argc, argv)) {
    out << kHelpText;
    return kExitDone;
  }
  Config config;
  const std::optional<std::filesystem::path> settings_file = load_config(config, argv);
  apply_command_line(config, argc, argv);
  resolve_paths(config, settings_file ? settings_file->parent_path() : std::filesystem::current_path());

  // Deliberate: the input is chosen, and perhaps made, before the settings are judged.
  const std::filesystem::path input = choose_input(config, out);
  if (!validate(config, err)) return kExitUsage;

  const std::filesystem::path output_prefix =
      config.output_prefix ? *config.output_prefix : default_output_prefix(input, config.channel_a, config.channel_b);
  if (settings_file) out << "Config: " << settings_file->native() << '\n';
  out << "Input:  " << input.native() << '\n' << "Output: " << output_prefix.native() << ".[csv|json|svg]\n";

  orvo::timing::StreamFileReader reader;
  reader.open(input.string());
  RunResult run;
  run.source = input;
  run.header = reader.header();
  run.channel_a = config.channel_a;
  run.channel_b = config.channel_b;
  correlate(reader, config, most_listed_bytes, run);
  write_reports(run, output_prefix, out);
  return kExitDone;
}

/// The whole program: a run whose failures are printed on `err`.
inline int run(int argc, char** argv, std::ostream& out, std::ostream& err,
               std::uint64_t most_listed_bytes = kMostListedBytes) {
  try {
    return verify(argc, argv, most_listed_bytes, out, err);
  } catch (const std::exception& error) {
    err << error.what() << '\n';
    return kExitFailed;
  }
}

}  // namespace
