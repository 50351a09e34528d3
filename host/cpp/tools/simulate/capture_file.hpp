#pragma once
// Part of vq_simulate_stream_file: file-local throughout.
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <system_error>

#include "orvo/timing/error.hpp"
#include "orvo/timing/stream_file_writer.hpp"

namespace {

/// The file to remove when a signal ends the program.
inline char unfinished_file[4096];
inline volatile std::sig_atomic_t has_unfinished_file = 0;

inline void end_by_signal(int number) {
  if (has_unfinished_file != 0) ::unlink(unfinished_file);
  ::signal(number, SIG_DFL);
  ::raise(number);
}

/// From here on an interrupt removes the file. Signals that are ignored stay so.
inline void remove_when_interrupted(const std::string& path) {
  if (path.size() >= sizeof unfinished_file) return;
  path.copy(unfinished_file, path.size());
  unfinished_file[path.size()] = '\0';
  std::atomic_signal_fence(std::memory_order_release);
  has_unfinished_file = 1;
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    if (::signal(number, end_by_signal) == SIG_IGN) ::signal(number, SIG_IGN);
  }
  ::signal(SIGXFSZ, SIG_IGN);  // a file that may not grow any more is then an error of its write
}

/// A capture that has its name only once it is complete. Until then it is written beside it, and goes away if
/// anything fails.
class CaptureFile {
 public:
  /// Throws `Error` when the file cannot be created, or when what has its name is no ordinary file.
  CaptureFile(const std::filesystem::path& path, const orvo::timing::StreamFileHeader& header)
      : path_(std::filesystem::is_symlink(path) ? std::filesystem::canonical(path) : path), partial_(path_) {
    if (std::filesystem::exists(path_) && !std::filesystem::is_regular_file(path_)) {
      throw orvo::timing::Error(path_.string() + " is not an ordinary file", orvo::timing::kInvalidArgument);
    }
    partial_ += ".partial-" + std::to_string(::getpid());
    remove_when_interrupted(partial_.string());
    try {
      writer_.emplace().open(partial_.string(), header);
    } catch (const orvo::timing::Error& error) {
      discard();
      throw orvo::timing::Error("cannot create " + path_.string(), error.code);
    }
  }
  CaptureFile(const CaptureFile&) = delete;
  CaptureFile& operator=(const CaptureFile&) = delete;
  ~CaptureFile() {
    if (writer_) discard();
  }

  /// Appends payload. Throws `Error` when it cannot be written.
  void write(const void* data, std::size_t size) {
    try {
      writer_->write(data, size);
    } catch (const orvo::timing::Error&) {
      fail();
    }
  }

  /// Takes the last `cut_tail_bytes` of the payload away, or all of it, and gives the file its name. Throws `Error`
  /// when not all of it could be written.
  void complete(std::uint64_t cut_tail_bytes) {
    const std::uint64_t bytes = writer_->file_bytes();
    const std::uint64_t cut_bytes = std::min(cut_tail_bytes, writer_->payload_bytes());
    writer_.reset();  // which does not tell whether the last bytes found room
    std::error_code error;
    if (std::filesystem::file_size(partial_, error) != bytes || error) fail();
    if (cut_bytes != 0) std::filesystem::resize_file(partial_, bytes - cut_bytes, error);
    if (!error) std::filesystem::rename(partial_, path_, error);
    if (error) fail();
    has_unfinished_file = 0;
  }

 private:
  [[noreturn]] void fail() {
    discard();
    throw orvo::timing::Error("cannot write all of " + path_.string(), orvo::timing::kFileFailure);
  }

  void discard() {
    writer_.reset();
    std::error_code ignored;
    std::filesystem::remove(partial_, ignored);
    has_unfinished_file = 0;
  }

  std::filesystem::path path_;
  std::filesystem::path partial_;
  std::optional<orvo::timing::StreamFileWriter> writer_;
};

}  // namespace
