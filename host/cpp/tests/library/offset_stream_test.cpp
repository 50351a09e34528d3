#include "orvo/timing/offset_stream.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "reference/offset_estimate.hpp"
#include "support/failure.hpp"
#include "support/random.hpp"

namespace {

using namespace orvo::timing;
using orvo::test::Random;
using Times = std::vector<std::int64_t>;
using Tags = std::vector<TimeTag>;

Times times_of(const Tags& tags, unsigned channel) {
  Times times;
  for (const TimeTag& tag : tags) {
    if (tag.channel == channel) times.push_back(tag.time_ps);
  }
  return times;
}

std::int64_t whole_offset_ps(const Tags& tags, unsigned channel_a, unsigned channel_b) {
  return orvo::test::reference::offset_estimate_ps(times_of(tags, channel_a), times_of(tags, channel_b));
}

void take(OffsetStream& stream, const Tags& tags, std::size_t from, std::size_t count) {
  stream.begin_chunk(count);
  for (std::size_t i = from; i < std::min(from + count, tags.size()); ++i)
    stream.add(tags[i].channel, tags[i].time_ps);
  stream.end_chunk();
}

TEST(OffsetStream, OfPiecesIsThatOfTheWholeLists) {
  Random random(1);
  for (int round = 0; round < 60; ++round) {
    Tags tags;
    std::int64_t time_ps = 0;
    const std::uint64_t gap_ps = 1 + random.below(3000);
    const std::uint64_t a_in = 1 + random.below(10);  // one tag in so many is A's
    for (std::size_t count = random.below(60'000); tags.size() < count;) {
      time_ps += static_cast<std::int64_t>(random.below(gap_ps));
      const auto late_ps = static_cast<std::int64_t>(random.below(900));
      tags.push_back({static_cast<std::uint8_t>(random.below(a_in) == 0 ? 2 : 1), time_ps - late_ps});
    }
    OffsetStream stream(2, 1, times_of(tags, 2).size(), 1000);
    const std::size_t longest = 1 + random.below(20'000);
    for (std::size_t at = 0; at < tags.size(); at += longest) take(stream, tags, at, longest);
    stream.finish();
    ASSERT_EQ(stream.late_tags(), 0u);
    ASSERT_EQ(stream.tags(1) + stream.tags(2), tags.size());
    ASSERT_EQ(stream.offset_ps(), whole_offset_ps(tags, 2, 1)) << "round " << round;
  }
}

// Worked out by hand: 4 tags of A, their nearest tags of B at +7, +7, -3 and, after the last B, -100.
TEST(OffsetStream, LooksBothWaysAcrossPieces) {
  const Tags tags{{0, 1000}, {1, 1007}, {0, 2000}, {1, 2007}, {1, 2997}, {0, 3000}, {1, 3010}, {1, 3900}, {0, 4000}};
  for (std::size_t piece = 1; piece <= tags.size(); ++piece) {
    OffsetStream stream(0, 1, 4, 0);
    for (std::size_t at = 0; at < tags.size(); at += piece) take(stream, tags, at, piece);
    stream.finish();
    EXPECT_EQ(stream.offset_ps(), 7);  // the third of -100, -3, 7, 7
  }
}

TEST(OffsetStream, WithoutTagsOfAChannelIs0) {
  for (const unsigned channel : {0u, 1u, 2u}) {
    OffsetStream stream(0, 1, 1, 0);
    take(stream, Tags{{static_cast<std::uint8_t>(channel), 77}}, 0, 1);
    stream.finish();
    EXPECT_EQ(stream.offset_ps(), 0);
  }
}

// B is silent in the middle: the sample's tags wait for it, the others do not.
TEST(OffsetStream, HoldsLittleWhileAChannelIsSilent) {
  Tags tags{{1, 0}};
  for (std::int64_t i = 1; i <= 1'000'000; ++i) tags.push_back({0, 1000 * i});
  tags.push_back({1, 1'000'000'400});
  for (const auto& [a, b] : {std::pair(0u, 1u), std::pair(1u, 0u)}) {
    OffsetStream stream(a, b, times_of(tags, a).size(), 1'000'000);
    std::size_t most_waiting = 0;
    for (std::size_t at = 0; at < tags.size(); at += 10'000) {
      take(stream, tags, at, 10'000);
      most_waiting = std::max(most_waiting, stream.waiting());
    }
    stream.finish();
    EXPECT_EQ(stream.late_tags(), 0u);
    EXPECT_EQ(stream.offset_ps(), whole_offset_ps(tags, a, b));
    EXPECT_LT(most_waiting, XcorrStream::kSilentAfter + 30'000);
  }
}

TEST(OffsetStream, ReportsTagsThatComeTooLate) {
  OffsetStream stream(0, 1, 100'000, 10);
  Tags tags;
  for (std::int64_t i = 0; i < 50'000; ++i) tags.insert(tags.end(), {{0, 1000 * i}, {1, 1000 * i + 50}});
  take(stream, tags, 0, tags.size());
  take(stream, Tags{{0, 49'999'000 - 10}, {1, 49'999'050 - 10}}, 0, 2);
  EXPECT_EQ(stream.late_tags(), 0u);
  take(stream, Tags{{0, 49'999'000 - 11}, {1, 49'999'050 - 11}}, 0, 2);
  EXPECT_EQ(stream.late_tags(), 2u);
}

TEST(OffsetStream, IsCompleteAfter4000Differences) {
  OffsetStream stream(0, 1, 0, 0);
  Tags tags;
  for (std::int64_t i = 0; i < 20'000; ++i) tags.insert(tags.end(), {{0, 1000 * i}, {1, 1000 * i + 50}});
  EXPECT_FALSE(stream.is_complete());
  take(stream, tags, 0, tags.size());
  EXPECT_TRUE(stream.is_complete());
  EXPECT_EQ(stream.offset_ps(), 50);
}

TEST(OffsetStream, RejectsChannelsThatThereAreNot) {
  EXPECT_EQ(orvo::test::failure_of([] { OffsetStream(4, 1, 10); }), "OffsetStream: channels are 0 to 3 (code -1)");
  EXPECT_EQ(orvo::test::failure_of([] { OffsetStream(0, 9, 10); }), "OffsetStream: channels are 0 to 3 (code -1)");
}

}  // namespace
