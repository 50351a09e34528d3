#pragma once
#include <algorithm>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <new>
#include <span>
#include <utility>

#include "orvo/timing/version.hpp"

namespace orvo::timing {

/// Bytes that come in at the back and are consumed at the front: a vector of bytes whose front is erased in O(1). It
/// is filled like one (assignment, `assign`, `insert` at the end, `push_back`) and read like one.
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
  /// Takes the place of what is there: `queue = bytes`.
  ByteQueue& operator=(std::span<const std::uint8_t> bytes) {
    assign(bytes.begin(), bytes.end());
    return *this;
  }
  ByteQueue& operator=(std::initializer_list<std::uint8_t> bytes) {
    assign(bytes.begin(), bytes.end());
    return *this;
  }
  ~ByteQueue() = default;

  using value_type = std::uint8_t;
  using size_type = std::size_t;
  using const_iterator = const std::uint8_t*;

  std::size_t size() const { return end_ - begin_; }
  bool empty() const { return begin_ == end_; }
  const std::uint8_t* data() const { return storage_.get() + begin_; }
  const std::uint8_t* begin() const { return data(); }
  const std::uint8_t* end() const { return storage_.get() + end_; }
  std::span<const std::uint8_t> bytes() const { return {data(), size()}; }
  std::uint8_t operator[](std::size_t index) const { return data()[index]; }
  std::uint8_t front() const { return *begin(); }
  std::uint8_t back() const { return end()[-1]; }

  friend bool operator==(const ByteQueue& left, const ByteQueue& right) {
    return std::equal(left.begin(), left.end(), right.begin(), right.end());
  }
  /// With a vector, an array or any other contiguous bytes.
  friend bool operator==(const ByteQueue& left, std::span<const std::uint8_t> right) {
    return std::equal(left.begin(), left.end(), right.begin(), right.end());
  }

  /// Room for `count` more bytes after the last one, to be written there and then announced with `commit`.
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

  void push_back(std::uint8_t byte) { append(&byte, 1); }

  /// Inserts a range of bytes, which must not be the queue's own, at the end: the one place where a queue takes them,
  /// so `place` must be `end()`. Returns where the first of them now lies.
  template <std::input_iterator Iterator>
  const_iterator insert([[maybe_unused]] const_iterator place, Iterator first, Iterator last) {
    assert(place == end());
    const std::size_t before = size();
    if constexpr (std::contiguous_iterator<Iterator> && sizeof(std::iter_value_t<Iterator>) == 1) {
      const std::span bytes(first, last);
      append(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    } else {
      for (; first != last; ++first) push_back(static_cast<std::uint8_t>(*first));
    }
    return begin() + before;
  }

  /// The range, which must not be the queue's own, takes the place of what is there.
  template <std::input_iterator Iterator>
  void assign(Iterator first, Iterator last) {
    clear();
    insert(end(), first, last);
  }
  void assign(std::size_t count, std::uint8_t byte) {
    clear();
    if (count == 0) return;
    std::memset(prepare(count), byte, count);
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
