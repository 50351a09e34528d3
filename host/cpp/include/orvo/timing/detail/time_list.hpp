#pragma once
#include <sys/mman.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <span>
#include <utility>

#include "orvo/timing/version.hpp"

namespace orvo::timing::detail {

/// A growing list of times for captures of any size: memory comes straight from the system, is touched only where
/// times are written, in huge pages where there are any, and grows by moving pages instead of copying their content.
class TimeList {
 public:
  TimeList() = default;
  TimeList(TimeList&& other) noexcept { swap(other); }
  TimeList& operator=(TimeList&& other) noexcept {
    swap(other);
    return *this;
  }
  ~TimeList() {
    if (data_ != nullptr) ::munmap(data_, capacity_ * sizeof(std::int64_t));
  }

  std::size_t size() const { return size_; }
  std::span<std::int64_t> times() { return {data_, size_}; }
  std::span<const std::int64_t> times() const { return {data_, size_}; }

  /// Room for `count` more times, to be written from here on and then announced with `commit`. Throws std::bad_alloc.
  std::int64_t* prepare(std::size_t count) {
    if (capacity_ - size_ < count) grow(count);
    return data_ + size_;
  }
  /// The times now end at `end`, which lies in the room that was prepared.
  void commit(const std::int64_t* end) { size_ = static_cast<std::size_t>(end - data_); }

 private:
  static constexpr std::size_t kHugePageBytes = std::size_t{1} << 21;

  void grow(std::size_t count) {
    constexpr std::size_t kMost = SIZE_MAX / sizeof(std::int64_t) / 4;
    if (count > kMost || size_ > kMost) throw std::bad_alloc();
    const std::size_t wanted = std::max(2 * capacity_, size_ + count) * sizeof(std::int64_t);
    const std::size_t bytes = (wanted + kHugePageBytes - 1) / kHugePageBytes * kHugePageBytes;
    void* const grown = moved_to(bytes);
    if (grown == MAP_FAILED) throw std::bad_alloc();
#ifdef MADV_HUGEPAGE
    // Advice: where it is not taken, pages are small. A short list would wait for its only huge page to be cleared.
    if (bytes > kHugePageBytes) ::madvise(grown, bytes, MADV_HUGEPAGE);
#endif
    data_ = static_cast<std::int64_t*>(grown);
    capacity_ = bytes / sizeof(std::int64_t);
  }

  /// The list's content at the start of `bytes` bytes; the old place is gone. MAP_FAILED, and nothing changed, if
  /// there is no room.
  void* moved_to(std::size_t bytes) const {
    const std::size_t old_bytes = capacity_ * sizeof(std::int64_t);
#ifdef MREMAP_MAYMOVE
    if (data_ != nullptr) return ::mremap(data_, old_bytes, bytes, MREMAP_MAYMOVE);
#endif
    void* const fresh = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (fresh == MAP_FAILED || data_ == nullptr) return fresh;
    std::memcpy(fresh, data_, size_ * sizeof(std::int64_t));
    ::munmap(data_, old_bytes);
    return fresh;
  }

  void swap(TimeList& other) noexcept {
    std::swap(data_, other.data_);
    std::swap(size_, other.size_);
    std::swap(capacity_, other.capacity_);
  }

  std::int64_t* data_ = nullptr;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
};

}  // namespace orvo::timing::detail
