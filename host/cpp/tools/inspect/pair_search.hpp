#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
// Which pairs of channels of a capture are correlated, and at which delay.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "inspect/delay_candidates.hpp"
#include "inspect/far_delay.hpp"
#include "inspect/folded_times.hpp"
#include "inspect/pair_source.hpp"
#include "inspect/real_transform.hpp"
#include "orvo/timing/chance_pairs.hpp"
#include "orvo/timing/difference_grid.hpp"
#include "orvo/timing/pair_statistics.hpp"
#include "orvo/timing/time_tag.hpp"
#include "orvo/timing/xcorr_histogram.hpp"

namespace {

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

/// About no delay, or a far one: for dips, and for pulses 400 ps to 250 ns apart.
inline constexpr std::array<orvo::timing::XcorrWindow, 2> kNearViews{{{62'500, 125, 0}, {500'000, 999, 0}}};

/// The same about an offset; with wider bins, of which each can have pairs, where the instrument's grid is coarse.
inline std::array<orvo::timing::XcorrWindow, 2> near_views_about(std::int64_t offset_ps,
                                                                 const orvo::timing::DifferenceGrid& differences) {
  constexpr std::int64_t kFewestBins = 64;  // on either side
  std::array<orvo::timing::XcorrWindow, 2> views = kNearViews;
  for (orvo::timing::XcorrWindow& view : views) {
    view.offset_ps = offset_ps;
    view.bin_ps = std::max(view.bin_ps, differences.narrowest_bin_ps());
    view.range_ps = std::max(view.range_ps, kFewestBins * view.bin_ps);
  }
  return views;
}

/// The search among the pairs of one capture. A search that a source interrupts may be started again: what takes long
/// is kept.
class PairSearch {
 public:
  PairSearch(PairSource& source, const PairSearchSettings& settings) : source_(source), settings_(settings) {
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
    reach_ps_ = std::max(settings_.reach_ps ? static_cast<double>(*settings_.reach_ps) : quick_reach_ps(), 1.0);
    reach_ps_ = std::min(reach_ps_, std::max(span_ps_ / 2, 1.0));
  }
  /// In lists, which must outlive the search.
  PairSearch(const ChannelLists& times_ps, const PairSearchSettings& settings)
      : PairSearch(std::make_unique<ListSource>(times_ps), settings) {}

  /// How far delays are looked for: never beyond half of the recording.
  double reach_ps() const { return reach_ps_; }
  /// What times are folded into: bins each of which holds as many points of the instrument's grid, and none much
  /// narrower than a peak: what stands out of many bins stands out less. Both may reach farther than asked for.
  FoldedGrid grid() const {
    constexpr std::int64_t kNarrowestPs = 500;
    FoldedGrid grid = grid_as_asked();
    std::int64_t period_ps = 1;
    for (unsigned c = 0; c < orvo::timing::kChannels; ++c) period_ps = std::max(period_ps, source_.grid_period_ps(c));
    if (static_cast<double>(kNarrowestPs) * static_cast<double>(grid.bins) < span_ps_)
      grid.bin_ps = std::max(grid.bin_ps, kNarrowestPs);
    if (grid.bin_ps % period_ps != 0 && grid.bin_ps < std::numeric_limits<std::int64_t>::max() - period_ps)
      grid.bin_ps += period_ps - grid.bin_ps % period_ps;
    return grid;
  }

