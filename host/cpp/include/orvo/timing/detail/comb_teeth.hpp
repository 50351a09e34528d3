#pragma once
// The teeth of a comb whose period is known, and what makes them one.
#include <algorithm>
#include <cmath>
#include <complex>
#include <cstddef>
#include <numbers>
#include <numeric>
#include <utility>
#include <vector>

#include "orvo/timing/correlation_background.hpp"
#include "orvo/timing/correlation_bins.hpp"
#include "orvo/timing/correlation_peak.hpp"
#include "orvo/timing/detail/comb_period.hpp"

namespace orvo::timing::detail {

/// One period of a comb. Lengths in bins.
struct CombCell {
  double place = 0;  ///< where its tooth is expected
  PairSums all;      ///< of the whole period
  Estimate tooth;    ///< counts within 0.3 periods of the tooth less the rest, scaled
  double mean = 0;   ///< place of the tooth's counts, within 0.3 periods of where it is expected
  double mean_error = 0;
};

inline double overlap(double bin, double from, double to) {
  return std::clamp(std::min(bin + 0.5, to) - std::max(bin - 0.5, from), 0.0, 1.0);
}

inline CombCell comb_cell(const CorrelationBins& bins, double place, double period) {
  constexpr double kToothPart = 0.3;
  CombCell cell;
  cell.place = place;
  const auto first = static_cast<std::size_t>(std::max(std::floor(place - period / 2), 0.0));
  const auto end = std::min(static_cast<std::size_t>(std::ceil(place + period / 2)) + 1, bins.size());
  PairSums near;
  PairSums rest;
  const auto parts = [&](std::size_t i) {
    const auto bin = static_cast<double>(i);
    const double in_cell = overlap(bin, place - period / 2, place + period / 2);
    const double in_tooth = overlap(bin, place - kToothPart * period, place + kToothPart * period);
    return std::pair{in_tooth, in_cell - in_tooth};
  };
  for (std::size_t i = first; i < end; ++i) {
    const auto [in_tooth, in_rest] = parts(i);
    near.counts += in_tooth * bins.counts[i];
    near.expected += in_tooth * bins.expected[i];
    rest.counts += in_rest * bins.counts[i];
    rest.expected += in_rest * bins.expected[i];
  }
  cell.all = {near.counts + rest.counts, near.expected + rest.expected};
  const double scale = rest.expected > 0 ? near.expected / rest.expected : 0;
  const double floor = rest.expected > 0 ? rest.counts / rest.expected : 0;
  cell.tooth.value = near.counts - scale * rest.counts;
  double moment = 0;
  double square = 0;
  for (std::size_t i = first; i < end; ++i) {
    const auto [in_tooth, in_rest] = parts(i);
    const double weight = in_tooth - scale * in_rest;
    const double distance = place_of_bin(bins, i) - place;
    cell.tooth.error += weight * weight * bins.counts[i];
    moment += in_tooth * (bins.counts[i] - floor * bins.expected[i]) * distance;
    square += in_tooth * in_tooth * bins.counts[i] * distance * distance;
  }
  cell.tooth.error = std::sqrt(std::max(cell.tooth.error, 1.0));
  // Counts that lie below the floor on one side of a small tooth would put its mean anywhere.
  const double most = kToothPart * period;
  cell.mean = place + (cell.tooth.value > 0 ? std::clamp(moment / cell.tooth.value, -most, most) : 0);
  cell.mean_error = cell.tooth.value > 0 ? std::sqrt(square + 1.0 / 12) / cell.tooth.value : period;
  return cell;
}

/// The whole periods within the view whose teeth lie at `place` and multiples of the period from it.
inline std::vector<CombCell> comb_cells(const CorrelationBins& bins, double place, double period) {
  std::vector<CombCell> cells;
  const double first = place - std::floor((place + 0.5 - period / 2) / period) * period;
  for (double at = first; at + period / 2 <= static_cast<double>(bins.size()) - 0.5; at += period)
    cells.push_back(comb_cell(bins, at, period));
  return cells;
}

/// Where teeth of a period lie: the direction of the heights' first harmonic.
inline double comb_phase(const CorrelationBins& bins, double period) {
  const std::vector<double> heights = clipped_heights(bins);
  std::complex<double> sum = 0;
  for (std::size_t i = 0; i < heights.size(); ++i)
    sum += heights[i] * std::polar(1.0, 2 * std::numbers::pi * static_cast<double>(i) / period);
  const double turns = std::arg(sum) / (2 * std::numbers::pi);
  return (turns < 0 ? turns + 1 : turns) * period;
}

/// A straight line through the teeth, each with the weight of its place.
struct ToothLine {
  double place = 0;  ///< of tooth 0
  Estimate period;
  double scatter = 0;       ///< root mean square distance of the clear teeth from it
  double centre = 0;        ///< the tooth whose place is surest
  double centre_error = 0;  ///< of that place

