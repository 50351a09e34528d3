#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
// Which pairs of channels of a capture are correlated, and at which delay.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "inspect/delay_candidates.hpp"
#include "inspect/far_delay.hpp"
#include "inspect/folded_times.hpp"
#include "inspect/real_transform.hpp"
#include "orvo/timing/difference_grid.hpp"
#include "orvo/timing/pair_statistics.hpp"
#include "orvo/timing/time_tag.hpp"
#include "orvo/timing/xcorr_histogram.hpp"

namespace {

/// Sorted times of each channel.
using ChannelLists = std::array<std::span<const std::int64_t>, orvo::timing::kChannels>;

struct PairSearchSettings {
  std::optional<std::int64_t> reach_ps;  ///< none: as far as it takes about a second
  std::size_t bins = std::size_t{1} << 20;
};

/// What a capture shows of one pair of channels.
struct PairFinding {
  unsigned channel_a = 0;
  unsigned channel_b = 1;
  orvo::timing::XcorrWindow view{1, 1, 0};  ///< of the statistics
  orvo::timing::PairStatistics statistics;
  bool ambiguous = false;           ///< light in pulses, of which none is unlike the others
  std::optional<double> period_ps;  ///< of the pulses
  DelayOverview overview;           ///< empty when a channel is

  /// Of a peak or dip; none where there is no single delay.
  std::optional<orvo::timing::Estimate> delay_ps() const {
    const auto& peak = statistics.judgement.peak;
    if (ambiguous || !peak || !peak->place_ps) return std::nullopt;
    return orvo::timing::Estimate{static_cast<double>(view.offset_ps) + peak->place_ps->value, peak->place_ps->error};
  }
};

/// The search in the lists of one capture.
class PairSearch {
 public:
  PairSearch(const ChannelLists& times_ps, const PairSearchSettings& settings)
      : times_ps_(times_ps), settings_(settings) {
    std::int64_t last_ps = std::numeric_limits<std::int64_t>::min();
    for (const auto times : times_ps_) {
      if (times.empty()) continue;
      first_ps_ = std::min(first_ps_, times.front());
      last_ps = std::max(last_ps, times.back());
    }
    if (first_ps_ > last_ps) return;
    span_ps_ = static_cast<double>(last_ps) - static_cast<double>(first_ps_);
    reach_ps_ = std::max(settings_.reach_ps ? static_cast<double>(*settings_.reach_ps) : quick_reach_ps(), 1.0);
    reach_ps_ = std::min(reach_ps_, std::max(span_ps_ / 2, 1.0));
  }

  /// How far delays are looked for: never beyond half of the recording.
  double reach_ps() const { return reach_ps_; }

  PairFinding find(unsigned a, unsigned b) {
    PairFinding nothing{a, b, kNearViews[0], {}, false, {}, {}};
    if (times_ps_[a].empty() || times_ps_[b].empty()) {
      nothing.statistics = statistics_in(a, b, nothing.view);
      return nothing;
    }
    differences_ = orvo::timing::difference_grid(times_ps_[a], times_ps_[b]);
    FarDelay far = far_delay(a, b);
    if (far.view && is_beyond_reach(*far.view)) far.view.reset();
    nothing.overview = far.overview;
    PairFinding finding = nothing;
    if (far.view) take(finding, *far.view);
    if (auto comb = comb_beside(finding)) return *comb;
    if (!far.view || !finding.statistics.judgement.significant) return best_near(nothing);
    finding.ambiguous = far.period_ps.has_value();
    finding.period_ps = far.period_ps;
    return finding;
  }

 private:
  /// About no delay, or a far one: for dips, and for pulses 400 ps to 250 ns apart.
  static constexpr std::array<orvo::timing::XcorrWindow, 2> kNearViews{{{62'500, 125, 0}, {500'000, 999, 0}}};

  /// About an offset; with wider bins, of which each can have pairs, where the instrument's grid is coarse.
  orvo::timing::XcorrWindow near_view(orvo::timing::XcorrWindow view, std::int64_t offset_ps) const {
    constexpr std::int64_t kFewestBins = 64;  // on either side
    view.offset_ps = offset_ps;
    view.bin_ps = std::max(view.bin_ps, differences_.narrowest_bin_ps());
    view.range_ps = std::max(view.range_ps, kFewestBins * view.bin_ps);
    return view;
  }

  orvo::timing::PairStatistics statistics_in(unsigned a, unsigned b, const orvo::timing::XcorrWindow& view) const {
    return orvo::timing::pair_statistics(times_ps_[a], times_ps_[b], view);
  }

