#pragma once
// A run's result from a fuzz input: what the report writers are given, and the same for the reference. The writers'
// own types are file-local, so this header goes after verify/run_result.hpp.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/support/input.hpp"
#include "reference/reports.hpp"
#include "support/as_reference.hpp"
#include "verify/run_result.hpp"

namespace {

/// Up to 1199 bins, and no more after the end of the input. Those of a correlation are equally spaced and count up
/// to 2^48 here; the others have any centres, and the wild ones any counts, too.
inline orvo::timing::XcorrHistogram read_histogram(orvo::fuzz::Input& input) {
  orvo::timing::XcorrHistogram histogram;
  const std::uint64_t bins = input.number(2) % 1200;
  const std::uint8_t kind = input.byte();
  const std::uint64_t bin_ps = (std::uint64_t{1} << (kind % 50)) + kind / 50;
  const auto first = static_cast<std::uint64_t>(input.integer() >> 2);
  for (std::uint64_t i = 0; i < bins && !input.empty(); ++i) {
    const bool equally_spaced = kind < 200;
    const bool wild = kind >= 228;
    histogram.bin_center_ps.push_back(equally_spaced ? static_cast<std::int64_t>(first + i * bin_ps)
                                                     : input.integer());
    const int size = wild ? 0 : input.byte() % 8;
    histogram.counts.push_back(wild ? input.integer()
                                    : static_cast<std::int64_t>(input.number(size) & 0xFFFF'FFFF'FFFF));
  }
  return histogram;
}

/// The counts that counting can give.
inline bool is_countable(const orvo::timing::XcorrHistogram& histogram) {
  return std::all_of(histogram.counts.begin(), histogram.counts.end(),
                     [](std::int64_t count) { return count >= 0 && count < std::int64_t{1} << 48; });
}

/// Centres that ascend in equal steps over less than 2^61 ps.
inline bool is_equally_spaced(const orvo::timing::XcorrHistogram& histogram) {
  const auto& centers = histogram.bin_center_ps;
  const auto step = [&centers](std::size_t i) {
    return static_cast<std::uint64_t>(centers[i]) - static_cast<std::uint64_t>(centers[i - 1]);
  };
  for (std::size_t i = 1; i < centers.size(); ++i) {
    if (centers[i] <= centers[i - 1] || step(i) != step(1) || step(i) > (std::uint64_t{1} << 61) / centers.size())
      return false;
  }
  return true;
}

inline RunResult read_run(orvo::fuzz::Input& input) {
  RunResult run;
  run.source = input.text_until(0xFF);
  run.header.stream_format = static_cast<orvo::timing::StreamFormat>(input.byte() % 8);
  run.header.mode = static_cast<orvo::timing::StreamMode>(input.byte() % 4);
  run.header.stream_transport = static_cast<orvo::timing::StreamTransport>(input.byte() % 8);
  run.header.delta_bits = input.byte();
  run.header.quantum_ps = static_cast<std::uint16_t>(input.number(2));
  run.channel_a = static_cast<int>(input.number(4));
  run.channel_b = static_cast<int>(input.number(4));
  for (std::uint64_t& count : run.channel_counts) count = static_cast<std::uint64_t>(input.integer());
  run.decoded_tags = static_cast<std::uint64_t>(input.integer());
  run.window = {input.integer(), input.integer(), input.integer()};
  run.histogram = read_histogram(input);
  return run;
}

inline orvo::test::reference::Findings as_findings(const RunResult& run) {
  orvo::test::reference::Findings found;
  found.input = run.source.native();
  found.header = orvo::test::as_reference(run.header);
  found.channel_a = run.channel_a;
  found.channel_b = run.channel_b;
  found.window = orvo::test::as_reference(run.window);
  found.decoded_tags = run.decoded_tags;
  found.channel_counts = run.channel_counts;
  found.histogram = {run.histogram.bin_center_ps, run.histogram.counts};
  return found;
}

}  // namespace
