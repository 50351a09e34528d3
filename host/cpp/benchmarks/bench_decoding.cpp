// Decoding 4 million tags of two channels: in memory, chunk by chunk, into lists per channel, which hold one chunk or
// all of them; and from a file in the page cache, tags in stream order, which are handed out in pieces and not kept.
// With packed_delta that includes the search for the alignment.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <span>
#include <string>
#include <vector>

#include "orvo/timing/channel_times.hpp"
#include "orvo/timing/stream_decoder.hpp"
#include "orvo/timing/stream_file_reader.hpp"
#include "reference/capture_file.hpp"
#include "support/as_reference.hpp"
#include "support/captures.hpp"
#include "support/lazy.hpp"
#include "support/plain_files.hpp"
#include "support/rows.hpp"

namespace {

using namespace orvo;

constexpr std::size_t kChunkBytes = std::size_t{1} << 20;
/// Decoded before the clock starts: the alignment search has rows of its own.
constexpr std::size_t kFirstBytes = 80'000;
constexpr std::size_t kEventsPerChannel = 2'000'000;

struct Input {
  bench::Encoding encoding;
  bench::Payload payload;
  std::string path;
};

Input make_input(const bench::Encoding& encoding, double spacing_ps) {
  Input input{
      encoding, bench::encoded(encoding, bench::merged(bench::two_channels(kEventsPerChannel, spacing_ps))), {}};
  input.path =
      write_capture("decoding_" + encoding.name + "_" + std::to_string(spacing_ps), encoding, input.payload.bytes);
  return input;
}

/// Calls `feed` with `bytes` in chunks.
template <class Feed>
void feed_chunks(std::span<const std::uint8_t> bytes, Feed feed) {
  for (std::size_t at = 0; at < bytes.size(); at += kChunkBytes) {
    feed(bytes.subspan(at, std::min(kChunkBytes, bytes.size() - at)));
  }
}

/// Lists that hold one chunk, in memory that is used again for the next: what is left is decoding alone.
class ChunkLists {
 public:
  std::uint64_t total() const { return total_; }

  // What a sink does, see tag_sink.hpp.
  void begin_chunk(std::size_t most_tags) {
    for (std::size_t c = 0; c < lists_.size(); ++c) {
      if (lists_[c].size() < most_tags) lists_[c].resize(most_tags);
      end_[c] = lists_[c].data();
    }
  }
  void add(unsigned channel, std::int64_t time_ps) { *end_[channel]++ = time_ps; }
  void end_chunk() {
    for (std::size_t c = 0; c < lists_.size(); ++c) total_ += static_cast<std::uint64_t>(end_[c] - lists_[c].data());
    benchmark::ClobberMemory();
  }
  void discard_chunk() {}

 private:
  std::array<std::vector<std::int64_t>, timing::kChannels> lists_;
  std::array<std::int64_t*, timing::kChannels> end_{};
  std::uint64_t total_ = 0;
};

/// The library's decoder, and its lists.
template <class Lists>
class Fast {
 public:
  explicit Fast(const timing::StreamFileHeader& header) : decoder_(header) {}

  void feed(std::span<const std::uint8_t> chunk) {
    decoder_.pending_bytes.append(chunk.data(), chunk.size());
    timing::detail::decode_pending(decoder_, lists_);
  }
  std::uint64_t tags() const { return lists_.total(); }

 private:
  timing::StreamDecoder decoder_;
  Lists lists_;
};

/// A reference decoder, and lists that keep all times or those of one chunk.
template <class Decoder, bool kKeep>
class Plain {
 public:
  explicit Plain(const timing::StreamFileHeader& header) : decoder_(test::as_reference(header)) {}

  void feed(std::span<const std::uint8_t> chunk) {
    if (!kKeep) {
      for (auto& list : lists_) list.clear();
    }
    const test::reference::Tags tags = decoder_.feed(chunk);
    for (const test::reference::Tag& tag : tags) lists_[static_cast<std::size_t>(tag.channel)].push_back(tag.time_ps);
    tags_ += tags.size();
  }
  std::uint64_t tags() const { return tags_; }

