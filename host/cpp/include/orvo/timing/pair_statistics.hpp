#pragma once
// Is there a correlation between two channels? One answer for a pair of channels, with everything that belongs to it.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <optional>
#include <span>
#include <utility>

#include "orvo/timing/chance_pairs.hpp"
#include "orvo/timing/correlation_background.hpp"
#include "orvo/timing/correlation_bins.hpp"
#include "orvo/timing/correlation_comb.hpp"
#include "orvo/timing/correlation_peak.hpp"
#include "orvo/timing/correlation_significance.hpp"
#include "orvo/timing/difference_grid.hpp"
#include "orvo/timing/rate_segments.hpp"
#include "orvo/timing/xcorr_histogram.hpp"

namespace orvo::timing {

enum class PairVerdict { none, peak, dip, comb };

/// What a correlation histogram shows. What does not exist is missing; no number here is ever NaN or infinite but the
/// logarithm of a probability that is 0.
struct PairJudgement {
  PairVerdict verdict = PairVerdict::none;
  bool significant = false;    ///< below 1e-5 by chance
  bool ambiguous = false;      ///< a comb of like teeth: the delay is known up to a multiple of the period
  bool cut = false;            ///< part of the peak lies outside the view
  LogProbability probability;  ///< that unrelated light shows something as clear anywhere in the view
  CorrelationBackground background;
  std::optional<CorrelationPeak> peak;  ///< of a verdict peak or dip; of a comb its odd tooth
  std::optional<CorrelationComb> comb;

