// The histogram beside its reference: two sorted copies and two binary searches for each A event.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <numeric>
#include <string>

#include "orvo/timing/xcorr_histogram.hpp"
#include "reference/histogram.hpp"
#include "support/as_reference.hpp"
#include "support/inputs.hpp"
#include "support/lazy.hpp"
#include "support/rows.hpp"

namespace {

using namespace orvo;
using Channels = bench::Lazy<bench::TwoChannels>;

constexpr std::int64_t kOffsetPs = 160;

timing::XcorrHistogram histogram(const bench::TwoChannels& channels, const timing::XcorrWindow& window) {
  return timing::xcorr_histogram(channels.a, channels.b, window.range_ps, window.bin_ps, window.offset_ps);
}

/// 64 bits, as one would first write it.
test::reference::Histogram plain_histogram(const bench::TwoChannels& channels, const timing::XcorrWindow& window) {
  return test::reference::histogram<std::int64_t>(channels.a, channels.b, test::as_reference(window));
}

/// As `histogram`, with the standard library's sort.
timing::XcorrHistogram histogram_after_standard_sort(const bench::TwoChannels& channels,
                                                     const timing::XcorrWindow& window) {
  bench::TwoChannels sorted = channels;
  std::sort(sorted.a.begin(), sorted.a.end());
  std::sort(sorted.b.begin(), sorted.b.end());
  return timing::xcorr_histogram_sorted(sorted.a, sorted.b, window);
}

template <class Histogram>
auto measure(const Channels& channels, const timing::XcorrWindow& window, Histogram form) {
  return [=](benchmark::State& state) {
    decltype(form(*channels, window)) result;
    for (auto _ : state) benchmark::DoNotOptimize(result = form(*channels, window));
    const auto events = static_cast<double>(channels->a.size());
    const std::int64_t pairs = std::accumulate(result.counts.begin(), result.counts.end(), std::int64_t{0});
    char label[32];
    std::snprintf(label, sizeof label, "%.2f pairs/event", static_cast<double>(pairs) / events);
    state.SetLabel(label);
    bench::give_time(state, "ns/event", events);
  };
}

void add(const std::string& events, const Channels& channels, const timing::XcorrWindow& window) {
  const std::string work = "histogram, " + events + ", bin " + std::to_string(window.bin_ps);
  bench::add_fast(work, measure(channels, window, histogram));
  bench::add_plain(work, measure(channels, window, plain_histogram));
}

void add_unsorted(const std::string& order, const Channels& channels) {
  const timing::XcorrWindow window{5'000, 8, kOffsetPs};
  add("20 ns apart, " + order, channels, window);
  bench::add_fast("the same after std::sort of both, " + order,
                  measure(channels, window, histogram_after_standard_sort));
}

}  // namespace

void orvo::bench::add_histogram() {
  const Channels sparse([] { return two_channels(1'000'000, 20'000); });
  const Channels low_rate([] { return two_channels(1'000'000, 1'000'000); });
  const Channels long_sparse([] { return two_channels(10'000'000, 20'000); });
  const Channels long_low_rate([] { return two_channels(10'000'000, 1'000'000); });
  const Channels pulses([] { return two_channels(1'000'000, 1'000'000, 100); });
  const Channels long_pulses([] { return two_channels(10'000'000, 1'000'000, 100); });
  const Channels clock([] { return clock_and_rare_events(1'000'000, 1'000'000); });
  const Channels by_chance([] { return two_channels(10'000'000, 1'000'000, 0); });
  for (const std::int64_t bin : {8, 7, 800}) add("20 ns apart", sparse, {5'000, bin, kOffsetPs});
  for (const std::int64_t bin : {8, 7, 800}) add("1 us apart", low_rate, {5'000, bin, kOffsetPs});
  for (const std::int64_t bin : {8, 7, 800}) add("1 us apart, each paired", pulses, {5'000, bin, kOffsetPs});
  add("20 ns apart, 10 million", long_sparse, {5'000, 8, kOffsetPs});
  add("1 us apart, 10 million", long_low_rate, {5'000, 8, kOffsetPs});
  add("1 us apart, each paired, 10 million", long_pulses, {5'000, 8, kOffsetPs});
  add("clock of 1 us and rare events", clock, {5'000, 8, kOffsetPs});
  add("1 us apart, 10 million, unrelated", by_chance, {5'000, 8, kOffsetPs});
  for (const std::int64_t bin : {8, 7, 800}) add("20 ns apart, range 1 us", sparse, {1'000'000, bin, kOffsetPs});
  add_unsorted("1 % late", Channels([=] {
                 return TwoChannels{slightly_unsorted(sparse->a), slightly_unsorted(sparse->b)};
               }));
  add_unsorted("shuffled", Channels([=] { return TwoChannels{shuffled(sparse->a), shuffled(sparse->b)}; }));
}
