#pragma once
// A run of the verification tool as the reference's reports have it.
#include <algorithm>

#include "reference/reports.hpp"
#include "support/as_reference.hpp"

namespace orvo::test {

/// Takes the tool's own record of a run, a type that each program has for itself.
template <class RunResult>
reference::Findings as_findings(const RunResult& run) {
  reference::Findings found;
  found.input = run.source.native();
  found.header = as_reference(run.header);
  found.channel_a = run.channel_a;
  found.channel_b = run.channel_b;
  found.window = as_reference(run.window);
  found.decoded_tags = run.decoded_tags;
  found.channel_counts = run.channel_counts;
  found.histogram = {run.histogram.bin_center_ps, run.histogram.counts};
  return found;
}

/// The references need a bin, and for each a count of pairs.
template <class RunResult>
bool has_reports(const RunResult& run) {
  const auto& counts = run.histogram.counts;
  return !counts.empty() && counts.size() == run.histogram.bin_center_ps.size() && std::ranges::min(counts) >= 0;
}

}  // namespace orvo::test
