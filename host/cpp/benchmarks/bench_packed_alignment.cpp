// The alignment search on one window of 64 KiB, 19-bit records, beside the search candidate by candidate.
#include <benchmark/benchmark.h>

#include "orvo/timing/stream_decoder.hpp"
#include "reference/packed_alignment.hpp"
#include "support/captures.hpp"
#include "support/inputs.hpp"
#include "support/lazy.hpp"
#include "support/rows.hpp"

namespace {

using namespace orvo;

constexpr std::size_t kWindowBytes = 65'536;

bench::Bytes aligned_window() {
  bench::Bytes bytes =
      bench::packed_payload(bench::in_quanta(bench::merged(bench::two_channels(20'000, 20'000))), 16).bytes;
  bytes.resize(kWindowBytes);
  return bytes;
}

void add(const std::string& work, const bench::Lazy<bench::Bytes>& window) {
  bench::add_fast(work, [window](benchmark::State& state) {
    timing::StreamDecoder decoder(bench::packed(16).header());
    decoder.pending_bytes.append(window->data(), window->size());
    for (auto _ : state) benchmark::DoNotOptimize(decoder.probe_packed_alignment(16, 19));
    bench::give_time(state, "ms");
  });
  bench::add_plain(work, [window](benchmark::State& state) {
    const test::reference::AlignmentQuestion question{0b0011, false, 16, 19, *window};
    for (auto _ : state) benchmark::DoNotOptimize(test::reference::search_alignment(question));
    bench::give_time(state, "ms");
  });
}

}  // namespace

void orvo::bench::add_packed_alignment() {
  add("alignment search, 64 KiB of records", Lazy<Bytes>(aligned_window));
  add("alignment search, 64 KiB of noise", Lazy<Bytes>([] { return noise(kWindowBytes); }));
}
