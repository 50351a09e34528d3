// Accounting: after every read the classes are those of a painted payload and add up to what was read, and the losses
// are the painted ones, whatever the bytes.
//
//   encoding and form | packed header (4) | chunk sizes (6) | payload, or, with bit 7 of the form, a script of
//   records
#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "fuzz/support/fresh_decoder.hpp"
#include "fuzz/support/input.hpp"
#include "fuzz/support/packed_settings.hpp"
#include "fuzz/support/require.hpp"
#include "fuzz/support/strict_sink.hpp"
#include "orvo/timing/payload_account.hpp"
#include "orvo/timing/stream_decoder.hpp"
#include "reference/painted_payload.hpp"

namespace {

using orvo::fuzz::Input;
using orvo::fuzz::require;
using namespace orvo::timing;
using orvo::test::reference::PaintedPayload;

constexpr std::size_t kMostBytes = 2000;
/// The reference of the alignment search is slow: an input ends when it has searched through this many bytes.
constexpr std::size_t kMostSearchedBytes = 2500;

/// Keeps the losses it is told of; those of a discarded chunk were none.
struct Losses : NoLossListener {
  void lost(const PayloadLoss& loss) { all.push_back(loss); }
  std::vector<PayloadLoss> all;
};

/// A sink that takes back what the listener heard in a discarded chunk.
struct Sink : orvo::fuzz::StrictSink {
  explicit Sink(Losses& heard) : losses(heard) {}
  void begin_chunk(std::size_t most_tags) {
    StrictSink::begin_chunk(most_tags);
    heard_before = losses.all.size();
  }
  void discard_chunk() {
    StrictSink::discard_chunk();
    losses.all.resize(heard_before);
  }
  Losses& losses;
  std::size_t heard_before = 0;
};

void check(const PayloadAccount<Losses>& account, const StreamDecoder& decoder, const PaintedPayload& painted) {
  const auto sizes = painted.sizes();
  std::uint64_t sum = account.pending(decoder);
  require(sum == sizes[static_cast<std::size_t>(PayloadClass::pending)], "as much is pending");
  for (std::size_t i = 0; i < kPayloadClasses; ++i) {
    const auto what = static_cast<PayloadClass>(i);
    if (what == PayloadClass::pending) continue;
    require(account.size(what) == sizes[i], "a class is as large as it is painted");
    sum += account.size(what);
  }
  require(sum == painted.paint.size(), "the classes add up to what was read");
  require(account.framings_lost() == painted.breaks, "as many syncs and locks were lost");
  require(account.unanchored() == painted.unanchored, "as many tags are without an anchor");
  for (unsigned c = 0; c < kChannels; ++c) {
    require(account.tags(c) == painted.tag_counts[c] && account.wraps(c) == painted.wraps[c],
            "a channel has as many tags and wraps");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const std::uint8_t form = input.byte();
  StreamFileHeader header = orvo::fuzz::packed_header(input);
  header.stream_format = static_cast<StreamFormat>(form % 3);
  header.raw64_tag_format = (form & 64) == 0 ? "ps" : "raw_cf";
  std::array<std::uint8_t, 6> chunk_sizes{};
  for (std::uint8_t& chunk_size : chunk_sizes) chunk_size = input.byte();
  orvo::test::Bytes payload;
  if ((form & 128) != 0 && header.delta_bits >= 1 && header.delta_bits <= 31) {
    const auto shift = static_cast<unsigned>(std::countr_zero(header.quantum_ps == 0 ? 8u : header.quantum_ps));
    payload = orvo::fuzz::PackedScript(header.delta_bits, shift).run(input, kMostBytes);
  } else {
    const auto rest = input.bytes(kMostBytes);
    payload.assign(rest.begin(), rest.end());
  }

  StreamDecoder decoder = orvo::fuzz::fresh_decoder(header);
  Losses losses;
  PayloadAccount<Losses> account(decoder.header, losses);
  PaintedPayload painted(header);
  Sink sink(losses);
  std::size_t tags = 0;
  std::size_t at = 0;
  std::size_t searched = 0;
  for (std::size_t i = 0; at < payload.size() && searched < kMostSearchedBytes; ++i) {
    const std::uint8_t code = chunk_sizes[i % chunk_sizes.size()];
    const std::size_t wanted = code < 128 ? 1 + std::size_t{code} : std::size_t{code} * 8;
    const std::span<const std::uint8_t> chunk = std::span(payload).subspan(at, std::min(wanted, payload.size() - at));
    at += chunk.size();
    if (header.stream_format == StreamFormat::packed_delta && !decoder.packed_locked) {
      searched += decoder.pending_bytes.size() + chunk.size();
    }
    decoder.feed(chunk, sink, account);
    tags += painted.feed(chunk).size();
    require(sink.tags().size() == tags, "as many tags come");
    check(account, decoder, painted);
  }
  account.finish(decoder);
  painted.finish();
  check(account, decoder, painted);
  require(losses.all == painted.losses, "the losses are the painted ones");
  require(account.lost().count <= losses.all.size(), "no more is lost than was told");
  return 0;
}
