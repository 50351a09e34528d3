#include "orvo/timing/chance_pairs.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <numeric>
#include <random>
#include <vector>

#include "orvo/timing/xcorr_histogram.hpp"

namespace {

using orvo::timing::bin_middles_ps;
using orvo::timing::chance_pairs;
using orvo::timing::ChannelExtent;
using orvo::timing::common_time_ps;
using orvo::timing::PairRecording;
using orvo::timing::recording_of;
using orvo::timing::XcorrWindow;
using testing::ElementsAre;

/// How many whole delays each bin of a window holds.
std::vector<std::int64_t> delays_per_bin(const XcorrWindow& window) {
  std::vector<std::int64_t> delays;
  for (std::size_t bin = 0; bin < bin_middles_ps(window).size(); ++bin) {
    const auto span = orvo::timing::detail::bin_span(window, bin);
    delays.push_back(static_cast<std::int64_t>(span.last - span.first + 1));
  }
  return delays;
}

TEST(ChancePairs, BinsHoldTheDelaysThatTheHistogramCounts) {
  EXPECT_THAT(delays_per_bin({12, 8, 0}), ElementsAre(8, 7, 8));
  EXPECT_THAT(delays_per_bin({10, 8, 0}), ElementsAre(7, 7, 7));
  EXPECT_THAT(delays_per_bin({4, 2, 0}), ElementsAre(2, 2, 1, 2, 2));
  EXPECT_THAT(delays_per_bin({100, 33, 0}), ElementsAre(18, 33, 33, 33, 33, 33, 18));
  const std::vector<std::int64_t> usual = delays_per_bin({5000, 8, 0});
  ASSERT_EQ(usual.size(), 1251U);
  EXPECT_EQ(usual.front(), 5);
  EXPECT_EQ(usual.back(), 5);
  EXPECT_EQ(usual[625], 7);
  EXPECT_EQ(std::accumulate(usual.begin(), usual.end(), std::int64_t{0}), 10'001);
}

TEST(ChancePairs, ALoneTagBesideOneOfEveryTimeFillsTheBinsLikeThat) {
  for (const XcorrWindow window :
       {XcorrWindow{12, 8, 0}, {10, 8, 0}, {4, 2, 0}, {100, 33, 0}, {1, 1, 0}, {7, 100, 0}, {1, 2, 0}}) {
    std::vector<std::int64_t> every(301);
    std::iota(every.begin(), every.end(), -150);
    EXPECT_EQ(orvo::timing::xcorr_histogram({0}, every, window.range_ps, window.bin_ps, 0).counts,
              delays_per_bin(window));
  }
}

TEST(ChancePairs, MiddlesLieBetweenTheLeastAndTheGreatestDelay) {
  EXPECT_THAT(bin_middles_ps({12, 8, 0}), ElementsAre(-7.5, 0, 7.5));
  EXPECT_THAT(bin_middles_ps({10, 8, 0}), ElementsAre(-7, 0, 7));
  EXPECT_THAT(bin_middles_ps({4, 2, 0}), ElementsAre(-3.5, -1.5, 0, 1.5, 3.5));
  EXPECT_THAT(bin_middles_ps({0, 2, 0}), ElementsAre(0));
}

TEST(ChancePairs, AreTheProductOfRatesAndCommonTime) {
  EXPECT_NEAR(chance_pairs({{0, 100, 10}, {0, 100, 10}}, {4, 9, 0})[0], 8.8, 1e-12);
  const std::vector<double> far = chance_pairs({{0, 1e6, 30}, {0, 1e6, 50}}, {200'000, 10'000, 100'000});
  ASSERT_EQ(far.size(), 41U);
  EXPECT_NEAR(far[20], 13.498650, 5e-7);
  EXPECT_NEAR(far[0], 6.770104, 5e-7);
}

TEST(ChancePairs, RiseAndFallWhereChannelsWereRecordedAtDifferentTimes) {
  const PairRecording recording{{0, 1000, 10}, {400, 900, 10}};
  EXPECT_NEAR(chance_pairs(recording, {2, 5, 0})[0], 0.5, 1e-12);
  EXPECT_NEAR(chance_pairs(recording, {2, 5, 450})[0], 0.45, 1e-12);
  EXPECT_NEAR(chance_pairs(recording, {2, 5, 900})[0], 0.0006, 1e-12);
  EXPECT_EQ(chance_pairs(recording, {2, 5, 903})[0], 0);
}

TEST(ChancePairs, SumsAreThoseOfEverySingleDelay) {
  std::mt19937 random(1);
  const auto draw = [&](int below) { return static_cast<double>(random() % static_cast<unsigned>(below)); };
  for (int run = 0; run < 200; ++run) {
    PairRecording recording{{draw(400) - 200, 0, 7}, {draw(400) - 200, 0, 5}};
    recording.a.end_ps = recording.a.begin_ps + 1 + draw(500) + 0.25;
    recording.b.end_ps = recording.b.begin_ps + 1 + draw(500) + 0.5;
    const auto offset_ps = static_cast<std::int64_t>(draw(800)) - 400;
    const XcorrWindow window{1 + static_cast<std::int64_t>(draw(300)), 1 + static_cast<std::int64_t>(draw(90)),
                             offset_ps};
    const std::vector<double> expected = chance_pairs(recording, window);
    for (std::size_t bin = 0; bin < expected.size(); ++bin) {
      const auto span = orvo::timing::detail::bin_span(window, bin);
      double sum = 0;
      for (auto d = static_cast<std::int64_t>(span.first); d <= static_cast<std::int64_t>(span.last); ++d)
        sum += common_time_ps(recording, static_cast<double>(d + offset_ps));
      // The function has corners between whole delays, the sum only lines: up to a picosecond at each of four.
      EXPECT_NEAR(expected[bin], sum * 35 / recording.a.length_ps() / recording.b.length_ps(),
                  1e-9 + 35 / recording.a.length_ps() / recording.b.length_ps());
    }
  }
}

TEST(ChancePairs, OfEmptyOrInvalidInputAreNone) {
  EXPECT_THAT(chance_pairs({{0, 100, 0}, {0, 100, 10}}, {4, 9, 0}), ElementsAre(0));
  EXPECT_THAT(chance_pairs({{0, 0, 10}, {0, 100, 10}}, {4, 9, 0}), ElementsAre(0));
  EXPECT_THAT(chance_pairs({{0, 100, 10}, {0, 100, 10}}, {0, 9, 0}), ElementsAre(0));
}

TEST(ChancePairs, StayFiniteAtTheEndsOfTheRange) {
  constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
  constexpr std::int64_t kLeast = std::numeric_limits<std::int64_t>::min();
  for (const std::int64_t offset_ps : {kLeast, std::int64_t{0}, kMost}) {
    const std::vector<std::int64_t> ends{kLeast, kMost};
    const XcorrWindow window{kMost, kMost / 3, offset_ps};
    for (const double pairs : chance_pairs(recording_of(ends, ends), window)) EXPECT_TRUE(std::isfinite(pairs));
  }
}

TEST(RecordingOf, TagsReachesOneMeanGapBeyondThem) {
  const std::vector<std::int64_t> a{100, 200, 300, 400, 1000};
  const std::vector<std::int64_t> b{150, 250, 350, 450};
  const PairRecording recording = recording_of(a, b);
  EXPECT_NEAR(recording.a.begin_ps + 100, -28.571429, 5e-7);  // 900 / 7 before the first of nine tags
  EXPECT_NEAR(recording.b.end_ps + 100, 1128.571429, 5e-7);
  EXPECT_EQ(recording.a.tags, 5);
  EXPECT_EQ(recording.b.tags, 4);
}

TEST(RecordingOf, FewOrEqualTagsLastsAtLeastAPicosecond) {
  const std::vector<std::int64_t> none;
  const std::vector<std::int64_t> one{7};
  const std::vector<std::int64_t> equal(50, 7);
  EXPECT_EQ(recording_of(none, none).a.length_ps(), 1);
  EXPECT_EQ(recording_of(one, none).a.length_ps(), 1);
  EXPECT_EQ(recording_of(equal, equal).b.length_ps(), 1);
}

TEST(RecordingOf, AChannelThatStartsLateStartsAMeanGapBeforeItsFirstTag) {
  std::vector<std::int64_t> a(1001);
  std::vector<std::int64_t> b(101);
  for (std::size_t i = 0; i < a.size(); ++i) a[i] = static_cast<std::int64_t>(10 * i);
  for (std::size_t i = 0; i < b.size(); ++i) b[i] = 5000 + static_cast<std::int64_t>(20 * i);
  const PairRecording recording = recording_of(a, b);
  EXPECT_DOUBLE_EQ(recording.b.begin_ps, 4980);
  EXPECT_DOUBLE_EQ(recording.b.end_ps, 7020);
  EXPECT_NEAR(recording.a.end_ps, 10'000 + 10'000.0 / 1100, 1e-9);
  const std::vector<std::int64_t> few(b.begin(), b.begin() + 19);  // too few to judge
  EXPECT_LT(recording_of(a, few).b.begin_ps, 0);
}

TEST(ChannelExtent, TellsOfTagsInAnyOrderWhatTheirSortedListTells) {
  const std::vector<std::int64_t> a{-5'000, 0, 40'000, 100'000};
  const std::vector<std::int64_t> b{7'000, 60'000};
  ChannelExtent of_a;
  for (const std::int64_t time_ps : {40'000, -5'000, 100'000, 0}) of_a.add(time_ps);
  ChannelExtent of_b;
  for (const std::int64_t time_ps : {60'000, 7'000}) of_b.add(time_ps);
  EXPECT_EQ(of_a.first_ps, -5'000);
  EXPECT_EQ(of_a.last_ps, 100'000);
  EXPECT_EQ(of_a.tags, 4u);
  const PairRecording recording = recording_of(of_a, of_b);
  EXPECT_EQ(recording.a.begin_ps, -105'000.0 / 4);
  EXPECT_EQ(recording.b.end_ps, 105'000 + 105'000.0 / 4);
  EXPECT_EQ(recording.b.tags, 2);
  EXPECT_EQ(recording_of(a, b).b.end_ps, recording.b.end_ps);
}

}  // namespace
