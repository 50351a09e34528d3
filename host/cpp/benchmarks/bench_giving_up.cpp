// Payloads that make decoders give up again and again: the time for a MiB must not grow with the payload.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

#include "orvo/timing/stream_decoder.hpp"
#include "support/captures.hpp"
#include "support/inputs.hpp"
#include "support/lazy.hpp"
#include "support/rows.hpp"

namespace {

using namespace orvo;
using test::operator+;
using test::operator+=;

constexpr std::size_t kMebibyte = std::size_t{1} << 20;

/// Feeds 1 MiB at a time, as the tool reads.
void decode(const timing::StreamFileHeader& header, const bench::Bytes& payload) {
  timing::StreamDecoder decoder(header);
  std::vector<timing::TimeTag> tags;
  for (std::size_t at = 0; at < payload.size(); at += kMebibyte) {
    tags.clear();
    timing::TagList list(tags);
    decoder.pending_bytes.append(payload.data() + at, std::min(kMebibyte, payload.size() - at));
    timing::detail::decode_pending(decoder, list);
  }
  benchmark::DoNotOptimize(decoder.pending_bytes.size());
}

/// Sync word, a word that loses the sync, sync word, ...
bench::Bytes delta32_that_loses_sync(std::size_t size) {
  bench::Bytes out;
  for (std::size_t i = 0; i < size / 8; ++i) out += test::d32_sync() + bench::Bytes(4, 0);
  return out;
}

/// A good stream with a record of an inactive channel in every 100 KiB, which costs the lock once in every read:
/// nearly every byte stays pending, to be decoded later.
bench::Bytes packed_that_drops_its_lock(std::size_t size) {
  bench::Bytes good =
      bench::packed_payload(bench::in_quanta(bench::merged(bench::two_channels(22'000, 20'000))), 16).bytes;
  good.resize(19 * 5'500);  // whole records
  good.insert(good.end(), 19, 0xFF);
  bench::Bytes payload;
  while (payload.size() < size) payload.insert(payload.end(), good.begin(), good.end());
  payload.resize(size);
  return payload;
}

void add(const std::string& work, const bench::Encoding& encoding, bench::Bytes (*make)(std::size_t)) {
  for (const std::size_t mebibytes : {std::size_t{1}, std::size_t{64}}) {
    const bench::Lazy<bench::Bytes> payload([=] { return make(mebibytes * kMebibyte); });
    bench::add_fast(work + ", " + std::to_string(mebibytes) + " MiB", [=](benchmark::State& state) {
      for (auto _ : state) decode(encoding.header(), *payload);
      bench::give_time(state, "ms/MiB", static_cast<double>(mebibytes));
    });
  }
}

}  // namespace

void orvo::bench::add_giving_up() {
  add("delta32 that loses its sync", delta32(), delta32_that_loses_sync);
  add("packed_delta that drops its lock", packed(16), packed_that_drops_its_lock);
  add("raw64 noise", raw64_ps(), noise);
  add("delta32 noise", delta32(), noise);
  add("packed_delta noise", packed(16), noise);
}
