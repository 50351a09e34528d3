#pragma once
// Part of vq_simulate_stream_file: file-local throughout.
// Random numbers that are the same on every machine. The standard library's distributions and logarithms differ
// between implementations: here everything is integer arithmetic, or correctly rounded operations on doubles that no
// compiler may fuse.
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>

#include "orvo/timing/detail/wide_integer.hpp"

namespace {

using orvo::timing::detail::Uint128;

/// High half of the product: `a` times the fraction `b` / 2^64.
constexpr std::uint64_t high_product(std::uint64_t a, std::uint64_t b) {
  return static_cast<std::uint64_t>(Uint128{a} * b >> 64);
}

/// The finalizer of splitmix64: sends neighbouring numbers far apart.
constexpr std::uint64_t scattered(std::uint64_t value) {
  value = (value ^ value >> 30) * 0xBF58'476D'1CE4'E5B9;
  value = (value ^ value >> 27) * 0x94D0'49BB'1331'11EB;
  return value ^ value >> 31;
}

/// The generator known as wyrand: a counter, multiplied and folded. No draw depends on the result of the one before.
class Random {
 public:
  explicit constexpr Random(std::uint64_t seed) : counter_(scattered(seed + 0x9E37'79B9'7F4A'7C15)) {}

  constexpr std::uint64_t next() {
    counter_ += 0xA076'1D64'78BD'642F;
    const Uint128 product = Uint128{counter_} * (counter_ ^ 0xE703'7ED1'A0B4'28DB);
    return static_cast<std::uint64_t>(product >> 64) ^ static_cast<std::uint64_t>(product);
  }

  /// 0 to `bound` - 1, uniform to one part in 2^64 / `bound`.
  constexpr std::uint64_t below(std::uint64_t bound) { return high_product(next(), bound); }

 private:
  std::uint64_t counter_;
};

inline constexpr unsigned kExponentialFractionBits = 58;

/// ln 2 as a fraction of 2^64.
inline constexpr std::uint64_t kLn2 = 0xB172'17F7'D1CF'79AB;

/// For each cell i / 256 of a mantissa 1 + i / 256 to 1 + (i + 1) / 256: the logarithm of 2 / (1 + i / 256), and
/// 1 / (256 + i). Fractions of 2^64, the logarithms accurate to 2^-54.
struct LogarithmTable {
  struct Cell {
    std::uint64_t log;
    std::uint64_t reciprocal;
  };
  constexpr LogarithmTable() {
    std::uint64_t log = kLn2;
    for (std::uint64_t i = 0; i < cells.size(); ++i) {
      cells[i] = {log, ~std::uint64_t{0} / (256 + i)};
      // ln((n + 1) / n) = 2 (y + y^3 / 3 + y^5 / 5 + ...) with y = 1 / (2 n + 1), here n = 256 + i.
      const std::uint64_t odd = 2 * (256 + i) + 1;
      std::uint64_t power = ~std::uint64_t{0} / odd;
      for (std::uint64_t k = 1; power != 0; k += 2, power /= odd * odd) log -= 2 * power / k;
    }
  }
  std::array<Cell, 256> cells{};
};
inline constexpr LogarithmTable kLogarithms;

/// Exponentially distributed with mean 1, in units of 2^-58: minus the logarithm of a uniform number, accurate to
/// 2^-25. Less than 45, since 64 ln 2 is.
inline std::uint64_t exponential(Random& random) {
  constexpr unsigned kDrop = 64 - kExponentialFractionBits;
  const std::uint64_t uniform = random.next() | 1;
  const auto zeros = static_cast<unsigned>(std::countl_zero(uniform));
  const std::uint64_t mantissa = uniform << zeros;
  const LogarithmTable::Cell& cell = kLogarithms.cells[mantissa >> 55 & 255];
  const std::uint64_t step = high_product(mantissa << 9, cell.reciprocal);  // ln(1 + step) = step - step^2 / 2 + ...
  const std::uint64_t log = cell.log - step + (step >> 32) * (step >> 32) / 2;
  return zeros * (kLn2 >> kDrop) + (log >> kDrop);
}

/// Normally distributed whole numbers: a radius whose square is exponential, in a direction drawn by rejection from
/// the square around the circle. Two per draw.
class GaussianJitter {
 public:
  explicit GaussianJitter(std::int64_t sigma) : sigma_(static_cast<double>(sigma)) {}

  /// No draw is farther from 0, since the square root of 2 * 45 is less than 10.
  static constexpr std::int64_t largest(std::int64_t sigma) { return 10 * sigma; }

  std::int64_t next(Random& random) {
    if (has_second_) {
      has_second_ = false;
      return second_;
    }
    std::int64_t x = 0;
    std::int64_t y = 0;
    std::uint64_t square = 0;
    do {
      const std::uint64_t bits = random.next();
      x = static_cast<std::int32_t>(bits);
      y = static_cast<std::int32_t>(bits >> 32);
      square = static_cast<std::uint64_t>(x * x) + static_cast<std::uint64_t>(y * y);
    } while (square >= std::uint64_t{1} << 62 || square == 0);
    const double twice_exponential = static_cast<double>(exponential(random)) * kUnit;
    const double scale = std::sqrt(twice_exponential / static_cast<double>(square)) * sigma_;
    has_second_ = true;
    second_ = rounded(static_cast<double>(y) * scale);
    return rounded(static_cast<double>(x) * scale);
  }

 private:
  /// Twice a unit of `exponential`.
  static constexpr double kUnit = 0x1p-57;
  static std::int64_t rounded(double value) { return (static_cast<std::int64_t>(value * 65536.0) + 32768) >> 16; }

  double sigma_;
  bool has_second_ = false;
  std::int64_t second_ = 0;
};

}  // namespace
