#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
// The report as a page that opens without a network: verdict, findings and facts as text, and numbers for the plots.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <ostream>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "inspect/finding.hpp"
#include "inspect/html_text.hpp"
#include "inspect/inspection.hpp"
#include "inspect/numbers.hpp"
#include "inspect/page_parts.hpp"
#include "inspect/pair_page.hpp"
#include "inspect/payload_classes.hpp"
#include "inspect/report_tables.hpp"
#include "orvo/timing/stream_header_json.hpp"
#include "orvo/timing/time_tag.hpp"

namespace {

/// The numbers of the plots: no text of the capture is among them.
inline std::string plot_numbers(const Inspection& of, const std::vector<PairFinding>& pairs) {
  const CaptureFacts& facts = of.facts();
  nlohmann::ordered_json json;
  for (const ChannelFacts& channel : facts.channels) json["tags"].push_back(channel.tags());
  const bool any = facts.trace.size() != 0;
  json["rates"]["slice_s"] = static_cast<double>(facts.trace.slice_ps()) * 1e-12;
  json["rates"]["start_s"] =
      any ? (static_cast<double>(facts.trace.start_ps()) - static_cast<double>(facts.first_ps())) * 1e-12 : 0.0;
  json["rates"]["counts"] = nlohmann::ordered_json::array();
  json["intervals"]["counts"] = nlohmann::ordered_json::array();
  for (unsigned c = 0; c < orvo::timing::kChannels; ++c) {
    json["rates"]["counts"].push_back(facts.trace.counts(c));
    json["intervals"]["counts"].push_back(facts.channels[c].intervals());
  }
  json["intervals"]["bin_low_ps"] = kIntervalBinLows;
  const auto unit = static_cast<double>(of.units_per_byte());
  const auto& slices = facts.losses.slices();
  const std::uint64_t used = of.payload_units() == 0 ? 0 : (of.payload_units() - 1) / facts.losses.slice() + 1;
  json["losses"]["slice_bytes"] = static_cast<double>(facts.losses.slice()) / unit;
  json["losses"]["payload_bytes"] = of.input().payload_bytes_read();
  json["losses"]["lost_bytes"] = nlohmann::ordered_json::array();
  for (std::size_t i = 0; i < std::min<std::uint64_t>(used, slices.size()); ++i) {
    json["losses"]["lost_bytes"].push_back(static_cast<double>(slices[i]) / unit);
  }
  if (!pairs.empty()) json["pairs"] = pair_numbers(pairs);
  return json.dump();
}

/// A part of the page that was put into the program in pieces.
template <std::size_t Count>
void write_part(std::ostream& out, const char* const (&pieces)[Count]) {
  for (const char* const piece : pieces) out << piece;
}

inline void write_findings(std::ostream& out, const Findings& findings) {
  if (findings.empty()) out << "<p>Nothing to report.</p>\n";
  out << "<ul class=\"findings\">\n";
  for (const Finding& finding : findings) {
    const std::string level(to_text(finding.level));
    out << "<li class=\"" << level << "\"><b>" << level << " " << html_text(finding.code) << "</b><span>"
        << (finding.channel ? "channel " + std::to_string(*finding.channel) + ": " : "") << html_text(finding.text)
        << "</span></li>\n";
  }
  out << "</ul>\n";
}

inline void write_plot(std::ostream& out, std::string_view id, std::string_view title, std::string_view how) {
  out << "<section>\n<h2>" << title << "</h2>\n<p class=\"faint\">" << how << "</p>\n<div class=\"controls\" id=\""
      << id << "-controls\"></div>\n<div class=\"plot\" id=\"" << id << "\"></div>\n<div class=\"values\" id=\"" << id
      << "-values\"></div>\n</section>\n";
}

/// The first row is the titles.
inline void write_table(std::ostream& out, const Rows& rows) {
  out << "<div class=\"wide\"><table>\n";
  for (const auto& row : rows) {
    const std::string_view tag = &row == &rows.front() ? "th" : "td";
    out << "<tr>";
    for (const std::string& cell : row) out << '<' << tag << '>' << cell << "</" << tag << '>';
    out << "</tr>\n";
  }
  out << "</table></div>\n";
}

inline void write_payload(std::ostream& out, const Inspection& of) {
  Rows classes{{"class", of.is_packed() ? "bits" : "bytes", "share"}};
  for (const ClassSize& each : class_sizes(of)) {
    classes.push_back({std::string(each.name), std::to_string(each.size), percent(each.size, of.payload_units())});
  }
  out << "<section>\n<h2>Payload</h2>\n";
  write_table(out, classes);
  const Rows losses = loss_rows(of);
  if (losses.size() > 1) write_table(out, losses);
  out << "</section>\n";
}

inline void write_file(std::ostream& out, const Inspection& of) {
  const auto& header = of.header();
  out << "<section>\n<h2>File</h2>\n<div class=\"wide\"><table>\n";
  const auto row = [&out](std::string_view name, std::string_view value) {
    out << "<tr><td>" << name << "</td><td class=\"text\">" << html_text(value) << "</td></tr>\n";
  };
  row("path", of.path());
  row("bytes", std::to_string(of.file_bytes()) + " (" + text_of_bytes(of.file_bytes()) + ")");
  row("encoding", to_text(header.stream_format));
  row("mode", to_text(header.mode));
  row("transport", to_text(header.stream_transport));
  row("channel mask", std::to_string(header.channel_mask));
  row("delta_bits", std::to_string(header.delta_bits));
  row("quantum_ps", std::to_string(header.quantum_ps));
  row("tag format", header.raw64_tag_format);
  row("created", header.created_utc);
  row("program", header.application);
  row("device", header.device_product);
  row("serial", header.device_serial);
  row("port", header.device_port);
  out << "</table></div>\n</section>\n";
}

/// The whole page, with the pairs of channels that were looked at.
inline std::string html_report(const Inspection& of, const Findings& findings,
                               const std::vector<PairFinding>& pairs = {}) {
  const CaptureFacts& facts = of.facts();
  const std::string verdict(verdict_of(findings));
  std::ostringstream out;
  out << "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
         "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
         "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; style-src 'unsafe-inline'; "
         "script-src 'unsafe-inline'; img-src data:\">\n<title>"
      << verdict << ": " << html_text(of.path()) << "</title>\n<style>\n";
  write_part(out, kDygraphsStyle);
  write_part(out, kPageStyle);
  if (!pairs.empty()) write_part(out, kPairsStyle);
  out << "</style>\n</head>\n<body>\n<h1>" << html_text(of.path()) << "</h1>\n<p class=\"verdict " << verdict << "\">"
      << verdict << "</p>\n<p>" << facts.tags() << " tags in " << for_people(facts.duration_ps()) << "; "
      << text_of_bytes(of.file_bytes()) << "; " << to_text(of.header().stream_format) << "</p>\n";
  write_findings(out, findings);
  if (!pairs.empty()) write_pairs(out, pairs, of.path());
  write_plot(out, "rates", "Rates over time",
             "Tags per second of each channel. Drag to zoom, shift and drag to move, double click to see all.");
  write_plot(
      out, "intervals", "Distances between tags of a channel",
      "How often each distance occurs, both axes logarithmic: random light rises steadily and falls off sharply, "
      "a periodic channel is one peak.");
  write_plot(out, "losses", "Losses along the file", "Bytes without tags, by their place in the payload.");
  out << "<section>\n<h2>Channels</h2>\n";
  write_table(out, channel_rows(of));
  out << "</section>\n";
  write_payload(out, of);
  write_file(out, of);
  out << "<script type=\"application/json\" id=\"report\">" << plot_numbers(of, pairs) << "</script>\n<script>\n";
  write_part(out, kDygraphsScript);
  out << "\n</script>\n<script>\n";
  write_part(out, kPageScript);
  if (!pairs.empty()) write_part(out, kPairsScript);
  out << "</script>\n</body>\n</html>\n";
  return out.str();
}

}  // namespace
