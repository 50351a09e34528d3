#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
// The report that a person reads: verdict and findings first, then facts in columns.
#include <algorithm>
#include <cstddef>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "inspect/finding.hpp"
#include "inspect/inspection.hpp"
#include "inspect/numbers.hpp"
#include "inspect/payload_classes.hpp"
#include "inspect/report_tables.hpp"
#include "inspect/shown_text.hpp"
#include "orvo/timing/stream_file_header.hpp"
#include "orvo/timing/stream_header_json.hpp"

namespace {

/// Rows whose cells stand under one another: the first column to the left, the others to the right.
class Columns {
 public:
  explicit Columns(Rows rows) : rows_(std::move(rows)) {}
  explicit Columns(std::vector<std::string> titles) { add(std::move(titles)); }
  void add(std::vector<std::string> row) { rows_.push_back(std::move(row)); }
  void print(std::ostream& out) const {
    for (const auto& row : rows_) {
      for (std::size_t i = 0; i < row.size(); ++i) {
        const std::string gap(width(i) - row[i].size(), ' ');
        out << "  " << (i == 0 ? row[i] + gap : gap + row[i]);
      }
      out << '\n';
    }
  }

 private:
  std::size_t width(std::size_t column) const {
    std::size_t most = 0;
    for (const auto& row : rows_) most = std::max(most, column < row.size() ? row[column].size() : 0);
    return most;
  }

  Rows rows_;
};

inline void print_findings(std::ostream& out, const Findings& findings) {
  std::size_t code_width = 0;
  for (const Finding& finding : findings) code_width = std::max(code_width, finding.code.size());
  for (const Finding& finding : findings) {
    const std::string level(to_text(finding.level));
    out << "  " << level << std::string(8 - level.size(), ' ') << finding.code
        << std::string(code_width + 2 - finding.code.size(), ' ')
        << (finding.channel ? "channel " + std::to_string(*finding.channel) + ": " : "") << finding.text << '\n';
  }
}

inline void print_header(std::ostream& out, const Inspection& of) {
  const auto& header = of.header();
  out << "  encoding  " << to_text(header.stream_format);
  if (header.stream_format == orvo::timing::StreamFormat::raw64)
    out << ", tag format " << shown(header.raw64_tag_format);
  if (of.is_packed()) {
    out << ", delta_bits " << unsigned{header.delta_bits} << ", quantum " << header.quantum_ps << " ps";
  }
  out << "; " << to_text(header.mode) << ", " << to_text(header.stream_transport) << ", channel mask "
      << unsigned{header.channel_mask} << '\n';
  const auto print = [&out](const char* name, const std::string& text) {
    if (!text.empty()) out << "  " << name << shown(text) << '\n';
  };
  print("created   ", header.created_utc);
  print("program   ", header.application);
  print("device    ", header.device_product);
  print("serial    ", header.device_serial);
  print("port      ", header.device_port);
}

inline void print_payload(std::ostream& out, const Inspection& of) {
  const std::string unit = of.is_packed() ? "bits" : "bytes";
  out << "\nPayload, " << of.input().payload_bytes_read() << " bytes ("
      << text_of_bytes(of.input().payload_bytes_read()) << ")\n";
  Rows classes{{"class", unit, "share"}};
  for (const ClassSize& each : class_sizes(of)) {
    if (each.size == 0) continue;
    classes.push_back({std::string(each.name), std::to_string(each.size), percent(each.size, of.payload_units())});
  }
  Columns(std::move(classes)).print(out);
  const Rows losses = loss_rows(of);
  if (losses.size() > 1) Columns(losses).print(out << '\n');
}

inline void print_times(std::ostream& out, const Inspection& of) {
  const CaptureFacts& facts = of.facts();
  out << "\nTags, " << facts.tags();
  if (facts.tags() != 0) {
    out << " in " << for_people(facts.duration_ps()) << " (" << facts.duration_ps() << " ps), from "
        << facts.first_ps() << " to " << facts.last_ps() << " ps";
  }
  out << '\n';
  if (facts.tags() != 0) Columns(channel_rows(of)).print(out);
}

inline void print_report(std::ostream& out, const Inspection& of, const Findings& findings) {
  out << shown_path(of.path()) << ": " << verdict_of(findings) << '\n';
  print_findings(out, findings);
  if (findings.empty()) out << "  nothing to report\n";
  out << "\nFile, " << of.file_bytes() << " bytes (" << text_of_bytes(of.file_bytes()) << ")\n";
  if (of.stopped_early()) {
    out << "  read to  byte " << of.input().bytes_read() << ": the wanted number of tags was reached there\n";
  }
  print_header(out, of);
  print_payload(out, of);
  print_times(out, of);
}

/// One line of a list of captures.
inline void print_line(std::ostream& out, const Inspection& of, const Findings& findings) {
  const std::string verdict(verdict_of(findings));
  out << verdict << std::string(9 - verdict.size(), ' ') << of.facts().tags() << " tags  "
      << for_people(of.facts().duration_ps()) << "  " << text_of_bytes(of.file_bytes()) << "  "
      << shown_path(of.path()) << '\n';
}

}  // namespace
