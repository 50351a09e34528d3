#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
// Places in a series of counts that are not chance: bursts, and steps of the rate.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace {

/// exp(-G) bounds the chance of `count` or more of `all` where each falls there with chance `share`.
inline double surprise(double count, double all, double share) {
  const auto term = [](double n, double expected) { return n == 0 ? 0 : n * std::log(n / expected); };
  return term(count, all * share) + term(all - count, all * (1 - share));
}

/// A stretch of neighbouring places that stand out, by their indices in the series, and by how much at most.
struct Place {
  std::size_t first = 0;
  std::size_t last = 0;
  double factor = 0;
  std::size_t at = 0;  ///< of that factor
  double before = 0;   ///< counts a slice on both sides there
  double after = 0;
};

/// Sums over any stretch of a series.
class Sums {
 public:
  explicit Sums(const std::vector<std::uint64_t>& counts) : sums_(counts.size() + 1) {
    for (std::size_t i = 0; i < counts.size(); ++i) sums_[i + 1] = sums_[i] + counts[i];
  }
  double of(std::size_t begin, std::size_t end) const { return static_cast<double>(sums_[end] - sums_[begin]); }
  std::size_t size() const { return sums_.size() - 1; }

 private:
  std::vector<std::uint64_t> sums_;
};

/// Light that blinks or drifts surprises everywhere: how much more than chance does, at nine places of ten.
inline double unrest(std::vector<double> surprises) {
  constexpr double kNinthDecile = 2.706;  // of chi squared with one degree of freedom, which 2 G follows
  if (surprises.empty()) return 1;
  const std::size_t at = 9 * surprises.size() / 10;
  std::nth_element(surprises.begin(), surprises.begin() + static_cast<std::ptrdiff_t>(at), surprises.end());
  return std::max(1.0, 2 * surprises[at] / kNinthDecile);
}

inline constexpr double kSurprising = 25;
/// Places no further apart are one.
inline constexpr std::size_t kNearSlices = 16;

/// Adds a place to a list that is in order of first slices.
inline void join(std::vector<Place>& places, const Place& place) {
  if (places.empty() || place.first > places.back().last + kNearSlices) {
    places.push_back(place);
    return;
  }
  Place& last = places.back();
  const std::size_t first = last.first;
  const std::size_t end = std::max(last.last, place.last);
  if (place.factor > last.factor) last = place;
  last.first = first;
  last.last = end;
}

/// Windows of 1, 4 or 16 slices with far more than the two such windows on each side.
inline std::vector<Place> find_bursts(const std::vector<std::uint64_t>& counts) {
  const Sums sums(counts);
  std::vector<Place> found;
  for (const std::size_t window : {std::size_t{1}, std::size_t{4}, std::size_t{16}}) {
    if (sums.size() < 5 * window) continue;
    std::vector<double> surprises(sums.size() - 5 * window + 1);
    const auto inside = [&](std::size_t i) { return sums.of(i + 2 * window, i + 3 * window); };
    const auto all = [&](std::size_t i) { return sums.of(i, i + 5 * window); };
    for (std::size_t i = 0; i < surprises.size(); ++i) surprises[i] = surprise(inside(i), all(i), 0.2);
    const double limit = kSurprising * unrest(surprises);
    for (std::size_t i = 0; i < surprises.size(); ++i) {
      const double rest = all(i) - inside(i);
      if (surprises[i] <= limit || 4 * inside(i) < 2 * rest || 5 * inside(i) <= all(i)) continue;
      const double factor = rest == 0 ? HUGE_VAL : 4 * inside(i) / rest;
      found.push_back({i + 2 * window, i + 3 * window - 1, factor, i + 2 * window, 0, 0});
    }
  }
  std::sort(found.begin(), found.end(), [](const Place& a, const Place& b) { return a.first < b.first; });
  std::vector<Place> places;
  for (const Place& place : found) join(places, place);
  return places;
}

/// Places where the rate of 16 slices differs from that of the 16 before by a factor, and not only beside the place.
inline std::vector<Place> find_rate_steps(const std::vector<std::uint64_t>& counts,
                                          const std::vector<Place>& bursts) {
  constexpr std::size_t kSide = 8;
  const Sums sums(counts);
  std::vector<Place> places;
  if (sums.size() < 4 * kSide) return places;
  std::vector<double> surprises(sums.size() - 4 * kSide + 1);
  const auto side = [&](std::size_t i, std::size_t which) {
    return sums.of(i + which * kSide, i + (which + 1) * kSide);
  };
  for (std::size_t i = 0; i < surprises.size(); ++i) {
    surprises[i] = surprise(side(i, 1), side(i, 1) + side(i, 2), 0.5);
  }
  const double limit = kSurprising * unrest(surprises);
  for (std::size_t i = 0; i < surprises.size(); ++i) {
    const std::size_t at = i + 2 * kSide;
    const bool by_a_burst = std::any_of(bursts.begin(), bursts.end(), [at](const Place& burst) {
      return at + kNearSlices >= burst.first && at <= burst.last + kNearSlices + 1;
    });
    const double before = side(i, 1);
    const double after = side(i, 2);
    const double high = std::max(before, after);
    const double low = std::min(before, after);
    const double high_side = before > after ? std::min(before, side(i, 0)) : std::min(after, side(i, 3));
    const double low_side = before > after ? std::max(after, side(i, 3)) : std::max(before, side(i, 0));
    if (by_a_burst || surprises[i] <= limit || high < 2 * low || high_side < 1.5 * low_side) continue;
    join(places, {at, at, low == 0 ? HUGE_VAL : high / low, at, before / kSide, after / kSide});
  }
  return places;
}

}  // namespace
