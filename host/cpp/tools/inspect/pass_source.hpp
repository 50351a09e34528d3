#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
// The numbers of a search, from passes over a capture whose tags are not kept.
#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <stdexcept>
#include <tuple>
#include <utility>
#include <vector>

#include "inspect/pair_search.hpp"
#include "inspect/pair_source.hpp"
#include "inspect/time_sample.hpp"
#include "inspect/window_counts.hpp"
#include "orvo/timing/difference_grid.hpp"
#include "orvo/timing/rate_segments.hpp"
#include "orvo/timing/time_tag.hpp"
#include "orvo/timing/xcorr_histogram.hpp"
#include "orvo/timing/xcorr_window.hpp"

namespace {

/// Thrown by a source that needs one more pass before it can answer.
struct NeedsPass {};
/// Tags come too far out of order for counting them as they go by.
struct TooDisordered {};

/// The grids of all channels, from a pass of their own: the bins of everything else depend on them.
class GridSink {
 public:
  template <class Passes>
  explicit GridSink(const Passes& passes)
      : grids_{orvo::timing::TimeGrid(passes.extent(0)), orvo::timing::TimeGrid(passes.extent(1)),
               orvo::timing::TimeGrid(passes.extent(2)), orvo::timing::TimeGrid(passes.extent(3))} {}

  void begin_chunk(std::size_t) {}
  void add(unsigned channel, std::int64_t time_ps) { tags_.emplace_back(channel, time_ps); }
  void end_chunk() {
    for (const orvo::timing::TimeTag& tag : tags_) grids_[tag.channel].add(tag.time_ps);
    tags_.clear();
  }
  void discard_chunk() { tags_.clear(); }

  const orvo::timing::TimeGrid& of(unsigned channel) const { return grids_[channel]; }

 private:
  std::array<orvo::timing::TimeGrid, orvo::timing::kChannels> grids_;
  std::vector<orvo::timing::TimeTag> tags_;  // of the running chunk
};

/// What the first pass collects beside the counts of the near views.
class FirstLook {
 public:
  FirstLook(const std::vector<ChannelPair>& pairs, const PairSource& source, const FoldedGrid& grid) {
    for (const auto& [a, b] : pairs) {
      counters_.push_back({{a, b}, orvo::timing::RateSegmentCounter(source.extent(a), source.extent(b))});
      for (const unsigned channel : {a, b}) {
        if (!folded_[channel] && source.extent(channel).tags != 0) folded_[channel].emplace(grid);
      }
    }
  }

  void add(unsigned channel, std::int64_t time_ps) { times_ps_[channel].push_back(time_ps); }
  void discard() {
    for (auto& times_ps : times_ps_) times_ps.clear();
  }
  void commit() {
    for (unsigned c = 0; c < orvo::timing::kChannels; ++c) {
      if (folded_[c]) folded_[c]->add(times_ps_[c]);
    }
    for (auto& [pair, counter] : counters_) {
      counter.add_a(times_ps_[pair.first]);
      counter.add_b(times_ps_[pair.second]);
    }
    discard();
  }

  bool has_folded(unsigned channel) const { return folded_[channel].has_value(); }
  FoldedTimes take_folded(unsigned channel) {
    FoldedTimes folded = std::move(*folded_[channel]);
    folded_[channel].reset();
    return folded;
  }
  const orvo::timing::RateSegments& segments(ChannelPair pair) const {
    for (const auto& [known, counter] : counters_) {
      if (known == pair) return counter.segments();
    }
    throw std::out_of_range("segments of a pair that was not looked at");
  }

 private:
  std::array<std::vector<std::int64_t>, orvo::timing::kChannels> times_ps_;  // of the running chunk
  std::array<std::optional<FoldedTimes>, orvo::timing::kChannels> folded_;
  std::vector<std::pair<ChannelPair, orvo::timing::RateSegmentCounter>> counters_;
};

/// Hands tags to the counts, and in the first pass also to the first look.
class PassSink {
 public:
  PassSink(WindowCounts& counts, FirstLook* look) : counts_(counts), look_(look) {}

  void begin_chunk(std::size_t most_tags) { counts_.begin_chunk(most_tags); }
  void add(unsigned channel, std::int64_t time_ps) {
    counts_.add(channel, time_ps);
    if (look_ != nullptr) look_->add(channel, time_ps);
  }
  void end_chunk() {
    counts_.end_chunk();
    if (look_ != nullptr) look_->commit();
  }
  void discard_chunk() {
    counts_.discard_chunk();
    if (look_ != nullptr) look_->discard();
  }

