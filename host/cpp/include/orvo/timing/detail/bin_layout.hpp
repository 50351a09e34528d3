#pragma once
#include <cstdint>

#include "orvo/timing/xcorr_window.hpp"

namespace orvo::timing::detail {

/// The bins of a window: an odd number of them, the middle one centred on 0.
class BinLayout {
 public:
  explicit BinLayout(const XcorrWindow& window) {
    if (!window.is_valid()) return;
    bin_ps_ = static_cast<std::uint64_t>(window.bin_ps);
    const std::uint64_t both_sides = 2 * static_cast<std::uint64_t>(window.range_ps);
    bins_ = (both_sides / bin_ps_ + (both_sides % bin_ps_ != 0 ? 1 : 0)) | 1;
  }

  std::uint64_t bins() const { return bins_; }
  std::uint64_t half() const { return bins_ / 2; }
  /// Modulo 2^64: the outermost centre of few, very wide bins may lie just outside.
  std::int64_t center_ps(std::uint64_t bin) const { return static_cast<std::int64_t>((bin - half()) * bin_ps_); }

 private:
  std::uint64_t bin_ps_ = 1;
  std::uint64_t bins_ = 1;
};

}  // namespace orvo::timing::detail
