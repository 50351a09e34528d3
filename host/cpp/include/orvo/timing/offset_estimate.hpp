#pragma once
#include <algorithm>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <utility>
#include <vector>

#include "orvo/timing/sorted_times.hpp"

namespace orvo::timing {

namespace detail {

/// `to_ps - from_ps`, at the end of the range where it lies outside 64 bits.
inline std::int64_t saturated_difference(std::int64_t to_ps, std::int64_t from_ps) {
  const std::uint64_t magnitude = to_ps >= from_ps
                                      ? static_cast<std::uint64_t>(to_ps) - static_cast<std::uint64_t>(from_ps)
                                      : static_cast<std::uint64_t>(from_ps) - static_cast<std::uint64_t>(to_ps);
  const bool outside = magnitude > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
  if (to_ps >= from_ps)
    return outside ? std::numeric_limits<std::int64_t>::max() : static_cast<std::int64_t>(magnitude);
  return outside ? std::numeric_limits<std::int64_t>::min() : -static_cast<std::int64_t>(magnitude);
}

/// Difference from `a_ps` to the nearest of the sorted times; of two equally near, the later.
inline std::int64_t nearest_difference(std::int64_t a_ps, std::span<const std::int64_t> sorted_b_ps) {
  const auto successor = std::lower_bound(sorted_b_ps.begin(), sorted_b_ps.end(), a_ps);
  if (successor == sorted_b_ps.end()) return saturated_difference(sorted_b_ps.back(), a_ps);
  const auto distance = [](std::int64_t from, std::int64_t to) {
    return static_cast<std::uint64_t>(to) - static_cast<std::uint64_t>(from);
  };
  const bool before_is_nearer =
      successor != sorted_b_ps.begin() && distance(successor[-1], a_ps) < distance(a_ps, *successor);
  return saturated_difference(before_is_nearer ? successor[-1] : *successor, a_ps);
}

inline constexpr std::size_t kMostOffsetSamples = 4000;

/// Every so many events of A the sample takes one.
inline std::uint64_t offset_sample_stride(std::uint64_t events) {
  return std::max<std::uint64_t>(events / kMostOffsetSamples, 1);
}

/// The median, the upper one of an even number; 0 of none.
inline std::int64_t median_difference(std::vector<std::int64_t> differences) {
  if (differences.empty()) return 0;
  const auto middle = differences.begin() + static_cast<std::ptrdiff_t>(differences.size() / 2);
  std::nth_element(differences.begin(), middle, differences.end());
  return *middle;
}

}  // namespace detail

/// Delay of channel B after channel A, picoseconds: the median distance from an A event to its nearest B event, over
/// at most 4000 A events spread evenly (the upper median of an even number). Both lists in ascending order, which
/// debug builds assert; 0 when one is empty. Finds a delay that is short against the mean distance T of B events:
/// when they come at random, one up to ln(1 + s) / 2 * T, where a share s of the A events has a partner.
inline std::int64_t estimate_offset_sorted_ps(std::span<const std::int64_t> a_ps,
                                              std::span<const std::int64_t> b_ps) {
  assert(std::is_sorted(a_ps.begin(), a_ps.end()) && std::is_sorted(b_ps.begin(), b_ps.end()));
  if (a_ps.empty() || b_ps.empty()) return 0;
  const auto stride = static_cast<std::size_t>(detail::offset_sample_stride(a_ps.size()));
  std::vector<std::int64_t> differences;
  differences.reserve(detail::kMostOffsetSamples);
  for (std::size_t i = 0; i < a_ps.size() && differences.size() < detail::kMostOffsetSamples; i += stride) {
    differences.push_back(detail::nearest_difference(a_ps[i], b_ps));
  }
  return detail::median_difference(std::move(differences));
}

/// As `estimate_offset_sorted_ps`, for lists in any order: vectors, spans, the lists of `ChannelTimes`.
template <ContiguousTimes TimesA, ContiguousTimes TimesB>
std::int64_t estimate_offset_ps(const TimesA& a_ps, const TimesB& b_ps) {
  const SortedTimes a(a_ps);
  const SortedTimes b(b_ps);
  return estimate_offset_sorted_ps(a, b);
}

/// The same for lists written in place.
inline std::int64_t estimate_offset_ps(const std::vector<std::int64_t>& a_ps, const std::vector<std::int64_t>& b_ps) {
  return estimate_offset_ps(std::span(a_ps), std::span(b_ps));
}

}  // namespace orvo::timing
