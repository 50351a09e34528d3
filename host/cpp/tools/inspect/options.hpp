#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
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
  bool pairs = false;
  std::string pair;            ///< "A,B": only this one; empty = all six
  std::int64_t reach_ps = -1;  ///< below 0: as far as it takes about a second
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
  app->option_defaults()->group("Pairs of channels");
  app->add_flag("--pairs", options.pairs,
                "say which channels are correlated, at which delay and how surely; reads the\n"
                "capture several times, standard input from a copy in TMPDIR");
  app->add_option("--pair", options.pair, "look at these two channels only")->type_name("A,B");
  app->add_option("--reach", options.reach_ps, "how far delays are looked for")
      ->transform(time_ps({0, 1'000'000'000'000'000}))
      ->type_name("TIME [0 to 1000000000000000 ps]")
      ->default_str("as far as it takes about a second, at most 1 s");
  app->footer(
      "Exit status: 0 all captures were read, 2 with --strict: one of them is suspect\n"
      "or broken, 1 one could not be read, 64 unusable options.");
  return app;
}

inline bool looks_at_pairs(const Options& options) {
  return options.pairs || !options.pair.empty();
}

/// The two channels of --pair. Throws `UsageError` for anything else.
inline std::pair<unsigned, unsigned> wanted_pair(const Options& options) {
  const std::vector<std::string> items = split_list(options.pair);
  const auto channel = [&](std::size_t item) { return parse_whole_number<unsigned>(items[item]); };
  if (items.size() == 2 && channel(0) && channel(1) && *channel(0) < 4 && *channel(1) < 4 && channel(0) != channel(1))
    return {*channel(0), *channel(1)};
  throw UsageError("--pair: '" + options.pair + "' is not two different channels from 0 to 3, as in 0,1");
}

/// Throws `UsageError` for options that cannot be together.
inline void check_options(const Options& options) {
  const auto inputs = std::count(options.captures.begin(), options.captures.end(), "-");
  if (inputs > 1) throw UsageError("CAPTURE: standard input (-) can be inspected once");
  if (!options.html.empty() && options.captures.size() != 1) throw UsageError("--html: a page is of one capture");
  if (options.json == "-" && options.html == "-") throw UsageError("--json, --html: only one can be standard output");
  if (!options.pair.empty()) wanted_pair(options);
  if (options.reach_ps >= 0 && !looks_at_pairs(options)) {
    throw UsageError("--reach: only with --pairs or --pair");
  }
}

}  // namespace
