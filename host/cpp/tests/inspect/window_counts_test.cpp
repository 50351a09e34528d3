// Samples of a recording, and windows counted of them.
#include "inspect/window_counts.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <numeric>
#include <random>
#include <span>
#include <vector>

#include "inspect/time_sample.hpp"
#include "orvo/timing/chance_pairs.hpp"
#include "orvo/timing/xcorr_histogram.hpp"

namespace {

using orvo::timing::ChannelExtent;
using orvo::timing::XcorrWindow;
using Times = std::vector<std::int64_t>;

constexpr std::int64_t kFirst = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kLast = std::numeric_limits<std::int64_t>::max();

std::vector<TimeSample::Stretch> stretches(const TimeSample& sample) {
  std::vector<TimeSample::Stretch> all;
  for (auto next = sample.stretch_after(kFirst); next; next = sample.stretch_after(next->end_ps))
    all.push_back(*next);
  return all;
}

TEST(TimeSample, TakesOneStretchOfEachGroup) {
  // 2000 tags in 1,024,000 ps: 256 groups of four stretches of 1000 ps, and one picosecond more for the last tag.
  const std::vector<TimeSample::Stretch> all = stretches(TimeSample({0, 1'024'000, 2000}, 4));
  ASSERT_EQ(all.size(), 256U);
  std::array<int, 4> places{};
  for (std::size_t group = 0; group < all.size(); ++group) {
    const auto begin_ps = static_cast<std::int64_t>(all[group].begin_ps);
    EXPECT_EQ(all[group].end_ps - begin_ps, 1001);
    EXPECT_EQ(begin_ps / 4004, static_cast<std::int64_t>(group));
    EXPECT_EQ(begin_ps % 1001, 0);
    ++places[static_cast<std::size_t>(begin_ps % 4004 / 1001)];
  }
  for (const int groups : places) EXPECT_NEAR(groups, 64, 2);
}

TEST(TimeSample, GoesOnAfterAnyTime) {
  const TimeSample sample({5, 1'024'005, 2000}, 4);
  const std::vector<TimeSample::Stretch> all = stretches(sample);
  EXPECT_EQ(sample.stretch_after(all[7].end_ps - 1)->begin_ps, all[7].begin_ps);
  EXPECT_EQ(sample.stretch_after(all[7].end_ps)->begin_ps, all[8].begin_ps);
  EXPECT_EQ(sample.stretch_after(all[8].begin_ps)->begin_ps, all[8].begin_ps);
  EXPECT_FALSE(sample.stretch_after(all.back().end_ps));
  EXPECT_FALSE(sample.stretch_after(kLast));
}

TEST(TimeSample, HasAsManyGroupsAsGiveThemAFewThousandTags) {
  EXPECT_EQ(stretches(TimeSample({0, kLast, 1}, 2)).size(), 256U);
  EXPECT_EQ(stretches(TimeSample({0, kLast, 4096 * 500 * 8}, 8)).size(), 500U);
  EXPECT_EQ(stretches(TimeSample({kFirst, kLast, UINT64_MAX}, 64)).size(), 1024U);
}

TEST(TimeSample, OfOneIsEverything) {
  EXPECT_TRUE(TimeSample({0, 1000, 5}, 1).is_all());
  EXPECT_TRUE(TimeSample({}, 8).is_all());
  EXPECT_FALSE(TimeSample({0, 1000, 5}, 8).is_all());
}

TEST(CountSample, CountsTheTagsOfAThatLieInIt) {
  const Times a{0, 1000, 2000, 3000, 500'000};
  const Times b{10, 1020, 2030, 3040, 500'050};
  const XcorrWindow window{50, 10, 0};
  const TimeSample sample({0, 1'024'000, 2000}, 4);
  std::vector<std::int64_t> expected(11);
  for (std::size_t i = 0; i < a.size(); ++i) {
    for (const auto& stretch : stretches(sample))
      expected[6 + i] += a[i] >= stretch.begin_ps && a[i] < stretch.end_ps ? 1 : 0;
  }
  ASSERT_EQ(std::accumulate(expected.begin(), expected.begin() + 10, 0), 1);  // of the first group's four
  EXPECT_EQ(count_sample(a, b, window, sample).counts, expected);
  EXPECT_EQ(count_sample(a, b, window, TimeSample({}, 1)).counts,
            (std::vector<std::int64_t>{0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 1}));
}

/// Tags of three channels in an order that is not quite that of time.
struct Stream {
  std::vector<std::pair<unsigned, std::int64_t>> tags;
  std::array<Times, 3> times;

  Stream(std::mt19937_64& random, std::int64_t length_ps) {
    std::uniform_int_distribution<std::int64_t> at(-length_ps / 2, length_ps / 2);
    std::uniform_int_distribution<int> tags_of(1, 60'000);
    for (unsigned c = 0; c < times.size(); ++c) {
      for (int i = tags_of(random); i > 0; --i) times[c].push_back(at(random));
      std::sort(times[c].begin(), times[c].end());
    }
    std::uniform_int_distribution<std::int64_t> late(0, 50'000'000);
    std::vector<std::pair<std::int64_t, std::pair<unsigned, std::int64_t>>> order;
    for (unsigned c = 0; c < times.size(); ++c) {
      for (const std::int64_t time_ps : times[c]) order.push_back({time_ps + late(random), {c, time_ps}});
    }
    std::sort(order.begin(), order.end());
    for (const auto& [place, tag] : order) tags.push_back(tag);
  }
};

TEST(WindowCounts, AreThoseOfLists) {
  for (std::uint64_t seed = 1; seed <= 12; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937_64 random(seed);
    const Stream stream(random, std::int64_t{1} << (24 + random() % 24));
    WindowCounts counts;
    std::vector<orvo::timing::XcorrHistogram> expected;
    for (const std::uint64_t one_of : {1U, 2U, 7U, 64U}) {
      for (const auto& [a, b] : {std::pair{0U, 1U}, std::pair{2U, 0U}}) {
        const std::int64_t range_ps = std::int64_t{1} << (random() % 34);
        const XcorrWindow window{range_ps, range_ps / 500 + 1,
                                 static_cast<std::int64_t>(random() >> 27) - (1L << 36)};
        const TimeSample sample(orvo::timing::extent_of(stream.times[a]), one_of);
        counts.add_window(a, b, window, sample);
        expected.push_back(count_sample(stream.times[a], stream.times[b], window, sample));
      }
    }
    const std::size_t piece = 1 + random() % 30'000;
    for (std::size_t first = 0; first < stream.tags.size(); first += piece) {
      counts.begin_chunk(piece);
      for (std::size_t i = first; i < std::min(first + piece, stream.tags.size()); ++i)
        counts.add(stream.tags[i].first, stream.tags[i].second);
      counts.end_chunk();
    }
    counts.finish();
    EXPECT_EQ(counts.late_tags(), 0U);
    for (std::size_t i = 0; i < expected.size(); ++i) EXPECT_EQ(counts.take(i).counts, expected[i].counts) << i;
  }
}

TEST(WindowCounts, HoldFewTagsOfAStretchThatHasNearlyAll) {
  // 200,000 tags a microsecond apart, and one that makes the recording, and so each stretch, far longer.
  const TimeSample sample({0, 1'000'000'000'000'000'000, 200'001}, 4);
  const auto begin_ps = static_cast<std::int64_t>(stretches(sample).front().begin_ps);
  WindowCounts counts;
  counts.add_window(0, 1, {1000, 10, 0}, sample);
  constexpr std::int64_t kPiece = 5000;
  for (std::int64_t first = 0; first < 200'000; first += kPiece) {
    counts.begin_chunk(2 * kPiece);
    for (std::int64_t i = first; i < first + kPiece; ++i) {
      counts.add(0, begin_ps + i * 1'000'000);
      counts.add(1, begin_ps + i * 1'000'000 + 70);
    }
    counts.end_chunk();
    EXPECT_LE(counts.waiting(), 30'000U) << first;  // 16,384 until it counts, 200 within 100 us, and a piece
  }
  counts.finish();
  std::vector<std::int64_t> expected(201);
  expected[107] = 200'000;
  EXPECT_EQ(counts.take(0).counts, expected);
}

}  // namespace
