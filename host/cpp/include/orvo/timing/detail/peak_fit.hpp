#pragma once
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <iterator>
#include <utility>
#include <vector>

#include "orvo/timing/correlation_bins.hpp"
#include "orvo/timing/detail/peak_shape.hpp"

namespace orvo::timing::detail {

/// Bins turned into what rises from a level: heights and their variances, all for the same typical expectation.
struct PeakHeights {
  std::vector<double> height;
  std::vector<double> variance;
  std::vector<double> place;  ///< middle of each bin, in bins
  double typical = 0;         ///< pairs by chance in a bin to which all are scaled
  double level = 0;           ///< background in such a bin
  double level_error = 0;
};

/// `sign` is 1 for a peak, -1 for a dip. Bins in which nothing is expected count as level.
inline PeakHeights peak_heights(const CorrelationBins& bins, Estimate level, double sign) {
  std::vector<double> positive;
  std::copy_if(bins.expected.begin(), bins.expected.end(), std::back_inserter(positive),
               [](double expected) { return expected > 0; });
  PeakHeights heights;
  heights.typical = upper_median(std::move(positive));
  heights.level = heights.typical * level.value;
  heights.level_error = heights.typical * level.error;
  for (std::size_t i = 0; i < bins.size(); ++i) {
    const double scale = bins.expected[i] > 0 ? heights.typical / bins.expected[i] : 0;
    heights.height.push_back(sign * (bins.counts[i] - level.value * bins.expected[i]) * scale);
    heights.variance.push_back(bins.counts[i] * scale * scale);
    heights.place.push_back(place_of_bin(bins, i));
  }
  return heights;
}

/// Width of a peak from its half-maximum crossings and its place as the mean within 1.5 widths. Lengths in bins.
class PeakFit {
 public:
  /// Starts from a run of bins that fits the peak about best.
  PeakFit(PeakHeights heights, std::size_t first, std::size_t length) : heights_(std::move(heights)) {
    const auto bins = static_cast<double>(length);
    for (std::size_t i = first; i < first + length; ++i) top_ += heights_.height[i];
    top_ *= 1.2 / bins;
    width_ = bins / 1.3;
    middle_ = static_cast<double>(first) + (bins - 1) / 2;
    for (int round = 0; round < 5; ++round) {
      const double before = width_;
      measure_shape();
      if (!shape_.is_whole() || std::abs(width_ - before) < 0.02 * before) break;
    }
    if (shape_.is_whole()) match_gaussian();
    take_mean();
  }

  const PeakShape& shape() const { return shape_; }
  /// Full width at half maximum, that of the bins and of the smoothing taken off.
  double width() const { return width_; }
  /// How far from the mean the peak reaches.
  double half_window() const { return 1.5 * std::max(width_, 1.0) + 0.5; }
  /// Whether that is farther than the view does.
  bool is_cut() const {
    return mean_.value - half_window() < -0.5 ||
           mean_.value + half_window() > static_cast<double>(heights_.height.size()) - 0.5;
  }
  /// Mean within the window; meaningless when it is cut.
  Estimate mean() const { return mean_; }
  /// Of a whole shape.
  Estimate middle() const {
    return {(value_at(heights_.place, *shape_.left) + value_at(heights_.place, *shape_.right)) / 2,
            crossing_error([](double right, double left) { return (right + left) / 2; })};
  }
  /// Height of a whole shape above the background in units of chance. Smoothing, which makes a peak lower as it makes
  /// it wider, is taken off.
  double top_of_chance() const { return top_ * shape_.width() / width_ / heights_.typical; }
  /// Of a whole shape.
  double width_error() const {
    return crossing_error([](double right, double left) { return right - left; }) * shape_.width() / width_;
  }

 private:
  std::size_t bins() const { return heights_.height.size(); }

  /// As much smoothing as keeps the noise at the crossings small, and no more than a full width.
  double smoothing_sd() const {
    constexpr double kLeastSd = 0.3;
    if (width_ < 2) return 0;
    const double wanted = (top_ + heights_.level) / (0.0024 * top_ * top_ * width_);
    const double sd = std::clamp(wanted, 0.2, 1.0) * width_ / kFwhmPerSd;
    return sd < kLeastSd ? 0 : sd;
  }

  void measure_shape() {
    sd_ = smoothing_sd();
    kernel_ = SmoothingKernel(sd_);
    curve_ = kernel_.smoothed(heights_.height);
    const double reach = std::max(0.75 * width_, 1.0);
    const auto last = static_cast<double>(bins() - 1);
    const auto from = static_cast<std::size_t>(std::clamp(std::ceil(middle_ - reach), 0.0, last));
    const auto to = static_cast<std::size_t>(std::clamp(std::floor(middle_ + reach), 0.0, last));
    highest_ = static_cast<std::size_t>(std::max_element(curve_.begin() + static_cast<std::ptrdiff_t>(from),
                                                         curve_.begin() + static_cast<std::ptrdiff_t>(to) + 1) -
                                        curve_.begin());
    shape_ = shape_at(curve_, highest_);
    if (shape_.is_whole() && sd_ > 0) shape_ = shape_at(curve_, highest_, noise_lift());
    take_width();
    width_ = std::min(width_, 2 * static_cast<double>(bins()));
  }

  /// How much noise raises the highest of the smoothed bins on the average.
  double noise_lift() const {
    double slope_variance = 0;
    for (std::size_t j = 0; j < bins(); ++j) {
      const auto distance = static_cast<std::ptrdiff_t>(j) - static_cast<std::ptrdiff_t>(highest_);
      const double slope = (kernel_.at(distance - 1) - kernel_.at(distance + 1)) / 2;
      slope_variance += heights_.variance[j] * slope * slope;
    }
    return slope_variance * shape_.width() * shape_.width() / (2 * kSquareFwhmPerVariance * shape_.top);
  }

