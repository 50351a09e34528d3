#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
// Whether a peak is one of many like it, as the light of a pulsed source gives: then it is not the delay.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "inspect/narrow_window.hpp"
#include "orvo/timing/poisson_statistics.hpp"
#include "orvo/timing/xcorr_histogram.hpp"
#include "orvo/timing/xcorr_window.hpp"

namespace {

/// Whether places that are not one and the same each have a peak of at least half as many pairs; `ln_limit` is what a
/// place must be as improbable as. Echoes and cross talk make one or two of them.
inline bool is_one_of_many(const NarrowWindow& peak, std::span<const NarrowWindow> others, double apart_ps,
                           double ln_limit) {
  constexpr std::size_t kMany = 3;
  std::vector<double> places_ps{peak.middle_ps};
  for (const NarrowWindow& other : others) {
    if (other.bins == 0 || !(other.probability.ln < ln_limit) || other.excess < peak.excess / 2) continue;
    const auto is_near = [&](double place_ps) { return std::abs(place_ps - other.middle_ps) < apart_ps; };
    if (std::none_of(places_ps.begin(), places_ps.end(), is_near)) places_ps.push_back(other.middle_ps);
  }
  return places_ps.size() > kMany;
}

/// How far the nearest bins are, in bins, that hold at least half of the pairs of the peak in the middle; 0 for none.
inline double nearest_like(const std::vector<std::int64_t>& counts, double mean, double excess, int direction) {
  const auto middle = static_cast<std::ptrdiff_t>(counts.size() / 2);
  const double ln_limit = std::log(1e-5 / static_cast<double>(counts.size()));
  for (std::ptrdiff_t distance = 3; distance + 1 <= middle; ++distance) {
    const auto first = static_cast<double>(counts[static_cast<std::size_t>(middle + direction * distance)]);
    const auto second = static_cast<double>(counts[static_cast<std::size_t>(middle + direction * (distance + 1))]);
    if (first + second - 2 * mean < excess / 2) continue;
    if (!(orvo::timing::poisson_at_least(first + second, 2 * mean).ln < ln_limit)) continue;
    const double rest = std::max(second - mean, 0.0);
    return static_cast<double>(distance) + rest / (std::max(first - mean, 0.0) + rest);
  }
  return 0;
}

/// The period of a comb of which a peak is a tooth: the distance of the nearest peaks like it, which must be the same
/// on either side. Looks as far as about a hundred million pairs of tags reach.
inline std::optional<double> period_about(const NarrowWindow& peak, double chance_per_ps, const CountWindows& count) {
  constexpr double kMostPairs = 1e8;
  constexpr double kMostBins = 1 << 19;  // on either side
  constexpr double kFewestBins = 16;
  const double width_ps = std::max(2 * std::round(peak.width_ps / 2) + 1, 3.0);
  const double bins = std::min(kMostBins, kMostPairs / (2 * std::max(chance_per_ps, 1e-30) * width_ps));
  if (bins < kFewestBins || width_ps * bins > 1e18) return std::nullopt;
  const orvo::timing::XcorrWindow window{whole_ps(std::floor(bins) * width_ps), whole_ps(width_ps),
                                         whole_ps(peak.middle_ps)};
  const std::vector<std::int64_t> counts = count({&window, 1}, 1).front().counts;
  const double mean = chance_per_ps * width_ps;
  const double after = nearest_like(counts, mean, peak.excess, 1);
  const double before = nearest_like(counts, mean, peak.excess, -1);
  if (after == 0 || before == 0 || std::abs(after - before) > 2) return std::nullopt;
  return (after + before) / 2 * width_ps;
}

}  // namespace