  double sigmas() const { return probability.sigmas(); }
};

namespace detail {

/// The odd tooth of a comb as a peak above, or a dip below, the other teeth.
inline CorrelationPeak peak_of(const OddTooth& tooth, Estimate level) {
  CorrelationPeak peak;
  peak.side = tooth.side;
  peak.pairs = tooth.pairs;
  peak.background_pairs = {tooth.others_counts, std::sqrt(std::max(tooth.others_counts, 1.0))};
  peak.level = level;
  peak.place_ps = Estimate{tooth.place_ps, tooth.place_error_ps};
  const Estimate& g2 = tooth.of_others;  // below 0 where the tooth has fewer counts than the floor
  peak.g2 = NormalisedCount{std::max(g2.value, 0.0), g2.error, std::max(g2.value - g2.error, 0.0),
                            std::max(g2.value + g2.error, 0.0)};
  return peak;
}

inline void judge_comb(PairJudgement& judgement) {
  const CorrelationComb& comb = *judgement.comb;
  judgement.significant = true;
  judgement.background.level = comb.level.value;
  judgement.background.error = comb.level.error;
  judgement.background.measured = true;
  judgement.probability = comb.odd ? comb.odd->probability : comb.probability;
  judgement.ambiguous = !comb.odd;
  judgement.verdict = PairVerdict::comb;
  if (!comb.odd) return;
  judgement.verdict = comb.odd->side == CorrelationSide::peak ? PairVerdict::peak : PairVerdict::dip;
  judgement.peak = peak_of(*comb.odd, comb.level);
}

}  // namespace detail

/// The verdict on a histogram: a comb if there is one, else a peak or a dip if one is significant, the less probable
/// of them. A comb one tooth of which is unlike the others is a peak or a dip there, and `comb` tells its period.
inline PairJudgement judge_correlation(const CorrelationBins& bins) {
  PairJudgement judgement;
  judgement.background = correlation_background(bins);
  judgement.comb = correlation_comb(bins);
  if (judgement.comb) {
    detail::judge_comb(judgement);
    return judgement;
  }
  const CorrelationSignificance up = window_significance(bins, judgement.background, CorrelationSide::peak);
  const CorrelationSignificance down = window_significance(bins, judgement.background, CorrelationSide::dip);
  const bool is_dip = down.probability.ln < up.probability.ln;
  const CorrelationSignificance& window = is_dip ? down : up;
  judgement.probability = window.probability;
  judgement.significant = window.is_significant();
  if (!judgement.significant) return judgement;
  judgement.verdict = is_dip ? PairVerdict::dip : PairVerdict::peak;
  judgement.peak =
      correlation_peak(bins, judgement.background, window, is_dip ? CorrelationSide::dip : CorrelationSide::peak);
  judgement.cut = judgement.peak->cut;
  return judgement;
}

/// The judgement of two channels in one view of their delays.
struct PairStatistics {
  PairJudgement judgement;
  CorrelationBins bins;
  PairRecording recording;
  bool drifting = false;   ///< the rates rise and fall together: chance is taken from short segments
  bool too_short = false;  ///< the view reaches beyond half of the recording: nothing is called significant
  /// Pairs of the peak for each tag of a channel; the coincidence share from which heralding efficiency is computed.
  std::optional<Estimate> share_a;
  std::optional<Estimate> share_b;
};

namespace detail {

inline double peak_pairs(const PairJudgement& judgement) {
  return judgement.verdict == PairVerdict::peak && judgement.peak ? std::max(judgement.peak->pairs.value, 0.0) : 0.0;
}

inline void take_shares(PairStatistics& statistics) {
  const PairJudgement& judgement = statistics.judgement;
  if (judgement.verdict != PairVerdict::peak || !judgement.peak) return;
  const Estimate pairs = judgement.peak->pairs;
  const double tags_a = statistics.recording.a.tags;
  const double tags_b = statistics.recording.b.tags;
  if (tags_a > 0) statistics.share_a = Estimate{pairs.value / tags_a, pairs.error / tags_a};
  if (tags_b > 0) statistics.share_b = Estimate{pairs.value / tags_b, pairs.error / tags_b};
}

}  // namespace detail

/// What two channels are judged by beside a histogram of theirs.
struct PairContext {
  PairRecording recording;
  RateSegments segments;
  DifferenceGrid grid;
};

/// The verdict on a histogram of two channels. When the rates drift together by more than four standard deviations,
/// what chance gives is taken from the segments. No pattern of an instrument's grid is taken for one of the light.
inline PairStatistics pair_statistics(const XcorrHistogram& histogram, const PairContext& context,
                                      const XcorrWindow& window) {
  PairStatistics statistics;
  statistics.recording = context.recording;
  statistics.bins = correlation_bins(histogram, window, chance_pairs(statistics.recording, window));
  context.grid.apply(window, statistics.bins.expected);
  statistics.judgement = judge_correlation(statistics.bins);
  const double true_pairs = detail::peak_pairs(statistics.judgement);
  const auto offset_ps = static_cast<double>(window.offset_ps);
  statistics.drifting = !context.segments.common_drift(true_pairs).is_steady();
  if (statistics.drifting) {
    const TruePairs known{true_pairs, offset_ps};
    statistics.bins.expected = chance_pairs(context.segments, window, known);
    context.grid.apply(window, statistics.bins.expected);
    statistics.judgement = judge_correlation(statistics.bins);
  }
  const double length_ps = std::max(statistics.recording.a.end_ps, statistics.recording.b.end_ps) -
                           std::min(statistics.recording.a.begin_ps, statistics.recording.b.begin_ps);
  statistics.too_short = std::abs(offset_ps) + static_cast<double>(window.range_ps) > length_ps / 2;
  if (statistics.too_short) {
    statistics.judgement = PairJudgement{};
    statistics.judgement.background = correlation_background(statistics.bins);
  }
  detail::take_shares(statistics);
  return statistics;
}

/// The same of two lists in ascending order, which tell recording times, rates and grid.
inline PairStatistics pair_statistics(const XcorrHistogram& histogram, std::span<const std::int64_t> a_ps,
                                      std::span<const std::int64_t> b_ps, const XcorrWindow& window) {
  const PairContext context{recording_of(a_ps, b_ps), rate_segments(a_ps, b_ps), difference_grid(a_ps, b_ps)};
  return pair_statistics(histogram, context, window);
}

/// As above, of the pairs within a window.
inline PairStatistics pair_statistics(std::span<const std::int64_t> a_ps, std::span<const std::int64_t> b_ps,
                                      const XcorrWindow& window) {
  return pair_statistics(xcorr_histogram_sorted(a_ps, b_ps, window), a_ps, b_ps, window);
}

}  // namespace orvo::timing
