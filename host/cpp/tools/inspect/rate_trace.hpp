#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "orvo/timing/time_tag.hpp"

namespace {

/// Tags per channel and slice of time. Slice i covers [i * 2^k, (i + 1) * 2^k) ps, with the smallest k for which all
/// tags so far, in whatever order they came, fall into 2048 slices. Twice as long slices are the sum of two.
///
/// Slice i is kept at place i modulo 2048: neighbours stay neighbours when the range grows to either side.
class RateTrace {
 public:
  static constexpr std::size_t kMostSlices = 2048;

  void add(unsigned channel, std::int64_t time_ps) {
    const std::int64_t slice = time_ps >> shift_;
    if (static_cast<std::uint64_t>(slice) - static_cast<std::uint64_t>(first_) >= size_) reach(time_ps);
    ++counts_[channel][place(time_ps >> shift_)];
  }

  /// Whether the times, one at least, fall into one slice that is there already.
  bool is_one_slice(std::span<const std::int64_t> times_ps) const {
    std::int64_t differing = 0;
    for (const std::int64_t time_ps : times_ps) differing |= time_ps ^ times_ps[0];
    const std::int64_t slice = times_ps[0] >> shift_;
    return differing >> shift_ == 0 && static_cast<std::uint64_t>(slice) - static_cast<std::uint64_t>(first_) < size_;
  }
  /// Adds `tags` to a slice that is there.
  void add_to_slice(unsigned channel, std::int64_t time_ps, std::uint64_t tags) {
    counts_[channel][place(time_ps >> shift_)] += tags;
  }

  /// Number of slices from the first to the last that holds a tag.
  std::size_t size() const { return static_cast<std::size_t>(size_); }
  unsigned shift() const { return shift_; }
  std::uint64_t slice_ps() const { return std::uint64_t{1} << shift_; }
  std::int64_t start_ps() const { return first_ << shift_; }
  /// The slice that a time of the range falls into, counted from the first.
  std::size_t slice_of(std::int64_t time_ps) const { return static_cast<std::size_t>((time_ps >> shift_) - first_); }
  std::uint64_t count(unsigned channel, std::size_t slice) const {
    return counts_[channel][place(first_ + static_cast<std::int64_t>(slice))];
  }
  std::vector<std::uint64_t> counts(unsigned channel) const {
    std::vector<std::uint64_t> all(size());
    for (std::size_t i = 0; i < all.size(); ++i) all[i] = count(channel, i);
    return all;
  }

 private:
  using Counts = std::array<std::uint64_t, kMostSlices>;

  static std::size_t place(std::int64_t slice) { return static_cast<std::uint64_t>(slice) % kMostSlices; }

  void reach(std::int64_t time_ps) {
    if (size_ == 0) first_ = time_ps >> shift_;
    for (;; double_slices()) {
      const std::int64_t slice = time_ps >> shift_;
      const std::int64_t last = std::max(first_ + static_cast<std::int64_t>(size_) - 1, slice);
      const std::int64_t first = std::min(first_, slice);
      const std::uint64_t size = static_cast<std::uint64_t>(last) - static_cast<std::uint64_t>(first) + 1;
      if (size > kMostSlices || size == 0) continue;
      first_ = first;
      size_ = size;
      return;
    }
  }

  void double_slices() {
    const std::int64_t last = first_ + static_cast<std::int64_t>(size_) - 1;
    for (Counts& counts : counts_) {
      Counts doubled{};
      for (std::uint64_t i = 0; i < size_; ++i) {
        const std::int64_t slice = first_ + static_cast<std::int64_t>(i);
        doubled[place(slice >> 1)] += counts[place(slice)];
      }
      counts = doubled;
    }
    first_ >>= 1;
    size_ = static_cast<std::uint64_t>((last >> 1) - first_) + 1;
    ++shift_;
  }

  std::array<Counts, orvo::timing::kChannels> counts_{};
  unsigned shift_ = 0;
  std::int64_t first_ = 0;
  std::uint64_t size_ = 0;
};

}  // namespace
