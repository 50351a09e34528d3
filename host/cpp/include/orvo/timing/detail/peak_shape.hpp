#pragma once
// The height and width of a peak between bins: half-maximum crossings of the counts, smoothed no more than noise
// asks. Lengths are in bins, places are indices of bins with fractions.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <numbers>
#include <optional>
#include <vector>

namespace orvo::timing::detail {

inline constexpr double kFwhmPerSd = 2.354820045030949;  // of a Gaussian
/// Of a Gaussian the square of the full width at half maximum in units of its variance: 8 ln 2.
inline constexpr double kSquareFwhmPerVariance = 5.545177444479562;

/// What bins hold of a Gaussian.
inline std::vector<double> gaussian_bins(double middle, double fwhm, std::size_t bins) {
  const auto below = [&](double x) {
    return std::erfc((middle - x) * kFwhmPerSd / (fwhm * std::numbers::sqrt2)) / 2;
  };
  std::vector<double> shares;
  for (std::size_t i = 0; i < bins; ++i) {
    const auto x = static_cast<double>(i);
    shares.push_back(below(x + 0.5) - below(x - 0.5));
  }
  return shares;
}

/// A Gaussian of standard deviation `sd` summed over bins; a single 1 for an `sd` of 0.
class SmoothingKernel {
 public:
  explicit SmoothingKernel(double sd) : reach_(sd > 0 ? static_cast<std::ptrdiff_t>(std::ceil(5 * sd)) : 0) {
    const auto below = [&](double x) { return std::erfc(-x / (sd * std::numbers::sqrt2)) / 2; };
    double sum = 0;
    for (std::ptrdiff_t j = -reach_; j <= reach_; ++j) {
      const auto x = static_cast<double>(j);
      weights_.push_back(sd > 0 ? below(x + 0.5) - below(x - 0.5) : 1);
      sum += weights_.back();
    }
    for (double& weight : weights_) weight /= sum;
  }

  /// Weight of the bin `distance` bins away.
  double at(std::ptrdiff_t distance) const {
    return std::abs(distance) <= reach_ ? weights_[static_cast<std::size_t>(distance + reach_)] : 0;
  }
  /// Weight of bin `bin` in the smoothed value at a place between bins.
  double between(double place, std::size_t bin) const {
    const double whole = std::floor(place);
    const auto distance = static_cast<std::ptrdiff_t>(bin) - static_cast<std::ptrdiff_t>(whole);
    return at(distance) + (at(distance - 1) - at(distance)) * (place - whole);
  }
  std::ptrdiff_t reach() const { return reach_; }

  /// The values smoothed; beyond the ends the outermost are repeated.
  std::vector<double> smoothed(const std::vector<double>& values) const {
    if (reach_ == 0) return values;
    std::vector<double> result(values.size());
    const auto last = static_cast<std::ptrdiff_t>(values.size()) - 1;
    for (std::ptrdiff_t i = 0; i <= last; ++i) {
      double sum = 0;
      for (std::ptrdiff_t j = -reach_; j <= reach_; ++j)
        sum += at(j) * values[static_cast<std::size_t>(std::clamp<std::ptrdiff_t>(i + j, 0, last))];
      result[static_cast<std::size_t>(i)] = sum;
    }
    return result;
  }

 private:
  std::ptrdiff_t reach_;
  std::vector<double> weights_;
};

/// The highest place of a curve and where it has come down to half of that on either side.
struct PeakShape {
  double place = 0;  ///< of the maximum
  double top = 0;
  std::optional<double> left;  ///< none when the curve ends before it is down
  std::optional<double> right;

  bool is_whole() const { return left && right; }
  double width() const { return *right - *left; }
  double middle() const { return (*left + *right) / 2; }
};

/// The first place where the curve falls below `level`, going from a bin in steps of `step` (1 or -1).
inline std::optional<double> crossing(const std::vector<double>& curve, std::size_t from, int step, double level) {
  const auto end = static_cast<std::ptrdiff_t>(curve.size());
  double before = curve[from];
  for (auto i = static_cast<std::ptrdiff_t>(from) + step; i >= 0 && i < end; i += step) {
    const double here = curve[static_cast<std::size_t>(i)];
    if (here < level) {
      // Not between 0 and 1 where the first bin lies below: the top is that of a parabola.
      const double part = (level - here) / (before - here);
      return static_cast<double>(i) - step * (part >= 0 && part <= 1 ? part : 1);
    }
    before = here;
  }
  return std::nullopt;
}

/// The shape about the curve's maximum at `highest`, whose top is lower by `lift` than a parabola through three bins
/// has it.
inline PeakShape shape_at(const std::vector<double>& curve, std::size_t highest, double lift = 0) {
  PeakShape shape{static_cast<double>(highest), curve[highest], {}, {}};
  if (highest > 0 && highest + 1 < curve.size()) {
    const double before = curve[highest - 1];
    const double after = curve[highest + 1];
    const double bend = before - 2 * curve[highest] + after;
    // Farther only where the bin is higher than its neighbours no more: at the end of where a peak is looked for.
    const double shift = bend < 0 ? std::clamp((before - after) / (2 * bend), -0.5, 0.5) : 0;
    shape.place += shift;
    shape.top -= (before - after) * shift / 4;
  }
  shape.top -= lift;
  shape.left = crossing(curve, highest, -1, shape.top / 2);
  shape.right = crossing(curve, highest, 1, shape.top / 2);
  return shape;
}

/// A curve's value between two bins.
inline double value_at(const std::vector<double>& curve, double place) {
  const double inside = std::clamp(place, 0.0, static_cast<double>(curve.size() - 1));
  const auto bin = std::min(static_cast<std::size_t>(inside), curve.size() - std::min<std::size_t>(curve.size(), 2));
  if (curve.size() == 1) return curve[0];
  return curve[bin] + (curve[bin + 1] - curve[bin]) * (inside - static_cast<double>(bin));
}

}  // namespace orvo::timing::detail
