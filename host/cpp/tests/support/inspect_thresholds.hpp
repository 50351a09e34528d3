#pragma once
// Captures on one side or the other of what makes a finding.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "support/bytes.hpp"
#include "support/inspected_capture.hpp"

namespace orvo::test {

using Tags = std::vector<MadeTag>;

class Thresholds : public InspectedCapture {
 protected:
  /// Writes raw64 tags and tells whether the finding is there, "S burst" for one.
  bool finds(const std::string& finding, const Tags& tags, unsigned mask = 1) {
    write(tags, mask);
    return all_codes().count(finding) != 0;
  }
  bool finds(const std::string& finding, const std::string& header, const Bytes& payload) {
    write(header, payload);
    return all_codes().count(finding) != 0;
  }
};

/// Random times of one channel: exponential distances, the same on every machine.
class Clicks {
 public:
  explicit Clicks(std::uint64_t seed) : state_(seed) {}
  double exponential(double mean) {
    state_ = state_ * 6'364'136'223'846'793'005 + 1'442'695'040'888'963'407;
    return -mean * std::log((static_cast<double>(state_ >> 11) + 0.5) / 9007199254740992.0);
  }
  /// Appends tags of a channel at a mean distance, from a time up to another.
  Tags at(unsigned channel, double mean_ps, double from, double to) {
    Tags tags;
    for (double time = from + exponential(mean_ps); time < to; time += exponential(mean_ps)) {
      tags.push_back({channel, static_cast<std::uint64_t>(time)});
    }
    return tags;
  }

 private:
  std::uint64_t state_;
};

inline Tags merged(Tags left, const Tags& right) {
  left.insert(left.end(), right.begin(), right.end());
  std::stable_sort(left.begin(), left.end(),
                   [](const MadeTag& a, const MadeTag& b) { return a.time_ps < b.time_ps; });
  return left;
}

/// Distances of 1 ms that vary a little, so that nothing else is found.
inline Tags steady(std::uint64_t count, std::uint64_t step_ps = 1'000'000'000) {
  Tags tags;
  for (std::uint64_t i = 0; i < count; ++i) tags.push_back({0, i * step_ps + i * i % 7});
  return tags;
}

}  // namespace orvo::test
