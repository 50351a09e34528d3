// Rules of findings about rates, each on both sides of its threshold.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <set>
#include <string>

#include "support/inspect_thresholds.hpp"

namespace {

using namespace orvo::test;

class RateThresholds : public Thresholds {};

/// Tags of channel 0 and 1 in slices of 2^30 ps, evenly spaced in each: `counts(slice, channel)` of them.
template <class CountOf>
Tags in_slices(std::uint64_t slices, CountOf counts) {
  Tags tags;
  for (std::uint64_t i = 0; i < slices; ++i) {
    for (unsigned c = 0; c < 2; ++c) {
      const std::uint64_t count = counts(i, c);
      for (std::uint64_t j = 1; j <= count; ++j) tags.push_back({c, (i << 30) + j * ((1u << 30) / (count + 1)) + c});
    }
  }
  return merged(tags, {});
}

TEST_F(RateThresholds, Bunching) {
  Clicks clicks(7);
  const Tags random = clicks.at(0, 1e8, 0, 1e12);
  EXPECT_FALSE(finds("N bunched", random));
  Tags blinking;  // on and off, 2 ms each in the mean: 40 times as long as the distances while it is on
  for (double at = 0; at < 1e12;) {
    const double on = clicks.exponential(2e9);
    for (const MadeTag& tag : clicks.at(0, 5e7, at, at + on)) blinking.push_back(tag);
    at += on + clicks.exponential(2e9);
  }
  EXPECT_TRUE(finds("N bunched", blinking));
}

// 967 steps of 0.1 ms and 33 long ones, which get shorter by and by, so that none is a pause. ln of the chance of the
// longest, 2.48 or 2.49 ms, is -13.96 or -14.04.
TEST_F(RateThresholds, BunchingByTheLongestDistance) {
  const auto capture = [](std::uint64_t longest_ps) {
    Tags tags{{0, 0}};
    for (std::uint64_t i = 1; i <= 1'000; ++i) {
      const std::uint64_t rank = i % 30 == 0 && i <= 33 * 30 ? i / 30 : 0;
      std::uint64_t halvings = 0;
      while (rank >> (halvings + 1) != 0) ++halvings;
      const std::uint64_t step = rank == 0   ? 100'000'000
                                 : rank == 1 ? longest_ps
                                             : 2'000'000'000 - 400'000'000 * halvings;
      tags.push_back({0, tags.back().time_ps + step});
    }
    return tags;
  };
  EXPECT_FALSE(finds("N bunched", capture(2'480'000'000)));
  EXPECT_TRUE(finds("N bunched", capture(2'490'000'000)));
  EXPECT_FALSE(finds("S pause", capture(2'490'000'000)));
}

TEST_F(RateThresholds, Bursts) {
  // The rate is ten times as high, or one and a half times, for 10 ms; or so at more places, 0.6 s apart.
  const auto capture = [](double factor, int places) {
    Clicks clicks(11);
    Tags tags;
    double at = 0;
    for (int i = 0; i < places; ++i) {
      for (const MadeTag& tag : clicks.at(0, 2e7, at, at + 6e11)) tags.push_back(tag);
      for (const MadeTag& tag : clicks.at(0, 2e7 / factor, at + 6e11, at + 6.1e11)) tags.push_back(tag);
      at += 6.1e11;
    }
    for (const MadeTag& tag : clicks.at(0, 2e7, at, at + 4e11)) tags.push_back(tag);
    return tags;
  };
  EXPECT_TRUE(finds("S burst", capture(10, 1)));
  EXPECT_FALSE(finds("S burst", capture(1.5, 1)));
  EXPECT_TRUE(finds("S burst", capture(10, 8)));
  EXPECT_TRUE(finds("N burst", capture(10, 9)));
}

TEST_F(RateThresholds, RateSteps) {
  const auto capture = [](double factor, int places) {
    Clicks clicks(13);
    Tags tags;
    double at = 0;
    for (int i = 0; i <= places; ++i) {
      for (const MadeTag& tag : clicks.at(0, i % 2 == 0 ? 2e7 : 2e7 / factor, at, at + 2e11)) tags.push_back(tag);
      at += 2e11;
    }
    return tags;
  };
  EXPECT_TRUE(finds("S rate_step", capture(3, 1)));
  EXPECT_FALSE(finds("S rate_step", capture(1.7, 1)));
  EXPECT_TRUE(finds("S rate_step", capture(3, 8)));
  EXPECT_TRUE(finds("N rate_step", capture(3, 9)));
}

// The first slice is seldom whole: a burst needs two whole ones before it.
TEST_F(RateThresholds, BurstsInWholeSlices) {
  const auto capture = [](std::uint64_t place) {
    return in_slices(1'100, [place](std::uint64_t slice, unsigned channel) {
      return channel == 1 ? 0 : slice == place ? std::uint64_t{300} : std::uint64_t{100};
    });
  };
  EXPECT_FALSE(finds("S burst", capture(2)));
  EXPECT_TRUE(finds("S burst", capture(3)));
  EXPECT_TRUE(finds("S burst", capture(1'096)));
  EXPECT_FALSE(finds("S burst", capture(1'097)));
}

// A pause is told once: the slices without tags are no steps of the rate besides.
TEST_F(RateThresholds, PausesAreNoStepsOfTheRate) {
  write(in_slices(1'100,
                  [](std::uint64_t slice, unsigned channel) {
                    return channel == 1 || (slice >= 500 && slice < 540) ? std::uint64_t{0} : std::uint64_t{100};
                  }),
        1);
  EXPECT_EQ(codes(report(), "SB"), std::set<std::string>{"S pause"});
}

TEST_F(RateThresholds, SharedLimits) {
  // Two channels that take turns at a fixed pace, so that their sum does not vary; or independent ones.
  Tags turns;
  Clicks clicks(19);
  for (std::uint64_t i = 0; i < 60'000; ++i) {
    turns.push_back({clicks.exponential(1) < 0.693 ? 0u : 1u, i * 20'000'000 + i % 5});
  }
  EXPECT_TRUE(finds("N shared_limit", turns, 3));
  EXPECT_FALSE(finds("N shared_limit", merged(clicks.at(0, 4e7, 0, 1.2e12), clicks.at(1, 4e7, 0, 1.2e12)), 3));
}

// One channel swings by 30 from slice to slice, the other by y the other way: the variances are 900 and y^2, that of
// the sum (30 - y)^2. For y = 8 that is 484, of (900 + 64) / 2 = 482; for y = 9 it is 441, of 490.5.
TEST_F(RateThresholds, SharedLimitsByTheVariance) {
  const auto capture = [](std::uint64_t swing, std::uint64_t mean, std::uint64_t slices_of_1) {
    return in_slices(1'100, [&](std::uint64_t slice, unsigned channel) {
      const bool up = slice % 2 == channel;
      if (channel == 1 && slice >= slices_of_1) return std::uint64_t{0};
      return channel == 0 ? (up ? 90u : 30u) : (up ? mean + swing : mean - swing);
    });
  };
  EXPECT_FALSE(finds("N shared_limit", capture(8, 60, 1'100), 3));
  EXPECT_TRUE(finds("N shared_limit", capture(9, 60, 1'100), 3));
  // 256 whole slices, without the first and the last.
  EXPECT_TRUE(finds("N shared_limit", capture(9, 60, 258), 3));
  EXPECT_FALSE(finds("N shared_limit", capture(9, 60, 257), 3));
  // Ten tags a slice.
  Tags few = capture(9, 10, 1'100);
  EXPECT_TRUE(finds("N shared_limit", few, 3));
  few.erase(std::find_if(few.begin() + 1'000, few.end(), [](const MadeTag& tag) { return tag.channel == 1; }));
  EXPECT_FALSE(finds("N shared_limit", few, 3));
}

}  // namespace
