#pragma once
// Every report and console line of a run, put together as plain text.
#include <array>
#include <cstdint>
#include <cstdio>
#include <string>

#include "reference/header.hpp"
#include "reference/histogram.hpp"

namespace orvo::test::reference {

/// What one run found, as the reports tell it.
struct Findings {
  std::string input;   // path of the capture
  std::string prefix;  // of the report files
  std::string output_root;
  std::int64_t input_age_seconds = -1;
  Header header;
  int channel_a = 0;
  int channel_b = 1;
  Window window;
  std::uint64_t decoded_tags = 0;
  std::array<std::uint64_t, 4> channel_counts{};
  Histogram histogram;
};

template <typename Number>
std::string dec(Number value) {
  return std::to_string(value);
}

/// Fixed-point text with `decimals` digits after the point.
inline std::string fixed(double value, int decimals) {
  std::array<char, 400> text{};
  std::snprintf(text.data(), text.size(), "%.*f", decimals, value);
  return text.data();
}

inline std::string csv_report(const Findings& found) {
  std::string out = "bin_center_ps,count\n";
  for (std::size_t i = 0; i < found.histogram.counts.size(); ++i) {
    out += dec(found.histogram.centers[i]) + "," + dec(found.histogram.counts[i]) + "\n";
  }
  return out;
}

inline std::string json_report(const Findings& found) {
  const Statistics stats = statistics(found.histogram);
  const Header& header = found.header;
  const std::string format = header.stream_format == Encoding::delta32        ? "delta32"
                             : header.stream_format == Encoding::packed_delta ? "packed_delta"
                                                                              : "raw64";
  const std::string transport = header.stream_transport == 1   ? "usb"
                                : header.stream_transport == 2 ? "usb_async"
                                                               : "uart";
  const auto& counts = found.channel_counts;

  std::string out;
  out += "{\n";
  out += "  \"source_file\":\"" + json_escape(found.input) + "\",\n";
  out += "  \"stream_format\":\"" + format + "\",\n";
  out += "  \"mode\":\"" + std::string(header.mode == 0 ? "internal" : "external") + "\",\n";
  out += "  \"transport\":\"" + transport + "\",\n";
  out += "  \"packed_delta_bits\":" + dec(header.delta_bits) + ",\n";
  out += "  \"packed_delta_quantum_ps\":" + dec(header.quantum_ps) + ",\n";
  out += "  \"decoded_tags\":" + dec(found.decoded_tags) + ",\n";
  out += "  \"channel_counts\":{\"ch0\":" + dec(counts[0]) + ",\"ch1\":" + dec(counts[1]) +
         ",\"ch2\":" + dec(counts[2]) + ",\"ch3\":" + dec(counts[3]) + "},\n";
  out += "  \"xcorr\":{\n";
  out += "    \"channel_a\":" + dec(found.channel_a) + ",\n";
  out += "    \"channel_b\":" + dec(found.channel_b) + ",\n";
  out += "    \"range_ps\":" + dec(found.window.range_ps) + ",\n";
  out += "    \"bin_ps\":" + dec(found.window.bin_ps) + ",\n";
  out += "    \"offset_ps\":" + dec(found.window.offset_ps) + ",\n";
  out += "    \"total_coincidences\":" + dec(stats.total) + ",\n";
  out += "    \"peak_count\":" + dec(stats.peak_count) + ",\n";
  out += "    \"peak_ps\":" + dec(stats.peak_ps) + ",\n";
  out += "    \"moment_fit\":{\n";
  out += "      \"mean_ps\":" + fixed(stats.mean_ps, 3) + ",\n";
  out += "      \"sigma_ps\":" + fixed(stats.rms_ps, 3) + ",\n";
  out += "      \"fwhm_ps\":" + fixed(stats.fwhm_ps, 3) + "\n";
  out += "    }\n";
  out += "  }\n";
  out += "}\n";
  return out;
}

/// Horizontal position of a point `from_first` ps right of the first bin.
inline int plot_x(Wide from_first, Wide span) {
  if (span <= 0) return 70;
  return 70 + static_cast<int>(static_cast<double>(from_first) / static_cast<double>(span) * 810.0 + 0.5);
}

inline int plot_height(std::int64_t count, std::int64_t full_scale) {
  return static_cast<int>(static_cast<double>(count) / static_cast<double>(full_scale) * 270.0 + 0.5);
}

/// Binding for spans below 2^61 ps and counts below 2^61.
inline std::string svg_report(const Findings& found) {
  const Statistics stats = statistics(found.histogram);
  const auto& centers = found.histogram.centers;
  const Wide first = centers.front();
  const Wide span = centers.back() - first;
  const std::int64_t full_scale = stats.peak_count > 0 ? stats.peak_count : 1;
  const std::string a = dec(found.channel_a);
  const std::string b = dec(found.channel_b);

  std::string out;
  out +=
      "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 900 360\" font-family=\"sans-serif\" "
      "font-size=\"11\">\n";
  out += "<rect width=\"900\" height=\"360\" fill=\"white\"/>\n";
  out += "<text x=\"450\" y=\"22\" text-anchor=\"middle\" font-size=\"14\">xcorr ch" + a + " vs ch" + b +
         "  offset " + dec(found.window.offset_ps) + " ps, peak " + dec(stats.peak_count) + ", RMS " +
         dec(static_cast<std::int64_t>(stats.rms_ps + 0.5)) + " ps</text>\n";
  out += "<line x1=\"70\" y1=\"310\" x2=\"880\" y2=\"310\" stroke=\"black\"/>\n";
  out += "<line x1=\"70\" y1=\"40\" x2=\"70\" y2=\"310\" stroke=\"black\"/>\n";
  for (int k = 0; k <= 4; ++k) {
    const Wide step = k * span / 4;
    const std::string x = dec(plot_x(step, span));
    out += "<line x1=\"" + x + "\" y1=\"310\" x2=\"" + x + "\" y2=\"314\" stroke=\"black\"/>\n";
    out += "<text x=\"" + x + "\" y=\"328\" text-anchor=\"middle\">" + dec(static_cast<std::int64_t>(first + step)) +
           "</text>\n";
  }
  out += "<text x=\"475\" y=\"352\" text-anchor=\"middle\">delta t (ps, ch" + b + " - ch" + a +
         ", offset removed)</text>\n";
  for (int k = 0; k <= 4; ++k) {
    const std::int64_t value = k * full_scale / 4;
    const int height = plot_height(value, full_scale);
    out += "<line x1=\"66\" y1=\"" + dec(310 - height) + "\" x2=\"70\" y2=\"" + dec(310 - height) +
           "\" stroke=\"black\"/>\n";
    out += "<text x=\"62\" y=\"" + dec(314 - height) + "\" text-anchor=\"end\">" + dec(value) + "</text>\n";
  }
  out += "<text x=\"15\" y=\"175\" text-anchor=\"middle\" transform=\"rotate(-90 15 175)\">counts</text>\n";
  int width = 810 / static_cast<int>(centers.size()) - 1;
  if (width < 1) width = 1;
  for (std::size_t i = 0; i < centers.size(); ++i) {
    const int height = plot_height(found.histogram.counts[i], full_scale);
    if (height <= 0) continue;
    out += "<rect x=\"" + dec(plot_x(centers[i] - first, span) - width / 2) + "\" y=\"" + dec(310 - height) +
           "\" width=\"" + dec(width) + "\" height=\"" + dec(height) + "\" fill=\"steelblue\"/>\n";
  }
  const std::string peak_x = dec(plot_x(stats.peak_ps - first, span));
  out += "<line x1=\"" + peak_x + "\" y1=\"40\" x2=\"" + peak_x +
         "\" y2=\"310\" stroke=\"crimson\" stroke-dasharray=\"4,3\"/>\n";
  out += "</svg>\n";
  return out;
}

inline std::string summary_text(const Findings& found) {
  const Statistics stats = statistics(found.histogram);
  const auto count = [&](int channel) { return dec(found.channel_counts[static_cast<std::size_t>(channel)]); };
  std::string out;
  out += "Orvo timing stream-file cross-correlation verification\n";
  out += "mode=offline_existing_file\n";
  out += "input=" + found.input + "\n";
  out += "input_age_seconds=" + dec(found.input_age_seconds) + "\n";
  out += "csv=" + found.prefix + ".csv\n";
  out += "json=" + found.prefix + ".json\n";
  out += "svg=" + found.prefix + ".svg\n";
  out += "decoded_tags=" + dec(found.decoded_tags) + "\n";
  out += "ch" + dec(found.channel_a) + "=" + count(found.channel_a) + "\n";
  out += "ch" + dec(found.channel_b) + "=" + count(found.channel_b) + "\n";
  out += "coincidences=" + dec(stats.total) + "\n";
  out += "peak_count=" + dec(stats.peak_count) + "\n";
  out += "peak_ps=" + dec(stats.peak_ps) + "\n";
  out += "rms_ps=" + fixed(stats.rms_ps, 1) + "\n";
  if (found.input_age_seconds > 3600) {
    out += "warning=input file is older than one hour; this is not a fresh hardware calibration check\n";
  }
  return out;
}

inline std::string launcher_script() {
  return "@echo off\r\nstart \"\" \"%~dp0latest.svg\"\r\n";
}

inline std::string opening_lines(const std::string& settings_file, const std::string& input,
                                 const std::string& prefix) {
  std::string out;
  if (!settings_file.empty()) out += "Config: " + settings_file + "\n";
  out += "Input:  " + input + "\n";
  out += "Output: " + prefix + ".[csv|json|svg]\n";
  return out;
}

inline std::string closing_lines(const Findings& found) {
  return summary_text(found) + "latest_plot=" + found.output_root + "/latest.svg\n" +
         "latest_summary=" + found.output_root + "/latest_summary.txt\n";
}

}  // namespace orvo::test::reference
