// Whatever times or counts there are, the judgement of a correlation is made of numbers, its probability is one, and
// its peak lies in the view.
//
//   form | with bit 0: bins (1) | a typical count (1) | an expectation (8) | counts; else: range | bin | offset |
//   list A | list B; bits 1 to 3: how unevenly bins are filled
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "fuzz/support/input.hpp"
#include "fuzz/support/require.hpp"
#include "fuzz/support/time_lists.hpp"
#include "orvo/timing/detail/bin_layout.hpp"
#include "orvo/timing/pair_statistics.hpp"

namespace {

using orvo::fuzz::require;
using orvo::timing::CorrelationBins;
using orvo::timing::CorrelationPeak;
using orvo::timing::Estimate;
using orvo::timing::PairJudgement;
using orvo::timing::PairVerdict;
using orvo::timing::XcorrWindow;

void require_numbers(const std::optional<Estimate>& estimate) {
  if (!estimate) return;
  require(std::isfinite(estimate->value), "an estimate is a number");
  require(std::isfinite(estimate->error) && estimate->error >= 0, "an error is a number, 0 or more");
}

void require_sound(const CorrelationPeak& peak, const CorrelationBins& bins) {
  for (const Estimate& estimate : {peak.pairs, peak.background_pairs, peak.level}) require_numbers(estimate);
  require_numbers(peak.place_ps);
  require_numbers(peak.fwhm_ps);
  require_numbers(peak.accidental_ratio());
  if (peak.g2) require(peak.g2->low <= peak.g2->g2 && peak.g2->g2 <= peak.g2->high, "g2 lies in its interval");
  if (!peak.place_ps || bins.size() == 0) return;
  require(peak.place_ps->value >= bins.middle_ps.front() - 2 * bins.bin_ps &&
              peak.place_ps->value <= bins.middle_ps.back() + 2 * bins.bin_ps,
          "the peak lies in the view");
}

void require_sound(const PairJudgement& judgement, const CorrelationBins& bins) {
  require(judgement.probability.ln <= 0, "the probability is one");  // not for NaN
  require(!std::isnan(judgement.sigmas()), "sigmas are a number");
  require(std::isfinite(judgement.background.level) && judgement.background.error >= 0, "the background is a number");
  require(judgement.significant == (judgement.verdict != PairVerdict::none), "what is significant has a verdict");
  require(judgement.ambiguous == (judgement.verdict == PairVerdict::comb), "a comb is ambiguous, nothing else is");
  require(
      judgement.peak.has_value() == (judgement.verdict == PairVerdict::peak || judgement.verdict == PairVerdict::dip),
      "a peak or a dip is described");
  if (judgement.peak) require_sound(*judgement.peak, bins);
  if (judgement.comb) require_numbers(judgement.comb->period_ps);
}

/// Counts that a histogram may have, most of them alike.
CorrelationBins read_bins(orvo::fuzz::Input& input, unsigned unevenness) {
  CorrelationBins bins;
  const std::size_t size = input.byte();
  const double typical = input.byte();
  const auto scale = static_cast<double>(input.number(8) >> 11) * 0x1p-40;
  for (std::size_t i = 0; i < size; ++i) {
    bins.middle_ps.push_back(static_cast<double>(i) - static_cast<double>(size / 2));
    bins.expected.push_back(unevenness != 0 && i % unevenness == 0 ? 0 : scale);
    bins.counts.push_back(typical);
  }
  while (!input.empty() && size != 0) {
    const std::size_t at = input.byte() % size;
    bins.counts[at] = std::ldexp(input.byte(), input.byte() % 40);
  }
  return bins;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr std::uint64_t kMostBins = 400;
  orvo::fuzz::Input input(data, size);
  const std::uint8_t form = input.byte();
  if ((form & 1) != 0) {
    const CorrelationBins bins = read_bins(input, form >> 1 & 7U);
    require_sound(orvo::timing::judge_correlation(bins), bins);
    return 0;
  }
  const XcorrWindow window{input.integer(), input.integer(), input.integer()};
  if (orvo::timing::detail::BinLayout(window).bins() > kMostBins) return 0;
  std::vector<std::int64_t> a = orvo::fuzz::time_list(input, 200);
  std::vector<std::int64_t> b = orvo::fuzz::time_list(input, 200);
  std::sort(a.begin(), a.end());
  std::sort(b.begin(), b.end());
  const auto statistics = orvo::timing::pair_statistics(a, b, window);
  require_sound(statistics.judgement, statistics.bins);
  for (const double expected : statistics.bins.expected)
    require(std::isfinite(expected) && expected >= 0, "what is expected is a number, 0 or more");
  require_numbers(statistics.share_a);
  require_numbers(statistics.share_b);
  return 0;
}
