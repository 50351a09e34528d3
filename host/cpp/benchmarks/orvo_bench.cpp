// All benchmarks in one table. Takes the options of Google Benchmark; those below are only defaults.
#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <cstdio>
#include <exception>
#include <fstream>
#include <string>
#include <vector>

#include "support/rows.hpp"
#include "support/table.hpp"

namespace {

std::string load_averages() {
  double loads[3] = {};
  if (::getloadavg(loads, 3) != 3) return "unknown";
  char text[64];
  std::snprintf(text, sizeof text, "%.2f %.2f %.2f", loads[0], loads[1], loads[2]);
  return text;
}

std::string processor() {
  std::ifstream info("/proc/cpuinfo");
  for (std::string line; std::getline(info, line);) {
    if (line.starts_with("model name")) return line.substr(line.find(':') + 2);
  }
  return "unknown";
}

#if defined(__clang__)
constexpr const char* kCompiler = "clang++ " __clang_version__;
#else
constexpr const char* kCompiler = "g++ " __VERSION__;
#endif

/// Measures and prints; the exit status.
int run() {
  orvo::bench::add_decoding();
  orvo::bench::add_packed_alignment();
  orvo::bench::add_histogram();
  orvo::bench::add_offset();
  orvo::bench::add_giving_up();
  orvo::bench::add_program();

  const std::string load_before = load_averages();
  orvo::bench::Table table;
  if (benchmark::RunSpecifiedBenchmarks(&table) == 0) return 64;
  table.print();
  std::printf("\nBest of interleaved runs; processor time unless marked otherwise. %s; %s; %s\n", processor().c_str(),
              kCompiler, ORVO_BENCH_BUILD);
  std::printf("Load average %s before, %s after.\n", load_before.c_str(), load_averages().c_str());
  return orvo::bench::failed() ? 1 : 0;
}

}  // namespace

int main(int argc, char** argv) {
  // Interleaved, so that a busy minute of the machine falls on both sides of a ratio.
  std::vector<std::string> words{argv[0], "--benchmark_enable_random_interleaving=true", "--benchmark_repetitions=5",
                                 "--benchmark_min_time=0.05"};
  words.insert(words.end(), argv + 1, argv + argc);
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  int count = static_cast<int>(arguments.size());
  benchmark::Initialize(&count, arguments.data());
  if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) return 64;

  try {
    return run();
  } catch (const std::exception& error) {  // a program that could not be measured
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
}
