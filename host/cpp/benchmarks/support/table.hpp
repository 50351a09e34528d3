#pragma once
// Collects what the benchmarks measured and prints it as one table: the best of each row's runs, fast beside plain.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "support/rows.hpp"

namespace orvo::bench {

class Table : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context&) override { return true; }

  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Iteration) continue;
      const std::string& name = run.run_name.function_name;
      const std::size_t slash = name.find('/');
      for (const auto& [unit, counter] : run.counters) {
        Row& row = rows_[name.substr(slash + 1)][unit];
        row.note = run.report_label;
        (name.starts_with("fast") ? row.fast : row.plain).push_back(counter.value);
      }
    }
  }

  void print() const {
    print_line({"work", "fast", "plain", "ratio"});
    for (const std::string& work : works()) {
      const auto found = rows_.find(work);
      if (found == rows_.end()) continue;
      for (auto row = found->second.rbegin(); row != found->second.rend(); ++row) {
        print_row(work, row->first, row->second);
      }
    }
  }

 private:
  struct Row {
    std::string note;
    std::vector<double> fast;
    std::vector<double> plain;
  };

  /// What else runs on the machine, and memory that is not there yet, only ever add to a figure.
  static double best(const std::vector<double>& values) { return *std::min_element(values.begin(), values.end()); }

  static void print_line(const std::array<std::string, 4>& columns) {
    std::printf("%-76s %14s %14s %6s\n", columns[0].c_str(), columns[1].c_str(), columns[2].c_str(),
                columns[3].c_str());
  }

  /// Three digits, as a person would write them.
  static std::string text(double value) {
    char digits[32];
    std::snprintf(digits, sizeof digits, "%.*f", value < 10 ? 2 : value < 100 ? 1 : 0, value);
    return digits;
  }

  static std::string figure(const std::vector<double>& values, const std::string& unit) {
    return values.empty() ? "-" : text(best(values)) + " " + unit;
  }

  static void print_row(const std::string& work, const std::string& unit, const Row& row) {
    const std::string name = row.note.empty() ? work : work + ", " + row.note;
    std::string ratio;
    if (!row.fast.empty() && !row.plain.empty()) ratio = text(best(row.plain) / best(row.fast));
    print_line({name, figure(row.fast, unit), figure(row.plain, unit), ratio});
  }

  std::map<std::string, std::map<std::string, Row>> rows_;  // by work and unit; backwards: wall, cpu, peak
};

}  // namespace orvo::bench
