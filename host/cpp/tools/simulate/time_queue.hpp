#pragma once
// Part of vq_simulate_stream_file: file-local throughout.
#include <cstdint>
#include <limits>
#include <vector>

namespace {

/// Times still to come, earliest first. New ones arrive almost in order and are inserted from the back.
class TimeQueue {
 public:
  static constexpr std::int64_t kNever = std::numeric_limits<std::int64_t>::max();

  /// The earliest time; `kNever` when there is none.
  std::int64_t front() const { return front_; }

  void push(std::int64_t time_ps) {
    if (end_ - begin_ == ring_.size()) grow();
    std::uint64_t at = end_++;
    for (; at != begin_ && slot(at - 1) > time_ps; --at) slot(at) = slot(at - 1);
    slot(at) = time_ps;
    front_ = slot(begin_);
  }

  /// The queue must not be empty.
  void pop() {
    ++begin_;
    front_ = begin_ == end_ ? kNever : slot(begin_);
  }

 private:
  std::int64_t& slot(std::uint64_t at) { return ring_[at & (ring_.size() - 1)]; }

  void grow() {
    std::vector<std::int64_t> larger(2 * ring_.size());
    for (std::uint64_t at = begin_; at != end_; ++at) larger[at & (larger.size() - 1)] = slot(at);
    ring_.swap(larger);
  }

  std::vector<std::int64_t> ring_ = std::vector<std::int64_t>(64);  // a power of two
  std::uint64_t begin_ = 0;
  std::uint64_t end_ = 0;
  std::int64_t front_ = kNever;
};

}  // namespace