  void take(PairFinding& finding, const orvo::timing::XcorrWindow& view) const {
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
      for (const orvo::timing::XcorrWindow& near : kNearViews) {
        const orvo::timing::XcorrWindow view = near_view(near, offset_ps);
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

  /// Whether a peak has more pairs than the teeth of a comb that is there, too, and has them much closer together: it
  /// is neither one of the teeth nor a wide pedestal of all of them.
  static bool stands_by_itself(const PairFinding& finding, const orvo::timing::CorrelationComb& comb) {
    const auto& peak = finding.statistics.judgement.peak;
    if (!peak || peak->pairs.value <= 2 * comb.pairs.value) return false;
    const double width_ps = peak->fwhm_ps ? peak->fwhm_ps->value : static_cast<double>(finding.view.range_ps);
    constexpr double kMuchCloser = 3;
    return peak->pairs.value / width_ps > kMuchCloser * comb.pairs.value / comb.period_ps.value;
  }

  /// The least probable of what the near views show; if none is significant, the widest of them.
  PairFinding best_near(const PairFinding& nothing) const {
    PairFinding best = nothing;
    take(best, near_view(kNearViews.back(), 0));
    for (const orvo::timing::XcorrWindow& view : kNearViews) {
      PairFinding near = nothing;
      take(near, near_view(view, 0));
      const auto& judgement = near.statistics.judgement;
      if (judgement.significant && judgement.probability.ln < best.statistics.judgement.probability.ln)
        best = std::move(near);
    }
    return best;
  }

  /// The reach in which the close look at the candidates of six pairs counts about a thousand million pairs of tags.
  double quick_reach_ps() const {
    constexpr double kQuickPairs = 1e9;
    constexpr double kViews = 16 * 4;  // candidates, each four bins wide
    constexpr double kFarthestPs = 1e12;
    double products = 0;
    for (unsigned a = 0; a < orvo::timing::kChannels; ++a) {
      for (unsigned b = a + 1; b < orvo::timing::kChannels; ++b)
        products += static_cast<double>(times_ps_[a].size()) * static_cast<double>(times_ps_[b].size());
    }
    if (!(products > 0)) return kFarthestPs;
    const double bin_ps = kQuickPairs * span_ps_ / (kViews * products);
    return std::min(bin_ps * static_cast<double>(settings_.bins) / 2, kFarthestPs);
  }

  FarDelay far_delay(unsigned a, unsigned b) {
    if (!transform_) transform_.emplace(settings_.bins);
    const FoldedTimes& folded_a = folded(a);
    const FoldedTimes& folded_b = folded(b);
    const FoldedCorrelation correlation =
        folded_correlation(folded_a, spectra_[a], folded_b, spectra_[b], *transform_);
    const auto count = [&](std::span<const orvo::timing::XcorrWindow> windows) {
      std::vector<orvo::timing::XcorrHistogram> histograms;
      for (const orvo::timing::XcorrWindow& window : windows)
        histograms.push_back(orvo::timing::xcorr_histogram_sorted(times_ps_[a], times_ps_[b], window));
      return histograms;
    };
    return find_far_delay(correlation, count, differences_);
  }

  FoldedGrid grid_as_asked() const { return folded_grid(first_ps_, whole_ps(reach_ps_), settings_.bins); }

  bool is_beyond_reach(const orvo::timing::XcorrWindow& view) const {
    const auto bin_ps = static_cast<double>(grid_as_asked().bin_ps);
    return std::abs(static_cast<double>(view.offset_ps)) > bin_ps * (static_cast<double>(settings_.bins) / 2 + 2);
  }

  /// Bins each of which holds as many points of the instrument's grid, and none much narrower than a peak: what
  /// stands out of many bins stands out less. Both may reach farther than asked for.
  FoldedGrid grid() const {
    constexpr std::int64_t kNarrowestPs = 500;
    FoldedGrid grid = grid_as_asked();
    std::int64_t period_ps = 1;
    for (const auto times : times_ps_) period_ps = std::max(period_ps, orvo::timing::grid_period_ps(times));
    if (static_cast<double>(kNarrowestPs) * static_cast<double>(grid.bins) < span_ps_)
      grid.bin_ps = std::max(grid.bin_ps, kNarrowestPs);
    if (grid.bin_ps % period_ps != 0 && grid.bin_ps < std::numeric_limits<std::int64_t>::max() - period_ps)
      grid.bin_ps += period_ps - grid.bin_ps % period_ps;
    return grid;
  }

  /// The channel's folded times; its spectrum is there, too, after that.
  const FoldedTimes& folded(unsigned channel) {
    if (!grid_) grid_ = grid();
    if (!folded_[channel]) {
      folded_[channel].emplace(*grid_);
      folded_[channel]->add(times_ps_[channel]);
      spectra_[channel] = folded_[channel]->spectrum(*transform_);
    }
    return *folded_[channel];
  }

  ChannelLists times_ps_;
  PairSearchSettings settings_;
  std::int64_t first_ps_ = std::numeric_limits<std::int64_t>::max();
  double span_ps_ = 0;
  double reach_ps_ = 1;
  orvo::timing::DifferenceGrid differences_;  // of the channels that are looked at
  std::optional<RealTransform> transform_;
  std::optional<FoldedGrid> grid_;
  std::array<std::optional<FoldedTimes>, orvo::timing::kChannels> folded_;
  std::array<Spectrum, orvo::timing::kChannels> spectra_;
};

/// All six pairs, those with an empty channel included.
inline std::vector<PairFinding> find_all_pairs(const ChannelLists& times_ps,
                                               const PairSearchSettings& settings = {}) {
  PairSearch search(times_ps, settings);
  std::vector<PairFinding> findings;
  for (unsigned a = 0; a < orvo::timing::kChannels; ++a) {
    for (unsigned b = a + 1; b < orvo::timing::kChannels; ++b) findings.push_back(search.find(a, b));
  }
  return findings;
}

}  // namespace
