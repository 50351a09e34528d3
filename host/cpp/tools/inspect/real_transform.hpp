#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
#include <kiss_fftr.h>

#include <complex>
#include <cstddef>
#include <memory>
#include <new>
#include <utility>
#include <vector>

namespace {

using Spectrum = std::vector<std::complex<float>>;

enum class TransformDirection { forward, inverse, both };

/// Fourier transforms of real values of one even length.
class RealTransform {
 public:
  /// Either direction takes 10 bytes a value. Throws std::bad_alloc.
  explicit RealTransform(std::size_t length, TransformDirection direction = TransformDirection::both)
      : length_(length) {
    if (direction != TransformDirection::inverse) forward_ = plan(0);
    if (direction != TransformDirection::forward) inverse_ = plan(1);
  }

  /// Frequencies 0 to the highest, length / 2 + 1 of them.
  Spectrum forward(const std::vector<float>& values) const {
    Spectrum spectrum(length_ / 2 + 1);
    kiss_fftr(forward_.get(), values.data(), reinterpret_cast<kiss_fft_cpx*>(spectrum.data()));
    return spectrum;
  }

  /// The values that have a spectrum, times the length.
  std::vector<float> inverse(const Spectrum& spectrum) const {
    std::vector<float> values(length_);
    kiss_fftri(inverse_.get(), reinterpret_cast<const kiss_fft_cpx*>(spectrum.data()), values.data());
    return values;
  }

 private:
  struct Free {
    void operator()(kiss_fftr_state* state) const { kiss_fftr_free(state); }
  };
  using Plan = std::unique_ptr<kiss_fftr_state, Free>;

  Plan plan(int is_inverse) const {
    Plan made(kiss_fftr_alloc(static_cast<int>(length_), is_inverse, nullptr, nullptr));
    if (!made) throw std::bad_alloc();
    return made;
  }

  std::size_t length_;
  Plan forward_;
  Plan inverse_;
};
static_assert(sizeof(std::complex<float>) == sizeof(kiss_fft_cpx));

}  // namespace
