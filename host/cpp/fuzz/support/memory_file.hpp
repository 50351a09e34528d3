#pragma once
// A file without a disk: its path can be opened, written and read by name like any other.
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>

namespace orvo::fuzz {

class MemoryFile {
 public:
  MemoryFile() : descriptor_(::memfd_create("orvo_fuzz", MFD_CLOEXEC)) {
    if (descriptor_ < 0) throw std::runtime_error("memfd_create failed");
    path_ = "/proc/self/fd/" + std::to_string(descriptor_);
  }
  explicit MemoryFile(std::span<const std::uint8_t> content) : MemoryFile() {
    const auto size = static_cast<ssize_t>(content.size());
    if (::pwrite(descriptor_, content.data(), content.size(), 0) != size) throw std::runtime_error("pwrite failed");
  }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;
  ~MemoryFile() { ::close(descriptor_); }

  const std::string& path() const { return path_; }

  std::string content() const {
    std::string text(static_cast<std::size_t>(::lseek(descriptor_, 0, SEEK_END)), '\0');
    const auto size = static_cast<ssize_t>(text.size());
    if (::pread(descriptor_, text.data(), text.size(), 0) != size) throw std::runtime_error("pread failed");
    return text;
  }

 private:
  int descriptor_;
  std::string path_;
};

}  // namespace orvo::fuzz
