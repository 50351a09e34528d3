#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
// Which pairs of channels of a capture are correlated, and at which delay.
#include <array>
#include <cmath>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "inspect/close_look.hpp"
#include "inspect/delay_candidates.hpp"
#include "inspect/far_delay.hpp"
#include "inspect/folded_candidates.hpp"
#include "inspect/folded_times.hpp"
#include "inspect/like_peaks.hpp"
#include "inspect/narrow_window.hpp"
#include "inspect/pair_finding.hpp"
#include "inspect/pair_source.hpp"
#include "inspect/search_grid.hpp"
#include "orvo/timing/chance_pairs.hpp"
#include "orvo/timing/difference_grid.hpp"
#include "orvo/timing/pair_statistics.hpp"
#include "orvo/timing/xcorr_window.hpp"

namespace {

/// The search among the pairs of one capture. A search that a source interrupts may be started again: what takes long
/// is kept.
class PairSearch {
 public:
  PairSearch(PairSource& source, const PairSearchSettings& settings)
      : source_(source), before_pair_(settings.before_pair), grid_(source, settings), candidates_(source) {}
  /// In lists, which must outlive the search.
  PairSearch(const ChannelLists& times_ps, const PairSearchSettings& settings)
      : PairSearch(std::make_unique<ListSource>(times_ps), settings) {}

  double reach_ps() const { return grid_.reach_ps(); }
  FoldedGrid grid() const { return grid_.folded(); }

  PairFinding find(unsigned a, unsigned b) {
    if (before_pair_) before_pair_({a, b});
    PairFinding nothing{a, b, kNearViews[0], {}, false, {}, {}};
    if (is_empty(a) || is_empty(b)) {
      nothing.statistics = statistics_in(a, b, nothing.view);
      return nothing;
    }
    differences_ = source_.differences(a, b);
    const auto count = [&](std::span<const XcorrWindow> windows, std::uint64_t one_of) {
      return source_.count(a, b, windows, one_of);
    };
    const DelayCandidates& candidates = candidates_.of({a, b}, grid());
    std::vector<NarrowWindow>& windows = windows_[{a, b}];
    if (windows.empty()) windows = look_closely(candidates, grid(), count, differences_);
    FarDelay far = find_far_delay(candidates, windows, grid(), grid_.farthest_ps(), count, differences_);
    if (far.view && std::abs(static_cast<double>(far.view->offset_ps)) > grid_.farthest_ps()) far.view.reset();
    nothing.overview = far.overview;
    PairFinding finding = nothing;
    if (far.view) {
      for (const std::int64_t offset_ps : {std::int64_t{0}, far.view->offset_ps})
        source_.expect(a, b, near_views(offset_ps));
      take(finding, *far.view);
    }
    if (auto comb = comb_beside(finding)) return *comb;
    if (!far.view || !finding.statistics.judgement.significant) {
      finding = best_near(nothing);
    } else {
      finding.ambiguous = far.ambiguous;
      finding.period_ps = far.period_ps;
    }
    look_for_teeth(finding);
    return finding;
  }

 private:
  using XcorrWindow = orvo::timing::XcorrWindow;

  PairSearch(std::unique_ptr<PairSource> source, const PairSearchSettings& settings) : PairSearch(*source, settings) {
    own_source_ = std::move(source);
  }

  bool is_empty(unsigned channel) const { return source_.extent(channel).tags == 0; }

  std::array<XcorrWindow, 2> near_views(std::int64_t offset_ps) const {
    return near_views_about(offset_ps, differences_);
  }

  orvo::timing::PairStatistics statistics_in(unsigned a, unsigned b, const XcorrWindow& view) const {
    const orvo::timing::PairContext context{orvo::timing::recording_of(source_.extent(a), source_.extent(b)),
                                            source_.segments(a, b), source_.differences(a, b)};
    return orvo::timing::pair_statistics(source_.count(a, b, {&view, 1}, 1).front(), context, view);
  }

