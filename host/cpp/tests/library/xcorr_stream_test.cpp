#include "orvo/timing/xcorr_stream.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <numeric>
#include <span>
#include <utility>
#include <vector>

#include "reference/histogram.hpp"
#include "support/as_reference.hpp"
#include "support/failure.hpp"
#include "support/random.hpp"

namespace {

using namespace orvo::timing;
using orvo::test::Random;
using testing::ElementsAre;
using Times = std::vector<std::int64_t>;
using Tags = std::vector<TimeTag>;

constexpr std::int64_t kReachPs = 1'000'000;

Times times_of(const Tags& tags, unsigned channel) {
  Times times;
  for (const TimeTag& tag : tags) {
    if (tag.channel == channel) times.push_back(tag.time_ps);
  }
  return times;
}

Times whole_counts(const Tags& tags, const XcorrPair& pair) {
  return orvo::test::reference::histogram(times_of(tags, pair.channel_a), times_of(tags, pair.channel_b),
                                          orvo::test::as_reference(pair.window))
      .counts;
}

/// Hands the tags over in pieces of up to `longest` tags, some of them empty.
void take_in_pieces(XcorrStream& stream, std::span<const TimeTag> tags, std::size_t longest, Random& random) {
  while (!tags.empty()) {
    const std::size_t size = std::min<std::size_t>(random.below(longest + 1), tags.size());
    stream.take(tags.first(size));
    tags = tags.subspan(size);
  }
}

/// A stream of `count` tags at a mean distance of `mean_gap_ps`, up to `disorder_ps` out of order.
Tags random_stream(Random& random, std::size_t count, std::uint64_t mean_gap_ps, std::uint64_t disorder_ps) {
  Tags tags;
  std::int64_t time_ps = static_cast<std::int64_t>(random.below(1'000'000)) - 500'000;
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint64_t kind = random.below(20);
    if (kind > 2) time_ps += static_cast<std::int64_t>(random.below(2 * mean_gap_ps + 1));
    if (kind == 2) time_ps += static_cast<std::int64_t>(random.below(30 * mean_gap_ps + 1));
    const auto late_ps = static_cast<std::int64_t>(random.below(disorder_ps + 1));
    tags.push_back({static_cast<std::uint8_t>(random.below(4)), time_ps - late_ps});
  }
  return tags;
}

TEST(XcorrStream, CountsAPairWhosePartnersComeInDifferentPieces) {
  XcorrStream stream({0, 1, {12, 8, 100}}, kReachPs);
  stream.take(Tags{{0, 1000}});
  stream.take({});
  stream.take(Tags{{1, 1103}});
  stream.finish();
  EXPECT_THAT(stream.histogram().bin_center_ps, ElementsAre(-8, 0, 8));
  EXPECT_THAT(stream.histogram().counts, ElementsAre(0, 1, 0));
  EXPECT_EQ(stream.late_tags(), 0u);
  EXPECT_EQ(stream.waiting(), 0u);
}

TEST(XcorrStream, WithoutTagsHasEmptyBins) {
  XcorrStream stream({2, 3, {8, 8, 0}});
  EXPECT_THAT(stream.histogram().counts, ElementsAre(0, 0, 0));
  stream.finish();
  EXPECT_THAT(stream.histogram().counts, ElementsAre(0, 0, 0));
}

