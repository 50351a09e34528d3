#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace {

/// A time difference and the time at which it began.
struct LongStep {
  std::uint64_t step_ps = 0;
  std::int64_t start_ps = 0;
};

/// The 33 longest of any number of steps, longest first; of equals, those that came first.
class LongestSteps {
 public:
  static constexpr std::size_t kKept = 33;

  void add(const LongStep& step) {
    if (size_ == kKept && step.step_ps <= steps_[kKept - 1].step_ps) return;
    insert(step);
  }
  /// Steps no longer than this are not kept any more.
  std::uint64_t limit_ps() const { return size_ == kKept ? steps_[kKept - 1].step_ps : 0; }
  std::span<const LongStep> steps() const { return {steps_.data(), size_}; }

 private:
  void insert(const LongStep& step) {
    size_ = std::min(size_ + 1, kKept);
    std::size_t at = size_ - 1;
    for (; at > 0 && steps_[at - 1].step_ps < step.step_ps; --at) steps_[at] = steps_[at - 1];
    steps_[at] = step;
  }

  std::array<LongStep, kKept> steps_{};
  std::size_t size_ = 0;
};

}  // namespace
