// Blocks of two channels go to the lists of a sink in a way of their own. Long quiet streams, in which now and then
// something ends a block, must give the same lists and leave the decoder in the same state as tag by tag.
#include "orvo/timing/detail/two_channel_lists.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "orvo/timing/channel_times.hpp"
#include "orvo/timing/offset_stream.hpp"
#include "orvo/timing/stream_decoder.hpp"
#include "orvo/timing/xcorr_stream.hpp"
#include "support/bytes.hpp"
#include "support/delta32_payload.hpp"
#include "support/random.hpp"
#include "support/stream_feeding.hpp"
#include "support/streams.hpp"

namespace {

using namespace orvo::test;
using orvo::timing::ChannelTimes;
using orvo::timing::StreamDecoder;
using orvo::timing::StreamFileHeader;
using orvo::timing::StreamFormat;
using orvo::timing::detail::ListSink;
using orvo::timing::detail::TwoChannelLists;
using orvo::timing::detail::TwoChannels;
using testing::ElementsAre;

static_assert(ListSink<ChannelTimes> && ListSink<orvo::timing::XcorrStream> && ListSink<orvo::timing::OffsetStream>);
static_assert(!ListSink<orvo::timing::TagList>);

TEST(TwoChannels, AreTheOneOfATagAndTheOneThatDiffersInABit) {
  const auto channels = [](unsigned channel, unsigned differing) {
    const TwoChannels two(channel, differing);
    return std::array<unsigned, 3>{two.first, two.second(), two.bit};
  };
  EXPECT_THAT(channels(0, 1), ElementsAre(0, 1, 0));
  EXPECT_THAT(channels(1, 1), ElementsAre(0, 1, 0));
  EXPECT_THAT(channels(3, 1), ElementsAre(2, 3, 0));
  EXPECT_THAT(channels(2, 2), ElementsAre(0, 2, 1));
  EXPECT_THAT(channels(1, 2), ElementsAre(1, 3, 1));
  EXPECT_THAT(channels(1, 0), ElementsAre(0, 1, 0));  // one channel alone
}

TEST(TwoChannelLists, EachTimeStaysInItsOwn) {
  std::array<std::int64_t, 5> one{};
  std::array<std::int64_t, 5> three{};
  std::array<std::int64_t*, 4> ends{nullptr, one.data(), nullptr, three.data()};
  {
    TwoChannelLists lists(ends, TwoChannels(3, 2));
    lists.add(1, 10);
    lists.add(0, 20);
    lists.add(1, 30);
    lists.add(1, 41, 42);
    lists.add(0, 51, 52);
  }
  EXPECT_EQ(ends[1] - one.data(), 2);
  EXPECT_EQ(ends[3] - three.data(), 3);
  EXPECT_THAT(std::span(one).first(2), ElementsAre(20, 51));
  EXPECT_THAT(std::span(three).first(3), ElementsAre(10, 30, 42));
}

/// Rounds, but no fewer than two for each set of channels.
std::uint64_t rounds_of_all_sets(std::uint64_t usual) { return std::max<std::uint64_t>(rounds(usual), 30); }

/// The channels of a set that is not empty, which are those that clicked.
std::vector<unsigned> channels_of(unsigned mask) {
  std::vector<unsigned> channels;
  for (unsigned c = 0; c < 4; ++c) {
    if ((mask >> c & 1) != 0) channels.push_back(c);
  }
  return channels;
}

unsigned one_of(Random& random, const std::vector<unsigned>& channels) {
  return channels[static_cast<std::size_t>(random.below(channels.size()))];
}

Bytes raw64_stream(Random& random, const std::vector<unsigned>& channels, bool coarse_fine) {
  const std::uint64_t period = coarse_fine ? std::uint64_t{1} << 32 : 14'315'125'997'568;
  std::uint64_t count = random.below(period);
  Bytes payload;
  for (int word = 0; word < 4000; ++word) {
    count = (count + random.below(period >> 16)) % period;
    const unsigned c = one_of(random, channels);
    std::uint64_t bits = coarse_fine ? cf_word(c, count, random.below(8192)) : ps_word(c, count);
    if (random.one_in(1500)) bits ^= std::uint64_t{1} << random.below(64);
    if (random.one_in(2000)) count = (count + period / 2) % period;
    payload += big_endian(bits, 8);
  }
  return payload;
}

Bytes delta32_stream(Random& random, const std::vector<unsigned>& channels) {
  Bytes payload;
  for (const unsigned c : channels) payload += d32_base(random.below(1'000'000)) + d32_event(c, 0);
  for (int word = 0; word < 4000; ++word) {
    if (random.one_in(800)) payload += d32_base(random.below(1'000'000'000'000));
    if (random.one_in(1500)) payload += random.bytes(1);  // costs the sync
    payload += random.one_in(500) ? d32_gap(one_of(random, channels), random.below(100'000'000))
                                  : d32_event(one_of(random, channels), random.below(1 << 25));
  }
  return payload;
}

void expect_same_state(const StreamDecoder& lists, const StreamDecoder& tags) {
  EXPECT_EQ(lists.raw64_prev, tags.raw64_prev);
  EXPECT_EQ(lists.raw64_prev_valid, tags.raw64_prev_valid);
  EXPECT_EQ(lists.raw64_epoch, tags.raw64_epoch);
  EXPECT_EQ(lists.d32_last_time, tags.d32_last_time);
  EXPECT_EQ(lists.d32_has_time, tags.d32_has_time);
  EXPECT_EQ(pending(lists), pending(tags));
}

/// Into lists and tag by tag, in the same pieces. Returns how many tags.
std::size_t compare(const StreamFileHeader& header, const Bytes& payload, Random& random) {
  StreamDecoder into_lists(header);
  StreamDecoder into_tags(header);
  ChannelTimes lists;
  Tags tags;
  for (std::size_t at = 0; at < payload.size();) {
    const std::size_t size = std::min<std::size_t>(payload.size() - at, 1 + random.below(20'000));
    const auto piece = std::span(payload).subspan(at, size);
    into_lists.feed(piece, lists);
    const Tags more = into_tags.feed(piece);
    tags.insert(tags.end(), more.begin(), more.end());
    expect_same_state(into_lists, into_tags);
    at += size;
  }
  std::array<std::vector<std::int64_t>, 4> expected;
  for (const auto& tag : tags) expected[tag.channel].push_back(tag.time_ps);
  for (std::size_t c = 0; c < 4; ++c) {
    EXPECT_TRUE(std::equal(lists[c].begin(), lists[c].end(), expected[c].begin(), expected[c].end())) << c;
  }
  return tags.size();
}

TEST(TwoChannelLists, HoldTheTagsOfRaw64OfAnyChannels) {
  Random random(41);
  for (unsigned round = 0; round < rounds_of_all_sets(120) && !HasFailure(); ++round) {
    SCOPED_TRACE(round);
    StreamFileHeader header;
    header.stream_format = StreamFormat::raw64;
    header.raw64_tag_format = round % 2 == 0 ? "ps" : "raw_cf";
    const auto channels = channels_of(1 + round / 2 % 15);
    EXPECT_GT(compare(header, raw64_stream(random, channels, round % 2 == 1), random), 3'000u);
  }
}

TEST(TwoChannelLists, HoldTheTagsOfDelta32OfAnyChannels) {
  Random random(42);
  std::size_t tags = 0;
  for (unsigned round = 0; round < rounds_of_all_sets(120) && !HasFailure(); ++round) {
    SCOPED_TRACE(round);
    StreamFileHeader header;
    header.stream_format = StreamFormat::delta32;
    tags += compare(header, delta32_stream(random, channels_of(1 + round % 15)), random);
  }
  EXPECT_GT(tags, 1000 * rounds_of_all_sets(120));
}

}  // namespace
