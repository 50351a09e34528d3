#include "simulate/event_source.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <vector>

namespace {

using orvo::timing::TimeTag;

constexpr std::int64_t kSecondPs = 1'000'000'000'000;

Settings quiet() {
  Settings settings;
  for (ChannelSettings& channel : settings.channels) channel.active = true;
  settings.pairs.rate_hz = 0;
  return settings;
}

std::vector<TimeTag> events(const Settings& settings, std::int64_t end_ps, std::size_t block = 1000) {
  EventSource source(settings, end_ps);
  std::vector<TimeTag> all;
  std::vector<TimeTag> events;
  do {
    source.fill(events, block);
    all.insert(all.end(), events.begin(), events.end());
  } while (events.size() == block);
  return all;
}

std::vector<std::int64_t> times(const std::vector<TimeTag>& events, unsigned channel) {
  std::vector<std::int64_t> times;
  for (const TimeTag& event : events) {
    if (event.channel == channel) times.push_back(event.time_ps);
  }
  return times;
}

bool in_order(const std::vector<TimeTag>& events) {
  return std::is_sorted(events.begin(), events.end(),
                        [](const TimeTag& a, const TimeTag& b) { return a.time_ps < b.time_ps; });
}

TEST(EventSource, GivesEachChannelItsRate) {
  Settings settings = quiet();
  const std::array<std::uint64_t, 4> rates{100'000, 0, 1'000, 300'000};
  for (unsigned c = 0; c < 4; ++c) settings.channels[c].rate_hz = static_cast<double>(rates[c]);
  const std::vector<TimeTag> all = events(settings, 2 * kSecondPs);
  for (unsigned c = 0; c < 4; ++c) {
    const double expected = 2.0 * static_cast<double>(rates[c]);
    EXPECT_NEAR(static_cast<double>(times(all, c).size()), expected, 5 * std::sqrt(expected)) << c;
  }
}

// Of a Poisson process: a gap longer than its mean has the probability 1 / e.
TEST(EventSource, SpreadsABackgroundEvenly) {
  Settings settings = quiet();
  settings.channels[2].rate_hz = 1'000'000;
  const std::vector<std::int64_t> clicks = times(events(settings, kSecondPs / 2), 2);
  std::size_t long_gaps = 0;
  for (std::size_t i = 1; i < clicks.size(); ++i) long_gaps += clicks[i] - clicks[i - 1] > 1'000'000;
  const auto gaps = static_cast<double>(clicks.size());
  EXPECT_NEAR(static_cast<double>(long_gaps) / gaps, std::exp(-1), 5 * std::sqrt(0.2325 / gaps));
  const auto first_half = std::lower_bound(clicks.begin(), clicks.end(), kSecondPs / 4) - clicks.begin();
  EXPECT_NEAR(static_cast<double>(first_half), gaps / 2, 5 * std::sqrt(gaps / 4));
}

TEST(EventSource, SendsPairsWithDelayAndJitter) {
  for (const std::int64_t delay_ps : {0, 160, -160, 50'000, -50'000}) {
    Settings settings = quiet();
    settings.pairs = {.channel_a = 3, .channel_b = 1, .rate_hz = 10'000, .delay_ps = delay_ps, .jitter_ps = 100};
    const std::vector<TimeTag> all = events(settings, 2 * kSecondPs);
    ASSERT_TRUE(in_order(all));
    const std::vector<std::int64_t> a = times(all, 3);
    const std::vector<std::int64_t> b = times(all, 1);
    ASSERT_EQ(a.size(), b.size()) << "none of this seed straddles an end";
    ASSERT_NEAR(static_cast<double>(a.size()), 20'000, 5 * std::sqrt(20'000.0));
    double sum = 0;
    double squares = 0;
    for (std::size_t i = 0; i < a.size(); ++i) {
      const auto jitter = static_cast<double>(b[i] - a[i] - delay_ps);
      sum += jitter;
      squares += jitter * jitter;
    }
    const auto pairs = static_cast<double>(a.size());
    EXPECT_NEAR(sum / pairs, 0, 5 * 100 / std::sqrt(pairs)) << delay_ps;
    EXPECT_NEAR(squares / pairs, 10'000, 5 * 10'000 * std::sqrt(2 / pairs)) << delay_ps;
  }
}

// With a delay of a thousand gaps: the rate is right from the start to the end.
TEST(EventSource, HasPairsUnderWayAtTheStart) {
  Settings settings = quiet();
  settings.start_ps = 5 * kSecondPs;
  settings.pairs = {.rate_hz = 1'000'000, .delay_ps = -1'000'000'000, .jitter_ps = 1'000'000};
  const std::vector<TimeTag> all = events(settings, settings.start_ps + 1'000'000'000);
  EXPECT_TRUE(in_order(all));
  for (unsigned c = 0; c < 2; ++c) {
    EXPECT_NEAR(static_cast<double>(times(all, c).size()), 1000, 5 * std::sqrt(1000.0)) << c;
  }
}

TEST(EventSource, StaysBetweenStartAndEnd) {
  Settings settings = quiet();
  settings.channels[0].rate_hz = 10'000'000;
  settings.start_ps = 1'000'000'000;
  settings.pairs = {.rate_hz = 10'000'000, .delay_ps = 300, .jitter_ps = 1000};
  const std::vector<TimeTag> all = events(settings, 2'000'000'000);
  ASSERT_FALSE(all.empty());
  EXPECT_TRUE(in_order(all));
  EXPECT_GE(all.front().time_ps, 1'000'000'000);
  EXPECT_LT(all.back().time_ps, 2'000'000'000);
}

TEST(EventSource, DoesNotDependOnTheBlocks) {
  Settings settings = quiet();
  settings.channels[1].rate_hz = 1'000'000;
  settings.pairs = {.rate_hz = 1'000'000, .delay_ps = 5'000'000, .jitter_ps = 100'000};
  const std::vector<TimeTag> all = events(settings, 10'000'000'000);
  EXPECT_EQ(events(settings, 10'000'000'000, 1), all);
  EXPECT_EQ(events(settings, 10'000'000'000, 4096), all);
  settings.seed = 2;
  EXPECT_NE(events(settings, 10'000'000'000), all);
}

// A jitter as long as the period: a photon of a later pulse may click before one of an earlier pulse.
TEST(EventSource, SendsPhotonsInOrderWhateverTheirJitterAndDelay) {
  Settings settings = quiet();
  settings.light = {.kind = Light::pulses, .pulse_period_ps = 1000, .pulse_jitter_ps = 1000, .photons = 1};
  for (const std::int64_t delay_ps : {-3000, 0, 3000}) {
    settings.pairs.delay_ps = delay_ps;
    const std::vector<TimeTag> all = events(settings, 10'000'000);
    EXPECT_TRUE(in_order(all)) << delay_ps;
    EXPECT_NEAR(static_cast<double>(all.size()), 10'000, 500) << delay_ps;
  }
}

TEST(EventSource, AnEventExactlyAtTheEndIsNone) {
  Settings background = quiet();
  background.channels[1].rate_hz = 10'000'000'000;
  Settings pairs = quiet();
  pairs.pairs = {.rate_hz = 10'000'000'000, .delay_ps = 300, .jitter_ps = 0};
  for (Settings settings : {background, pairs}) {
    settings.start_ps = 5'000;
    for (settings.seed = 1; settings.seed <= 2'000; ++settings.seed) {  // one in a hundred has an event there
      for (const TimeTag& event : events(settings, settings.start_ps + 1)) ASSERT_EQ(event.time_ps, 5'000);
    }
  }
}

TEST(EventSource, IsSilentWithoutRates) {
  EXPECT_EQ(events(quiet(), 1000 * kSecondPs), std::vector<TimeTag>{});
}

// Seeds are tried until one has such an event: about one in a hundred.
TEST(EventSource, AnEventExactlyAtTheStartIsOne) {
  const auto starts_with_an_event = [](Settings settings) {
    settings.start_ps = 5'000;
    for (settings.seed = 1; settings.seed <= 2'000; ++settings.seed) {
      const std::vector<TimeTag> all = events(settings, settings.start_ps + 1);
      if (!all.empty()) return all[0].time_ps == settings.start_ps;
    }
    return false;
  };
  Settings background = quiet();
  background.channels[1].rate_hz = 10'000'000'000;
  EXPECT_TRUE(starts_with_an_event(background));
  Settings pairs = quiet();
  pairs.pairs = {.rate_hz = 10'000'000'000, .delay_ps = 300, .jitter_ps = 0};
  EXPECT_TRUE(starts_with_an_event(pairs));
}

}  // namespace
