#pragma once
// Part of vq_verify_stream_file_xcorr: file-local throughout.
#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <fstream>

#include "orvo/timing/xcorr_histogram.hpp"
#include "verify/run_result.hpp"
#include "verify/text_file.hpp"

namespace {

/// One line per bin, empty bins included.
inline void write_csv(const std::filesystem::path& path, const RunResult& run) {
  const orvo::timing::XcorrHistogram& histogram = run.histogram;
  std::ofstream out = open_report(path, "could not open CSV output");
  out << "bin_center_ps,count\n";
  for (std::size_t i = 0; i < std::min(histogram.counts.size(), histogram.bin_center_ps.size()); ++i) {
    out << histogram.bin_center_ps[i] << ',' << histogram.counts[i] << '\n';
  }
}

}  // namespace
