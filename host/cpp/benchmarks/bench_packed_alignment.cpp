// The alignment search on one window of 64 KiB, 19-bit records, beside the search candidate by candidate.
#include <benchmark/benchmark.h>

#include "orvo/timing/stream_decoder.hpp"
#include "plain/packed_alignment_plain.hpp"
#include "support/inputs.hpp"

namespace {

using namespace orvo;

constexpr std::size_t kWindowBytes = 65'536;

enum Window : std::int64_t { aligned, noise };

bench::Bytes window(std::int64_t kind) {
  bench::Bytes bytes;
  if (kind == aligned) {
    bytes = bench::packed_payload(bench::merged(bench::two_channels(20'000, 20'000)), 16);
  } else {
    bench::Random random(4);
    for (std::size_t i = 0; i < kWindowBytes; ++i) bytes.push_back(static_cast<std::uint8_t>(random.bits()));
  }
  bytes.resize(kWindowBytes);
  return bytes;
}

timing::StreamFileHeader two_channel_header() {
  timing::StreamFileHeader header;
  header.channel_mask = 0b0011;
  return header;
}

void search(benchmark::State& state) {
  timing::StreamDecoder decoder(two_channel_header());
  const bench::Bytes bytes = window(state.range(0));
  decoder.pending_bytes.append(bytes.data(), bytes.size());
  for (auto _ : state) benchmark::DoNotOptimize(decoder.probe_packed_alignment(16, 19));
}
BENCHMARK(search)->Arg(aligned)->Arg(noise)->Unit(benchmark::kMillisecond);

void literal_search(benchmark::State& state) {
  const bench::Bytes bytes = window(state.range(0));
  const test::plain::AlignmentQuestion question{0b0011, timing::StreamMode::external, 16, 19, bytes};
  for (auto _ : state) benchmark::DoNotOptimize(test::plain::search_alignment(question));
}
BENCHMARK(literal_search)->Arg(aligned)->Arg(noise)->Unit(benchmark::kMillisecond);

}  // namespace