  void take(PairFinding& finding, const XcorrWindow& view) const {
    finding.view = view;
    finding.statistics = statistics_in(finding.channel_a, finding.channel_b, view);
    const auto& comb = finding.statistics.judgement.comb;
    finding.ambiguous = finding.statistics.judgement.ambiguous;
    finding.period_ps = comb ? std::optional(comb->period_ps.value) : std::nullopt;
  }

  /// The comb about no delay or about the delay found, unless that stands by itself. One with an odd tooth is
  /// preferred: far from it all teeth are alike.
  std::optional<PairFinding> comb_beside(const PairFinding& finding) const {
    std::optional<PairFinding> ambiguous;
    for (const std::int64_t offset_ps : {std::int64_t{0}, finding.view.offset_ps}) {
      for (const XcorrWindow& view : near_views(offset_ps)) {
        PairFinding comb = finding;
        take(comb, view);
        if (!comb.statistics.judgement.comb) continue;
        const double distance_ps = std::abs(static_cast<double>(finding.view.offset_ps - offset_ps));
        const bool is_inside = distance_ps < static_cast<double>(view.range_ps);
        const bool by_itself = stands_by_itself(finding, *comb.statistics.judgement.comb);
        if (!comb.ambiguous && (is_inside || !by_itself)) return comb;
        if (comb.ambiguous && !by_itself && !ambiguous) ambiguous = std::move(comb);
      }
      if (offset_ps == finding.view.offset_ps) break;
    }
    return ambiguous;
  }

  /// The least probable of what the near views show; if none is significant, the widest of them.
  PairFinding best_near(const PairFinding& nothing) const {
    PairFinding best = nothing;
    const std::array<XcorrWindow, 2> views = near_views(0);
    take(best, views.back());
    for (const XcorrWindow& view : views) {
      PairFinding near = nothing;
      take(near, view);
      const auto& judgement = near.statistics.judgement;
      if (judgement.significant && judgement.probability.ln < best.statistics.judgement.probability.ln)
        best = std::move(near);
    }
    return best;
  }

  /// A peak that stands between two like it, equally far on either side, is a tooth of a comb.
  void look_for_teeth(PairFinding& finding) const {
    const orvo::timing::PairStatistics& statistics = finding.statistics;
    const auto& peak = statistics.judgement.peak;
    const bool is_peak = statistics.judgement.verdict == orvo::timing::PairVerdict::peak;
    if (!is_peak || !peak->place_ps || finding.period_ps) return;
    const auto bin_ps = static_cast<double>(finding.view.bin_ps);
    const double chance_per_ps = statistics.bins.expected[statistics.bins.size() / 2] / bin_ps;
    const NarrowWindow tooth{static_cast<double>(finding.view.offset_ps) + peak->place_ps->value,
                             peak->fwhm_ps ? 1.3 * peak->fwhm_ps->value : 2 * bin_ps, 1,
                             statistics.judgement.probability, peak->pairs.value};
    const auto count = [&](std::span<const XcorrWindow> windows, std::uint64_t one_of) {
      return source_.count(finding.channel_a, finding.channel_b, windows, one_of);
    };
    finding.period_ps = period_about(tooth, chance_per_ps, count);
    finding.ambiguous = finding.ambiguous || finding.period_ps;
  }

  PairSource& source_;
  std::unique_ptr<PairSource> own_source_;
  std::function<void(ChannelPair)> before_pair_;
  SearchGrid grid_;
  FoldedCandidates candidates_;
  std::map<ChannelPair, std::vector<NarrowWindow>> windows_;  // what the candidates show
  orvo::timing::DifferenceGrid differences_;                  // of the channels that are looked at
};

/// The findings of these pairs.
inline std::vector<PairFinding> find_in_lists(const ChannelLists& times_ps, const std::vector<ChannelPair>& pairs,
                                              const PairSearchSettings& settings = {}) {
  PairSearch search(times_ps, settings);
  std::vector<PairFinding> findings;
  for (const auto& [a, b] : pairs) findings.push_back(search.find(a, b));
  return findings;
}

}  // namespace
