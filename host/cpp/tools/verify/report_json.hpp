#pragma once
// Part of vq_verify_stream_file_xcorr: file-local throughout.
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <ios>

#include "orvo/timing/detail/json_text.hpp"
#include "orvo/timing/stream_header_json.hpp"
#include "verify/run_result.hpp"
#include "verify/text_file.hpp"

namespace {

/// The machine-readable summary.
inline void write_json(const std::filesystem::path& path, const RunResult& run) {
  using namespace orvo::timing;
  const XcorrPeak peak = run.histogram.peak();
  const XcorrMoments moments = xcorr_moments(run.histogram);
  const auto& counts = run.channel_counts;
  std::ofstream out = open_report(path, "could not open JSON output");
  // clang-format off: one source line for each line of the file.
  out << "{\n"
      << R"(  "source_file":")" << detail::json_escape(run.source.native()) << "\",\n"
      << R"(  "stream_format":")" << to_text(run.header.stream_format) << "\",\n"
      << R"(  "mode":")" << to_text(run.header.mode) << "\",\n"
      << R"(  "transport":")" << to_text(run.header.stream_transport) << "\",\n"
      << R"(  "packed_delta_bits":)" << unsigned{run.header.delta_bits} << ",\n"
      << R"(  "packed_delta_quantum_ps":)" << run.header.quantum_ps << ",\n"
      << R"(  "decoded_tags":)" << run.decoded_tags << ",\n"
      << R"(  "channel_counts":{"ch0":)" << counts[0] << R"(,"ch1":)" << counts[1] << R"(,"ch2":)" << counts[2]
      << R"(,"ch3":)" << counts[3] << "},\n"
      << "  \"xcorr\":{\n"
      << R"(    "channel_a":)" << run.channel_a << ",\n"
      << R"(    "channel_b":)" << run.channel_b << ",\n"
      << R"(    "range_ps":)" << run.window.range_ps << ",\n"
      << R"(    "bin_ps":)" << run.window.bin_ps << ",\n"
      << R"(    "offset_ps":)" << run.window.offset_ps << ",\n"
      << R"(    "total_coincidences":)" << moments.total << ",\n"
      << R"(    "peak_count":)" << peak.count << ",\n"
      << R"(    "peak_ps":)" << peak.center_ps << ",\n"
      << "    \"moment_fit\":{\n"
      << std::fixed << std::setprecision(3) << R"(      "mean_ps":)" << moments.mean_ps << ",\n"
      << R"(      "sigma_ps":)" << moments.sigma_ps << ",\n"
      << R"(      "fwhm_ps":)" << moments.fwhm_ps << "\n"
      << "    }\n"
      << "  }\n"
      << "}\n";
  // clang-format on
}

}  // namespace
