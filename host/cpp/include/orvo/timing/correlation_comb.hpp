#pragma once
// Pulsed light: a comb of peaks one period apart, all alike, or one of them higher or lower than the others.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <iterator>
#include <numeric>
#include <optional>
#include <vector>

#include "orvo/timing/correlation_bins.hpp"
#include "orvo/timing/correlation_peak.hpp"
#include "orvo/timing/correlation_significance.hpp"
#include "orvo/timing/detail/comb_period.hpp"
#include "orvo/timing/detail/comb_teeth.hpp"

namespace orvo::timing {

/// The tooth that is unlike the others.
struct OddTooth {
  CorrelationSide side = CorrelationSide::peak;
  LogProbability probability;  ///< that any of the teeth is so far off by chance
  double place_ps = 0;         ///< offset removed; that of the comb for a missing tooth
  double place_error_ps = 0;
  Estimate pairs;            ///< more, or for a dip fewer, than the others have on the average
  Estimate of_others;        ///< its pairs above the floor in units of theirs: of a low tooth g2(0)
  double others_pairs = 0;   ///< average of another tooth above the floor
  double others_counts = 0;  ///< average counts of another tooth's period
};

struct CorrelationComb {
  LogProbability probability;  ///< of a period as clear in a view without
  Estimate period_ps;
  double tooth_ps = 0;  ///< the place of a tooth, offset removed
  Estimate level;       ///< of the floor between the teeth, in units of chance
  Estimate pairs;       ///< average of a tooth above the floor, an odd one left out
  std::size_t teeth = 0;
  std::optional<OddTooth> odd;  ///< none: the delay is known up to a multiple of the period
};

namespace detail {

/// The counts of a tooth beside what the others would lead to expect.
struct ToothExcess {
  double counts = 0;
  double of_others = 0;  ///< average of the others above the floor
  double mean = 0;       ///< that and the floor
  LogProbability probability;