  PairFinding find(unsigned a, unsigned b) {
    PairFinding nothing{a, b, kNearViews[0], {}, false, {}, {}};
    if (is_empty(a) || is_empty(b)) {
      nothing.statistics = statistics_in(a, b, nothing.view);
      return nothing;
    }
    differences_ = source_.differences(a, b);
    const auto count = [&](std::span<const XcorrWindow> windows) { return source_.count(a, b, windows); };
    FarDelay far = find_far_delay(candidates(a, b), grid(), count, differences_);
    if (far.view && is_beyond_reach(*far.view)) far.view.reset();
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

  FoldedGrid grid_as_asked() const { return folded_grid(first_ps_, whole_ps(reach_ps_), settings_.bins); }

  bool is_beyond_reach(const XcorrWindow& view) const {
    const auto bin_ps = static_cast<double>(grid_as_asked().bin_ps);
    return std::abs(static_cast<double>(view.offset_ps)) > bin_ps * (static_cast<double>(settings_.bins) / 2 + 2);
  }

  orvo::timing::PairStatistics statistics_in(unsigned a, unsigned b, const XcorrWindow& view) const {
    const orvo::timing::PairContext context{orvo::timing::recording_of(source_.extent(a), source_.extent(b)),
                                            source_.segments(a, b), source_.differences(a, b)};
    return orvo::timing::pair_statistics(source_.count(a, b, {&view, 1}).front(), context, view);
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
    const auto count = [&](std::span<const XcorrWindow> windows) {
      return source_.count(finding.channel_a, finding.channel_b, windows);
    };
    finding.period_ps = period_about(tooth, chance_per_ps, count);
    finding.ambiguous = finding.ambiguous || finding.period_ps;
  }

  /// The reach in which the close look at the candidates of six pairs counts 200 million pairs of tags, which takes
  /// less than a second.
  double quick_reach_ps() const {
    constexpr double kQuickPairs = 2e8;
    constexpr double kViews = 16 * 4;  // candidates, each four bins wide
    constexpr double kFarthestPs = 1e12;
    double products = 0;
    for (unsigned a = 0; a < orvo::timing::kChannels; ++a) {
      for (unsigned b = a + 1; b < orvo::timing::kChannels; ++b)
        products += static_cast<double>(source_.extent(a).tags) * static_cast<double>(source_.extent(b).tags);
    }
    if (!(products > 0)) return kFarthestPs;
    const double bin_ps = kQuickPairs * span_ps_ / (kViews * products);
    return std::min(bin_ps * static_cast<double>(settings_.bins) / 2, kFarthestPs);
  }

  const DelayCandidates& candidates(unsigned a, unsigned b) {
    const auto known = candidates_.find({a, b});
    if (known != candidates_.end()) return known->second;
    take_spectra(a, b);
    if (!inverse_) inverse_.emplace(settings_.bins, TransformDirection::inverse);
    return candidates_[{a, b}] =
               delay_candidates(folded_correlation(*folded_[a], spectra_[a], *folded_[b], spectra_[b], *inverse_));
  }

  /// Spectra of the two channels, and of what else is folded already. Bins are given up for their spectrum, and then
  /// what transforms them: there are up to four million.
  void take_spectra(unsigned a, unsigned b) {
    if (folded_[a] && folded_[b]) return;
    const RealTransform transform(settings_.bins, TransformDirection::forward);
    for (unsigned c = 0; c < orvo::timing::kChannels; ++c) {
      const bool is_wanted = c == a || c == b || source_.has_folded(c);
      if (!is_wanted || folded_[c]) continue;
      folded_[c].emplace(source_.folded(c, grid()));
      spectra_[c] = folded_[c]->spectrum(transform);
      folded_[c]->forget_bins();
    }
  }

  PairSource& source_;
  std::unique_ptr<PairSource> own_source_;
  PairSearchSettings settings_;
  std::int64_t first_ps_ = std::numeric_limits<std::int64_t>::max();
  double span_ps_ = 0;
  double reach_ps_ = 1;
  orvo::timing::DifferenceGrid differences_;  // of the channels that are looked at
  std::optional<RealTransform> inverse_;
  std::array<std::optional<FoldedTimes>, orvo::timing::kChannels> folded_;
  std::array<Spectrum, orvo::timing::kChannels> spectra_;
  std::map<std::pair<unsigned, unsigned>, DelayCandidates> candidates_;
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
