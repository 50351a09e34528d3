#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
// How far delays are looked for, and in what bins.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <optional>

#include "inspect/folded_times.hpp"
#include "inspect/narrow_window.hpp"
#include "inspect/pair_source.hpp"
#include "orvo/timing/chance_pairs.hpp"
#include "orvo/timing/time_tag.hpp"

namespace {

struct PairSearchSettings {
  std::optional<std::int64_t> reach_ps;  ///< none: as far as it takes about a second
  std::size_t bins = std::size_t{1} << 20;
  std::function<void(ChannelPair)> before_pair = {};  ///< told what is searched next, if it is not empty
};

/// The reach of a search, and the grid that times are folded into for it.
class SearchGrid {
 public:
  SearchGrid(const PairSource& source, const PairSearchSettings& settings) : source_(source), bins_(settings.bins) {
    std::int64_t last_ps = std::numeric_limits<std::int64_t>::min();
    for (unsigned c = 0; c < orvo::timing::kChannels; ++c) {
      const orvo::timing::ChannelExtent extent = source_.extent(c);
      if (extent.tags == 0) continue;
      first_ps_ = std::min(first_ps_, extent.first_ps);
      last_ps = std::max(last_ps, extent.last_ps);
    }
    if (first_ps_ > last_ps) {
      first_ps_ = 0;
      return;
    }
    span_ps_ = static_cast<double>(last_ps) - static_cast<double>(first_ps_);
    reach_ps_ = std::max(settings.reach_ps ? static_cast<double>(*settings.reach_ps) : quick_reach_ps(), 1.0);
    reach_ps_ = std::min(reach_ps_, std::max(span_ps_ / 2, 1.0));
  }

  /// How far delays are looked for: never beyond half of the recording.
  double reach_ps() const { return reach_ps_; }

  /// What times are folded into: bins each of which holds as many points of the instrument's grid, and none much
  /// narrower than a peak: what stands out of many bins stands out less. Both may reach farther than asked for.
  FoldedGrid folded() const {
    constexpr std::int64_t kNarrowestPs = 500;
    FoldedGrid grid = as_asked();
    std::int64_t period_ps = 1;
    for (unsigned c = 0; c < orvo::timing::kChannels; ++c) period_ps = std::max(period_ps, source_.grid_period_ps(c));
    if (static_cast<double>(kNarrowestPs) * static_cast<double>(grid.bins) < span_ps_)
      grid.bin_ps = std::max(grid.bin_ps, kNarrowestPs);
    if (grid.bin_ps % period_ps != 0 && grid.bin_ps < std::numeric_limits<std::int64_t>::max() - period_ps)
      grid.bin_ps += period_ps - grid.bin_ps % period_ps;
    return grid;
  }

  /// The farthest delay that is told: two bins more than the reach, as bins hold delays of their neighbours.
  double farthest_ps() const { return static_cast<double>(as_asked().bin_ps) * (static_cast<double>(bins_) / 2 + 2); }

 private:
  FoldedGrid as_asked() const { return folded_grid(first_ps_, whole_ps(reach_ps_), bins_); }

  /// The reach in which the close look at the candidates of six pairs counts 200 million pairs of tags, if a sample
  /// will not do. That takes less than a second.
  double quick_reach_ps() const {
    constexpr double kQuickPairs = 2e8;
    constexpr double kViews = 16 * 4;  // candidates, each four bins wide
    constexpr double kFarthestPs = 1e12;
    double products = 0;
    for (const auto& [a, b] : six_pairs())
      products += static_cast<double>(source_.extent(a).tags) * static_cast<double>(source_.extent(b).tags);
    if (!(products > 0)) return kFarthestPs;
    const double bin_ps = kQuickPairs * span_ps_ / (kViews * products);
    return std::min(bin_ps * static_cast<double>(bins_) / 2, kFarthestPs);
  }

  const PairSource& source_;
  std::size_t bins_;
  std::int64_t first_ps_ = std::numeric_limits<std::int64_t>::max();
  double span_ps_ = 0;
  double reach_ps_ = 1;
};

}  // namespace
