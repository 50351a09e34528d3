#include "simulate/coincidences.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <span>

#include "simulate/random.hpp"
#include "support/stream_feeding.hpp"

namespace {

using namespace orvo::test;

CoincidenceSums counted(const PairSettings& pairs, const Tags& tags, std::size_t block) {
  CoincidenceCounter counter(pairs);
  for (std::size_t at = 0; at < tags.size(); at += block) {
    counter.add(std::span(tags).subspan(at, std::min(block, tags.size() - at)));
  }
  counter.finish();
  return counter.sums();
}

/// The same by looking at every pair there is.
CoincidenceSums plain(const PairSettings& pairs, const Tags& tags) {
  CoincidenceSums sums;
  for (const auto& a : tags) {
    for (const auto& b : tags) {
      if (a.channel != pairs.channel_a || b.channel != pairs.channel_b) continue;
      const std::int64_t difference_ps = b.time_ps - a.time_ps - pairs.delay_ps;
      if (std::abs(difference_ps) > pairs.range_ps) continue;
      ++sums.count;
      sums.difference_ps += difference_ps;
      sums.square_ps2 += difference_ps * difference_ps;
    }
  }
  return sums;
}

Tags random_tags(Random& random, std::size_t count, std::uint64_t spread_ps) {
  Tags tags;
  for (std::size_t i = 0; i < count; ++i) {
    tags.push_back(tag(static_cast<unsigned>(random.below(4)), static_cast<std::int64_t>(random.below(spread_ps))));
  }
  std::sort(tags.begin(), tags.end(), [](const auto& a, const auto& b) { return a.time_ps < b.time_ps; });
  return tags;
}

TEST(Coincidences, IncludeBothEndsOfTheRange) {
  const PairSettings pairs{.channel_a = 2, .channel_b = 0, .delay_ps = 100, .range_ps = 10};
  const Tags tags{tag(2, 1000), tag(0, 1089), tag(0, 1090), tag(1, 1095), tag(0, 1103), tag(0, 1110), tag(0, 1111)};
  const CoincidenceSums sums = counted(pairs, tags, tags.size());
  EXPECT_EQ(sums.count, 3u);
  EXPECT_DOUBLE_EQ(sums.mean_ps(), 1.0);  // -10, 3, 10
  EXPECT_DOUBLE_EQ(sums.rms_ps(), std::sqrt(209.0 / 3 - 1.0));
}

TEST(Coincidences, WaitForAPartnerOfALaterBlockUpToTheWholeRange) {
  CoincidenceCounter counter({.channel_a = 0, .channel_b = 1, .delay_ps = 0, .range_ps = 10});
  for (const auto& one : Tags{tag(0, 1000), tag(1, 1010), tag(1, 1500), tag(0, 1510), tag(2, 9000)}) {
    counter.add(Tags{one});
  }
  counter.finish();
  EXPECT_EQ(counter.sums().count, 2u);
  EXPECT_TRUE(counter.sums().difference_ps == 0 && counter.sums().square_ps2 == 200);
}

TEST(Coincidences, OfNoneHaveNoMoments) {
  EXPECT_EQ(CoincidenceSums{}.mean_ps(), 0);
  EXPECT_EQ(CoincidenceSums{}.rms_ps(), 0);
}

TEST(Coincidences, AreThoseOfTheObviousCountForAnyBlocks) {
  Random random(1);
  for (const std::int64_t delay_ps : {0, 7, -7, 500, -500, 100'000}) {
    for (const std::int64_t range_ps : {1, 20, 3000}) {
      const PairSettings pairs{.channel_a = 1, .channel_b = 3, .delay_ps = delay_ps, .range_ps = range_ps};
      const Tags tags = random_tags(random, 300, 2000);
      const CoincidenceSums expected = plain(pairs, tags);
      for (const std::size_t block : {1u, 2u, 17u, 300u}) {
        const CoincidenceSums sums = counted(pairs, tags, block);
        ASSERT_EQ(sums.count, expected.count) << delay_ps << ' ' << range_ps << ' ' << block;
        ASSERT_TRUE(sums.difference_ps == expected.difference_ps && sums.square_ps2 == expected.square_ps2);
      }
    }
  }
}

TEST(Coincidences, DoNotPileUpBesideASilentChannel) {
  const PairSettings pairs{.channel_a = 0, .channel_b = 1, .range_ps = 1000};
  for (const unsigned clicking : {0u, 1u}) {
    CoincidenceCounter counter(pairs);
    for (std::int64_t time = 0; time < 100'000; ++time) {
      const Tags one{tag(clicking, time * 100)};
      counter.add(one);
      ASSERT_LE(counter.waiting(), 20u);
    }
  }
}

}  // namespace
