#pragma once
// Part of vq_verify_stream_file_xcorr: file-local throughout.
#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>

#include "verify/directories.hpp"
#include "verify/run_result.hpp"
#include "verify/text_file.hpp"

namespace {

/// Refreshes the files of fixed names in the output root, whatever their dates. A copy that fails leaves the earlier
/// one.
inline void update_latest(const ReportPaths& paths, const std::string& summary) {
  constexpr std::string_view kLauncher = "@echo off\r\nstart \"\" \"%~dp0latest.svg\"\r\n";
  const std::filesystem::path root = verification_output_root();
  std::filesystem::create_directories(root);
  const auto copy = [&root](const std::filesystem::path& report, const char* latest) {
    std::error_code ignored;
    std::filesystem::copy_file(report, root / latest, std::filesystem::copy_options::overwrite_existing, ignored);
  };
  copy(paths.csv, "latest.csv");
  copy(paths.json, "latest.json");
  copy(paths.svg, "latest.svg");
  write_text_file(root / "latest_summary.txt", summary);
  write_text_file(root / "open_latest_plot.bat", std::string(kLauncher));
}

}  // namespace
