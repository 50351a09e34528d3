// Facts of channels, rates and distances against the slow way to find them.
#include "inspect/capture_facts.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <random>
#include <span>
#include <vector>

#include "inspect/interval_bins.hpp"
#include "orvo/timing/stream_file_header.hpp"
#include "orvo/timing/tag_sink.hpp"
#include "reference/capture_facts.hpp"

namespace {

using namespace orvo::test::reference;

static_assert(orvo::timing::TagSink<FactCollector>);

TEST(IntervalBins, StartAtTheSmallestNumberWhoseEighthPowerReachesThem) {
  for (std::size_t i = 0; i < kIntervalBins; ++i) {
    const std::uint64_t low = kIntervalBinLows[i];
    EXPECT_FALSE(less(power(low, 8), power(10, static_cast<unsigned>(i)))) << i;
    EXPECT_TRUE(low == 1 || less(power(low - 1, 8), power(10, static_cast<unsigned>(i)))) << i;
    EXPECT_EQ(interval_bin(low), i == 1 ? 2 : i);
    EXPECT_TRUE(low == 1 || interval_bin(low - 1) < i) << i;
    if (low > std::uint64_t{1} << 53) continue;
    EXPECT_EQ(short_interval_bin(low), interval_bin(low));
    EXPECT_TRUE(low == 1 || short_interval_bin(low - 1) == interval_bin(low - 1)) << i;
  }
  EXPECT_EQ(interval_bin(2), 2u);
  EXPECT_EQ(interval_bin(UINT64_MAX), 154u);
  for (std::uint64_t step = 1; step < 300; ++step) EXPECT_EQ(interval_bin(step), bin_of(step)) << step;
}

TEST(Multiples, AreWhatDivisionLeavesNothingOf) {
  std::mt19937_64 random(3);
  for (int i = 0; i < 20'000; ++i) {
    const std::uint64_t divisor = std::max<std::uint64_t>(random() >> random() % 64, 1);
    const std::uint64_t number = random() >> random() % 64;
    const Multiples multiples(divisor);
    ASSERT_EQ(multiples.contain(number), number % divisor == 0) << number << " of " << divisor;
    ASSERT_TRUE(multiples.contain(number / divisor * divisor)) << number << " of " << divisor;
    ASSERT_EQ(multiples.has_mask(), (divisor & (divisor - 1)) == 0);
    if (!multiples.has_mask()) continue;
    ASSERT_EQ(multiples.mask(), divisor - 1);
  }
}

/// Streams of every kind: in order or not, on a grid, with losses, with times of any size.
std::vector<SeenTag> stream(std::mt19937_64& random, bool hostile, std::uint64_t most_tags) {
  const auto below = [&](std::uint64_t n) { return random() % n; };
  std::vector<SeenTag> tags(below(most_tags));
  const std::uint64_t grid = below(3) == 0 ? std::uint64_t{1} << below(6) : below(3) == 0 ? 1 + below(30) : 1;
  const std::uint64_t channels = 1 + below(4);
  const std::uint64_t usual = std::uint64_t{1} << below(44);
  const std::uint64_t unusual_every = below(3) == 0 ? 20 : 1'000'000;
  std::uint64_t now = below(100);
  for (SeenTag& tag : tags) {
    now += below(usual);
    tag.channel = static_cast<unsigned>(below(channels));
    tag.time_ps = static_cast<std::int64_t>(now * grid);
    if (below(unusual_every) == 0) tag.time_ps -= static_cast<std::int64_t>(below(usual * grid * 4));
    if (hostile && below(30) == 0) tag.time_ps = static_cast<std::int64_t>(random());
  }
  return tags;
}

/// Feeds the tags; losses come where the list gets its marks.
void feed(FactCollector& collector, std::vector<SeenTag>& tags, std::mt19937_64& random) {
  const std::uint64_t loss_every = random() % 3 == 0 ? 50 : 1'000'000;
  bool lost[4] = {};
  collector.begin_chunk(tags.size());
  for (SeenTag& tag : tags) {
    if (random() % loss_every == 0) {
      collector.lost({orvo::timing::LossReason::foreign, 0, 1});
      std::fill(std::begin(lost), std::end(lost), true);
    }
    tag.loss_before = lost[tag.channel];
    lost[tag.channel] = false;
    collector.add(tag.channel, tag.time_ps);
  }
  collector.end_chunk();
  collector.finish();
}

void expect_same(const ChannelFacts& facts, const SlowChannel& slow) {
  ASSERT_EQ(facts.tags(), slow.tags);
  if (slow.tags == 0) return;
  EXPECT_EQ(facts.first_ps(), slow.first);
  EXPECT_EQ(facts.last_ps(), slow.last);
  EXPECT_EQ(facts.backward_steps(), slow.backward);
  EXPECT_EQ(facts.largest_backward_step_ps(), slow.largest_backward);
  EXPECT_EQ(facts.equal_times(), slow.equal);
  EXPECT_EQ(facts.shortest_ps(), slow.shortest);
  EXPECT_EQ(facts.longest_ps(), slow.longest);
  EXPECT_EQ(facts.longest_start_ps(), slow.longest_start);
  EXPECT_EQ(facts.grid_ps(), slow.grid);
  EXPECT_TRUE(std::equal(slow.intervals.begin(), slow.intervals.end(), facts.intervals().begin()));
  ASSERT_EQ(facts.ranked(), slow.ranked.size());
  const double sum = std::accumulate(slow.ranked.begin(), slow.ranked.end(), 0.0);
  EXPECT_NEAR(facts.ranked_sum_ps(), sum, 1e-12 * sum);
  ASSERT_EQ(facts.longest_ranked().size(), std::min<std::size_t>(33, slow.ranked.size()));
  for (std::size_t i = 0; i < facts.longest_ranked().size(); ++i) {
    EXPECT_EQ(facts.longest_ranked()[i].step_ps, slow.ranked[i]);
  }
}

void compare(std::uint64_t seed, bool hostile, std::uint64_t most_tags = 1'000) {
  std::mt19937_64 random(seed);
  std::vector<SeenTag> tags = stream(random, hostile, most_tags);
  FactCollector collector(orvo::timing::StreamFileHeader{}, 0);
  feed(collector, tags, random);
  for (unsigned c = 0; c < 4; ++c) expect_same(collector.facts().channels[c], slow_channel(tags, c));
  const SlowTrace slow = slow_trace(tags);
  const RateTrace& trace = collector.facts().trace;
  ASSERT_EQ(trace.size(), slow.counts[0].size());
  if (tags.empty()) return;
  ASSERT_EQ(trace.shift(), slow.shift);
  EXPECT_EQ(trace.start_ps() >> trace.shift(), slow.first_slice);
  for (unsigned c = 0; c < 4; ++c) EXPECT_EQ(trace.counts(c), slow.counts[c]);
}

TEST(CaptureFacts, AreThoseOfTheSlowWay) {
  for (std::uint64_t seed = 0; seed < 150; ++seed) {
    compare(seed, false);
    if (HasFailure()) FAIL() << "seed " << seed;
  }
}

TEST(CaptureFacts, AreThoseOfTheSlowWayForTimesOfAnySize) {
  for (std::uint64_t seed = 0; seed < 50; ++seed) {
    compare(seed, true);
    if (HasFailure()) FAIL() << "seed " << seed;
  }
}

// Longer ones, in which most blocks hold nothing special.
TEST(CaptureFacts, AreThoseOfTheSlowWayWhereTagsAreMany) {
  for (std::uint64_t seed = 0; seed < 40; ++seed) {
    compare(seed, false, 60'000);
    if (HasFailure()) FAIL() << "seed " << seed;
  }
}

// What a block says at once is what its tags say one after the other.
TEST(StreamOrder, OfBlocksIsThatOfSingleTags) {
  for (std::uint64_t seed = 0; seed < 40; ++seed) {
    std::mt19937_64 random(seed);
    std::vector<SeenTag> tags = stream(random, seed % 4 == 0, 30'000);
    for (SeenTag& tag : tags) {
      if (random() % 2'000 == 0) tag.time_ps -= 1'500'000'000;
    }
    FactCollector collector(orvo::timing::StreamFileHeader{}, 0);
    StreamOrder single(true);
    for (const SeenTag& tag : tags) {
      collector.add(tag.channel, tag.time_ps);
      const auto channel = static_cast<std::uint8_t>(tag.channel);
      single.add({&channel, 1}, {&tag.time_ps, 1});
    }
    collector.finish();
    const StreamOrder& order = collector.facts().order;
    ASSERT_EQ(order.jumps(), single.jumps()) << seed;
    for (unsigned c = 0; c < 4; ++c) {
      ASSERT_EQ(order.first_jump(c).has_value(), single.first_jump(c).has_value()) << seed;
      ASSERT_EQ(order.lost_lap(c).has_value(), single.lost_lap(c).has_value()) << seed;
      if (order.first_jump(c)) {
        EXPECT_EQ(order.first_jump(c)->time_ps, single.first_jump(c)->time_ps);
        EXPECT_EQ(order.first_jump(c)->back_ps, single.first_jump(c)->back_ps);
      }
      if (!order.lost_lap(c)) continue;
      EXPECT_EQ(order.lost_lap(c)->quiet_ps, single.lost_lap(c)->quiet_ps);
    }
  }
}

TEST(CaptureFacts, OfADiscardedChunkAreTakenBack) {
  orvo::timing::StreamFileHeader header;
  header.mode = orvo::timing::StreamMode::internal;
  FactCollector collector(header, 0);
  collector.begin_chunk(3);
  collector.add(0, 5);
  collector.add(0, 9);
  collector.end_chunk();
  collector.begin_chunk(1'000);
  for (int i = 0; i < 1'000; ++i) collector.add(1, 1'000 * i);
  collector.lost({orvo::timing::LossReason::no_time, 3, 19});
  collector.discard_chunk();
  collector.finish();
  EXPECT_EQ(collector.facts().tags(), 2u);
  EXPECT_EQ(collector.facts().trace.size(), 5u);
  EXPECT_TRUE(collector.facts().losses.largest().empty());
  EXPECT_EQ(collector.facts().order.jumps(), 0u);
}

TEST(CaptureFacts, StopAtTheWantedNumberOfTags) {
  FactCollector collector(orvo::timing::StreamFileHeader{}, 300);
  collector.begin_chunk(1'000);
  for (int i = 0; i < 1'000; ++i) {
    EXPECT_EQ(collector.is_full(), i >= 300);
    collector.add(0, i);
  }
  collector.end_chunk();
  collector.finish();
  EXPECT_EQ(collector.facts().tags(), 300u);
  EXPECT_EQ(collector.facts().last_ps(), 299);
}

TEST(LossRecords, KeepTheLargestAndWhereTheyAre) {
  using orvo::timing::LossReason;
  LossRecords records;
  for (std::uint64_t i = 0; i < 30; ++i) records.add({LossReason::foreign, 10'000 * i, 1 + i % 25});
  ASSERT_EQ(records.largest().size(), 20u);
  EXPECT_EQ(records.largest().front().size, 25u);
  EXPECT_EQ(records.largest().back().size, 6u);
  const auto& slices = records.slices();
  EXPECT_EQ(std::accumulate(slices.begin(), slices.end(), std::uint64_t{0}), 325u + 15);
  EXPECT_EQ(records.slice(), 512u);
  EXPECT_EQ(slices[10'000 / 512], 2u);
}

TEST(RepeatedPieces, AreFoundWhereverTheyStand) {
  std::mt19937_64 random(5);
  std::vector<std::uint64_t> steps(20'000);
  for (std::uint64_t& step : steps) step = random() % 1'000'000;
  const std::vector<std::uint8_t> channels(steps.size(), 1);
  RepeatedPieces once;
  once.add(channels, steps);
  EXPECT_EQ(once.found(), 0u);
  RepeatedPieces twice;
  twice.add(channels, steps);
  twice.add(std::span(channels).subspan(3'000, 5'000), std::span(steps).subspan(3'000, 5'000));
  EXPECT_GT(twice.found(), 5u);
  // In whatever parts the tags come.
  RepeatedPieces split;
  for (std::size_t at = 0; at < 25'000; at += 7) {
    std::vector<std::uint64_t> part;
    for (std::size_t i = at; i < std::min<std::size_t>(at + 7, 25'000); ++i) {
      part.push_back(steps[i < 20'000 ? i : i - 17'000]);
    }
    split.add(std::span(channels).first(part.size()), part);
  }
  EXPECT_EQ(split.found(), twice.found());
  EXPECT_EQ(split.tags(), twice.tags());
  // On another channel they are others.
  RepeatedPieces other;
  other.add(channels, steps);
  other.add(std::vector<std::uint8_t>(5'000, 2), std::span(steps).subspan(3'000, 5'000));
  EXPECT_EQ(other.found(), 0u);
  RepeatedPieces few_kinds;
  for (std::uint64_t& step : steps) step = 1'000'000 + random() % 10;
  few_kinds.add(channels, steps);
  few_kinds.add(channels, steps);
  EXPECT_EQ(few_kinds.found(), 0u);
  RepeatedPieces periodic;
  periodic.add(channels, std::vector<std::uint64_t>(20'000, 10'000'000));
  EXPECT_EQ(periodic.found(), 0u);
}

}  // namespace
