#pragma once
// Part of vq_verify_stream_file_xcorr: file-local throughout.
#include <cstddef>
#include <cstdint>
#include <iomanip>
#include <ios>
#include <ostream>
#include <sstream>
#include <string>

#include "orvo/timing/xcorr_histogram.hpp"
#include "verify/directories.hpp"
#include "verify/file_time.hpp"
#include "verify/latest_files.hpp"
#include "verify/run_result.hpp"
#include "verify/text_file.hpp"

namespace {

/// The summary for people: one "name=value" a line.
inline std::string summary_text(const RunResult& run, const ReportPaths& paths, std::int64_t input_age_seconds) {
  const orvo::timing::XcorrPeak peak = run.histogram.peak();
  const orvo::timing::XcorrMoments moments = xcorr_moments(run.histogram);
  const auto count_of = [&run](int channel) { return run.channel_counts[static_cast<std::size_t>(channel)]; };
  std::ostringstream out;
  out << "Orvo timing stream-file cross-correlation verification\n"
      << "mode=offline_existing_file\n"
      << "input=" << run.source.native() << '\n'
      << "input_age_seconds=" << input_age_seconds << '\n'
      << "csv=" << paths.csv.native() << '\n'
      << "json=" << paths.json.native() << '\n'
      << "svg=" << paths.svg.native() << '\n'
      << "decoded_tags=" << run.decoded_tags << '\n'
      << "ch" << run.channel_a << '=' << count_of(run.channel_a) << '\n'
      << "ch" << run.channel_b << '=' << count_of(run.channel_b) << '\n'
      << "coincidences=" << moments.total << '\n'
      << "peak_count=" << peak.count << '\n'
      << "peak_ps=" << peak.center_ps << '\n'
      << "rms_ps=" << std::fixed << std::setprecision(1) << moments.sigma_ps << '\n';
  if (input_age_seconds > 3600) {
    out << "warning=input file is older than one hour; this is not a fresh hardware calibration check\n";
  }
  return out.str();
}

/// The last step of a run: summary file, latest files, and the summary on the console.
inline void write_summary(const RunResult& run, const ReportPaths& paths, std::ostream& out) {
  const std::string summary = summary_text(run, paths, file_age_seconds(run.source));
  write_text_file(paths.summary, summary);
  update_latest(paths, summary);
  out << summary << "latest_plot=" << (verification_output_root() / "latest.svg").native() << '\n'
      << "latest_summary=" << (verification_output_root() / "latest_summary.txt").native() << '\n';
}

}  // namespace
