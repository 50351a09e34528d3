#pragma once
// One run of the tool on a named capture, from its settings to everything that can be seen of it afterwards.
#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "reference/capture_file.hpp"
#include "reference/histogram.hpp"
#include "reference/offset_estimate.hpp"
#include "reference/reports.hpp"
#include "reference/tag.hpp"

namespace orvo::test::reference {

struct RunSettings {
  std::string settings_file;  // path as it was found; empty: none
  std::string input;          // absolute
  std::string prefix;         // absolute
  std::string output_root;
  int channel_a = 0;
  int channel_b = 1;
  std::int64_t range_ps = 5000;
  std::int64_t bin_ps = 8;
  std::string offset = "auto";
  std::uint64_t max_tags = 0;
};

struct RunOutcome {
  int exit_status = 0;
  std::string out;
  std::string err;
  std::map<std::string, std::string> files;  // path -> bytes
  Findings found;                            // only when reports were written
};

inline RunOutcome failed_run(const RunOutcome& so_far, int exit_status, const std::string& failure) {
  RunOutcome outcome = so_far;
  outcome.exit_status = exit_status;
  outcome.err = failure + "\n";
  return outcome;
}

inline std::map<std::string, std::string> report_files(const Findings& found) {
  std::map<std::string, std::string> files;
  files[found.prefix + ".csv"] = csv_report(found);
  files[found.prefix + ".json"] = json_report(found);
  files[found.prefix + ".svg"] = svg_report(found);
  files[found.prefix + ".summary.txt"] = summary_text(found);
  files[found.output_root + "/latest.csv"] = csv_report(found);
  files[found.output_root + "/latest.json"] = json_report(found);
  files[found.output_root + "/latest.svg"] = svg_report(found);
  files[found.output_root + "/latest_summary.txt"] = summary_text(found);
  files[found.output_root + "/open_latest_plot.bat"] = launcher_script();
  return files;
}

/// What correlating the tags gives; `window.offset_ps` does not matter where it is estimated. See `histogram` for
/// `Integer`.
template <class Integer = Wide>
Findings correlate(const Tags& tags, int channel_a, int channel_b, Window window, bool estimate_offset) {
  Findings found;
  std::array<Times, 4> times;
  for (const Tag& tag : tags) times[static_cast<std::size_t>(tag.channel)].push_back(tag.time_ps);
  for (std::size_t channel = 0; channel < 4; ++channel) found.channel_counts[channel] = times[channel].size();
  const Times& a = times[static_cast<std::size_t>(channel_a)];
  const Times& b = times[static_cast<std::size_t>(channel_b)];
  if (estimate_offset) window.offset_ps = offset_estimate_ps(a, b);
  if (number_of_bins(window.range_ps, window.bin_ps) > Wide{Times().max_size()}) {
    throw std::length_error("vector::reserve");
  }
  found.channel_a = channel_a;
  found.channel_b = channel_b;
  found.window = window;
  found.decoded_tags = tags.size();
  found.histogram = histogram<Integer>(a, b, window);
  return found;
}

/// The run on a capture with the bytes `file` (nothing: no such file), last written `age_seconds` ago.
inline RunOutcome run(const RunSettings& settings, const std::optional<FileBytes>& file, std::int64_t age_seconds) {
  RunOutcome outcome;
  const int a = settings.channel_a;
  const int b = settings.channel_b;
  if (a < 0 || a > 3 || b < 0 || b > 3 || a == b) {
    return failed_run(outcome, 64, "channels must be distinct and in 0..3");
  }
  if (settings.range_ps <= 0 || settings.bin_ps <= 0) {
    return failed_run(outcome, 64, "range_ps and bin_ps must be positive");
  }
  outcome.out = opening_lines(settings.settings_file, settings.input, settings.prefix);

  const Capture capture = read_capture(settings.input, file);
  if (!capture.failure.empty()) return failed_run(outcome, 1, capture.failure);
  Tags tags = decode(capture.header, capture.payload);
  if (settings.max_tags != 0 && tags.size() > settings.max_tags) tags.resize(settings.max_tags);
  Findings found;
  try {
    const bool estimated = settings.offset == "auto";
    const std::int64_t offset_ps = estimated ? 0 : std::stoll(settings.offset);
    found = correlate(tags, a, b, {settings.range_ps, settings.bin_ps, offset_ps}, estimated);
  } catch (const std::logic_error& error) {  // no number, or one that does not fit; too many bins
    return failed_run(outcome, 1, error.what());
  }
  found.input = settings.input;
  found.prefix = settings.prefix;
  found.output_root = settings.output_root;
  found.input_age_seconds = age_seconds;
  found.header = capture.header;

  outcome.files = report_files(found);
  outcome.out += closing_lines(found);
  outcome.found = found;
  return outcome;
}

}  // namespace orvo::test::reference
