#pragma once
#include <bit>
#include <cstdint>

#include "orvo/timing/detail/bin_layout.hpp"
#include "orvo/timing/detail/wide_integer.hpp"

namespace orvo::timing::detail {

/// Finds a pair's bin without a division. `lag` is how far B lies after the start of the window, 0 to 2 * range.
/// Slots are bins counted from 1: slot 0 and the one after the last bin take the pairs that round to a bin outside.
///
/// Rounding to the nearest centre is rounding down after a shift of half a bin, and dividing is multiplying with a
/// reciprocal 2^n / bin + 1, a little too large. Quotients thus err upwards, the more the further up. For even widths
/// the error at difference 0 is taken off everywhere: differences above 0 keep erring upwards and those below 0 now
/// err downwards, so that halves go away from zero on both sides.
///
/// `Product` holds a lag times the reciprocal: 64 bits are fast and do for windows of a millisecond.
template <class Product>
class DelayBinning {
 public:
  DelayBinning(const XcorrWindow& window, std::uint64_t bins)
      : max_lag_(2 * static_cast<std::uint64_t>(window.range_ps)) {
    const auto bin_ps = static_cast<std::uint64_t>(window.bin_ps);
    const std::uint64_t half = bins / 2;
    const std::uint64_t shift = (half + 1) * bin_ps + bin_ps / 2 - max_lag_ / 2;
    exponent_ = kBits + static_cast<unsigned>(std::bit_width(bin_ps)) - 1;
    const Uint128 one = Uint128{1} << exponent_;
    reciprocal_ = static_cast<std::uint64_t>(one / bin_ps) + 1;
    const auto excess = static_cast<std::uint64_t>(Uint128{reciprocal_} * bin_ps - one);  // even where bin_ps is
    bias_ = Product{shift} * reciprocal_;
    if (bin_ps % 2 == 0) bias_ -= Product{2 * half + 3} * (excess / 2);

    const Uint128 most = Uint128{shift} + max_lag_;
    is_exact_ = most >> 62 == 0 && most * excess < one && most * reciprocal_ <= static_cast<Product>(-1);
  }

  /// False where the error could reach the next picosecond, or the product its end.
  bool is_exact() const { return is_exact_; }
  /// The largest lag that pairs.
  std::uint64_t max_lag() const { return max_lag_; }

  std::uint64_t operator()(std::uint64_t lag) const {
    return static_cast<std::uint64_t>((Product{lag} * reciprocal_ + bias_) >> exponent_);
  }

 private:
  static constexpr unsigned kBits = sizeof(Product) == sizeof(std::uint64_t) ? 32 : 62;

  std::uint64_t max_lag_;
  unsigned exponent_;
  std::uint64_t reciprocal_;
  Product bias_;
  bool is_exact_;
};

}  // namespace orvo::timing::detail
