#pragma once
// Part of vq_convert_stream_file: file-local throughout.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <optional>
#include <string>

#include "common/partial_file.hpp"
#include "convert/settings.hpp"
#include "orvo/timing/error.hpp"

namespace {

/// Where OUT's bytes go: a file that has its name only once it is complete, or standard output.
class ByteOutput {
 public:
  /// Throws `Error` when the file cannot be created.
  explicit ByteOutput(const std::string& path) : file_descriptor_(STDOUT_FILENO) {
    if (path == Settings::kPipe) return;
    file_.emplace(path);
    file_descriptor_ = ::open(file_->partial_path().c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (file_descriptor_ < 0) file_->fail_to_create();
  }
  ByteOutput(const ByteOutput&) = delete;
  ByteOutput& operator=(const ByteOutput&) = delete;
  ~ByteOutput() {
    if (file_ && file_descriptor_ >= 0) ::close(file_descriptor_);
  }

  bool is_file() const { return file_.has_value(); }

  /// Appends. Throws `Error` when not all can be written.
  void write(const void* data, std::size_t size) {
    const char* at = static_cast<const char*>(data);
    for (const char* const end = at + size; at < end;) {
      const ssize_t written = ::write(file_descriptor_, at, static_cast<std::size_t>(end - at));
      if (written > 0) {
        at += written;
      } else if (written == 0 || errno != EINTR) {
        fail();
      }
    }
  }

  /// Replaces what was written first. For files alone.
  void write_at_start(const void* data, std::size_t size) {
    if (::pwrite(file_descriptor_, data, size, 0) != static_cast<ssize_t>(size)) fail();
  }

  /// Gives the file its name. Throws `Error` when not all of it could be written.
  void complete() {
    if (!file_) return;
    const int status = ::close(file_descriptor_);
    file_descriptor_ = -1;
    if (status != 0) fail();
    file_->complete();
  }

 private:
  [[noreturn]] void fail() const {
    if (file_) file_->fail_to_write();
    throw orvo::timing::Error("cannot write all of standard output", orvo::timing::kFileFailure);
  }

  std::optional<PartialFile> file_;
  int file_descriptor_;
};

}  // namespace