 private:
  WindowCounts& counts_;
  FirstLook* look_;
};

/// Counts what a search has asked for in one pass after the other. `Passes` has `extent(channel)` and `run(sink)`,
/// which decodes the whole capture.
template <class Passes>
class PassSource : public PairSource {
 public:
  explicit PassSource(Passes& passes) : passes_(passes), grids_(passes) { passes_.run(grids_); }

  orvo::timing::ChannelExtent extent(unsigned channel) const override { return passes_.extent(channel); }
  FoldedTimes folded(unsigned channel, const FoldedGrid&) override { return look_->take_folded(channel); }
  bool has_folded(unsigned channel) const override { return look_->has_folded(channel); }
  orvo::timing::RateSegments segments(unsigned a, unsigned b) override { return look_->segments({a, b}); }
  std::int64_t grid_period_ps(unsigned channel) const override { return grids_.of(channel).period_ps(); }
  orvo::timing::DifferenceGrid differences(unsigned a, unsigned b) override {
    const auto found = differences_.find({a, b});
    if (found != differences_.end()) return found->second;
    return differences_[{a, b}] = orvo::timing::difference_grid(grids_.of(a), grids_.of(b));
  }

  /// Throws `NeedsPass` when they are not all counted yet.
  std::vector<orvo::timing::XcorrHistogram> count(unsigned a, unsigned b,
                                                  std::span<const orvo::timing::XcorrWindow> windows,
                                                  std::uint64_t one_of) override {
    for (const orvo::timing::XcorrWindow& window : windows) counts_.try_emplace(key(a, b, window, one_of));
    std::vector<orvo::timing::XcorrHistogram> histograms;
    for (const orvo::timing::XcorrWindow& window : windows) {
      const auto& known = counts_.at(key(a, b, window, one_of));
      if (!known) throw NeedsPass();
      histograms.push_back(*known);
    }
    return histograms;
  }
  void expect(unsigned a, unsigned b, std::span<const orvo::timing::XcorrWindow> windows) override {
    for (const orvo::timing::XcorrWindow& window : windows) counts_.try_emplace(key(a, b, window, 1));
  }

  /// The pass that everything else needs: folded times, segments, and what is known to be asked for.
  void look(const std::vector<ChannelPair>& pairs, const FoldedGrid& grid) {
    look_.emplace(pairs, *this, grid);
    for (const auto& [a, b] : pairs) expect(a, b, near_views_about(0, differences(a, b)));
    pass(&*look_);
  }
  /// Counts what was asked for. Throws `TooDisordered`, and what the passes throw.
  void count_expected() { pass(nullptr); }

 private:
  using Key = std::tuple<unsigned, unsigned, std::int64_t, std::int64_t, std::int64_t, std::uint64_t>;

  static Key key(unsigned a, unsigned b, const orvo::timing::XcorrWindow& window, std::uint64_t one_of) {
    return {a, b, window.range_ps, window.bin_ps, window.offset_ps, one_of};
  }

  void pass(FirstLook* look) {
    WindowCounts counts;
    std::vector<std::optional<orvo::timing::XcorrHistogram>*> results;
    for (auto& [key, histogram] : counts_) {
      if (histogram) continue;
      const auto& [a, b, range_ps, bin_ps, offset_ps, one_of] = key;
      counts.add_window(a, b, {range_ps, bin_ps, offset_ps}, TimeSample(extent(a), one_of));
      results.push_back(&histogram);
    }
    PassSink sink(counts, look);
    passes_.run(sink);
    counts.finish();
    if (counts.late_tags() != 0) throw TooDisordered();
    for (std::size_t i = 0; i < results.size(); ++i) *results[i] = counts.take(i);
  }

  Passes& passes_;
  GridSink grids_;
  std::map<ChannelPair, orvo::timing::DifferenceGrid> differences_;
  std::optional<FirstLook> look_;
  std::map<Key, std::optional<orvo::timing::XcorrHistogram>> counts_;  // without a value: asked for
};

/// The findings of these pairs. Throws `TooDisordered`, and what the passes throw.
template <class Passes>
std::vector<PairFinding> find_in_passes(Passes& passes, const std::vector<ChannelPair>& pairs,
                                        const PairSearchSettings& settings) {
  PassSource<Passes> source(passes);
  PairSearch search(source, settings);
  source.look(pairs, search.grid());
  std::vector<std::optional<PairFinding>> found(pairs.size());
  for (bool is_done = false; !is_done;) {
    is_done = true;
    for (std::size_t i = 0; i < pairs.size(); ++i) {
      if (found[i]) continue;
      try {
        found[i] = search.find(pairs[i].first, pairs[i].second);
      } catch (const NeedsPass&) {
        is_done = false;
      }
    }
    if (!is_done) source.count_expected();
  }
  std::vector<PairFinding> findings;
  for (auto& finding : found) findings.push_back(std::move(*finding));
  return findings;
}

}  // namespace
