#pragma once
// The offset estimate as it is defined: sorted copies, one binary search for each sampled A event, differences that
// cannot overflow, and a full sort for their middle.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

namespace orvo::test::plain {

/// A difference outside 64 bits is the end of their range.
inline std::int64_t offset_estimate_ps(std::vector<std::int64_t> a_ps, std::vector<std::int64_t> b_ps) {
  __extension__ typedef __int128 Integer;
  if (a_ps.empty() || b_ps.empty()) return 0;
  std::sort(a_ps.begin(), a_ps.end());
  std::sort(b_ps.begin(), b_ps.end());
  const std::size_t stride = a_ps.size() < 4000 ? 1 : a_ps.size() / 4000;
  std::vector<Integer> differences;
  for (std::size_t i = 0; i < a_ps.size(); i += stride) {
    if (differences.size() == 4000) break;
    const Integer a = a_ps[i];
    const auto successor = std::lower_bound(b_ps.begin(), b_ps.end(), a_ps[i]);
    if (successor == b_ps.end()) {
      differences.push_back(Integer{b_ps.back()} - a);
      continue;
    }
    const Integer d = Integer{*successor} - a;
    if (successor == b_ps.begin()) {
      differences.push_back(d);
      continue;
    }
    const Integer p = Integer{*(successor - 1)} - a;
    differences.push_back(-p < d ? p : d);
  }
  std::sort(differences.begin(), differences.end());
  const Integer middle = differences[differences.size() / 2];
  const Integer lowest = std::numeric_limits<std::int64_t>::min();
  const Integer highest = std::numeric_limits<std::int64_t>::max();
  return static_cast<std::int64_t>(std::clamp(middle, lowest, highest));
}

}  // namespace orvo::test::plain
