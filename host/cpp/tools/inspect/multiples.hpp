#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
#include <bit>
#include <cstdint>

namespace {

/// Tells multiples of a number without dividing. With d = odd * 2^k, n is a multiple of d exactly if n / odd modulo
/// 2^64, which is a product, has k zero bits at its end and is no more than (2^64 - 1) / odd. Turned by k bits, both
/// are one comparison.
class Multiples {
 public:
  /// Of 1: all numbers.
  constexpr Multiples() : Multiples(1) {}
  /// Of any number but 0.
  constexpr explicit Multiples(std::uint64_t of)
      : zeros_(std::countr_zero(of)), inverse_(inverse(of >> zeros_)), most_(~std::uint64_t{0} / of) {}

  constexpr bool contain(std::uint64_t number) const { return std::rotr(number * inverse_, zeros_) <= most_; }
  /// Whether the number is a power of two: its multiples are those without any bit of the mask.
  constexpr bool has_mask() const { return inverse_ == 1; }
  constexpr std::uint64_t mask() const { return (std::uint64_t{1} << zeros_) - 1; }

 private:
  // Each round doubles the number of right bits; three are right at once.
  static constexpr std::uint64_t inverse(std::uint64_t odd) {
    std::uint64_t inverse = odd;
    for (int bits = 3; bits < 64; bits *= 2) inverse *= 2 - odd * inverse;
    return inverse;
  }

  int zeros_;
  std::uint64_t inverse_;
  std::uint64_t most_;
};
static_assert(Multiples(12).contain(24) && Multiples(12).contain(0) && !Multiples(12).contain(30));
static_assert(!Multiples(12).contain(16) && Multiples(~0ull).contain(~0ull) && !Multiples(3).contain(~0ull - 1));
static_assert(Multiples(8).has_mask() && Multiples(8).mask() == 7 && !Multiples(24).has_mask());

}  // namespace
