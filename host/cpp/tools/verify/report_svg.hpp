#pragma once
// Part of vq_verify_stream_file_xcorr: file-local throughout.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <limits>
#include <ostream>

#include "verify/run_result.hpp"
#include "verify/text_file.hpp"

namespace {

/// Where delays and counts fall on the canvas of 900 by 360 units: the plot's left edge is at x 70, its axis at y
/// 310.
class PlotScale {
 public:
  explicit PlotScale(const orvo::timing::XcorrHistogram& histogram)
      : first_ps_(histogram.bin_center_ps.front()),
        span_ps_(difference(histogram.bin_center_ps.back(), first_ps_)),
        most_(std::max<std::int64_t>(histogram.peak().count, 1)) {}

  std::int32_t x(std::int64_t delay_ps) const { return x_of(difference(delay_ps, first_ps_)); }
  std::int32_t height(std::int64_t count) const {
    return truncated(static_cast<double>(count) / static_cast<double>(most_) * 270.0 + 0.5);
  }

  /// Quarter `k` (0 to 4) of each axis.
  std::int64_t x_tick_ps(std::int64_t k) const { return difference(quarter(span_ps_, k), difference(0, first_ps_)); }
  std::int32_t x_tick(std::int64_t k) const { return x_of(quarter(span_ps_, k)); }
  std::int64_t y_tick_count(std::int64_t k) const { return quarter(most_, k); }

 private:
  // Histograms near the ends of 64 bits wrap around.
  static std::int64_t difference(std::int64_t to, std::int64_t from) {
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(to) - static_cast<std::uint64_t>(from));
  }
  static std::int64_t quarter(std::int64_t whole, std::int64_t k) {
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(k) * static_cast<std::uint64_t>(whole)) / 4;
  }
  static std::int32_t truncated(double value) { return static_cast<std::int32_t>(std::clamp(value, -2e9, 2e9)); }
  std::int32_t x_of(std::int64_t from_first_ps) const {
    if (span_ps_ <= 0) return 70;
    return 70 + truncated(static_cast<double>(from_first_ps) / static_cast<double>(span_ps_) * 810.0 + 0.5);
  }

  std::int64_t first_ps_;
  std::int64_t span_ps_;
  std::int64_t most_;
};

/// The RMS in the title: whole picoseconds, and 0 for what is no number.
inline std::int64_t rounded_ps(double rms_ps) {
  constexpr double kBeyond = 0x1p63;
  if (std::isnan(rms_ps)) return 0;
  return rms_ps + 0.5 < kBeyond ? static_cast<std::int64_t>(rms_ps + 0.5) : std::numeric_limits<std::int64_t>::max();
}

// clang-format off: one source line for each line of the plot.
inline void write_svg_axes(std::ostream& out, const RunResult& run, const PlotScale& scale) {
  out << R"(<line x1="70" y1="310" x2="880" y2="310" stroke="black"/>)"
         "\n"
      << R"(<line x1="70" y1="40" x2="70" y2="310" stroke="black"/>)"
         "\n";
  for (std::int64_t k = 0; k <= 4; ++k) {
    const std::int32_t x = scale.x_tick(k);
    out << R"(<line x1=")" << x << R"(" y1="310" x2=")" << x
        << R"(" y2="314" stroke="black"/>)"
           "\n"
        << R"(<text x=")" << x << R"(" y="328" text-anchor="middle">)" << scale.x_tick_ps(k) << "</text>\n";
  }
  out << R"(<text x="475" y="352" text-anchor="middle">delta t (ps, ch)" << run.channel_b << " - ch" << run.channel_a
      << ", offset removed)</text>\n";
  for (std::int64_t k = 0; k <= 4; ++k) {
    const std::int64_t count = scale.y_tick_count(k);
    const std::int32_t y = 310 - scale.height(count);
    out << R"(<line x1="66" y1=")" << y << R"(" x2="70" y2=")" << y
        << R"(" stroke="black"/>)"
           "\n"
        << R"(<text x="62" y=")" << y + 4 << R"(" text-anchor="end">)" << count << "</text>\n";
  }
  out << R"svg(<text x="15" y="175" text-anchor="middle" transform="rotate(-90 15 175)">counts</text>)svg"
         "\n";
}
// clang-format on

/// Bars of the bins that are at least half a unit high.
inline void write_svg_bars(std::ostream& out, const orvo::timing::XcorrHistogram& histogram, const PlotScale& scale) {
  const auto bins = static_cast<std::int32_t>(histogram.bin_center_ps.size());
  const std::int32_t width = std::max(810 / bins - 1, 1);
  for (std::size_t i = 0; i < std::min(histogram.counts.size(), histogram.bin_center_ps.size()); ++i) {
    const std::int32_t height = scale.height(histogram.counts[i]);
    if (height <= 0) continue;
    out << R"(<rect x=")" << scale.x(histogram.bin_center_ps[i]) - width / 2 << R"(" y=")" << 310 - height
        << R"(" width=")" << width << R"(" height=")" << height << R"(" fill="steelblue"/>)"
        << "\n";
  }
}

/// The plot, for any browser: no scripts, styles or fonts beyond "sans-serif".
inline void write_svg(const std::filesystem::path& path, const RunResult& run) {
  std::ofstream out = open_report(path, "could not open SVG output");
  if (run.histogram.bin_center_ps.empty()) {
    out << R"(<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 900 120">)"
        << R"(<text x="20" y="60">empty histogram</text></svg>)" << '\n';
    return;
  }
  const PlotScale scale(run.histogram);
  const orvo::timing::XcorrPeak peak = run.histogram.peak();
  const auto rms_ps = rounded_ps(run.histogram.rms_ps());
  const std::int32_t peak_x = scale.x(peak.center_ps);
  // clang-format off: one source line for each line of the plot.
  out << R"(<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 900 360" font-family="sans-serif" font-size="11">)"
         "\n"
      << R"(<rect width="900" height="360" fill="white"/>)"
         "\n"
      << R"(<text x="450" y="22" text-anchor="middle" font-size="14">xcorr ch)" << run.channel_a << " vs ch"
      << run.channel_b << "  offset " << run.window.offset_ps << " ps, peak " << peak.count << ", RMS " << rms_ps
      << " ps</text>\n";
  write_svg_axes(out, run, scale);
  write_svg_bars(out, run.histogram, scale);
  out << R"(<line x1=")" << peak_x << R"(" y1="40" x2=")" << peak_x
      << R"(" y2="310" stroke="crimson" stroke-dasharray="4,3"/>)"
         "\n"
      << "</svg>\n";
  // clang-format on
}

}  // namespace
