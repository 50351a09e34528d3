#pragma once
// The rows of the table. A row is a piece of work in two forms, the benchmarks "fast/WORK" and "plain/WORK", and the
// figures that both give under the same unit. Either form may be missing.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

namespace orvo::bench {

// Each adds the rows of its file.
void add_decoding();
void add_packed_alignment();
void add_histogram();
void add_offset();
void add_giving_up();
void add_program();

/// Every piece of work that was added, in this order.
inline std::vector<std::string>& works() {
  static std::vector<std::string> added;
  return added;
}

/// Whether a benchmark could not be run, or gave a wrong result.
inline bool& failed() {
  static bool any = false;
  return any;
}

inline void fail(benchmark::State& state, const std::string& why) {
  std::fprintf(stderr, "%s\n", why.c_str());
  failed() = true;
  state.SkipWithError(why.c_str());
}

template <class Measure>
benchmark::internal::Benchmark* add_form(const std::string& form, const std::string& work, Measure measure) {
  if (std::find(works().begin(), works().end(), work) == works().end()) works().push_back(work);
  return benchmark::RegisterBenchmark((form + "/" + work).c_str(), std::move(measure));
}
template <class Measure>
benchmark::internal::Benchmark* add_fast(const std::string& work, Measure measure) {
  return add_form("fast", work, std::move(measure));
}
template <class Measure>
benchmark::internal::Benchmark* add_plain(const std::string& work, Measure measure) {
  return add_form("plain", work, std::move(measure));
}

/// The processor time of one run of the loop as a figure, divided by `items`; `unit` begins with "ns" or "ms".
inline void give_time(benchmark::State& state, const std::string& unit, double items = 1) {
  const double unit_seconds = unit.starts_with("ns") ? 1e-9 : 1e-3;
  state.counters[unit] = benchmark::Counter(
      items * unit_seconds, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

}  // namespace orvo::bench