TEST(XcorrStream, HasTheWholeListsCountsHoweverItIsCut) {
  Random random(1);
  for (int round = 0; round < 300; ++round) {
    const std::uint64_t gap_ps = 1 + random.below(1 + random.below(5000));
    const Tags tags = random_stream(random, random.below(4000), gap_ps, random.below(2) * random.below(2000));
    const auto range_ps = static_cast<std::int64_t>(1 + random.below(1 + random.below(40 * gap_ps)));
    const auto bin_ps = static_cast<std::int64_t>(1 + random.below(300));
    const auto offset_ps =
        static_cast<std::int64_t>(random.below(200 * gap_ps)) - 100 * static_cast<std::int64_t>(gap_ps);
    const XcorrPair pair{static_cast<unsigned>(random.below(4)),
                         static_cast<unsigned>(random.below(4)),
                         {range_ps, bin_ps, offset_ps}};
    XcorrStream stream(pair, 2000);
    take_in_pieces(stream, tags, 1 + random.below(3000), random);
    stream.finish();
    ASSERT_EQ(stream.late_tags(), 0u);
    ASSERT_EQ(stream.total(), tags.size());
    ASSERT_EQ(stream.histogram().counts, whole_counts(tags, pair)) << "round " << round;
  }
}

// Long enough that tags are counted and forgotten on the way.
TEST(XcorrStream, CountsAllSixPairsOfALongStreamAndHoldsLittle) {
  Random random(2);
  const Tags tags = random_stream(random, 300'000, 20'000, 900'000);
  std::vector<XcorrPair> pairs;
  for (unsigned a = 0; a < 4; ++a) {
    for (unsigned b = a + 1; b < 4; ++b) pairs.push_back({a, b, {50'000, 7, 300'000 * (std::int64_t{b} - 2 * a)}});
  }
  XcorrStream stream(pairs, kReachPs);
  std::size_t most_waiting = 0;
  for (std::span<const TimeTag> rest = tags; !rest.empty();) {
    const std::size_t size = std::min<std::size_t>(random.below(5000), rest.size());
    stream.take(rest.first(size));
    rest = rest.subspan(size);
    most_waiting = std::max(most_waiting, stream.waiting());
  }
  stream.finish();
  EXPECT_EQ(stream.late_tags(), 0u);
  EXPECT_LT(most_waiting, 25'000u);  // 16 384 that are not worth counting yet, a piece, and the tail
  for (std::size_t i = 0; i < pairs.size(); ++i) EXPECT_EQ(stream.histogram(i).counts, whole_counts(tags, pairs[i]));
}

TEST(XcorrStream, TellsTheCountsSoFar) {
  Random random(3);
  const Tags tags = random_stream(random, 60'000, 1000, 0);
  const XcorrPair pair{0, 1, {5000, 8, 0}};
  XcorrStream stream(pair, 0);
  std::int64_t before = 0;
  for (std::size_t at = 0; at < tags.size(); at += 500) {
    stream.take(std::span(tags).subspan(at, 500));
    const std::int64_t now = xcorr_moments(stream.histogram()).total;
    EXPECT_GE(now, before);
    before = now;
  }
  const Times counts = whole_counts(tags, pair);
  const std::int64_t all = std::accumulate(counts.begin(), counts.end(), std::int64_t{0});
  EXPECT_LT(before, all + 1);
  EXPECT_GT(before, all - 100);
  stream.finish();
  EXPECT_EQ(xcorr_moments(stream.histogram()).total, all);
}

TEST(XcorrStream, AChannelThatFallsSilentHoldsNothingBack) {
  Tags tags{{1, 5}, {0, 10}};
  for (std::int64_t i = 1; i <= 1'500'000; ++i) tags.push_back({0, 1000 * i});
  tags.push_back({1, 1'500'000'003});
  const XcorrPair pair{0, 1, {100, 1, 0}};
  XcorrStream stream(pair, kReachPs);
  std::size_t most_waiting = 0;
  for (std::size_t at = 0; at < tags.size(); at += 4096) {
    stream.take(std::span(tags).subspan(at, std::min<std::size_t>(4096, tags.size() - at)));
    most_waiting = std::max(most_waiting, stream.waiting());
  }
  stream.finish();
  EXPECT_EQ(stream.late_tags(), 0u);
  EXPECT_LT(most_waiting, XcorrStream::kSilentAfter + 20'000);
  EXPECT_EQ(stream.histogram().counts[100 - 5], 1);
  EXPECT_EQ(stream.histogram().counts[100 + 3], 1);
  EXPECT_EQ(xcorr_moments(stream.histogram()).total, 2);
}

TEST(XcorrStream, AChannelThatIsFarBehindInTheStreamIsStillCounted) {
  Tags tags;
  for (std::int64_t i = 0; i < 100'000; ++i) {
    tags.push_back({0, 1000 * i});
    tags.push_back({1, 1000 * i - 60'000'000 + 4});
  }
  for (const XcorrPair& pair : {XcorrPair{0, 1, {300, 3, 0}}, XcorrPair{1, 0, {300, 3, 0}}}) {
    XcorrStream stream(pair, kReachPs);
    for (std::size_t at = 0; at < tags.size(); at += 10'000) stream.take(std::span(tags).subspan(at, 10'000));
    EXPECT_GE(stream.waiting(), 60'000u);
    stream.finish();
    EXPECT_EQ(stream.late_tags(), 0u);
    EXPECT_EQ(stream.histogram().counts, whole_counts(tags, pair));
    EXPECT_EQ(xcorr_moments(stream.histogram()).total, 40'000);
  }
}

TEST(XcorrStream, ATagWithinReachIsCountedAndALaterOneIsReported) {
  // 20 000 pieces of two tags 1 ns apart; then tags of channel 1 that come late.
  const auto late_by = [](std::int64_t late_ps) {
    XcorrStream stream({0, 1, {10, 1, 0}}, kReachPs);
    for (std::int64_t i = 0; i < 20'000; ++i) stream.take(Tags{{0, 1000 * i}, {1, 1000 * i + 500}});
    stream.histogram();
    stream.take(Tags{{1, 19'999'500 - late_ps}});
    stream.finish();
    return std::pair(stream.late_tags(), xcorr_moments(stream.histogram()).total);
  };
  EXPECT_EQ(late_by(kReachPs - 500), std::pair(std::uint64_t{0}, std::int64_t{1}));
  EXPECT_EQ(late_by(kReachPs), std::pair(std::uint64_t{0}, std::int64_t{0}));
  // Tags of channel 0 have been counted that lie strictly before 18 999 000 ps, the reach before its latest one. That
  // one's window ends at 18 999 010 ps.
  EXPECT_EQ(late_by(kReachPs + 490), std::pair(std::uint64_t{0}, std::int64_t{1}));
  EXPECT_EQ(late_by(kReachPs + 491), std::pair(std::uint64_t{1}, std::int64_t{0}));
  EXPECT_EQ(late_by(kReachPs + 500), std::pair(std::uint64_t{1}, std::int64_t{0}));
}

TEST(XcorrStream, ALateTagOfAChannelThatIsInNoPairIsNone) {
  XcorrStream stream({0, 1, {10, 1, 0}}, 0);
  for (std::int64_t i = 0; i < 20'000; ++i) stream.take(Tags{{0, 1000 * i}, {1, 1000 * i}, {3, -1000 * i}});
  stream.finish();
  EXPECT_EQ(stream.late_tags(), 0u);
  EXPECT_EQ(stream.tags(3), 20'000u);
  EXPECT_EQ(stream.total(), 60'000u);
  EXPECT_EQ(stream.histogram().counts[10], 20'000);
}

TEST(XcorrStream, WithoutLateTagsIsExactForAnyStream) {
  Random random(4);
  const std::uint64_t streams = std::max<std::uint64_t>(orvo::test::rounds(200), 30);
  std::uint64_t exact = 0;
  for (std::uint64_t round = 0; round < streams; ++round) {
    Tags tags = random_stream(random, random.below(20'000), 100, random.below(20'000));
    const XcorrPair pair{0, 1, {200, 8, static_cast<std::int64_t>(random.below(4000)) - 2000}};
    XcorrStream stream(pair, 1000);
    for (std::size_t at = 0; at < tags.size();) {
      const std::size_t size = std::min<std::size_t>(1 + random.below(4000), tags.size() - at);
      stream.take(std::span(tags).subspan(at, size));
      if (random.below(4) == 0) stream.histogram();
      at += size;
    }
    stream.finish();
    if (stream.late_tags() != 0) continue;
    ++exact;
    ASSERT_EQ(stream.histogram().counts, whole_counts(tags, pair)) << "round " << round;
  }
  EXPECT_GT(exact, streams / 10);
  EXPECT_LT(exact, streams * 9 / 10);
}

TEST(XcorrStream, TakesTimesOffsetsAndRangesOfAllSizes) {
  const Tags tags{{0, INT64_MIN}, {1, INT64_MAX}, {0, -1}, {1, 0}, {0, INT64_MAX}, {1, INT64_MIN}};
  for (const std::int64_t offset_ps : {INT64_MIN, std::int64_t{-1}, std::int64_t{0}, INT64_MAX}) {
    for (const std::int64_t range_ps : {std::int64_t{1}, std::int64_t{1} << 40, INT64_MAX}) {
      const XcorrPair pair{0, 1, {range_ps, std::max<std::int64_t>(range_ps / 4, 1), offset_ps}};
      XcorrStream stream(pair, INT64_MAX);
      for (std::size_t i = 0; i < tags.size(); ++i) stream.take(std::span(tags).subspan(i, 1));
      stream.finish();
      EXPECT_EQ(stream.late_tags(), 0u);
      EXPECT_EQ(stream.histogram().counts, whole_counts(tags, pair)) << offset_ps << " " << range_ps;
    }
  }
}

TEST(XcorrStream, AfterTheEndEveryTagIsLate) {
  XcorrStream stream({0, 1, {10, 1, 0}});
  stream.finish();
  stream.take(Tags{{0, INT64_MAX}, {1, INT64_MAX}});
  EXPECT_EQ(stream.late_tags(), 2u);
}

TEST(XcorrStream, WithoutRangeOrBinsNothingCountsAndNothingWaits) {
  for (const XcorrWindow& window : {XcorrWindow{0, 8, 0}, XcorrWindow{8, 0, 0}, XcorrWindow{-1, -1, 5}}) {
    XcorrStream stream({0, 1, window});
    stream.take(Tags{{0, 1}, {1, 1}});
    EXPECT_EQ(stream.waiting(), 0u);
    stream.finish();
    EXPECT_THAT(stream.histogram().counts, ElementsAre(0));
    EXPECT_THAT(stream.histogram().bin_center_ps, ElementsAre(0));
  }
}

TEST(XcorrStream, DiscardedPiecesWereNeverThere) {
  XcorrStream stream({0, 1, {10, 1, 0}});
  stream.begin_chunk(2);
  stream.add(0, 5);
  stream.add(1, 5);
  stream.discard_chunk();
  stream.take(Tags{{0, 7}, {1, 8}});
  stream.finish();
  EXPECT_EQ(stream.total(), 2u);
  EXPECT_EQ(stream.histogram().counts[11], 1);
  EXPECT_EQ(xcorr_moments(stream.histogram()).total, 1);
}

TEST(XcorrStream, CanBeMovedWhileItCounts) {
  XcorrStream first({0, 1, {10, 1, 0}});
  first.take(Tags{{0, 7}});
  XcorrStream second(std::move(first));
  second.take(Tags{{1, 8}});
  second.finish();
  EXPECT_EQ(second.histogram().counts[11], 1);
}

TEST(XcorrStream, RejectsChannelsThatThereAreNot) {
  EXPECT_EQ(orvo::test::failure_of([] {
              XcorrStream({4, 1, {10, 1, 0}});
            }),
            "XcorrStream: channels are 0 to 3 (code -1)");
  EXPECT_EQ(orvo::test::failure_of([] {
              XcorrStream({0, 4, {10, 1, 0}});
            }),
            "XcorrStream: channels are 0 to 3 (code -1)");
}

}  // namespace
