#pragma once
// Part of vq_verify_stream_file_xcorr: file-local throughout.
#include <array>
#include <filesystem>

#ifndef ORVO_SOURCE_ROOT
#error "ORVO_SOURCE_ROOT must be the absolute directory of the host-side sources"
#endif

namespace {

/// Directory of the host-side sources, fixed when the tool is built.
inline std::filesystem::path source_root() {
  return ORVO_SOURCE_ROOT;
}

/// The product directory: it holds host/cpp, and logs/ for captures and reports.
inline std::filesystem::path product_root() {
  return source_root().parent_path().parent_path();
}

/// Reports go into directories below this one, which also keeps the latest of each.
inline std::filesystem::path verification_output_root() {
  return product_root() / "logs" / "verification" / "stream_file_xcorr";
}

/// Where recordings leave captures, below the current directory of a checkout's parent.
inline std::filesystem::path capture_directory_of(const std::filesystem::path& directory) {
  return directory / "logs" / "stream_file_verify";
}

/// The directories that are searched for captures, in the order in which ties are decided.
inline std::array<std::filesystem::path, 3> capture_directories() {
  const std::filesystem::path current = std::filesystem::current_path();
  return {capture_directory_of(current / "VRN-B"), capture_directory_of(current),
          capture_directory_of(product_root())};
}

}  // namespace
