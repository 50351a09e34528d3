#pragma once
// Which differences of two channels an instrument can give at all.
//
// Converters store times on a grid: multiples of a power of two, or the steps of an interpolator within each period
// of their clock. Differences then lie on a grid as well, and bins that are no multiple of it hold more of its points
// and fewer in turn: a pattern that is not in the light. What unrelated tags give at each difference follows from the
// phases of either channel's tags,
//
//     pairs(d) ~ sum over all phases p of A(p) B(p + d)        p and d modulo the grid's period
//
// which contains how uneven the steps of an interpolator are, too.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <numeric>
#include <span>
#include <utility>
#include <vector>

#include "orvo/timing/chance_pairs.hpp"
#include "orvo/timing/detail/device_time.hpp"
#include "orvo/timing/detail/wide_integer.hpp"
#include "orvo/timing/xcorr_window.hpp"

namespace orvo::timing {

/// How often unrelated tags give each difference, compared with times that lie on no grid.
class DifferenceGrid {
 public:
  /// No grid: every difference is as frequent as the others.
  DifferenceGrid() = default;

  /// `pairs[d]` of differences that are d modulo their number, in any unit, not all 0.
  DifferenceGrid(const std::vector<double>& pairs, std::int64_t narrowest_bin_ps)
      : narrowest_bin_ps_(narrowest_bin_ps),
        period_ps_(static_cast<std::int64_t>(pairs.size())),
        sums_(pairs.size() + 1) {
    for (std::size_t d = 0; d < pairs.size(); ++d) sums_[d + 1] = sums_[d] + pairs[d];
    const double unit = static_cast<double>(pairs.size()) / sums_.back();
    for (double& sum : sums_) sum *= unit;
  }

  /// An odd width from which on no bin is without points of the grid; 1 without one.
  std::int64_t narrowest_bin_ps() const { return narrowest_bin_ps_; }

  /// Pairs with differences from `first` to `last` for each pair that there would be without a grid.
  double share(detail::Int128 first, detail::Int128 last) const {
    if (sums_.empty() || last < first) return 1;
    const Place begin = place_of(first);
    const Place end = place_of(last + 1);
    const double whole = static_cast<double>((end.turns - begin.turns) * period_ps_);
    return (whole + sums_[end.phase] - sums_[begin.phase]) / static_cast<double>(last - first + 1);
  }

  /// Turns what is expected in the bins of a window without a grid into what is expected with it.
  void apply(const XcorrWindow& window, std::vector<double>& expected) const {
    if (sums_.empty()) return;
    for (std::size_t bin = 0; bin < expected.size(); ++bin) {
      const detail::BinSpan span = detail::bin_span(window, bin);
      expected[bin] *= share(span.first + window.offset_ps, span.last + window.offset_ps);
    }
  }

 private:
  struct Place {
    detail::Int128 turns;
    std::size_t phase;
  };

  Place place_of(detail::Int128 difference) const {
    detail::Int128 turns = difference / period_ps_;
    if (turns * period_ps_ > difference) --turns;
    return {turns, static_cast<std::size_t>(difference - turns * period_ps_)};
  }

  std::int64_t narrowest_bin_ps_ = 1;
  std::int64_t period_ps_ = 1;
  std::vector<double> sums_;  // up to each phase; all of them make up the period
};

namespace detail {

/// At most so many tags tell a grid: evenly spread over the recording.
inline constexpr std::size_t kTagsForGrid = std::size_t{1} << 21;
inline constexpr std::size_t kFewestForGrid = 2000;
inline constexpr std::uint64_t kCoarsestGridPs = std::uint64_t{1} << 15;

/// Whether so few phases have tags that it must be an interpolator's steps; without them thousands of tags fill more.
inline bool are_steps(const std::vector<double>& phases) {
  const auto filled = std::count_if(phases.begin(), phases.end(), [](double tags) { return tags > 0; });
  return static_cast<std::size_t>(filled) < phases.size() / 8;
}

}  // namespace detail

/// What tells the grid of a channel, from tags that go by in any order; their extent is known already.
class TimeGrid {
 public:
  explicit TimeGrid(const ChannelExtent& extent)
      : extent_(extent), every_(extent.tags / detail::kTagsForGrid + 1), phases_(detail::kCoarsePeriodPs) {}

