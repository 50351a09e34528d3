#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "common/progress.hpp"
#include "common/units.hpp"
#include "inspect/capture_passes.hpp"
#include "inspect/inspection.hpp"
#include "inspect/options.hpp"
#include "inspect/pair_report.hpp"
#include "inspect/pair_search.hpp"
#include "inspect/pair_source.hpp"
#include "inspect/pass_source.hpp"
#include "inspect/report_text.hpp"
#include "orvo/timing/channel_times.hpp"
#include "orvo/timing/sorted_times.hpp"

namespace {

inline std::vector<ChannelPair> wanted_pairs(const Options& options) {
  if (!options.pair.empty()) return {wanted_pair(options)};
  return six_pairs();
}

/// What the options ask for of the pairs of channels of a capture that was inspected. It is read as often as the
/// search takes; if its tags are too far out of order for that, they are all kept. Throws `Error`.
inline std::vector<PairFinding> pairs_of(const Inspection& of, const RepeatableInput& input, const Options& options,
                                         Progress& progress) {
  // A reach that was asked for is worth the time of more bins: half the share is found.
  constexpr std::size_t kThoroughBins = std::size_t{1} << 22;
  PairSearchSettings settings;
  if (options.reach_ps >= 0) settings = {options.reach_ps, kThoroughBins};
  settings.before_pair = [&](ChannelPair pair) {
    progress.tell_state("channels " + std::to_string(pair.first) + " and " + std::to_string(pair.second));
  };
  const std::vector<ChannelPair> pairs = wanted_pairs(options);
  CapturePasses passes(of, input, options.max_tags, progress);
  try {
    return find_in_passes(passes, pairs, settings);
  } catch (const TooDisordered&) {
  }
  orvo::timing::ChannelTimes times;
  passes.run(times);
  ChannelLists lists;
  for (std::size_t c = 0; c < lists.size(); ++c) {
    orvo::timing::sort_times(times[c]);
    lists[c] = times[c];
  }
  return find_in_lists(lists, pairs, settings);
}

inline std::string text_of(const std::optional<orvo::timing::Estimate>& time_ps) {
  return time_ps ? text_of_time_ps(time_ps->value) : "-";
}

/// A row for each pair of channels, and the commands that show what there is.
inline void print_pairs(std::ostream& out, const std::vector<PairFinding>& findings, const std::string& path) {
  out << "\nPairs of channels\n";
  Columns columns({"pair", "verdict", "sigmas", "delay", "width", "pairs", "g2", "period"});
  for (const PairFinding& finding : findings) {
    const auto& judgement = finding.statistics.judgement;
    const auto& peak = judgement.peak;
    const auto delay = finding.delay_ps();
    columns.add({std::to_string(finding.channel_a) + ", " + std::to_string(finding.channel_b),
                 std::string(to_text(verdict_of(finding))), three_digits(judgement.sigmas()),
                 delay ? std::to_string(whole_ps(delay->value)) + " ps" : "-",
                 text_of(peak ? peak->fwhm_ps : std::nullopt),
                 peak ? std::to_string(whole_ps(peak->pairs.value)) : "-",
                 peak && peak->g2 ? three_digits(peak->g2->g2) : "-",
                 finding.period_ps ? text_of_time_ps(*finding.period_ps) : "-"});
  }
  columns.print(out);
  for (const PairFinding& finding : findings) {
    if (const auto command = verify_command(finding, path)) out << "  $ " << *command << '\n';
  }
}

}  // namespace
