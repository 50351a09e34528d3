#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
#include <algorithm>

#include "inspect/finding.hpp"
#include "inspect/inspection.hpp"
#include "inspect/rules_header.hpp"
#include "inspect/rules_payload.hpp"
#include "inspect/rules_rate.hpp"
#include "inspect/rules_time.hpp"
#include "orvo/timing/time_tag.hpp"

namespace {

/// All that is to be said of a capture, the worst first.
inline Findings judge(const Inspection& of) {
  Findings findings;
  judge_header(of, findings);
  judge_decoding(of, findings);
  judge_start(of, findings);
  judge_losses(of, findings);
  judge_framing(of, findings);
  judge_end(of, findings);
  judge_overflow(of, findings);
  judge_presence(of, findings);
  judge_laps(of, findings);
  judge_jumps(of, findings);
  judge_duplicates(of, findings);
  judge_balance(of, findings);
  judge_dates(of, findings);
  // Times that lie in pieces say nothing of pauses and rates.
  const bool in_pieces = has_lost_lap(of) || jump_level(of) == Level::broken;
  ChannelPauses pauses{};
  for (unsigned c = 0; c < orvo::timing::kChannels; ++c) {
    judge_steps(of, c, findings);
    if (!in_pieces) pauses[c] = find_pauses(of.facts().channels[c]);
    if (!in_pieces) judge_bunching(of, c, pauses[c], findings);
    judge_distribution(of, c, findings);
  }
  if (!in_pieces) {
    judge_pauses(of, pauses, findings);
    judge_edges(of, findings);
  }
  if (!in_pieces && of.facts().order.jumps() == 0) {
    for (unsigned c = 0; c < orvo::timing::kChannels; ++c) judge_slices(of, c, pauses[c], findings);
    judge_shared_limit(of, findings);
  }
  std::stable_sort(findings.begin(), findings.end(),
                   [](const Finding& a, const Finding& b) { return a.level > b.level; });
  return findings;
}

}  // namespace
