#pragma once
// Part of vq_verify_stream_file_xcorr: file-local throughout.
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <ostream>
#include <span>
#include <string>

#include "orvo/timing/channel_times.hpp"
#include "orvo/timing/offset_estimate.hpp"
#include "orvo/timing/xcorr_histogram.hpp"
#include "verify/config.hpp"
#include "verify/report_csv.hpp"
#include "verify/report_json.hpp"
#include "verify/report_summary.hpp"
#include "verify/report_svg.hpp"
#include "verify/run_result.hpp"

namespace {

/// The offset that the setting names: estimated for "auto", else its number. Both lists are in ascending order.
inline std::int64_t resolve_offset_ps(const std::string& setting, std::span<const std::int64_t> a_ps,
                                      std::span<const std::int64_t> b_ps) {
  return setting == "auto" ? orvo::timing::estimate_offset_sorted_ps(a_ps, b_ps) : std::stoll(setting);
}

/// Correlates the two chosen channels, whose lists it sorts.
inline void correlate(RunResult& run, const Config& config, orvo::timing::ChannelTimes& times) {
  const auto a_ps = times[static_cast<std::size_t>(config.channel_a)];
  const auto b_ps = times[static_cast<std::size_t>(config.channel_b)];
  orvo::timing::sort_times(a_ps);
  orvo::timing::sort_times(b_ps);
  run.window = {config.range_ps, config.bin_ps, resolve_offset_ps(config.offset, a_ps, b_ps)};
  run.histogram = orvo::timing::xcorr_histogram_sorted(a_ps, b_ps, run.window);
}

/// From the decoded tags to the last report. Reports are written in this order; a failure ends it at once.
inline void analyse_and_report(RunResult run, const Config& config, orvo::timing::ChannelTimes times,
                               const std::filesystem::path& output_prefix, std::ostream& out) {
  for (std::size_t channel = 0; channel < run.channel_counts.size(); ++channel) {
    run.channel_counts[channel] = times.size(channel);
  }
  run.decoded_tags = times.total();
  run.channel_a = config.channel_a;
  run.channel_b = config.channel_b;
  correlate(run, config, times);

  const ReportPaths paths(output_prefix);
  if (output_prefix.has_parent_path()) std::filesystem::create_directories(output_prefix.parent_path());
  write_csv(paths.csv, run);
  write_json(paths.json, run);
  write_svg(paths.svg, run);
  write_summary(run, paths, out);
}

}  // namespace
