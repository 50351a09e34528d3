#pragma once
// Part of vq_verify_stream_file_xcorr: file-local throughout.
#include <filesystem>
#include <fstream>
#include <ios>
#include <string>

#include "orvo/timing/error.hpp"

namespace {

/// Opens a report for writing, truncating what is there. Throws `Error` with `failure` when it cannot be opened.
inline std::ofstream open_report(const std::filesystem::path& path, const char* failure) {
  std::ofstream out(path, std::ios::trunc);
  if (!out) throw orvo::timing::Error(failure, orvo::timing::kFileFailure);
  return out;
}

/// Writes the whole text, creating the file's directories.
inline void write_text_file(const std::filesystem::path& path, const std::string& text) {
  if (path.has_parent_path()) std::filesystem::create_directories(path.parent_path());
  open_report(path, "could not open text output") << text;
}

}  // namespace
