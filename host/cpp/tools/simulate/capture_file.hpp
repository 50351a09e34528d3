#pragma once
// Part of vq_simulate_stream_file: file-local throughout.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <system_error>

#include "common/partial_file.hpp"
#include "orvo/timing/error.hpp"
#include "orvo/timing/stream_file_writer.hpp"

namespace {

/// A capture that is written whole or not at all: it gets its name once it is complete, and is removed if anything
/// fails.
class CaptureFile {
 public:
  /// Throws `Error` when the file cannot be created, or when its name belongs to anything but an ordinary file.
  CaptureFile(const std::filesystem::path& path, const orvo::timing::StreamFileHeader& header) : file_(path) {
    try {
      writer_.emplace().open(file_.partial_path().string(), header);
    } catch (const orvo::timing::Error&) {
      file_.fail_to_create();
    }
  }

  /// Appends payload. Throws `Error` when it cannot be written.
  void write(const void* data, std::size_t size) {
    try {
      writer_->write(data, size);
    } catch (const orvo::timing::Error&) {
      file_.fail_to_write();
    }
  }

  /// Removes the last `cut_tail_bytes` of the payload, or all of it, and gives the file its name. Throws `Error`
  /// when not all of it could be written. Nothing may be written after it.
  void complete(std::uint64_t cut_tail_bytes) {
    const std::uint64_t bytes = writer_->file_bytes();
    const std::uint64_t cut_bytes = std::min(cut_tail_bytes, writer_->payload_bytes());
    try {
      writer_->close();
    } catch (const orvo::timing::Error&) {
      file_.fail_to_write();
    }
    writer_.reset();
    std::error_code error;
    if (cut_bytes != 0) std::filesystem::resize_file(file_.partial_path(), bytes - cut_bytes, error);
    if (error) file_.fail_to_write();
    file_.complete();
  }

 private:
  PartialFile file_;
  std::optional<orvo::timing::StreamFileWriter> writer_;  // after the file: closed before that goes away
};

}  // namespace
