#pragma once
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <span>
#include <utility>

namespace orvo::timing {

/// Bytes that come in at the back and are consumed at the front: a vector whose front is erased in O(1).
///
///   storage:  | consumed or spare | size() bytes | spare |
///             0                   begin_         end_    capacity_
///
/// Bytes move only when at least as many have been consumed since they last moved, or into a block of twice the size,
/// so the cost stays linear in what passes through. Whenever they move, they are laid so that new bytes start on a
/// cache line: the kernel copies file data several times faster to there.
class ByteQueue {
 public:
  ByteQueue() = default;
  ByteQueue(const ByteQueue& other) { append(other.data(), other.size()); }
  ByteQueue(ByteQueue&& other) noexcept { swap(other); }
  ByteQueue& operator=(ByteQueue other) noexcept {
    swap(other);
    return *this;
  }
  ~ByteQueue() = default;

  std::size_t size() const { return end_ - begin_; }
  bool empty() const { return begin_ == end_; }
  const std::uint8_t* data() const { return storage_.get() + begin_; }
  const std::uint8_t* begin() const { return data(); }
  const std::uint8_t* end() const { return storage_.get() + end_; }
  std::span<const std::uint8_t> bytes() const { return {data(), size()}; }
  std::uint8_t operator[](std::size_t index) const { return data()[index]; }

  /// Room for `count` more bytes behind the last one, to be written there and then announced with `commit`.
  std::uint8_t* prepare(std::size_t count) {
    if (capacity_ - end_ < count || begin_ >= size()) make_room(count);
    return storage_.get() + end_;
  }
  void commit(std::size_t count) { end_ += count; }

  void append(const std::uint8_t* bytes, std::size_t count) {
    if (count == 0) return;
    std::memcpy(prepare(count), bytes, count);
    commit(count);
  }

  /// Drops the first `count` bytes.
  void consume(std::size_t count) { begin_ += count; }
  void clear() { begin_ = end_; }

 private:
  static constexpr std::size_t kCacheLine = 64;
  struct AlignedDelete {
    void operator()(std::uint8_t* bytes) const { ::operator delete[](bytes, std::align_val_t{kCacheLine}); }
  };
  using Storage = std::unique_ptr<std::uint8_t[], AlignedDelete>;

  void make_room(std::size_t count) {
    const std::size_t kept = size();
    const std::size_t new_end = (kept + kCacheLine - 1) / kCacheLine * kCacheLine;
    if (count > static_cast<std::size_t>(PTRDIFF_MAX) - new_end) throw std::bad_alloc();
    const bool pays = begin_ >= kept;
    Storage grown;
    if (!pays || capacity_ < new_end + count) {
      capacity_ = pays ? new_end + count : 2 * (new_end + count);
      grown.reset(static_cast<std::uint8_t*>(::operator new[](capacity_, std::align_val_t{kCacheLine})));
    }
    std::uint8_t* const target = grown ? grown.get() : storage_.get();
    if (kept != 0) std::memmove(target + new_end - kept, data(), kept);
    if (grown) storage_ = std::move(grown);
    begin_ = new_end - kept;
    end_ = new_end;
  }

  void swap(ByteQueue& other) noexcept {
    std::swap(storage_, other.storage_);
    std::swap(capacity_, other.capacity_);
    std::swap(begin_, other.begin_);
    std::swap(end_, other.end_);
  }

  Storage storage_;
  std::size_t capacity_ = 0;
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
};

}  // namespace orvo::timing
