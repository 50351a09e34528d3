#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "common/command_line.hpp"
#include "common/usage_error.hpp"

namespace {

/// What the command line asks for.
struct Options {
  std::vector<std::string> captures;
  std::string html;
  std::string json;
  std::uint64_t max_tags = 0;
  bool quiet = false;
  bool strict = false;
  bool no_progress = false;
};

/// The program's options, bound to `options`.
inline std::unique_ptr<CLI::App> make_options(Options& options) {
  auto app =
      make_app("vq_inspect_stream_file",
               "Says whether time-tag captures are healthy: accounts for every byte of their payload, looks at "
               "order, rates and distances of their tags, and names what was lost.");
  app->add_option("CAPTURE", options.captures, "captures to inspect; - is standard input")->required();
  app->add_option("--html", options.html, "write the report as a page with plots; - is standard output")
      ->type_name("FILE");
  app->add_option("--json", options.json, "write the report as JSON; - is standard output")->type_name("FILE");
  add_number(*app, "--max-tags", options.max_tags, {0, UINT64_MAX}, "inspect the first N tags only; 0 = all");
  app->add_flag("--quiet", options.quiet, "print no report");
  app->add_flag("--strict", options.strict, "end with status 2 when a capture is suspect or broken");
  app->add_flag("--no-progress", options.no_progress, "never show the progress");
  app->footer(
      "Exit status: 0 all captures were read, 2 with --strict: one of them is suspect\n"
      "or broken, 1 one could not be read, 64 unusable options.");
  return app;
}

/// Throws `UsageError` for options that cannot be together.
inline void check_options(const Options& options) {
  const auto inputs = std::count(options.captures.begin(), options.captures.end(), "-");
  if (inputs > 1) throw UsageError("CAPTURE: standard input (-) can be inspected once");
  if (!options.html.empty() && options.captures.size() != 1) throw UsageError("--html: a page is of one capture");
  if (options.json == "-" && options.html == "-") throw UsageError("--json, --html: only one can be standard output");
}

}  // namespace
