#pragma once
#include <complex>
#include <cstddef>
#include <numbers>
#include <utility>
#include <vector>

namespace orvo::timing::detail {

/// Fourier transform in place, sum of v[k] e^(-2 pi i j k / n); the length n a power of two.
inline void fourier_transform(std::vector<std::complex<double>>& values) {
  const std::size_t n = values.size();
  for (std::size_t i = 1, j = 0; i < n; ++i) {  // j is i with its bits in reverse
    std::size_t bit = n / 2;
    for (; (j & bit) != 0; bit /= 2) j ^= bit;
    j ^= bit;
    if (i < j) std::swap(values[i], values[j]);
  }
  for (std::size_t half = 1; half < n; half *= 2) {
    std::vector<std::complex<double>> turns(half);
    for (std::size_t k = 0; k < half; ++k)
      turns[k] = std::polar(1.0, -std::numbers::pi * static_cast<double>(k) / static_cast<double>(half));
    for (std::size_t first = 0; first < n; first += 2 * half) {
      for (std::size_t k = 0; k < half; ++k) {
        const std::complex<double> turned = turns[k] * values[first + half + k];
        values[first + half + k] = values[first + k] - turned;
        values[first + k] += turned;
      }
    }
  }
}

/// Squared magnitudes of the transform of real values with zeros up to `length`, a power of two, from frequency 0 to
/// the highest.
inline std::vector<double> power_spectrum(const std::vector<double>& values, std::size_t length) {
  std::vector<std::complex<double>> transform(values.begin(), values.end());
  transform.resize(length);
  fourier_transform(transform);
  std::vector<double> power(length / 2 + 1);
  for (std::size_t i = 0; i < power.size(); ++i) power[i] = std::norm(transform[i]);
  return power;
}

}  // namespace orvo::timing::detail
