#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "inspect/folded_times.hpp"
#include "inspect/time_sample.hpp"
#include "inspect/window_counts.hpp"
#include "orvo/timing/chance_pairs.hpp"
#include "orvo/timing/difference_grid.hpp"
#include "orvo/timing/rate_segments.hpp"
#include "orvo/timing/time_tag.hpp"
#include "orvo/timing/xcorr_histogram.hpp"
#include "orvo/timing/xcorr_window.hpp"

namespace {

/// Two channels; delays are those of the second.
using ChannelPair = std::pair<unsigned, unsigned>;

/// All that a capture has.
inline std::vector<ChannelPair> six_pairs() {
  std::vector<ChannelPair> pairs;
  for (unsigned a = 0; a < orvo::timing::kChannels; ++a) {
    for (unsigned b = a + 1; b < orvo::timing::kChannels; ++b) pairs.emplace_back(a, b);
  }
  return pairs;
}

/// Where a search gets its numbers from.
class PairSource {
 public:
  virtual ~PairSource() = default;

  virtual orvo::timing::ChannelExtent extent(unsigned channel) const = 0;
  /// The channel's times in the bins of a grid.
  virtual FoldedTimes folded(unsigned channel, const FoldedGrid& grid) = 0;
  /// Whether the channel's bins take memory until they are asked for.
  virtual bool has_folded(unsigned) const { return false; }
  virtual orvo::timing::RateSegments segments(unsigned a, unsigned b) = 0;
  /// After how many picoseconds the grid of a channel's times repeats.
  virtual std::int64_t grid_period_ps(unsigned channel) const = 0;
  virtual orvo::timing::DifferenceGrid differences(unsigned a, unsigned b) = 0;
  /// Pairs of all tags of `b` with one of so many of `a`: 1 for all, else a `TimeSample`.
  virtual std::vector<orvo::timing::XcorrHistogram> count(unsigned a, unsigned b,
                                                          std::span<const orvo::timing::XcorrWindow> windows,
                                                          std::uint64_t one_of) = 0;
  /// These windows may be asked for soon.
  virtual void expect(unsigned, unsigned, std::span<const orvo::timing::XcorrWindow>) {}
};

/// Sorted times of each channel.
using ChannelLists = std::array<std::span<const std::int64_t>, orvo::timing::kChannels>;

/// All tags at hand.
class ListSource : public PairSource {
 public:
  explicit ListSource(const ChannelLists& times_ps) : times_ps_(times_ps) {}

  orvo::timing::ChannelExtent extent(unsigned channel) const override {
    return orvo::timing::extent_of(times_ps_[channel]);
  }
  FoldedTimes folded(unsigned channel, const FoldedGrid& grid) override {
    FoldedTimes folded(grid);
    folded.add(times_ps_[channel]);
    return folded;
  }
  orvo::timing::RateSegments segments(unsigned a, unsigned b) override {
    const auto found = segments_.find({a, b});
    if (found != segments_.end()) return found->second;
    return segments_[{a, b}] = orvo::timing::rate_segments(times_ps_[a], times_ps_[b]);
  }
  std::int64_t grid_period_ps(unsigned channel) const override {
    auto& period_ps = periods_ps_[channel];
    if (!period_ps) period_ps = orvo::timing::grid_period_ps(times_ps_[channel]);
    return *period_ps;
  }
  orvo::timing::DifferenceGrid differences(unsigned a, unsigned b) override {
    const auto found = differences_.find({a, b});
    if (found != differences_.end()) return found->second;
    return differences_[{a, b}] = orvo::timing::difference_grid(times_ps_[a], times_ps_[b]);
  }
  std::vector<orvo::timing::XcorrHistogram> count(unsigned a, unsigned b,
                                                  std::span<const orvo::timing::XcorrWindow> windows,
                                                  std::uint64_t one_of) override {
    const TimeSample sample(extent(a), one_of);
    std::vector<orvo::timing::XcorrHistogram> histograms;
    for (const orvo::timing::XcorrWindow& window : windows)
      histograms.push_back(count_sample(times_ps_[a], times_ps_[b], window, sample));
    return histograms;
  }

 private:
  ChannelLists times_ps_;
  std::map<ChannelPair, orvo::timing::RateSegments> segments_;
  mutable std::array<std::optional<std::int64_t>, orvo::timing::kChannels> periods_ps_;  // once asked for
  std::map<ChannelPair, orvo::timing::DifferenceGrid> differences_;
};

}  // namespace
