// The estimate of the offset, a million events on each channel.
#include <benchmark/benchmark.h>

#include <string>

#include "orvo/timing/offset_estimate.hpp"
#include "reference/offset_estimate.hpp"
#include "support/inputs.hpp"
#include "support/lazy.hpp"
#include "support/rows.hpp"

namespace {

using namespace orvo;
using Channels = bench::Lazy<bench::TwoChannels>;

void add(const std::string& work, const Channels& channels) {
  bench::add_fast(work, [channels](benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(timing::estimate_offset_ps(channels->a, channels->b));
    bench::give_time(state, "ms");
  });
  bench::add_plain(work, [channels](benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(test::reference::offset_estimate_ps(channels->a, channels->b));
    bench::give_time(state, "ms");
  });
}

}  // namespace

void orvo::bench::add_offset() {
  const Channels sorted([] { return two_channels(1'000'000, 20'000); });
  add("offset, 2 million tags, sorted", sorted);
  add("offset, 2 million tags, 1 % late", Channels([=] {
        return TwoChannels{slightly_unsorted(sorted->a), slightly_unsorted(sorted->b)};
      }));
}
