// Candidates are looked at in a sample first, where a sample shows what the recording does.
#include "inspect/close_look.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <span>
#include <utility>
#include <vector>

#include "inspect/pair_search.hpp"
#include "inspect/window_counts.hpp"
#include "orvo/timing/chance_pairs.hpp"

namespace {

using orvo::timing::XcorrWindow;
using Times = std::vector<std::int64_t>;

DelayCandidates one_candidate(double chance, double folds) {
  DelayCandidates candidates;
  candidates.folds = folds;
  candidates.best.push_back({.delay_ps = 0, .width_ps = 1000, .chance_per_ps = chance / 1000, .probability = {-20}});
  return candidates;
}

TEST(AffordableSample, ShowsSevenSigmasOfHalfTheWeakestPeak) {
  // 4 sigmas of a bin folded 100 times: 4 sqrt(10^6 100) = 40,000 pairs on 10^6, 39.2 sigmas or 31.4 times 7^2.
  EXPECT_EQ(affordable_sample(one_candidate(1e6, 100)), 31U);
  // 4 sqrt(10^4 4) = 800 pairs on 10^4: 7.7 sigmas, which all tags are needed for.
  EXPECT_EQ(affordable_sample(one_candidate(1e4, 4)), 1U);
  // Not more than 49 pairs at least are left: 4 sqrt(10^-4 10^8) = 400.
  EXPECT_EQ(affordable_sample(one_candidate(1e-4, 1e8)), 8U);
  EXPECT_EQ(affordable_sample(one_candidate(1e8, 1e6)), 64U);
  EXPECT_EQ(affordable_sample({}), 64U);  // of nothing
}

/// Tags at random times, of which those from `first_pair_ps` on have partners after a delay.
struct Recording {
  Times a;
  Times b;
  std::vector<std::pair<std::uint64_t, std::size_t>> counted;  // one of how many tags, and windows

  Recording(std::size_t tags, std::int64_t length_ps, std::size_t pairs, std::int64_t delay_ps) {
    std::mt19937_64 random(1);
    std::uniform_int_distribution<std::int64_t> at(0, length_ps);
    std::normal_distribution<double> jitter(0, 100);
    for (std::size_t i = 0; i < tags; ++i) {
      a.push_back(at(random));
      b.push_back(i < pairs ? a.back() + delay_ps + std::llround(jitter(random)) : at(random));
    }
    std::sort(a.begin(), a.end());
    std::sort(b.begin(), b.end());
  }
  CountWindows counter() {
    return [this](std::span<const XcorrWindow> windows, std::uint64_t one_of) {
      counted.emplace_back(one_of, windows.size());
      const TimeSample sample(orvo::timing::extent_of(a), one_of);
      std::vector<orvo::timing::XcorrHistogram> histograms;
      for (const XcorrWindow& window : windows) histograms.push_back(count_sample(a, b, window, sample));
      return histograms;
    };
  }
};

/// 16 candidates of which one, if any, is a delay: as many pairs as make up 4 sigmas of the folded correlation.
DelayCandidates sixteen(const Recording& recording, std::int64_t length_ps, double folds) {
  DelayCandidates candidates;
  candidates.folds = folds;
  const auto tags = static_cast<double>(recording.a.size());
  for (int i = 0; i < 16; ++i) {
    candidates.best.push_back({.delay_ps = 1e7 * i,
                               .width_ps = 1e5,
                               .chance_per_ps = tags * tags / static_cast<double>(length_ps),
                               .probability = {-15}});
  }
  return candidates;
}

TEST(LookClosely, CountsAllTagsWhereASampleStandsOut) {
  constexpr std::int64_t kLength = 100'000'000'000;
  constexpr double kFolds = 100;
  // 300,000 tags on either channel: 90,000 pairs by chance in 100 ns, 4 sqrt(90,000 100) = 12,000 make up 4 sigmas.
  Recording recording(300'000, kLength, 12'000, 30'000'000);
  const DelayCandidates candidates = sixteen(recording, kLength, kFolds);
  const std::vector<NarrowWindow> windows = look_closely(candidates, {0, 100'000, 1024}, recording.counter(), {});
  ASSERT_EQ(recording.counted.size(), 2U);
  EXPECT_EQ(recording.counted[0],
            std::pair(std::uint64_t{28}, std::size_t{16}));  // 12,000^2 / (12,000 + 90,000) / 49
  EXPECT_EQ(recording.counted[1].first, 1U);
  EXPECT_LE(recording.counted[1].second, 2U);
  EXPECT_NEAR(windows[3].middle_ps, 30'000'000, 100);
  EXPECT_NEAR(windows[3].excess, 12'000, 1200);
}

TEST(LookClosely, LooksAtAllOfARecordingThatASampleDoesNotShow) {
  // All of A but its ends within a picosecond, which is in no stretch of the sample.
  Recording recording(300'000, 100'000'000'000, 0, 0);
  std::fill(recording.a.begin() + 1, recording.a.end() - 1, recording.a[150'000]);
  const DelayCandidates candidates = sixteen(recording, 100'000'000'000, 100);
  look_closely(candidates, {0, 100'000, 1024}, recording.counter(), {});
  ASSERT_EQ(recording.counted.size(), 2U);
  EXPECT_EQ(recording.counted[0].first, 28U);
  EXPECT_EQ(recording.counted[1], std::pair(std::uint64_t{1}, std::size_t{16}));
}

TEST(LookClosely, CountsWhatFoldedBinsAreCertainOfWhateverASampleShows) {
  // Unrelated light, of which a sample shows nothing anywhere.
  Recording recording(300'000, 100'000'000'000, 0, 0);
  DelayCandidates candidates = sixteen(recording, 100'000'000'000, 100);
  candidates.significant = 2;
  const std::vector<NarrowWindow> windows = look_closely(candidates, {0, 100'000, 1024}, recording.counter(), {});
  ASSERT_EQ(recording.counted.size(), 2U);
  EXPECT_EQ(recording.counted[1].first, 1U);
  EXPECT_LE(recording.counted[1].second, 4U);  // and perhaps one or two that stand out by chance
  EXPECT_NE(windows[0].bins, 0U);
  EXPECT_NE(windows[1].bins, 0U);
}

}  // namespace