  void take_width() {
    top_ = shape_.top;
    if (!shape_.is_whole()) {  // cut: from the side that is there
      if (shape_.left) width_ = 2 * (shape_.place - *shape_.left);
      if (shape_.right) width_ = 2 * (*shape_.right - shape_.place);
      middle_ = shape_.place;
      return;
    }
    double square = shape_.width() * shape_.width() - kSquareFwhmPerVariance / 12;
    if (sd_ > 0) square -= kSquareFwhmPerVariance * (sd_ * sd_ + 1.0 / 12);
    width_ = std::sqrt(std::max(square, 0.25));
    middle_ = shape_.middle();
  }

  /// Straight lines and a parabola through few bins have errors of their own, which depend on how the peak lies
  /// between bins: the width and middle of the Gaussian whose crossings, taken alike, lie where they do.
  void match_gaussian() {
    constexpr double kMostBins = 50;  // nothing is left of them in wider peaks
    if (!(width_ >= 1 && width_ < kMostBins)) return;
    const auto reach = static_cast<std::size_t>(std::ceil(3 * width_)) + 2;
    const double zero = static_cast<double>(highest_) - static_cast<double>(reach);
    double width = width_;
    double middle = middle_;
    for (int round = 0; round < 4; ++round) {
      const std::vector<double> gaussian = kernel_.smoothed(gaussian_bins(middle - zero, width, 2 * reach + 1));
      const auto top =
          static_cast<std::size_t>(std::max_element(gaussian.begin(), gaussian.end()) - gaussian.begin());
      const PeakShape exact = shape_at(gaussian, top);
      if (!exact.is_whole()) return;
      width += (shape_.width() - exact.width()) * shape_.width() / width_;
      width = std::clamp(width, width_ / 2, width_ * 2);
      middle += shape_.middle() - exact.middle() - zero;
    }
    width_ = width;
    middle_ = middle;
  }

  /// The part of a bin within the window about `mean`.
  double part_in_window(std::size_t bin, double mean) const {
    const double from = std::max(heights_.place[bin] - 0.5, mean - half_window());
    const double to = std::min(heights_.place[bin] + 0.5, mean + half_window());
    return std::max(to - from, 0.0);
  }

  void take_mean() {
    mean_ = {middle_, 0};
    double pairs = 0;
    for (int round = 0; round < 4; ++round) {
      double moment = 0;
      pairs = 0;
      for (std::size_t i = 0; i < bins(); ++i) {
        const double pairs_here = heights_.height[i] * part_in_window(i, mean_.value);
        pairs += pairs_here;
        moment += pairs_here * heights_.place[i];
      }
      if (!(pairs > 0)) return;
      mean_.value = std::clamp(moment / pairs, 0.0, static_cast<double>(bins() - 1));
    }
    mean_.error = mean_error(pairs);
  }

  /// Of the mean in a window that follows it, for which reason pairs at its ends move it.
  double mean_error(double pairs) const {
    double square = 0;
    double lever = 0;
    for (std::size_t i = 0; i < bins(); ++i) {
      const double part = part_in_window(i, mean_.value);
      const double distance = heights_.place[i] - mean_.value;
      square += part * part * heights_.variance[i] * distance * distance;
      lever += part * distance;
    }
    square += lever * lever * heights_.level_error * heights_.level_error;
    return std::sqrt(square) / (pairs * (1 - following(pairs)));
  }

  /// By how much of its own motion the mean is drawn along by the pairs that come in at one end of the window and go
  /// out at the other; averaged over half a width, for single bins tell little of it.
  double following(double pairs) const {
    if (width_ < 4) return 0;
    const double reach = width_ / 4;
    double ends = 0;
    for (std::size_t i = 0; i < bins(); ++i) {
      const double distance = std::abs(std::abs(heights_.place[i] - mean_.value) - half_window());
      if (distance <= reach) ends += heights_.height[i] / (2 * reach);
    }
    return std::clamp(half_window() * ends / pairs, -0.5, 0.5);
  }

  /// Standard deviation of a combination of both crossings, each of which a bin's counts move by themselves and by
  /// way of the top.
  template <class Combination>
  double crossing_error(Combination combination) const {
    const double reach = std::max(1.0, shape_.width() / 8);
    const auto slope = [&](double place) {
      return (value_at(curve_, place + reach) - value_at(curve_, place - reach)) / (2 * reach);
    };
    const double right_slope = slope(*shape_.right);
    const double left_slope = slope(*shape_.left);
    double square = 0;
    double sum = 0;
    for (std::size_t j = 0; j < bins(); ++j) {
      const double half_top = kernel_.between(shape_.place, j) / 2;
      const double right = -(kernel_.between(*shape_.right, j) - half_top) / right_slope;
      const double left = -(kernel_.between(*shape_.left, j) - half_top) / left_slope;
      const double moved = combination(right, left);
      square += moved * moved * heights_.variance[j];
      sum += moved;
    }
    return std::sqrt(square + sum * sum * heights_.level_error * heights_.level_error);
  }

  PeakHeights heights_;
  double top_ = 0;
  double width_ = 0;
  double middle_ = 0;
  double sd_ = 0;
  SmoothingKernel kernel_{0};
  std::vector<double> curve_;
  std::size_t highest_ = 0;  // bin of it
  PeakShape shape_;
  Estimate mean_;
};

}  // namespace orvo::timing::detail