 private:
  Decoder decoder_;
  std::array<std::vector<std::int64_t>, timing::kChannels> lists_;
  std::uint64_t tags_ = 0;
};

/// Checks that all tags were decoded: what is measured must be decoding.
void check(benchmark::State& state, std::uint64_t tags) {
  if (tags != 2 * kEventsPerChannel) bench::fail(state, "decoded " + std::to_string(tags) + " tags");
}

template <class Form>
void decode_in_memory(benchmark::State& state, const Input& input) {
  const std::span<const std::uint8_t> payload(input.payload.bytes);
  std::uint64_t first_tags = 0;
  std::uint64_t tags = 0;
  for (auto _ : state) {
    state.PauseTiming();
    Form form(input.encoding.header());
    form.feed(payload.first(kFirstBytes));
    first_tags = form.tags();
    state.ResumeTiming();
    feed_chunks(payload.subspan(kFirstBytes), [&](std::span<const std::uint8_t> chunk) { form.feed(chunk); });
    tags = form.tags();
  }
  check(state, tags);
  state.SetLabel(input.payload.note);
  bench::give_time(state, "ns/tag", static_cast<double>(tags - first_tags));
}

void read_file(benchmark::State& state, const Input& input) {
  std::uint64_t tags = 0;
  for (auto _ : state) {
    timing::StreamFileReader reader;
    reader.open(input.path);
    tags = 0;
    for (std::size_t more = 1; more != 0; tags += more) more = reader.decode_next_tags(65'536, kChunkBytes).size();
  }
  check(state, tags);
  state.SetLabel(input.payload.note);
  bench::give_time(state, "ns/tag", static_cast<double>(tags));
}

void read_file_plainly(benchmark::State& state, const Input& input) {
  std::uint64_t tags = 0;
  for (auto _ : state) {
    tags = 0;
    bench::decode_file_plainly(input.path, [&tags](const test::reference::Tags& more) { tags += more.size(); });
  }
  check(state, tags);
  state.SetLabel(input.payload.note);
  bench::give_time(state, "ns/tag", static_cast<double>(tags));
}

std::string apart(double spacing_ps) {
  if (spacing_ps < 1'000) return ", 0.2 ns apart";
  return spacing_ps < 100'000 ? ", 20 ns apart" : ", 1 us apart";
}

template <class PlainDecoder>
void add(const bench::Encoding& encoding, double spacing_ps) {
  const bench::Lazy<Input> input([=] { return make_input(encoding, spacing_ps); });
  const std::string by_chunk = encoding.name + ", memory to lists of a chunk" + apart(spacing_ps);
  bench::add_fast(by_chunk, [input](benchmark::State& state) { decode_in_memory<Fast<ChunkLists>>(state, *input); });
  bench::add_plain(by_chunk,
                   [input](benchmark::State& state) { decode_in_memory<Plain<PlainDecoder, false>>(state, *input); });
  const std::string whole = encoding.name + ", memory to lists of all" + apart(spacing_ps);
  bench::add_fast(whole,
                  [input](benchmark::State& state) { decode_in_memory<Fast<timing::ChannelTimes>>(state, *input); });
  bench::add_plain(whole,
                   [input](benchmark::State& state) { decode_in_memory<Plain<PlainDecoder, true>>(state, *input); });
  const bool searches = encoding.format == timing::StreamFormat::packed_delta;
  const std::string from_file =
      encoding.name + (searches ? ", search and file to tags" : ", file to tags") + apart(spacing_ps);
  bench::add_fast(from_file, [input](benchmark::State& state) { read_file(state, *input); });
  bench::add_plain(from_file, [input](benchmark::State& state) { read_file_plainly(state, *input); });
}

}  // namespace

void orvo::bench::add_decoding() {
  add<test::reference::Raw64Decoder>(raw64_ps(), 20'000);
  add<test::reference::Raw64Decoder>(raw64_cf(), 20'000);
  add<test::reference::Delta32Decoder>(delta32(), 20'000);
  add<test::reference::PackedDeltaDecoder>(packed(16), 20'000);
  add<test::reference::PackedDeltaDecoder>(packed(16), 1'000'000);
  add<test::reference::PackedDeltaDecoder>(packed(8), 200);
  add<test::reference::PackedDeltaDecoder>(packed(8), 20'000);
}
