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
#include "inspect/inspection.hpp"
#include "inspect/judgement.hpp"
#include "inspect/options.hpp"
#include "inspect/report_file.hpp"
#include "inspect/report_json.hpp"
#include "inspect/report_text.hpp"

namespace {

/// With --strict: a capture is suspect or broken.
constexpr int kExitNotHealthy = 2;

/// Inspects captures one by one, and writes what was asked for.
class InspectionRun {
 public:
  InspectionRun(const Options& options, const Console& console) : options_(options), console_(console) {
    if (!options.json.empty()) json_ = std::make_unique<ReportFile>(options.json, console.out);
  }

  /// To the exit status. Throws what reports fail with.
  int run() {
    if (json_ && several()) json_->write("[");
    for (const std::string& path : options_.captures) inspect(path);
    if (json_ && several()) json_->write(reports_ == 0 ? "]\n" : "\n]\n");
    if (json_ && (several() || reports_ != 0)) json_->complete();
    if (prints() && !console_.out.flush()) {
      throw orvo::timing::Error("cannot write to standard output", orvo::timing::kFileFailure);
    }
    if (failed_) return kExitFailed;
    return options_.strict && !all_healthy_ ? kExitNotHealthy : kExitDone;
  }

 private:
  bool several() const { return options_.captures.size() > 1; }
  /// A report of standard output's own would not be one any more with another text beside it.
  bool prints() const { return !options_.quiet && options_.json != "-"; }

  /// A capture that cannot be read is told on standard error, and the others are still inspected.
  void inspect(const std::string& path) {
    std::unique_ptr<Inspection> inspection;
    try {
      Progress progress(console_.err, console_.err_is_terminal && !options_.no_progress, "inspecting");
      inspection = std::make_unique<Inspection>(path, options_.max_tags, progress);
    } catch (const std::exception& error) {
      console_.err << error.what() << '\n';
      failed_ = true;
      return;
    }
    report(*inspection, judge(*inspection));
  }

  void report(const Inspection& of, const Findings& findings) {
    all_healthy_ = all_healthy_ && verdict_of(findings) == "healthy";
    if (prints() && several()) {
      print_line(console_.out, of, findings);
      print_findings(console_.out, findings);
    } else if (prints()) {
      print_report(console_.out, of, findings);
    }
    if (json_) {
      if (several()) json_->write(reports_ == 0 ? "\n" : ",\n");
      json_->write(json_text(json_report(of, findings)) + (several() ? "" : "\n"));
    }
    ++reports_;
  }

  const Options& options_;
  const Console& console_;
  std::unique_ptr<ReportFile> json_;
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
