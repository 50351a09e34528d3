#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>

#include "inspect/delay_candidates.hpp"
#include "orvo/timing/difference_grid.hpp"
#include "orvo/timing/pair_statistics.hpp"
#include "orvo/timing/xcorr_window.hpp"

namespace {

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

/// Whether a peak has more pairs than the teeth of a comb that is there, too, and has them much closer together: it
/// is neither one of the teeth nor a wide pedestal of all of them.
inline bool stands_by_itself(const PairFinding& finding, const orvo::timing::CorrelationComb& comb) {
  const auto& peak = finding.statistics.judgement.peak;
  if (!peak || peak->pairs.value <= 2 * comb.pairs.value) return false;
  const double width_ps = peak->fwhm_ps ? peak->fwhm_ps->value : static_cast<double>(finding.view.range_ps);
  constexpr double kMuchCloser = 3;
  return peak->pairs.value / width_ps > kMuchCloser * comb.pairs.value / comb.period_ps.value;
}

}  // namespace
