#pragma once
// Part of vq_verify_stream_file_xcorr: file-local throughout.
#include <cstdint>
#include <filesystem>
#include <optional>
#include <system_error>

#include "orvo/timing/stream_header_json.hpp"
#include "verify/directories.hpp"
#include "verify/file_time.hpp"

namespace {

/// A file and when it was last written.
struct DatedFile {
  std::filesystem::path path;
  std::int64_t written_ns;  ///< since 1970
};

/// The entry when it is a capture file that can be dated.
inline std::optional<DatedFile> dated_capture(const std::filesystem::directory_entry& entry) {
  std::error_code error;
  if (!entry.is_regular_file(error) || error) return std::nullopt;
  if (orvo::timing::detail::ascii_lower(entry.path().extension().string()) != ".tagcap") return std::nullopt;
  const auto written = written_ns(entry.path());
  if (!written) return std::nullopt;
  return DatedFile{entry.path(), *written};
}

/// Replaces `newest` by a strictly newer capture at any depth below the directory. What cannot be read ends the
/// search of this directory, without an error.
inline void search_captures(const std::filesystem::path& directory, std::optional<DatedFile>& newest) {
  std::error_code error;
  std::filesystem::recursive_directory_iterator entry(directory, error);
  for (; !error && entry != std::filesystem::recursive_directory_iterator(); entry.increment(error)) {
    const auto capture = dated_capture(*entry);
    if (capture && (!newest || capture->written_ns > newest->written_ns)) newest = capture;
  }
}

/// The newest capture in all capture directories; of equally new ones, the first found.
inline std::optional<std::filesystem::path> newest_tagcap_file() {
  std::optional<DatedFile> newest;
  for (const std::filesystem::path& directory : capture_directories()) search_captures(directory, newest);
  if (!newest) return std::nullopt;
  return newest->path;
}

}  // namespace
