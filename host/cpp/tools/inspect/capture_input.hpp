#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <utility>

#include "orvo/timing/byte_queue.hpp"
#include "orvo/timing/detail/byte_order.hpp"
#include "orvo/timing/error.hpp"
#include "orvo/timing/stream_file_layout.hpp"

namespace {

/// An open file descriptor, closed with its owner; that of standard input and one that was given stay open.
class OpenFile {
 public:
  /// "-" is standard input. Throws `Error`.
  explicit OpenFile(const std::string& path) : path_(path == "-" ? "standard input" : path) {
    descriptor_ = path == "-" ? STDIN_FILENO : ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor_ < 0) fail("cannot open " + path_);
    is_own_ = path != "-";
  }
  OpenFile(std::string name, int descriptor) : path_(std::move(name)), descriptor_(descriptor) {}
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;
  ~OpenFile() {
    if (is_own_) ::close(descriptor_);
  }

  /// As many bytes as are wanted, fewer only at the end. Throws `Error`.
  std::size_t read(std::uint8_t* target, std::size_t wanted) const {
    std::size_t done = 0;
    while (done < wanted) {
      const ssize_t count = ::read(descriptor_, target + done, wanted - done);
      if (count == 0) break;
      if (count < 0 && errno != EINTR) fail("cannot read " + path_);
      if (count > 0) done += static_cast<std::size_t>(count);
    }
    if (copy_ >= 0) write_copy(target, done);
    return done;
  }

  /// From here on everything that is read is also written to `descriptor`.
  void copy_to(int descriptor) { copy_ = descriptor; }

  /// What the file system says of an ordinary file; nothing of a pipe.
  std::optional<struct stat> status() const {
    struct stat status {};
    if (::fstat(descriptor_, &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
    return status;
  }
  const std::string& name() const { return path_; }

 private:
  [[noreturn]] static void fail(const std::string& what) {
    throw orvo::timing::Error(what + ": " + std::strerror(errno), orvo::timing::kFileFailure);
  }

  void write_copy(const std::uint8_t* bytes, std::size_t size) const {
    for (std::size_t done = 0; done < size;) {
      const ssize_t count = ::write(copy_, bytes + done, size - done);
      if (count < 0 && errno != EINTR) fail("cannot keep a copy of " + path_);
      if (count > 0) done += static_cast<std::size_t>(count);
    }
  }

  std::string path_;
  int descriptor_ = -1;
  bool is_own_ = false;
  int copy_ = -1;
};

/// A capture file as far as its payload: what stands before it, and the payload read by read.
class CaptureInput {
 public:
  static constexpr std::size_t kReadBytes = std::size_t{1} << 20;
  /// Of a longer header only so much is looked at: memory must not depend on what a file says.
  static constexpr std::size_t kMostHeaderBytes = std::size_t{1} << 20;

  /// Throws `Error` when the file cannot be read or is no capture. All that is read is written to the descriptor
  /// `copy`, too, if there is one.
  explicit CaptureInput(const std::string& path, int copy = -1) : file_(path) {
    file_.copy_to(copy);
    begin();
  }
  /// What is left of an open file. Throws like the other.
  struct Open {
    std::string name;
    int descriptor;
  };
  explicit CaptureInput(const Open& file) : file_(file.name, file.descriptor) { begin(); }

  const std::string& magic() const { return magic_; }
  std::uint64_t header_bytes() const { return header_bytes_; }
  const std::string& header_text() const { return header_text_; }
  /// When an ordinary file was last written to, in seconds since 1970.
  std::optional<std::int64_t> modified_s() const { return modified_s_; }
  std::uint64_t payload_bytes_read() const { return payload_bytes_; }
  std::uint64_t bytes_read() const { return orvo::timing::kStreamFilePrefixBytes + header_bytes_ + payload_bytes_; }
  /// Length of an ordinary file when it was opened; 0 of anything else.
  std::uint64_t expected_bytes() const { return file_bytes_; }
  /// Length of an ordinary file when it was opened, or of what was read, whichever is more.
  std::uint64_t file_bytes() const { return std::max(file_bytes_, bytes_read()); }

  /// One read of the payload, appended, of `most` bytes if that is less than a whole one. 0 at its end. Throws
  /// `Error`.
  std::size_t read(orvo::timing::ByteQueue& bytes, std::uint64_t most = kReadBytes) {
    const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(most, kReadBytes));
    const std::size_t count = file_.read(bytes.prepare(wanted), wanted);
    bytes.commit(count);
    payload_bytes_ += count;
    return count;
  }

 private:
  void begin() {
    if (const auto status = file_.status()) {
      file_bytes_ = static_cast<std::uint64_t>(std::max<off_t>(status->st_size, 0));
      modified_s_ = status->st_mtim.tv_sec;
    }
    read_magic();
    read_header();
  }

  [[noreturn]] void refuse(const char* why, std::int32_t code) const {
    throw orvo::timing::Error(file_.name() + why, code);
  }

  void read_magic() {
    std::uint8_t magic[orvo::timing::kStreamFileMagicBytes];
    if (file_.read(magic, sizeof magic) < sizeof magic)
      refuse(": too short for a capture", orvo::timing::kFileFailure);
    magic_.assign(std::begin(magic), std::end(magic));
    if (magic_ == orvo::timing::kStreamFileMagic || magic_ == orvo::timing::kEarlierStreamFileMagic) return;
    refuse(": not a capture, it starts with other bytes", orvo::timing::kNotACapture);
  }

  void read_header() {
    std::uint8_t length[4];
    if (file_.read(length, sizeof length) < sizeof length)
      refuse(": ends before its header", orvo::timing::kFileFailure);
    header_bytes_ = orvo::timing::detail::load_le32(length);
    header_text_.resize(static_cast<std::size_t>(std::min<std::uint64_t>(header_bytes_, kMostHeaderBytes)));
    read_header_part(reinterpret_cast<std::uint8_t*>(header_text_.data()), header_text_.size());
    std::uint8_t beyond[4096];
    for (std::uint64_t left = header_bytes_ - header_text_.size(); left != 0;) {
      const auto part = static_cast<std::size_t>(std::min<std::uint64_t>(left, sizeof beyond));
      read_header_part(beyond, part);
      left -= part;
    }
  }
  void read_header_part(std::uint8_t* target, std::size_t size) {
    if (file_.read(target, size) < size) refuse(": ends within its header", orvo::timing::kFileFailure);
  }

  OpenFile file_;
  std::string magic_;
  std::uint64_t header_bytes_ = 0;
  std::string header_text_;
  std::uint64_t file_bytes_ = 0;
  std::optional<std::int64_t> modified_s_;
  std::uint64_t payload_bytes_ = 0;
};

}  // namespace
