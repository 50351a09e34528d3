#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
#include <array>
#include <cstddef>
#include <map>
#include <optional>

#include "inspect/delay_candidates.hpp"
#include "inspect/folded_times.hpp"
#include "inspect/pair_source.hpp"
#include "inspect/real_transform.hpp"
#include "orvo/timing/time_tag.hpp"

namespace {

/// The candidates of each pair of channels, and what they are found with: kept, as a search may be started again.
class FoldedCandidates {
 public:
  explicit FoldedCandidates(PairSource& source) : source_(source) {}

  /// All of one grid; neither channel is empty.
  const DelayCandidates& of(ChannelPair pair, const FoldedGrid& grid) {
    const auto known = candidates_.find(pair);
    if (known != candidates_.end()) return known->second;
    const auto& [a, b] = pair;
    take_spectra(a, b, grid);
    if (!inverse_) inverse_.emplace(grid.bins, TransformDirection::inverse);
    return candidates_[pair] =
               delay_candidates(folded_correlation(*folded_[a], spectra_[a], *folded_[b], spectra_[b], *inverse_));
  }

 private:
  /// Spectra of the two channels, and of what else is folded already. Bins are given up for their spectrum, and then
  /// what transforms them: there are up to four million.
  void take_spectra(unsigned a, unsigned b, const FoldedGrid& grid) {
    if (folded_[a] && folded_[b]) return;
    const RealTransform transform(grid.bins, TransformDirection::forward);
    for (unsigned c = 0; c < orvo::timing::kChannels; ++c) {
      const bool is_wanted = c == a || c == b || source_.has_folded(c);
      if (!is_wanted || folded_[c]) continue;
      folded_[c].emplace(source_.folded(c, grid));
      spectra_[c] = folded_[c]->spectrum(transform);
      folded_[c]->forget_bins();
    }
  }

  PairSource& source_;
  std::optional<RealTransform> inverse_;
  std::array<std::optional<FoldedTimes>, orvo::timing::kChannels> folded_;
  std::array<Spectrum, orvo::timing::kChannels> spectra_;
  std::map<ChannelPair, DelayCandidates> candidates_;
};

}  // namespace
