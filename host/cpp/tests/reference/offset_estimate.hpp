#pragma once
// The offset estimate: sorted copies, the nearest B event of each sampled A event, and the upper median of the
// differences. Numbers are 128 bits wide.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "reference/tag.hpp"
#include "reference/wide.hpp"

namespace orvo::test::reference {

/// Difference to the nearest event of sorted `b`, which is not empty; the later one when two are equally near.
inline Wide nearest_difference(std::int64_t a, const Times& b) {
  const auto successor = std::lower_bound(b.begin(), b.end(), a);
  if (successor == b.end()) return Wide{b.back()} - a;
  const Wide after = Wide{*successor} - a;
  if (successor == b.begin()) return after;
  const Wide before = Wide{*(successor - 1)} - a;
  return -before < after ? before : after;
}

/// The differences whose upper median is the offset; none when a list is empty.
inline std::vector<Wide> offset_samples(Times a, Times b) {
  std::sort(a.begin(), a.end());
  std::sort(b.begin(), b.end());
  const std::size_t stride = a.size() < 4000 ? 1 : a.size() / 4000;
  std::vector<Wide> differences;
  for (std::size_t i = 0; i < a.size() && differences.size() < 4000 && !b.empty(); i += stride) {
    differences.push_back(nearest_difference(a[i], b));
  }
  return differences;
}

/// An offset outside 64 bits is the end of their range.
inline std::int64_t offset_estimate_ps(const Times& a, const Times& b) {
  std::vector<Wide> differences = offset_samples(a, b);
  if (differences.empty()) return 0;
  std::sort(differences.begin(), differences.end());
  return in_64_bits(differences[differences.size() / 2]);
}

}  // namespace orvo::test::reference
