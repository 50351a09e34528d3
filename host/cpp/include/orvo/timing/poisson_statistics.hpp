#pragma once
// How probable a count is when its expectation is known, down to probabilities that no double holds.
#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

#include "orvo/timing/version.hpp"

namespace orvo::timing {

namespace detail {

inline constexpr double kLnRootTwoPi = 0.918938533204672741780;

/// Q(z) / phi(z) for z >= 0: the upper tail of the normal distribution in units of its density.
inline double mills_ratio(double z) {
  if (z < 5) return std::exp(z * z / 2 + kLnRootTwoPi) * std::erfc(z / std::numbers::sqrt2) / 2;
  double fraction = z;
  for (int k = 40; k > 0; --k) fraction = z + k / fraction;
  return 1 / fraction;
}

/// ln Q(z), the upper tail of the normal distribution.
inline double ln_normal_tail(double z) {
  if (z < 5) return std::log(std::erfc(z / std::numbers::sqrt2) / 2);
  return -z * z / 2 - kLnRootTwoPi + std::log(mills_ratio(z));
}

/// ln(1 - e^ln_p).
inline double ln_complement(double ln_p) {
  return std::log1p(-std::exp(std::min(ln_p, 0.0)));
}

}  // namespace detail

/// A probability by its natural logarithm.
struct LogProbability {
  double ln = 0;

  double log10() const { return ln / std::numbers::ln10; }

  /// The z whose upper normal tail Q(z) has this probability; 0 from one half on.
  double sigmas() const {
    if (!(ln < -std::numbers::ln2)) return 0;
    if (std::isinf(ln)) return std::numeric_limits<double>::infinity();
    double z = std::sqrt(-2 * ln);  // above the solution; Newton's steps on the concave ln Q stay there
    for (int step = 0; step < 60; ++step) {
      const double next = z + (detail::ln_normal_tail(z) - ln) * detail::mills_ratio(z);
      if (!(std::abs(next - z) > 1e-13 * z)) break;
      z = std::max(next, 0.0);
    }
    return z;
  }

  /// That at least one of `trials` independent tries comes out as improbable as this: 1 - (1 - p)^trials.
  LogProbability in_trials(double trials) const {
    if (ln < -30) return {std::min(ln + std::log(std::max(trials, 1.0)), 0.0)};
    return {std::log(-std::expm1(std::max(trials, 1.0) * detail::ln_complement(ln)))};
  }
};

namespace detail {

/// The tail beyond `edge`, a boundary of whole counts far from 0, on the side away from `mean`; good to 1 / `edge`.
/// Saddle point approximation (Lugannani and Rice 1980).
inline double ln_far_tail(double edge, double mean) {
  const double e = (edge - mean) / mean;
  const double exponent = std::abs(e) < 1e-4 ? e * e * (1.0 / 2 - e / 6 + e * e / 12) : (1 + e) * std::log1p(e) - e;
  const double z = std::sqrt(2 * mean * exponent);
  const double skew = 1 / (3 * std::sqrt(2 * std::numbers::pi * mean));
  if (z < 1e-4) return std::log(0.5 + (e < 0 ? -skew : skew));
  const double u = std::abs(1 - mean / edge) * std::sqrt(edge);
  return -z * z / 2 - kLnRootTwoPi + std::log(mills_ratio(z) + 1 / u - 1 / z);
}

/// Counts from here on take the approximation.
inline constexpr double kFarCount = 1e4;

inline double ln_poisson_term(double count, double mean) {
  return count * std::log(mean) - mean - std::lgamma(count + 1);
}

}  // namespace detail

LogProbability poisson_at_most(double count, double mean);

/// P(X >= count) of a Poisson variable of the given mean, 0 <= mean: 1 for counts up to 0, ln p of -infinity for a
/// positive count where nothing is expected.
inline LogProbability poisson_at_least(double count, double mean) {
  if (!(count > 0)) return {0};
  if (!(mean > 0)) return {-std::numeric_limits<double>::infinity()};
  if (count <= mean) return {detail::ln_complement(poisson_at_most(count - 1, mean).ln)};
  if (count > detail::kFarCount) return {std::min(detail::ln_far_tail(count, mean), 0.0)};
  double sum = 1;
  double term = 1;
  for (double k = count + 1; term > 1e-17 * sum; ++k) sum += term *= mean / k;
  return {std::min(detail::ln_poisson_term(count, mean) + std::log(sum), 0.0)};
}

/// P(X <= count) of a Poisson variable of the given mean.
inline LogProbability poisson_at_most(double count, double mean) {
  if (count < 0) return {-std::numeric_limits<double>::infinity()};
  if (!(mean > 0)) return {0};
  if (count >= mean) return {detail::ln_complement(poisson_at_least(count + 1, mean).ln)};
  if (count > detail::kFarCount) {
    if (count + 1 >= mean) return {detail::ln_complement(detail::ln_far_tail(count + 1, mean))};
    return {std::min(detail::ln_far_tail(count + 1, mean), 0.0)};
  }
  double sum = 1;
  double term = 1;
  for (double k = count; k > 0 && term > 1e-17 * sum; --k) sum += term *= k / mean;
  return {std::min(detail::ln_poisson_term(count, mean) + std::log(sum), 0.0)};
}

/// The means between which a counted number leaves the true one with 68.27 % confidence, 15.87 % on either side.
struct PoissonInterval {
  double low = 0;
  double high = 0;
};

/// Central interval after Garwood (1936): P(X >= count | low) = P(X <= count | high) = 0.158655; low is 0 for no
/// count.
inline PoissonInterval poisson_interval(double count) {
  const double ln_outside = std::log(0.15865525393145705);
  const auto solution = [&](double below, double above, auto is_below) {
    for (int step = 0; step < 60; ++step) {
      const double middle = (below + above) / 2;
      (is_below(middle) ? below : above) = middle;
    }
    return (below + above) / 2;
  };
  count = std::max(count, 0.0);
  PoissonInterval interval;
  if (count > 0)
    interval.low = solution(0, count, [&](double mean) { return poisson_at_least(count, mean).ln < ln_outside; });
  interval.high = solution(count, count + 2 * std::sqrt(count) + 3,
                           [&](double mean) { return poisson_at_most(count, mean).ln > ln_outside; });
  return interval;
}

}  // namespace orvo::timing