  double at(double tooth) const { return place + tooth * period.value; }
  double error_at(double tooth) const { return std::hypot(centre_error, (tooth - centre) * period.error); }
};

inline bool is_clear(const CombCell& cell) {
  return cell.tooth.value > 3 * cell.tooth.error;
}

inline ToothLine line_through(const std::vector<CombCell>& cells, double period) {
  double weights = 0;
  double x = 0;
  double y = 0;
  double xx = 0;
  double xy = 0;
  for (std::size_t j = 0; j < cells.size(); ++j) {
    if (!is_clear(cells[j])) continue;
    const double weight = 1 / (cells[j].mean_error * cells[j].mean_error);
    const auto tooth = static_cast<double>(j);
    const double offset = cells[j].mean - cells[j].place;  // small numbers: the squares below keep their digits
    weights += weight;
    x += weight * tooth;
    y += weight * offset;
    xx += weight * tooth * tooth;
    xy += weight * tooth * offset;
  }
  ToothLine line{cells.empty() ? 0 : cells.front().place, {period, 0}, 0, 0, period};
  const double spread = weights * xx - x * x;
  if (!(spread > 0)) return line;
  const double slope = (weights * xy - x * y) / spread;
  line.place += (y - slope * x) / weights;
  line.period = {period + slope, std::sqrt(weights / spread)};
  line.centre = x / weights;
  line.centre_error = std::sqrt(1 / weights);
  double square = 0;
  double clear = 0;
  for (std::size_t j = 0; j < cells.size(); ++j) {
    if (!is_clear(cells[j])) continue;
    const double distance = cells[j].mean - line.at(static_cast<double>(j));
    square += distance * distance;
    ++clear;
  }
  line.scatter = std::sqrt(square / clear);
  return line;
}

/// Whether the teeth without the strongest quarter of them still add up to something.
inline bool many_contribute(const std::vector<CombCell>& cells) {
  std::vector<Estimate> teeth;
  for (const CombCell& cell : cells) teeth.push_back(cell.tooth);
  std::sort(teeth.begin(), teeth.end(), [](const Estimate& a, const Estimate& b) { return a.value > b.value; });
  double rest = 0;
  double variance = 0;
  for (std::size_t i = (teeth.size() + 3) / 4; i < teeth.size(); ++i) {
    rest += teeth[i].value;
    variance += teeth[i].error * teeth[i].error;
  }
  return rest > 5 * std::sqrt(variance);
}

/// Whether the middle tooth is not much lower than the average.
inline bool are_alike(const std::vector<CombCell>& cells) {
  std::vector<double> teeth;
  for (const CombCell& cell : cells) teeth.push_back(cell.tooth.value);
  const double sum = std::accumulate(teeth.begin(), teeth.end(), 0.0);
  return upper_median(teeth) >= 0.3 * sum / static_cast<double>(teeth.size());
}

/// What tells a comb from peaks that happen to fit a period.
inline bool is_comb(const std::vector<CombCell>& cells, const ToothLine& line) {
  constexpr std::ptrdiff_t kFewest = 4;
  if (static_cast<std::ptrdiff_t>(cells.size()) < kFewest || !many_contribute(cells)) return false;
  const auto clear = std::count_if(cells.begin(), cells.end(), is_clear);
  if (clear >= kFewest && line.scatter < 0.05 * line.period.value) {
    const auto first = std::find_if(cells.begin(), cells.end(), is_clear);
    const auto end = std::find_if(cells.rbegin(), cells.rend(), is_clear).base();
    if (3 * clear >= 2 * (end - first) || are_alike(cells)) return true;
  }
  const auto is_very_clear = [](const CombCell& cell) { return cell.tooth.value > 5 * cell.tooth.error; };
  return std::none_of(cells.begin(), cells.end(), is_very_clear) && are_alike(cells);
}

/// The floor between the teeth: the background of the view folded by the period.
inline Estimate comb_floor(const CorrelationBins& bins, double place, double period) {
  CorrelationBins folded;
  const auto phases = static_cast<std::size_t>(std::max(std::floor(period), 1.0));
  folded.counts.resize(phases);
  folded.expected.resize(phases);
  PairSums rest;  // farthest from the teeth
  for (std::size_t i = 0; i < bins.size(); ++i) {
    const double turns = (static_cast<double>(i) - place) / period;
    const double phase = turns - std::floor(turns);
    const auto at = std::min(static_cast<std::size_t>(phase * static_cast<double>(phases)), phases - 1);
    folded.counts[at] += bins.counts[i];
    folded.expected[at] += bins.expected[i];
    if (std::abs(phase - 0.5) < 0.2) rest.add(bins, i);
  }
  const auto half = static_cast<std::ptrdiff_t>(phases / 2);  // the tooth in the middle
  std::rotate(folded.counts.begin(), folded.counts.begin() + half, folded.counts.end());
  std::rotate(folded.expected.begin(), folded.expected.begin() + half, folded.expected.end());
  const CorrelationBackground background = correlation_background(folded);
  if (background.measured && phases >= 8) return {background.level, background.error};
  if (!(rest.expected > 0)) return {0, 0};
  return {rest.counts / rest.expected, std::sqrt(std::max(rest.counts, 1.0)) / rest.expected};
}

}  // namespace orvo::timing::detail
