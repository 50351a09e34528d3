#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
// Where a folded correlation stands out of its surroundings.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <vector>

#include "inspect/folded_times.hpp"
#include "orvo/timing/poisson_statistics.hpp"

namespace {

using orvo::timing::LogProbability;

/// False alarms a capture: what all bins of its six pairs of channels give together by chance.
inline constexpr double kFalseAlarms = 1e-4;

/// What one of N bins, by itself or with the next one, must be as improbable as.
inline LogProbability candidate_threshold(std::size_t bins) {
  return {std::log(kFalseAlarms / (12 * static_cast<double>(bins)))};
}

/// Sigmas by which pairs stand out when their delay lies halfway between two bins, which are taken together; `share`
/// is the geometric mean of the two channels' shares of correlated tags. The same at all rates and durations.
inline double expected_sigmas(double share, std::size_t bins) {
  return share * std::sqrt(static_cast<double>(bins) / 2);
}

/// A delay that is likelier than others.
struct DelayCandidate {
  double delay_ps = 0;         ///< the middle
  double width_ps = 0;         ///< of the bins that stand out
  double chance_per_ps = 0;    ///< pairs by chance for each picosecond of delay
  LogProbability probability;  ///< of these bins by themselves
};

/// All delays within reach as a plot can show them: equal groups of bins, and what stands out most in each.
struct DelayOverview {
  double bin_ps = 0;
  std::size_t bins_per_group = 0;
  std::vector<double> sigmas;  ///< of the group's clearest bin by itself, from the most negative delay on
  double threshold = 0;        ///< sigmas from which a bin is certain without a closer look

  double group_ps() const { return bin_ps * static_cast<double>(bins_per_group); }
  double first_ps() const { return -group_ps() * static_cast<double>(sigmas.size() / 2); }
};

struct DelayCandidates {
  std::vector<DelayCandidate> best;  ///< at most 16, the least probable first
  std::size_t significant = 0;       ///< separate places above the threshold, the first of the best among them
  std::optional<double> period_ps;   ///< of more than 16 places at even distances: pulsed light
  double folds = 1;                  ///< how many delays fall on each other
  DelayOverview overview;
};

/// Looks at bins by themselves, in pairs and in groups of up to 64, each against the mean of the 512 bins on either
/// side. The mean of all bins would not do: rates that drift and a recording that is no multiple of the grid leave
/// slow structure.
class CandidateSearch {
 public:
  explicit CandidateSearch(const FoldedCorrelation& correlation)
      : grid_(correlation.grid),
        folds_(correlation.folds),
        bins_(correlation.pairs.size()),
        sums_(bins_ + 2 * kMargin + 1) {
    for (std::size_t i = 0; i < bins_ + 2 * kMargin; ++i)
      sums_[i + 1] = sums_[i] + std::round(correlation.pairs[(i + bins_ - kMargin % bins_) % bins_]);
    measure_noise();
  }

  DelayCandidates find() {
    for (std::size_t length = 1; length <= kLongest && 8 * length <= bins_; length *= 2) {
      const std::size_t step = std::max<std::size_t>(length / 2, 1);
      for (std::size_t first = 0; first < bins_; first += step) judge(first, length);
    }
    return chosen();
  }

  DelayOverview overview() const {
    constexpr std::size_t kMostGroups = 1024;
    const std::size_t group = std::max<std::size_t>(bins_ / kMostGroups, 1);
    DelayOverview overview{static_cast<double>(grid_.bin_ps), group, {}, candidate_threshold(bins_).sigmas()};
    for (std::size_t first = 0; first < bins_; first += group)
      overview.sigmas.push_back(clearest_of((first + bins_ / 2) % bins_, group));
    return overview;
  }

 private:
  static constexpr std::size_t kSide = 512;
  static constexpr std::size_t kGap = 4;
  static constexpr std::size_t kLongest = 64;
  static constexpr std::size_t kMargin = kSide + kGap + kLongest;
  static constexpr std::size_t kWanted = 16;

  struct Place {
    double middle = 0;  ///< in bins
    double length = 0;
    double mean = 0;  ///< by chance, a bin
    double ln_p = 0;
  };

  /// Sum of `length` bins from `first`, counted from `kMargin` before bin 0.
  double sum(std::size_t first, std::size_t length) const { return sums_[first + length] - sums_[first]; }

  /// What chance gives in a bin beside a group. One pair more than there are, so that it is never too little.
  double mean_beside(std::size_t first, std::size_t length) const {
    const std::size_t at = first + kMargin;
    const double beside = sum(at - kGap - kSide, kSide) + sum(at + length + kGap, kSide);
    return (beside + 1) / (2.0 * kSide);
  }

