#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "common/command_line.hpp"
#include "common/console.hpp"
#include "common/exit_status.hpp"
#include "common/progress.hpp"
#include "inspect/capture_pairs.hpp"
#include "inspect/inspection.hpp"
#include "inspect/judgement.hpp"
#include "inspect/options.hpp"
#include "inspect/report_file.hpp"
#include "inspect/report_html.hpp"
#include "inspect/report_json.hpp"
#include "inspect/report_text.hpp"

namespace {

/// With --strict: a capture is suspect or broken.
constexpr int kExitNotHealthy = 2;

/// Inspects captures one by one, and writes what was asked for.
class InspectionRun {
 public:
  InspectionRun(const Options& options, const Console& console) : options_(options), console_(console) {}

  /// To the exit status. Throws what reports fail with.
  int run() {
    if (several() && !options_.json.empty()) json_array_ = std::make_unique<ReportFile>(options_.json, console_.out);
    if (json_array_) json_array_->write("[");
    for (const std::string& path : options_.captures) inspect(path);
    if (json_array_) {
      json_array_->write(reports_ == 0 ? "]\n" : "\n]\n");
      json_array_->complete();
    }
    if (prints() && !console_.out.flush()) {
      throw orvo::timing::Error("cannot write to standard output", orvo::timing::kFileFailure);
    }
    if (failed_) return kExitFailed;
    return options_.strict && !all_healthy_ ? kExitNotHealthy : kExitDone;
  }

 private:
  bool several() const { return options_.captures.size() > 1; }
  /// A report that is standard output would not be one any more with another text beside it.
  bool prints() const { return !options_.quiet && options_.json != "-" && options_.html != "-"; }

  bool shows_progress() const { return console_.err_is_terminal && !options_.no_progress; }

  /// A capture that cannot be read is told on standard error, and the others are still inspected.
  void inspect(const std::string& path) {
    std::unique_ptr<Inspection> inspection;
    try {
      const Progress::Clock::time_point start = Progress::Clock::now();
      std::optional<RepeatableInput> again;
      if (looks_at_pairs(options_)) again.emplace(path);
      {
        Progress progress(console_.err, shows_progress(), "inspecting", start);
        inspection = std::make_unique<Inspection>(path, options_.max_tags, progress, again ? again->copy() : -1);
      }
      pairs_.clear();
      Progress progress(console_.err, shows_progress(), "correlating", start);
      if (again) pairs_ = pairs_of(*inspection, *again, options_, progress);
    } catch (const std::exception& error) {
      console_.err << error.what() << '\n';
      failed_ = true;
      return;
    }
    const Findings findings = judge(*inspection);
    all_healthy_ = all_healthy_ && verdict_of(findings) == "healthy";
    if (several()) {
      add_report(*inspection, findings);
    } else {
      write_reports(*inspection, findings);
    }
    ++reports_;
  }

  void add_report(const Inspection& of, const Findings& findings) {
    if (prints()) {
      print_line(console_.out, of, findings);
      print_findings(console_.out, findings);
      if (looks_at_pairs(options_)) print_pairs(console_.out, pairs_, of.path());
    }
    if (json_array_) json_array_->write((reports_ == 0 ? "\n" : ",\n") + json_text(whole_json(of, findings)));
  }

  void write_reports(const Inspection& of, const Findings& findings) {
    if (prints()) print_report(console_.out, of, findings);
    if (prints() && looks_at_pairs(options_)) print_pairs(console_.out, pairs_, of.path());
    if (!options_.html.empty()) write_report(options_.html, html_report(of, findings, pairs_));
    if (!options_.json.empty()) write_report(options_.json, json_text(whole_json(of, findings)) + '\n');
  }
  Json whole_json(const Inspection& of, const Findings& findings) const {
    Json json = json_report(of, findings);
    if (!looks_at_pairs(options_)) return json;
    json["pairs"] = Json::array();
    for (const PairFinding& pair : pairs_) json["pairs"].push_back(json_of_pair(pair, of.path()));
    return json;
  }
  void write_report(const std::string& path, const std::string& text) {
    ReportFile file(path, console_.out);
    file.write(text);
    file.complete();
  }

  const Options& options_;
  const Console& console_;
  std::unique_ptr<ReportFile> json_array_;  // of several captures
  std::vector<PairFinding> pairs_;          // of the capture that is reported
  std::size_t reports_ = 0;
  bool failed_ = false;
  bool all_healthy_ = true;
};

/// The whole program, given its arguments without its name: to the exit status.
inline int run(const std::vector<std::string>& arguments, const Console& console) {
  try {
    Options options;
    const std::unique_ptr<CLI::App> app = make_options(options);
    if (const auto status = parse_arguments(*app, arguments, console.out)) return *status;
    check_options(options);
    return InspectionRun(options, console).run();
  } catch (const UsageError& error) {
    console.err << error.what() << '\n';
    return kExitUsage;
  } catch (const std::exception& error) {
    console.err << error.what() << '\n';
    return kExitFailed;
  }
}

}  // namespace
