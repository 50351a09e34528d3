#pragma once
// What the programs share: file-local throughout.
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <string>
#include <system_error>

#include "orvo/timing/error.hpp"

namespace {

/// The file to remove when a signal ends the program. There is only one at a time.
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
  ::signal(SIGXFSZ, SIG_IGN);  // so that a write beyond the file size limit fails instead of ending the program
}

/// A file that is written whole or not at all. The owner writes it at `partial_path`; `complete` gives it its name
/// and so replaces an earlier file. A file that was never completed is removed by the destructor, and when SIGINT,
/// SIGTERM or SIGHUP ends the program.
class PartialFile {
 public:
  /// Throws `Error` when the name belongs to anything but an ordinary file. A symbolic link stays one, and its target
  /// is replaced.
  explicit PartialFile(const std::filesystem::path& path)
      : path_(std::filesystem::is_symlink(path) ? std::filesystem::canonical(path) : path), partial_path_(path_) {
    if (std::filesystem::exists(path_) && !std::filesystem::is_regular_file(path_)) {
      throw orvo::timing::Error(path_.string() + " is not an ordinary file", orvo::timing::kInvalidArgument);
    }
    partial_path_ += ".partial-" + std::to_string(::getpid());
    remove_when_interrupted(partial_path_.string());
  }
  PartialFile(const PartialFile&) = delete;
  PartialFile& operator=(const PartialFile&) = delete;
  ~PartialFile() {
    if (!complete_) discard();
  }

  const std::filesystem::path& path() const { return path_; }
  const std::filesystem::path& partial_path() const { return partial_path_; }

  /// Gives the file its name; it must have been closed. Throws `Error` when that fails.
  void complete() {
    std::error_code error;
    std::filesystem::rename(partial_path_, path_, error);
    if (error) fail_to_write();
    complete_ = true;
    has_unfinished_file = 0;
  }

  // What to throw when the file cannot be created, or not all of it written.
  [[noreturn]] void fail_to_create() const {
    throw orvo::timing::Error("cannot create " + path_.string(), orvo::timing::kFileFailure);
  }
  [[noreturn]] void fail_to_write() const {
    throw orvo::timing::Error("cannot write all of " + path_.string(), orvo::timing::kFileFailure);
  }

 private:
  void discard() {
    std::error_code ignored;
    std::filesystem::remove(partial_path_, ignored);
    has_unfinished_file = 0;
  }

  std::filesystem::path path_;
  std::filesystem::path partial_path_;
  bool complete_ = false;
};

}  // namespace
