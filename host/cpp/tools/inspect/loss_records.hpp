#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "orvo/timing/payload_loss.hpp"

namespace {

/// Where a payload lost what: the largest losses, and how much in each slice of the payload.
class LossRecords {
 public:
  static constexpr std::size_t kLargest = 20;
  static constexpr std::size_t kMostSlices = 1024;

  void add(const orvo::timing::PayloadLoss& loss) {
    keep_if_large(loss);
    spread(loss);
  }

  /// Largest first; of equals, those that ended first.
  const std::vector<orvo::timing::PayloadLoss>& largest() const { return largest_; }
  /// A slice's length in the payload's unit.
  std::uint64_t slice() const { return std::uint64_t{1} << shift_; }
  /// Lost units per slice from the start of the payload; twice as long slices are the sum of two.
  const std::array<std::uint64_t, kMostSlices>& slices() const { return slices_; }

 private:
  void keep_if_large(const orvo::timing::PayloadLoss& loss) {
    if (largest_.size() == kLargest && loss.size <= largest_.back().size) return;
    if (largest_.size() == kLargest) largest_.pop_back();
    const auto place = std::find_if(largest_.begin(), largest_.end(),
                                    [&](const orvo::timing::PayloadLoss& other) { return other.size < loss.size; });
    largest_.insert(place, loss);
  }

  void spread(const orvo::timing::PayloadLoss& loss) {
    if (loss.size == 0) return;
    const std::uint64_t end = loss.position + loss.size;
    while ((end - 1) >> shift_ >= kMostSlices) double_slices();
    for (std::uint64_t at = loss.position; at < end;) {
      const std::uint64_t next = std::min(((at >> shift_) + 1) << shift_, end);
      slices_[static_cast<std::size_t>(at >> shift_)] += next - at;
      at = next;
    }
  }

  void double_slices() {
    for (std::size_t i = 0; i < kMostSlices; ++i) {
      slices_[i] = 2 * i + 1 < kMostSlices ? slices_[2 * i] + slices_[2 * i + 1] : 0;
    }
    ++shift_;
  }

  std::vector<orvo::timing::PayloadLoss> largest_;
  std::array<std::uint64_t, kMostSlices> slices_{};
  unsigned shift_ = 0;
};

}  // namespace