  /// Sigmas of the bin that stands out most of `bins` from `first`.
  double clearest_of(std::size_t first, std::size_t bins) const {
    double clearest_pairs = 0;
    double clearest_mean = 1;
    double most = -std::numeric_limits<double>::infinity();
    for (std::size_t i = first; i < first + bins; ++i) {
      const double mean = mean_beside(i, 1);
      const double pairs = sum(i + kMargin, 1);
      const double square = std::copysign((pairs - mean) * (pairs - mean) / mean, pairs - mean);
      if (square <= most) continue;
      most = square;
      clearest_pairs = pairs;
      clearest_mean = mean;
    }
    return orvo::timing::poisson_at_least(clearest_pairs, clearest_mean).sigmas() / std::sqrt(excess_);
  }

  void measure_noise() {
    constexpr double kOutlier = 25;
    double sum_of_squares = 0;
    double count = 0;
    for (std::size_t i = 0; i < bins_; ++i) {
      const double mean = mean_beside(i, 1);
      const double difference = sum(i + kMargin, 1) - mean;
      const double square = difference * difference / mean;
      if (square >= kOutlier) continue;
      sum_of_squares += square;
      ++count;
    }
    const double variance = count > 0 ? sum_of_squares / count : 1;
    excess_ = variance > 1.02 ? variance : 1;
  }

  void judge(std::size_t first, std::size_t length) {
    const auto bins = static_cast<double>(length);
    const double mean = mean_beside(first, length);
    const double pairs = sum(first + kMargin, length);
    if (pairs - bins * mean <= 3.5 * std::sqrt(bins * mean)) return;  // most
    LogProbability p = orvo::timing::poisson_at_least(pairs, bins * mean);
    if (excess_ > 1) p.ln = orvo::timing::detail::ln_normal_tail(p.sigmas() / std::sqrt(excess_));
    add({static_cast<double>(first) + (bins - 1) / 2, bins, mean, p.ln});
  }

  /// Keeps the best few thousand places.
  void add(const Place& place) {
    constexpr std::size_t kKept = 4096;
    if (place.ln_p > worst_) return;
    places_.push_back(place);
    if (places_.size() < 2 * kKept) return;
    std::nth_element(places_.begin(), places_.begin() + kKept, places_.end(), is_better);
    places_.resize(kKept);
    worst_ = std::max_element(places_.begin(), places_.end(), is_better)->ln_p;
  }

  static bool is_better(const Place& a, const Place& b) { return a.ln_p < b.ln_p; }

  DelayCandidates chosen() {
    std::sort(places_.begin(), places_.end(), is_better);
    const double limit = candidate_threshold(bins_).ln;
    std::vector<Place> separate;
    for (const Place& place : places_) {
      const auto overlaps = [&](const Place& other) {
        const double distance = std::abs(std::remainder(place.middle - other.middle, static_cast<double>(bins_)));
        return distance <= (place.length + other.length) / 2 + 1;
      };
      if (separate.size() >= kMostSeparate || (separate.size() >= kWanted && place.ln_p >= limit)) break;
      if (std::none_of(separate.begin(), separate.end(), overlaps)) separate.push_back(place);
    }
    DelayCandidates candidates;
    candidates.folds = folds_;
    std::vector<double> significant;
    for (const Place& place : separate) {
      if (place.ln_p < limit) significant.push_back(place.middle);
      if (candidates.best.size() < kWanted) candidates.best.push_back(described(place));
    }
    candidates.significant = significant.size();
    if (significant.size() > kWanted) candidates.period_ps = even_distance_ps(std::move(significant));
    return candidates;
  }

  DelayCandidate described(const Place& place) const {
    const auto width = static_cast<double>(grid_.bin_ps);
    return {grid_.delay_ps(place.middle), place.length * width, place.mean / width / folds_, {place.ln_p}};
  }

  /// The distance of which nearly all gaps between places are multiples.
  std::optional<double> even_distance_ps(std::vector<double> places) const {
    std::sort(places.begin(), places.end());
    std::vector<double> gaps;
    for (std::size_t i = 1; i < places.size(); ++i) gaps.push_back(places[i] - places[i - 1]);
    std::vector<double> sorted = gaps;
    const auto low = sorted.begin() + static_cast<std::ptrdiff_t>(sorted.size() / 4);
    std::nth_element(sorted.begin(), low, sorted.end());
    const double shortest = *low;
    double turns = 0;
    double length = 0;
    std::size_t even = 0;
    for (const double gap : gaps) {
      const double multiple = std::round(gap / shortest);
      if (multiple < 1 || std::abs(gap - multiple * shortest) > 0.2 * shortest + 1) continue;
      ++even;
      turns += multiple;
      length += gap;
    }
    if (5 * even < 4 * gaps.size()) return std::nullopt;
    return length / turns * static_cast<double>(grid_.bin_ps);
  }

  static constexpr std::size_t kMostSeparate = 512;

  FoldedGrid grid_;
  double folds_;
  std::size_t bins_;
  std::vector<double> sums_;
  double excess_ = 1;  // variance of the bins in units of the Poisson distribution's, 1 unless it is clearly more
  std::vector<Place> places_;
  double worst_ = 0;
};

inline DelayCandidates delay_candidates(const FoldedCorrelation& correlation) {
  CandidateSearch search(correlation);
  DelayCandidates candidates = search.find();
  candidates.overview = search.overview();
  return candidates;
}

}  // namespace
