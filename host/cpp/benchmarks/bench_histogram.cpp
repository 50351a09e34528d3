// The histogram beside its plain twin: two sorted copies and two binary searches for each A event.
#include <benchmark/benchmark.h>

#include "orvo/timing/xcorr_histogram.hpp"
#include "plain/xcorr_histogram_plain.hpp"
#include "support/inputs.hpp"

namespace {

using namespace orvo;

/// range(0) = A events, range(1) = mean spacing, range(2) = range, range(3) = bin width, all in picoseconds.
template <class Histogram>
void correlate(benchmark::State& state, Histogram histogram) {
  const auto events = static_cast<std::size_t>(state.range(0));
  const bench::TwoChannels channels = bench::two_channels(events, static_cast<double>(state.range(1)));
  const timing::XcorrWindow window{state.range(2), state.range(3), 160};
  for (auto _ : state) benchmark::DoNotOptimize(histogram(channels, window));
  state.counters["s/event"] = benchmark::Counter(
      static_cast<double>(events), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void sources(benchmark::internal::Benchmark* bench) {
  bench->ArgNames({"events", "spacing", "range", "bin"});
  for (const std::int64_t bin : {8, 7, 800}) bench->Args({1'000'000, 20'000, 5'000, bin});
  bench->Args({1'000'000, 1'000'000, 5'000, 8});
  bench->Args({100'000, 20'000, 1'000'000, 8});
  bench->Unit(benchmark::kMillisecond);
}

void histogram(benchmark::State& state) {
  correlate(state, [](const bench::TwoChannels& channels, const timing::XcorrWindow& window) {
    return timing::xcorr_histogram(channels.a, channels.b, window.range_ps, window.bin_ps, window.offset_ps);
  });
}
BENCHMARK(histogram)->Apply(sources);

void plain_histogram(benchmark::State& state) {
  correlate(state, [](const bench::TwoChannels& channels, const timing::XcorrWindow& window) {
    return test::plain::xcorr_histogram(channels.a, channels.b, window);
  });
}
BENCHMARK(plain_histogram)->Apply(sources);

}  // namespace