  double deviation() const { return counts - mean; }
  CorrelationSide side() const { return counts > mean ? CorrelationSide::peak : CorrelationSide::dip; }
  bool is_odd() const { return probability.ln < std::log(1e-5); }
};

inline std::vector<ToothExcess> tooth_excesses(const std::vector<CombCell>& cells, Estimate floor) {
  const auto teeth = static_cast<double>(cells.size());
  double sum = 0;
  for (const CombCell& cell : cells) sum += cell.all.counts - floor.value * cell.all.expected;
  std::vector<ToothExcess> excesses;
  for (const CombCell& cell : cells) {
    ToothExcess tooth;
    const double by_floor = floor.value * cell.all.expected;
    tooth.counts = cell.all.counts;
    tooth.of_others = (sum - (cell.all.counts - by_floor)) / (teeth - 1);
    tooth.mean = tooth.of_others + by_floor;
    if (tooth.mean > 0 && tooth.of_others > 0) {
      tooth.probability = tail(tooth.side(), tooth.counts, tooth.mean);
      tooth.probability.ln = ln_weakened(tooth.probability, 1 / (teeth - 1));
      tooth.probability = tooth.probability.in_trials(teeth);
    }
    excesses.push_back(tooth);
  }
  return excesses;
}

inline OddTooth described(const ToothExcess& excess, const CombCell& cell, double tooth, const ToothLine& line,
                          const CorrelationBins& bins, double others) {
  const bool has_mean = excess.side() == CorrelationSide::peak && is_clear(cell);
  const double place = has_mean ? cell.mean : line.at(tooth);
  const double place_error = has_mean ? cell.mean_error : line.error_at(tooth);
  const double ratio = 1 + excess.deviation() / excess.of_others;
  const double variance = std::max(excess.counts, 1.0);
  const double of_mean = excess.mean / others;
  return {excess.side(),
          excess.probability,
          place_in_ps(bins, place),
          place_error * bins.bin_ps,
          {std::abs(excess.deviation()), std::sqrt(variance + of_mean)},
          {ratio, std::sqrt(variance + ratio * ratio * of_mean) / excess.of_others},
          excess.of_others,
          excess.mean};
}

/// The tooth that is least like the average of the others, if that is significant and no second one is like it: where
/// teeth differ by themselves, none of them is the delay.
inline std::optional<OddTooth> odd_tooth(const std::vector<CombCell>& cells, Estimate floor, const ToothLine& line,
                                         const CorrelationBins& bins) {
  const std::vector<ToothExcess> excesses = tooth_excesses(cells, floor);
  const auto oddest = std::max_element(excesses.begin(), excesses.end(), [](const auto& a, const auto& b) {
    return std::abs(a.deviation()) < std::abs(b.deviation());
  });
  if (oddest == excesses.end() || !oddest->is_odd()) return std::nullopt;
  const auto rivals = std::count_if(excesses.begin(), excesses.end(), [&](const ToothExcess& tooth) {
    return tooth.is_odd() && std::abs(tooth.deviation()) > std::abs(oddest->deviation()) / 2;
  });
  const bool is_end = oddest == excesses.begin() || oddest + 1 == excesses.end();  // a low one: the comb ends there
  if (rivals > 1 || (is_end && oddest->side() == CorrelationSide::dip)) return std::nullopt;
  const auto tooth = static_cast<std::size_t>(oddest - excesses.begin());
  return described(*oddest, cells[tooth], static_cast<double>(tooth), line, bins,
                   static_cast<double>(cells.size()) - 1);
}

}  // namespace detail

/// The comb in a view, if there is one: a period of 3 bins to a quarter of the view, and teeth that are a comb
/// without the strongest quarter of them.
inline std::optional<CorrelationComb> correlation_comb(const CorrelationBins& bins) {
  const std::optional<detail::CombPeriod> period = detail::comb_period(bins);
  if (!period) return std::nullopt;
  std::vector<detail::CombCell> cells =
      detail::comb_cells(bins, detail::comb_phase(bins, period->bins), period->bins);
  detail::ToothLine line = detail::line_through(cells, period->bins);
  if (!detail::is_comb(cells, line)) return std::nullopt;
  cells = detail::comb_cells(bins, line.place, line.period.value);
  line = detail::line_through(cells, line.period.value);
  const auto first = std::find_if(cells.begin(), cells.end(), detail::is_clear);
  const auto end = std::find_if(cells.rbegin(), std::make_reverse_iterator(first), detail::is_clear).base();
  if (end - first >= 4) {
    const auto left_out = static_cast<double>(first - cells.begin());
    line.place = line.at(left_out);
    line.centre -= left_out;
    cells = std::vector<detail::CombCell>(first, end);
  }
  CorrelationComb comb;
  comb.probability = period->probability;
  comb.period_ps = {line.period.value * bins.bin_ps, line.period.error * bins.bin_ps};
  comb.tooth_ps = detail::place_in_ps(bins, line.place);
  comb.level = detail::comb_floor(bins, line.place, line.period.value);
  comb.teeth = cells.size();
  detail::PairSums sums;
  for (const detail::CombCell& cell : cells) {
    sums.counts += cell.all.counts;
    sums.expected += cell.all.expected;
  }
  const auto teeth = static_cast<double>(cells.size());
  const Estimate above = pairs_above(sums.counts, sums.expected, comb.level);
  // The floor's bins are among those counted, as far as the teeth reach: it rises with them.
  const double share_of_view = sums.expected / std::accumulate(bins.expected.begin(), bins.expected.end(), 0.0);
  const double variance = above.error * above.error - 2 * comb.level.value * sums.expected * share_of_view;
  comb.pairs = {above.value / teeth, std::sqrt(std::max({variance, above.value, 1.0})) / teeth};
  if (cells.size() >= 4) comb.odd = detail::odd_tooth(cells, comb.level, line, bins);
  if (comb.odd) comb.pairs.value = comb.odd->others_pairs;
  return comb;
}

}  // namespace orvo::timing
