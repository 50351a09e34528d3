// Accounting against a painted payload: whatever the bytes and the reads, classes add up after every read.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "orvo/timing/payload_account.hpp"
#include "orvo/timing/stream_decoder.hpp"
#include "reference/painted_payload.hpp"
#include "support/as_reference.hpp"
#include "support/delta32_streams.hpp"
#include "support/packed_cases.hpp"
#include "support/streams.hpp"

namespace {

using namespace orvo::timing;
using namespace orvo::test;
using orvo::test::reference::PaintedPayload;

struct ToldLosses : NoLossListener {
  void lost(const PayloadLoss& loss) { all.push_back(loss); }
  std::vector<PayloadLoss> all;
};

/// A sink and a listener both forget a discarded chunk.
struct ForgettingAccount : PayloadAccount<ToldLosses> {
  ForgettingAccount(const StreamFileHeader& header, ToldLosses& losses)
      : PayloadAccount<ToldLosses>(header, losses), told(losses) {}
  void begin_chunk() {
    PayloadAccount<ToldLosses>::begin_chunk();
    told_before = told.all.size();
  }
  void discard_chunk() {
    PayloadAccount<ToldLosses>::discard_chunk();
    told.all.resize(told_before);
  }
  ToldLosses& told;
  std::size_t told_before = 0;
};

/// What occurred in all streams together, so that a test can ask for it.
std::map<std::string, std::uint64_t> occurred;

void expect_painted(const ForgettingAccount& account, const StreamDecoder& decoder, const PaintedPayload& painted) {
  const auto expected = painted.sizes();
  std::uint64_t sum = account.pending(decoder);
  ASSERT_EQ(sum, expected[static_cast<std::size_t>(PayloadClass::pending)]);
  for (std::size_t i = 0; i < kPayloadClasses; ++i) {
    const auto what = static_cast<PayloadClass>(i);
    if (what == PayloadClass::pending) continue;
    ASSERT_EQ(account.size(what), expected[i]) << "class " << i;
    sum += account.size(what);
    if (account.size(what) != 0) ++occurred["class " + std::to_string(i)];
  }
  ASSERT_EQ(sum, painted.paint.size());
  ASSERT_EQ(account.unanchored(), painted.unanchored);
  ASSERT_EQ(account.framings_lost(), painted.breaks);
  for (unsigned c = 0; c < kChannels; ++c) {
    ASSERT_EQ(account.tags(c), painted.tag_counts[c]);
    ASSERT_EQ(account.wraps(c), painted.wraps[c]);
  }
}

void compare(Random& random, const StreamFileHeader& header, const Bytes& payload, std::size_t smallest,
             std::size_t largest) {
  StreamDecoder decoder(header);
  ToldLosses told;
  ForgettingAccount account(decoder.header, told);
  PaintedPayload painted(header);
  for (std::size_t at = 0; at < payload.size();) {
    const std::size_t size = std::min(std::max(chunk_size(random) % (largest + 1), smallest), payload.size() - at);
    const std::span<const std::uint8_t> chunk = std::span(payload).subspan(at, size);
    at += size;
    decoder.pending_bytes.append(chunk.data(), chunk.size());
    std::vector<TimeTag> tags;
    TagList list(tags);
    detail::decode_pending(decoder, list, account);
    ASSERT_EQ(as_reference(tags), painted.feed(chunk));
    ASSERT_NO_FATAL_FAILURE(expect_painted(account, decoder, painted));
  }
  account.finish(decoder);
  painted.finish();
  ASSERT_NO_FATAL_FAILURE(expect_painted(account, decoder, painted));
  ASSERT_EQ(told.all, painted.losses);
  for (const PayloadLoss& loss : told.all) ++occurred[std::string(to_text(loss.reason))];
}

/// The kinds of losses below occur in three tenths of the usual rounds, and not in fewer.
std::uint64_t rounds_with_all_losses(std::uint64_t usual) { return std::max(rounds(usual), usual * 3 / 10); }

void expect_occurred(const std::vector<const char*>& names) {
  for (const char* name : names) EXPECT_GT(occurred[name], 0u) << name;
}

TEST(PayloadAccountModel, Raw64) {
  occurred.clear();
  for (std::uint64_t seed = 0; seed < rounds_with_all_losses(300); ++seed) {
    Random random(seed);
    StreamFileHeader header;
    header.stream_format = StreamFormat::raw64;
    header.raw64_tag_format = random.one_in(2) ? "ps" : "raw_cf";
    Bytes payload;
    std::uint64_t time = random.below(14'000'000'000'000);
    for (std::uint64_t i = random.of_any_size(11); i > 0; --i) {
      time += random.of_any_size(42);
      payload += header.raw64_tag_format == "ps"
                     ? ps_record(random.channel(), time % kDevicePeriod)
                     : cf_record(random.channel(), static_cast<std::uint32_t>(time / 3333),
                                 static_cast<unsigned>(random.below(8192)));
    }
    damage(random, payload, random.below(8));
    compare(random, header, payload, 1, 1 << 20);
    if (HasFatalFailure()) FAIL() << "seed " << seed;
  }
  expect_occurred({"lead", "foreign", "cut"});
}

TEST(PayloadAccountModel, Delta32) {
  occurred.clear();
  for (std::uint64_t seed = 0; seed < rounds_with_all_losses(600); ++seed) {
    Random random(seed);
    StreamFileHeader header;
    header.stream_format = StreamFormat::delta32;
    Bytes payload = clean_delta32(random, random.of_any_size(10)).bytes;
    for (std::uint64_t swaps = payload.size() < 8 ? 0 : random.below(6); swaps > 0; --swaps) {
      const auto word = payload.begin() + static_cast<std::ptrdiff_t>(4 * random.below(payload.size() / 4 - 1));
      std::swap_ranges(word, word + 4, word + 4);
    }
    damage(random, payload, random.below(12));
    compare(random, header, payload, 1, 1 << random.between(2, 20));
    if (HasFatalFailure()) FAIL() << "seed " << seed;
  }
  expect_occurred({"lead", "cut", "no_time", "no_base_low", "no_base_high", "extension_after_base", "stray_base",
                   "event_not_later", "unknown_word"});
}

void compare(Random& random, const PackedStream& stream) {
  compare(random, stream.header, stream.bytes, stream.smallest_chunk, stream.largest_chunk);
}

TEST(PayloadAccountModel, PackedDelta) {
  occurred.clear();
  for (std::uint64_t seed = 0; seed < rounds_with_all_losses(300); ++seed) {
    Random random(seed);
    compare(random, seed % 10 == 0 ? valid_packed(random) : hostile_packed(random));
    if (HasFatalFailure()) FAIL() << "seed " << seed;
  }
  for (std::uint64_t seed = 7; seed < 7 + rounds(10); ++seed) {  // the first is dropped for its imbalance
    Random random(seed);
    compare(random, lopsided_stream(random));
    if (HasFatalFailure()) FAIL() << "lopsided, seed " << seed;
  }
  for (std::uint64_t seed = 0; seed < rounds_with_all_losses(10); ++seed) {  // cut where it may be amid a record
    Random random(seed);
    PackedStream stream = valid_packed(random);
    stream.bytes.resize(stream.bytes.size() * 2 / 3);
    compare(random, stream);
    if (HasFatalFailure()) FAIL() << "cut, seed " << seed;
  }
  expect_occurred({"lead", "cut", "no_time", "inactive_channel", "sync_channel", "sync_flag", "anchor_back",
                   "anchor_step", "gap", "imbalance"});
}

}  // namespace
