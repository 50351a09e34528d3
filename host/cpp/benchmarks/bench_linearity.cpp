// Time per MiB on payloads that make decoders give up again and again: it must not grow with the payload.
#include <benchmark/benchmark.h>

#include <algorithm>

#include "orvo/timing/stream_decoder.hpp"
#include "support/inputs.hpp"

namespace {

using namespace orvo;

constexpr std::size_t kMebibyte = std::size_t{1} << 20;

/// Feeds 1 MiB at a time, as the tool reads.
void decode(benchmark::State& state, const timing::StreamFileHeader& header, const bench::Bytes& payload) {
  for (auto _ : state) {
    timing::StreamDecoder decoder(header);
    std::vector<timing::TimeTag> tags;
    for (std::size_t at = 0; at < payload.size(); at += kMebibyte) {
      tags.clear();
      timing::detail::TagList list(tags);
      decoder.pending_bytes.append(payload.data() + at, std::min(kMebibyte, payload.size() - at));
      timing::detail::decode_pending(decoder, list);
    }
    benchmark::DoNotOptimize(decoder.pending_bytes.size());
  }
  const double mebibytes = static_cast<double>(payload.size()) / static_cast<double>(kMebibyte);
  state.counters["s/MiB"] =
      benchmark::Counter(mebibytes, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

std::size_t payload_bytes(const benchmark::State& state) {
  return static_cast<std::size_t>(state.range(0)) * kMebibyte;
}

bench::Bytes noise(std::size_t size) {
  bench::Random random(5);
  bench::Bytes bytes(size);
  for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random.bits());
  return bytes;
}

/// Sync word, a word that loses the sync, sync word, ...
void delta32_that_loses_sync(benchmark::State& state) {
  timing::StreamFileHeader header;
  header.stream_format = timing::StreamFormat::delta32;
  bench::BitWriter out;
  for (std::size_t i = 0; i < payload_bytes(state) / 8; ++i) {
    out.put(0xEB5A'55AA, 32);
    out.put(0, 32);
  }
  decode(state, header, out.finish());
}

/// A good stream with a record of an inactive channel in every 100 KiB, which costs the lock once in every read:
/// nearly every byte stays pending, to be decoded later.
void packed_that_drops_its_lock(benchmark::State& state) {
  timing::StreamFileHeader header;
  header.channel_mask = 0b0011;
  const std::vector<timing::TimeTag> tags = bench::merged(bench::two_channels(22'000, 20'000));
  bench::Bytes good = bench::packed_payload(tags, 16);
  good.resize(19 * 5'500);  // whole records
  good.insert(good.end(), 19, 0xFF);
  bench::Bytes payload;
  while (payload.size() < payload_bytes(state)) payload.insert(payload.end(), good.begin(), good.end());
  payload.resize(payload_bytes(state));
  decode(state, header, payload);
}

void packed_noise(benchmark::State& state) {
  decode(state, {}, noise(payload_bytes(state)));
}

void delta32_noise(benchmark::State& state) {
  timing::StreamFileHeader header;
  header.stream_format = timing::StreamFormat::delta32;
  decode(state, header, noise(payload_bytes(state)));
}

void raw64_noise(benchmark::State& state) {
  timing::StreamFileHeader header;
  header.stream_format = timing::StreamFormat::raw64;
  decode(state, header, noise(payload_bytes(state)));
}

BENCHMARK(delta32_that_loses_sync)->Arg(1)->Arg(16)->Arg(64)->Unit(benchmark::kMillisecond);
BENCHMARK(packed_that_drops_its_lock)->Arg(1)->Arg(16)->Arg(64)->Unit(benchmark::kMillisecond);
BENCHMARK(packed_noise)->Arg(1)->Arg(16)->Arg(64)->Unit(benchmark::kMillisecond);
BENCHMARK(delta32_noise)->Arg(1)->Arg(16)->Arg(64)->Unit(benchmark::kMillisecond);
BENCHMARK(raw64_noise)->Arg(1)->Arg(16)->Arg(64)->Unit(benchmark::kMillisecond);

}  // namespace
