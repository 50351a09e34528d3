#include "inspect/pair_search.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "inspect/pair_report.hpp"
#include "orvo/timing/detail/coarse_fine_time.hpp"

namespace {

using orvo::timing::PairVerdict;
using Times = std::vector<std::int64_t>;

constexpr double kSecondPs = 1e12;

/// Four channels: 0 and 2 share pairs 0.1234 s apart, the others nothing.
struct Capture {
  std::array<Times, 4> times;

  Capture(int tags, int pairs, std::uint64_t seed) {
    std::mt19937_64 random(seed);
    std::uniform_real_distribution<double> time(0, 5 * kSecondPs);
    std::normal_distribution<double> jitter(0, 150);
    for (Times& channel : times) {
      for (int i = 0; i < tags; ++i) channel.push_back(std::llround(time(random)));
    }
    for (int i = 0; i < pairs; ++i) {
      const double at = time(random);
      times[0].push_back(std::llround(at));
      times[2].push_back(std::llround(at + 0.1234 * kSecondPs + jitter(random)));
    }
    for (Times& channel : times) std::sort(channel.begin(), channel.end());
  }
  ChannelLists lists() const { return {times[0], times[1], times[2], times[3]}; }
};

/// 2^16 bins: quick.
PairSearchSettings quick() {
  return {.reach_ps = whole_ps(kSecondPs), .bins = std::size_t{1} << 16};
}

/// Detections of a pulse every 12.5 ns on two channels, B 3 ns later, with one photon for both where `single`.
Capture pulses(bool single, std::uint64_t seed) {
  Capture capture(0, 0, seed);
  std::mt19937_64 random(seed);
  std::uniform_real_distribution<double> uniform(0, 1);
  std::normal_distribution<double> jitter(0, 200);
  for (int pulse = 0; pulse < 3'000'000; ++pulse) {
    const bool to_a = uniform(random) < 0.03;
    const bool to_b = uniform(random) < 0.03 && !(single && to_a);
    if (to_a) capture.times[1].push_back(std::llround(12'500.0 * pulse + jitter(random)));
    if (to_b) capture.times[3].push_back(std::llround(12'500.0 * pulse + 3000 + jitter(random)));
  }
  return capture;
}

TEST(PairSearch, FindsTheOnePairOfChannelsAndItsDelay) {
  const Capture capture(30'000, 3000, 1);
  for (const PairFinding& finding : find_in_lists(capture.lists(), six_pairs(), quick())) {
    const bool correlated = finding.channel_a == 0 && finding.channel_b == 2;
    EXPECT_EQ(verdict_of(finding), correlated ? PairVerdict::peak : PairVerdict::none);
    EXPECT_EQ(finding.statistics.judgement.significant, correlated);
    EXPECT_EQ(finding.delay_ps().has_value(), correlated);
    if (!correlated) continue;
    EXPECT_NEAR(finding.delay_ps()->value, 0.1234 * kSecondPs, 20);
    EXPECT_NEAR(finding.statistics.share_a->value, 3000.0 / 33'000, 0.002);
  }
}

TEST(PairSearch, OfPulsesIsACombWithoutADelay) {
  const Capture capture = pulses(false, 2);
  PairSearch search(capture.lists(), quick());
  const PairFinding finding = search.find(1, 3);
  EXPECT_EQ(verdict_of(finding), PairVerdict::comb);
  EXPECT_TRUE(finding.ambiguous);
  EXPECT_NEAR(*finding.period_ps, 12'500, 5);
  EXPECT_FALSE(finding.delay_ps());
}

TEST(PairSearch, OfSinglePhotonsIsADip) {
  const Capture capture = pulses(true, 3);
  PairSearch search(capture.lists(), quick());
  const PairFinding finding = search.find(1, 3);
  EXPECT_EQ(verdict_of(finding), PairVerdict::dip);
  ASSERT_TRUE(finding.delay_ps());
  EXPECT_NEAR(finding.delay_ps()->value, 3000, 30);
  EXPECT_LT(finding.statistics.judgement.peak->g2->g2, 0.01);
}

/// Unrelated tags, or pairs 3 us apart, on the grid of an instrument: multiples of 8 ps, or an interpolator's steps.
Capture on_a_grid(bool interpolated, int pairs, std::uint64_t seed) {
  Capture capture(0, 0, seed);
  std::mt19937_64 random(seed);
  std::uniform_real_distribution<double> time(0, 0.05 * kSecondPs);
  std::normal_distribution<double> jitter(0, 40);
  const auto add = [&](int channel, double at) {
    const std::int64_t time_ps = std::llround(std::max(at, 0.0));
    capture.times[static_cast<std::size_t>(channel)].push_back(
        interpolated ? orvo::timing::detail::CoarseFineTime::nearest(time_ps).time_ps() : time_ps / 8 * 8);
  };
  for (int i = 0; i < 250'000; ++i) {
    add(0, time(random));
    add(1, time(random));
  }
  for (int i = 0; i < pairs; ++i) {
    const double at = time(random);
    add(0, at);
    add(1, at + 3e6 + jitter(random));
  }
  for (Times& channel : capture.times) std::sort(channel.begin(), channel.end());
  return capture;
}

TEST(PairSearch, DoesNotTakeAnInstrumentsGridForAPattern) {
  for (const bool interpolated : {false, true}) {
    const Capture capture = on_a_grid(interpolated, 0, 6);
    for (const std::int64_t reach_ps : {std::int64_t{10'000'000}, std::int64_t{10'000'000'000}}) {
      PairSearch search(capture.lists(), {.reach_ps = reach_ps, .bins = std::size_t{1} << 16});
      EXPECT_EQ(verdict_of(search.find(0, 1)), PairVerdict::none) << interpolated << " " << reach_ps;
    }
  }
}

TEST(PairSearch, FindsTheDelayOnAGridWithinAnyReach) {
  for (const bool interpolated : {false, true}) {
    const Capture capture = on_a_grid(interpolated, 20'000, 7);
    for (const std::int64_t reach_ps : {4'000'000, 10'000'000, 1'000'000'000}) {
      PairSearch search(capture.lists(), {.reach_ps = reach_ps, .bins = std::size_t{1} << 16});
      const PairFinding finding = search.find(0, 1);
      ASSERT_TRUE(finding.delay_ps()) << interpolated << " " << reach_ps;
      EXPECT_NEAR(finding.delay_ps()->value, 3e6, 20);
    }
    PairSearch search(capture.lists(), {.reach_ps = 2'000'000, .bins = std::size_t{1} << 16});
    EXPECT_EQ(verdict_of(search.find(0, 1)), PairVerdict::none);
  }
}

TEST(PairSearch, ReachesHalfOfTheRecordingAndAsFarAsIsQuick) {
  const Capture capture(1000, 0, 4);
  EXPECT_NEAR(PairSearch(capture.lists(), {.reach_ps = whole_ps(9e18)}).reach_ps(), 2.5 * kSecondPs,
              0.01 * kSecondPs);
  EXPECT_EQ(PairSearch(capture.lists(), {.reach_ps = 0}).reach_ps(), 1);
  EXPECT_EQ(PairSearch(capture.lists(), {}).reach_ps(), kSecondPs);
  const Capture fast(100'000, 0, 4);  // 6e10 products of tags: bins of 0.26 ms
  EXPECT_NEAR(PairSearch(fast.lists(), {.reach_ps = {}, .bins = 512}).reach_ps(), 0.0667 * kSecondPs,
              0.002 * kSecondPs);
}

TEST(PairSearch, FindsADelayWithinReachBesideAStrongerOneBeyond) {
  // Bins of 500 ps, 65,536 of them, go as far as 16 us; 5 us are asked for.
  std::mt19937_64 random(3);
  std::uniform_real_distribution<double> time(0, kSecondPs);
  Capture capture(20'000, 0, 3);
  for (int i = 0; i < 4000; ++i) {
    const double at = time(random);
    capture.times[0].push_back(std::llround(at));
    capture.times[2].push_back(std::llround(at) + (i % 4 == 0 ? 3'000'000 : 12'000'000));
  }
  for (Times& channel : capture.times) std::sort(channel.begin(), channel.end());
  const PairSearchSettings near{.reach_ps = 5'000'000, .bins = std::size_t{1} << 16};
  const PairFinding finding = find_in_lists(capture.lists(), {{0, 2}}, near).front();
  ASSERT_TRUE(finding.delay_ps());
  EXPECT_NEAR(finding.delay_ps()->value, 3'000'000, 5);
}

TEST(PairSearch, OfEmptyChannelsOneTagOrEqualTimesIsNone) {
  const Times one{17};
  const Times equal(500, 17);
  const ChannelLists lists{std::span<const std::int64_t>(one), equal, equal, {}};
  const std::vector<PairFinding> findings = find_in_lists(lists, six_pairs(), quick());
  ASSERT_EQ(findings.size(), 6U);
  for (const PairFinding& finding : findings) {
    EXPECT_EQ(verdict_of(finding), PairVerdict::none);
    const std::string json = json_of_pair(finding, "a.tagcap").dump();
    EXPECT_EQ(json.find("nan"), json.npos);
    EXPECT_EQ(json.find("inf"), json.npos);
    EXPECT_THAT(json, testing::HasSubstr(R"("verify_command":null)"));
  }
}

TEST(PairReport, HasItsMembersInTheOrderOfTheSchema) {
  const Capture capture(20'000, 3000, 5);
  PairSearch search(capture.lists(), quick());
  const auto json = json_of_pair(search.find(0, 2), "a b.tagcap");
  std::vector<std::string> names;
  for (const auto& [name, value] : json.items()) names.push_back(name);
  EXPECT_THAT(names, testing::ElementsAre("channel_a", "channel_b", "verdict", "significant", "ambiguous", "cut",
                                          "delay_ps", "delay_error_ps", "sigmas", "log10_probability", "pairs",
                                          "pairs_error", "background_per_bin", "expected_background_per_bin",
                                          "g2_peak", "g2_peak_error", "g2_low", "g2_high", "fwhm_ps", "fwhm_error_ps",
                                          "share_a", "share_b", "period_ps", "bin_ps", "verify_command"));
  EXPECT_EQ(json["verdict"], "peak");
  EXPECT_EQ(json["period_ps"], nullptr);
  EXPECT_THAT(json["verify_command"].get<std::string>(),
              testing::StartsWith("vq_verify_stream_file_xcorr 'a b.tagcap' 0 2 --offset=123"));
}

TEST(PairReport, QuotesWhatAShellWouldNotTakeAsItIs) {
  EXPECT_EQ(shell_word("/data/run_07.tagcap"), "/data/run_07.tagcap");
  EXPECT_EQ(shell_word("a b"), "'a b'");
  EXPECT_EQ(shell_word("it's"), R"('it'\''s')");
  EXPECT_EQ(shell_word("$(x)"), "'$(x)'");
  EXPECT_EQ(shell_word(""), "''");
  EXPECT_EQ(shell_word("a\x1B[2J\n'\\"), R"($'a\033[2J\012\'\\')");
}

}  // namespace
