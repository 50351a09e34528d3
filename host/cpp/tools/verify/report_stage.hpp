#pragma once
// Part of vq_verify_stream_file_xcorr: file-local throughout.
#include <filesystem>
#include <ostream>

#include "verify/report_csv.hpp"
#include "verify/report_json.hpp"
#include "verify/report_summary.hpp"
#include "verify/report_svg.hpp"
#include "verify/run_result.hpp"

namespace {

/// Writes all reports, in this order; a failure ends it at once.
inline void write_reports(const RunResult& run, const std::filesystem::path& output_prefix, std::ostream& out) {
  const ReportPaths paths(output_prefix);
  if (output_prefix.has_parent_path()) std::filesystem::create_directories(output_prefix.parent_path());
  write_csv(paths.csv, run);
  write_json(paths.json, run);
  write_svg(paths.svg, run);
  write_summary(run, paths, out);
}

}  // namespace