  void add(std::int64_t time_ps) {
    if (--until_next_ != 0) return;
    until_next_ = every_;
    bits_ |= static_cast<std::uint64_t>(time_ps) - static_cast<std::uint64_t>(extent_.first_ps);
    constexpr auto kPeriod = static_cast<std::int64_t>(detail::kCoarsePeriodPs);
    const std::int64_t phase = time_ps % kPeriod;
    phases_[static_cast<std::size_t>(phase < 0 ? phase + kPeriod : phase)] += 1;
  }

  const ChannelExtent& extent() const { return extent_; }
  /// After how many picoseconds the grid repeats: the step of a power of two up to 32,768 ps, or 3333 ps, the period
  /// of the converter's clock, for the steps of an interpolator. 1 without a grid, and for fewer than 2000 tags.
  std::int64_t period_ps() const {
    if (extent_.tags < detail::kFewestForGrid) return 1;
    const std::uint64_t step_ps = bits_ & (~bits_ + 1);  // divides all distances from the first tag
    if (step_ps > 1) return static_cast<std::int64_t>(step_ps);
    return detail::are_steps(phases_) ? static_cast<std::int64_t>(detail::kCoarsePeriodPs) : 1;
  }
  const std::vector<double>& clock_phases() const { return phases_; }

 private:
  ChannelExtent extent_;
  std::uint64_t every_;
  std::uint64_t until_next_ = 1;
  std::uint64_t bits_ = detail::kCoarsestGridPs;
  std::vector<double> phases_;  // tags at each phase of the converter's clock
};

/// Of a list in ascending order.
inline TimeGrid time_grid(std::span<const std::int64_t> times_ps) {
  TimeGrid grid(extent_of(times_ps));
  for (const std::int64_t time_ps : times_ps) grid.add(time_ps);
  return grid;
}

/// After how many picoseconds the grid of a list's times repeats.
inline std::int64_t grid_period_ps(std::span<const std::int64_t> times_ps) {
  return time_grid(times_ps).period_ps();
}

/// The grid of the differences b - a of two channels; none unless both have one.
inline DifferenceGrid difference_grid(const TimeGrid& a, const TimeGrid& b) {
  constexpr auto kClockPs = static_cast<std::int64_t>(detail::kCoarsePeriodPs);
  constexpr std::int64_t kTwoStepsPs = 37;  // of the interpolator: as many points in nearly all bins
  const std::int64_t period_a = a.period_ps();
  const std::int64_t period_b = b.period_ps();
  if (period_a == 1 || period_b == 1 || (period_a == kClockPs) != (period_b == kClockPs)) return {};
  std::vector<double> pairs(static_cast<std::size_t>(std::min(period_a, period_b)));
  if (period_a != kClockPs) {
    const std::uint64_t difference_ps =
        static_cast<std::uint64_t>(b.extent().first_ps) - static_cast<std::uint64_t>(a.extent().first_ps);
    pairs[difference_ps % pairs.size()] = 1;
    return {pairs, static_cast<std::int64_t>(pairs.size()) + 1};
  }
  const std::vector<double>& tags_a = a.clock_phases();
  const std::vector<double>& tags_b = b.clock_phases();
  for (std::size_t i = 0; i < tags_a.size(); ++i) {
    if (tags_a[i] == 0) continue;
    for (std::size_t j = 0; j < tags_b.size(); ++j)
      pairs[j >= i ? j - i : j + tags_b.size() - i] += tags_a[i] * tags_b[j];
  }
  return {pairs, kTwoStepsPs};
}

/// The grid of the differences b - a of two lists in ascending order.
inline DifferenceGrid difference_grid(std::span<const std::int64_t> a_ps, std::span<const std::int64_t> b_ps) {
  return difference_grid(time_grid(a_ps), time_grid(b_ps));
}

}  // namespace orvo::timing
