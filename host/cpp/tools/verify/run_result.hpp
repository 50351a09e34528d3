#pragma once
// Part of vq_verify_stream_file_xcorr: file-local throughout.
#include <array>
#include <cstdint>
#include <filesystem>

#include "orvo/timing/stream_file_header.hpp"
#include "orvo/timing/time_tag.hpp"
#include "orvo/timing/xcorr_histogram.hpp"

namespace {

/// What the reports show of a run.
struct RunResult {
  std::filesystem::path source;  ///< the capture
  orvo::timing::StreamFileHeader header;
  int channel_a = 0;
  int channel_b = 1;
  std::array<std::uint64_t, orvo::timing::kChannels> channel_counts{};
  std::uint64_t decoded_tags = 0;
  orvo::timing::XcorrWindow window{};  ///< with the offset that was used
  orvo::timing::XcorrHistogram histogram;
};

/// The reports' files: the output prefix with an ending appended, even if the prefix already has one.
struct ReportPaths {
  explicit ReportPaths(const std::filesystem::path& prefix)
      : csv(prefix), json(prefix), svg(prefix), summary(prefix) {
    csv += ".csv";
    json += ".json";
    svg += ".svg";
    summary += ".summary.txt";
  }

  std::filesystem::path csv;
  std::filesystem::path json;
  std::filesystem::path svg;
  std::filesystem::path summary;
};

}  // namespace
