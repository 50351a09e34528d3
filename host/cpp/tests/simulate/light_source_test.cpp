#include "simulate/light_source.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <vector>

namespace {

constexpr std::int64_t kSecondPs = 1'000'000'000'000;

std::vector<std::int64_t> photons(const LightSettings& light, std::int64_t end_ps, std::uint64_t seed = 1) {
  std::vector<std::int64_t> times;
  for (LightSource source(light, seed, 0, -1000, end_ps); source.next_ps() != LightSource::kNever; source.advance())
    times.push_back(source.next_ps());
  return times;
}

TEST(LightSource, WithoutLightNeverGivesAPhoton) {
  EXPECT_EQ(LightSource().next_ps(), LightSource::kNever);
  EXPECT_TRUE(photons({}, kSecondPs).empty());
  EXPECT_TRUE(photons({.kind = Light::emitter, .emission_rate_hz = 0}, kSecondPs).empty());
  EXPECT_TRUE(photons({.kind = Light::pulses, .pulse_period_ps = 100, .photons = 0}, kSecondPs).empty());
}

TEST(LightSource, PulsesHaveAPoissonNumberOfPhotons) {
  const std::int64_t pulses = 20'000;
  const std::vector<std::int64_t> times =
      photons({.kind = Light::pulses, .pulse_period_ps = 1000, .photons = 1.5}, 1000 * pulses);
  std::vector<int> of_pulse(pulses);
  for (const std::int64_t time_ps : times) {
    ASSERT_EQ(time_ps % 1000, 0);
    if (time_ps >= 0) ++of_pulse[static_cast<std::size_t>(time_ps / 1000)];
  }
  std::vector<int> with(4);
  for (const int count : of_pulse) {
    if (count < 4) ++with[static_cast<std::size_t>(count)];
  }
  double probability = std::exp(-1.5);
  for (std::size_t count = 0; count < 4; ++count) {
    EXPECT_NEAR(with[count], probability * pulses, 4 * std::sqrt(probability * pulses)) << count;
    probability *= 1.5 / static_cast<double>(count + 1);
  }
}

TEST(LightSource, AnEmitterGivesOnePhotonOfAPulseAtTheMost) {
  const LightSettings emitter{.kind = Light::emitter, .pulse_period_ps = 1000, .photons = 1.5};
  const std::vector<std::int64_t> times = photons(emitter, 20'000'000);
  for (std::size_t i = 1; i < times.size(); ++i) ASSERT_GT(times[i], times[i - 1]);
  const double expected = (1 - std::exp(-1.5)) * 20'000;
  EXPECT_NEAR(static_cast<double>(times.size()), expected, 4 * std::sqrt(expected));
  EXPECT_NEAR(emitter.rate_hz(), (1 - std::exp(-1.5)) * 1e9, 1);
}

TEST(LightSource, ContinuousLightHasItsRateAndLifetime) {
  const LightSettings emitter{.kind = Light::emitter, .emission_rate_hz = 1'000'000, .lifetime_ps = 300'000};
  const std::vector<std::int64_t> times = photons(emitter, kSecondPs / 10);
  EXPECT_NEAR(static_cast<double>(times.size()), 100'000, 4 * std::sqrt(100'000.0));
  // Gaps of two exponential waits of 0.7 and 0.3 us: shorter than 0.1 us is only one in
  // 1 - (0.7 exp(-1 / 7) - 0.3 exp(-1 / 3)) / 0.4 = 2.0 % of them, not one in ten.
  double short_gaps = 0;
  for (std::size_t i = 1; i < times.size(); ++i) short_gaps += times[i] - times[i - 1] < 100'000;
  const double expected = 1 - (0.7 * std::exp(-1.0 / 7) - 0.3 * std::exp(-1.0 / 3)) / 0.4;
  EXPECT_NEAR(short_gaps / static_cast<double>(times.size()), expected, 0.002);
}

TEST(LightSource, DependsOnTheSeedAlone) {
  const LightSettings light{.kind = Light::pulses, .pulse_period_ps = 1000, .photons = 0.1};
  EXPECT_EQ(photons(light, 1'000'000, 5), photons(light, 1'000'000, 5));
  EXPECT_NE(photons(light, 1'000'000, 5), photons(light, 1'000'000, 6));
}

}  // namespace
