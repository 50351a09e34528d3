// Facts of channels, rates and distances against the slow way to find them.
#include "inspect/capture_facts.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <random>
#include <vector>

#include "orvo/timing/stream_file_header.hpp"
#include "orvo/timing/tag_sink.hpp"
#include "reference/capture_facts.hpp"
#include "support/random.hpp"

namespace {

using namespace orvo::test::reference;

static_assert(orvo::timing::TagSink<FactCollector>);

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
  for (std::uint64_t seed = 0; seed < orvo::test::rounds(150); ++seed) {
    compare(seed, false);
    if (HasFailure()) FAIL() << "seed " << seed;
  }
}

TEST(CaptureFacts, AreThoseOfTheSlowWayForTimesOfAnySize) {
  for (std::uint64_t seed = 0; seed < orvo::test::rounds(50); ++seed) {
    compare(seed, true);
    if (HasFailure()) FAIL() << "seed " << seed;
  }
}

// Longer ones, in which most blocks hold nothing special.
TEST(CaptureFacts, AreThoseOfTheSlowWayWhereTagsAreMany) {
  for (std::uint64_t seed = 0; seed < orvo::test::rounds(40); ++seed) {
    compare(seed, false, 60'000);
    if (HasFailure()) FAIL() << "seed " << seed;
  }
}

orvo::timing::StreamFileHeader raw64() {
  orvo::timing::StreamFileHeader header;
  header.stream_format = orvo::timing::StreamFormat::raw64;
  return header;
}

// What a block says at once is what its tags say one after the other.
TEST(StreamOrder, OfBlocksIsThatOfSingleTags) {
  for (std::uint64_t seed = 0; seed < orvo::test::rounds(40); ++seed) {
    std::mt19937_64 random(seed);
    std::vector<SeenTag> tags = stream(random, seed % 4 == 0, 30'000);
    for (SeenTag& tag : tags) {
      if (random() % 2'000 == 0) tag.time_ps -= 1'500'000'000;
      if (random() % 2'000 == 0) tag.time_ps += 1'500'000'000;
    }
    const std::uint64_t loss_every = seed % 2 == 0 ? 3 : 1'000'000;  // a loss ends a block
    FactCollector collector(raw64(), 0);
    StreamOrder single(true);
    for (const SeenTag& tag : tags) {
      if (random() % loss_every == 0) collector.lost({orvo::timing::LossReason::foreign, 0, 1});
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
        EXPECT_EQ(order.first_jump(c)->channel, single.first_jump(c)->channel);
      }
      if (!order.lost_lap(c)) continue;
      EXPECT_EQ(order.lost_lap(c)->quiet_ps, single.lost_lap(c)->quiet_ps);
    }
  }
}

// Channel 0 clicks each millisecond; channel 1 at the start, and again 8 s later, a device period of 14.3 s early.
TEST(StreamOrder, TellsHowLongAChannelWasQuiet) {
  constexpr std::int64_t kPeriod = 14'315'125'997'568;
  FactCollector collector(raw64(), 0);
  for (std::int64_t i = 0; i <= 8'000; ++i) {
    collector.add(0, kPeriod + i * 1'000'000'000);
    if (i == 0) collector.add(1, kPeriod + 500);
  }
  collector.add(1, 8'000'000'000'300);
  collector.finish();
  const auto& lap = collector.facts().order.lost_lap(1);
  ASSERT_TRUE(lap.has_value());
  EXPECT_EQ(lap->quiet_ps, 8'000'000'000'000u - 500);
  EXPECT_EQ(lap->jump.back_ps, 14'315'125'997'568u - 300);
  EXPECT_EQ(collector.facts().order.jumps(), 1u);
}

// The first tag of channel 1 is 12 ms before the tag before it. If that came half as far or more after the one
// before, it is out of place itself.
TEST(StreamOrder, ChannelsThatBeginEarlyMissALapUnlessTheOtherIsAhead) {
  const auto order = [](std::int64_t forward_ps) {
    StreamOrder found(false);
    const std::vector<std::uint8_t> channels = {0, 0, 1};
    const std::vector<std::int64_t> times = {12'000'000'000 - forward_ps, 12'000'000'000, 0};
    found.add(channels, times);
    return found;
  };
  EXPECT_FALSE(order(6'000'000'000).lost_lap(1).has_value());
  EXPECT_TRUE(order(6'000'000'000).first_jump(0).has_value());
  ASSERT_TRUE(order(5'999'999'999).lost_lap(1).has_value());
  EXPECT_EQ(order(5'999'999'999).lost_lap(1)->quiet_ps, 0u);
  EXPECT_TRUE(order(5'999'999'999).first_jump(1).has_value());
}

// A block may be a single tag: here the last one of channel 0, a millisecond after the one before.
TEST(StreamOrder, RemembersTheStepOfASingleTag) {
  const auto order = [](std::int64_t step_ps) {
    FactCollector collector(raw64(), 0);
    collector.add(0, 101'000'000'000 - step_ps);
    collector.lost({orvo::timing::LossReason::foreign, 0, 1});
    collector.add(0, 101'000'000'000);
    collector.lost({orvo::timing::LossReason::foreign, 0, 1});
    collector.add(1, 89'000'000'000);
    collector.finish();
    return collector.facts().order;
  };
  EXPECT_TRUE(order(1'000'000'000).lost_lap(1).has_value());
  EXPECT_FALSE(order(6'000'000'000).lost_lap(1).has_value());
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

// What was lost in a discarded chunk does not stand between the tags around it, and its tags are none of the wanted.
TEST(CaptureFacts, OfADiscardedChunkNothingStays) {
  orvo::timing::StreamFileHeader header;
  header.stream_format = orvo::timing::StreamFormat::packed_delta;
  header.mode = orvo::timing::StreamMode::internal;
  FactCollector collector(header, 3);
  collector.begin_chunk(2);
  collector.add(0, 5);
  collector.add(0, 9);
  collector.end_chunk();
  collector.begin_chunk(2);
  collector.add(0, 12);
  collector.lost({orvo::timing::LossReason::no_time, 3, 19});
  collector.discard_chunk();
  EXPECT_FALSE(collector.is_full());
  collector.begin_chunk(1);
  collector.add(0, 20);
  EXPECT_TRUE(collector.is_full());
  collector.end_chunk();
  collector.finish();
  EXPECT_EQ(collector.facts().tags(), 3u);
  EXPECT_EQ(collector.facts().channels[0].ranked(), 2u);
  EXPECT_EQ(collector.facts().channels[0].longest_ps(), 11u);
}

// A channel whose times are true again after a loss of sync: the step across is not one of its usual ones.
TEST(CaptureFacts, LeaveOutStepsToTimesThatAreTrueAgain) {
  FactCollector collector(orvo::timing::StreamFileHeader{}, 0);
  for (const std::int64_t time_ps : {10, 20, 30}) collector.add(0, time_ps);
  collector.true_again(1);
  collector.add(0, 40);
  collector.true_again(0);
  collector.add(0, 90);
  collector.add(0, 100);
  collector.finish();
  EXPECT_EQ(collector.facts().channels[0].steps(), 5u);
  EXPECT_EQ(collector.facts().channels[0].ranked(), 4u);
  EXPECT_EQ(collector.facts().channels[0].longest_ranked().front().step_ps, 10u);
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

}  // namespace
