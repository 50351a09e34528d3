#include "simulate/expected_peak.hpp"

#include <gtest/gtest.h>

namespace {

constexpr double kSecondPs = 1e12;

Settings two_channels(double rate_hz) {
  Settings settings;
  settings.pairs = {.rate_hz = 0, .delay_ps = 0};
  for (unsigned c : {0U, 1U}) {
    settings.channels[c].active = true;
    settings.channels[c].rate_hz = rate_hz;
  }
  return settings;
}

TEST(ExpectedPeak, OfUnrelatedChannelsIsNone) {
  const ExpectedPeak expected = expected_peak(two_channels(10'000), 10 * kSecondPs, 40);
  EXPECT_EQ(expected.verdict, "none");
  EXPECT_EQ(expected.pairs, 0);
  EXPECT_NEAR(expected.background_per_ps, 1e-3, 1e-15);  // 1e4 1e4 10 s
  EXPECT_FALSE(expected.g2);
}

TEST(ExpectedPeak, OfPairsHasThoseWhoseBothClicksAreRecorded) {
  Settings settings = two_channels(9000);
  settings.channels[1].dark_hz = 1000;
  settings.pairs = {.rate_hz = 1000, .delay_ps = -2'000'000'000'000};
  const ExpectedPeak expected = expected_peak(settings, 10 * kSecondPs, 100);
  EXPECT_EQ(expected.verdict, "peak");
  EXPECT_NEAR(expected.pairs, 8000, 1e-9);
  EXPECT_NEAR(expected.share_a, 0.08, 1e-12);
  EXPECT_NEAR(expected.share_b, 8000.0 / 110'000, 1e-12);
  EXPECT_NEAR(expected.background_per_ps, 10'000.0 * 11'000 * 8 * 1e-12, 1e-15);
  EXPECT_NEAR(*expected.g2, 1 + 0.761 * 8000 / 235.48 / expected.background_per_ps, 30);
}

TEST(ExpectedPeak, OfPulsesIsAComb) {
  Settings settings = two_channels(0);
  settings.light = {.kind = Light::pulses, .pulse_period_ps = 10'000, .photons = 0.02};
  ExpectedPeak expected = expected_peak(settings, kSecondPs, 0);
  EXPECT_EQ(expected.verdict, "comb");
  EXPECT_EQ(*expected.period_ps, 10'000);
  EXPECT_NEAR(*expected.tooth_pairs, 1e8 * 0.01 * 0.01, 1e-6);
  EXPECT_NEAR(expected.background_per_ps, 0, 1e-15);
  EXPECT_NEAR(*expected.g2, 1, 1e-12);
  settings.pairs.rate_hz = 20'000;
  expected = expected_peak(settings, kSecondPs, 40);
  EXPECT_EQ(expected.verdict, "peak");
  EXPECT_NEAR(*expected.g2, 3, 1e-9);
}

TEST(ExpectedPeak, OfAnEmitterIsADip) {
  Settings settings = two_channels(0);
  settings.light = {.kind = Light::emitter, .pulse_period_ps = 10'000, .photons = 0.02};
  const ExpectedPeak pulsed = expected_peak(settings, kSecondPs, 0);
  EXPECT_EQ(pulsed.verdict, "dip");
  EXPECT_EQ(*pulsed.g2, 0);
  settings = two_channels(50'000);
  settings.light = {.kind = Light::emitter, .emission_rate_hz = 100'000, .lifetime_ps = 10'000};
  const ExpectedPeak continuous = expected_peak(settings, kSecondPs, 0);
  EXPECT_EQ(continuous.verdict, "dip");
  EXPECT_NEAR(*continuous.g2_at_zero, 0.75, 1e-12);  // half of the light on either channel is the emitter's
  EXPECT_NEAR(*continuous.g2, 1 - 0.25 * 0.72135, 1e-5);
  EXPECT_NEAR(*continuous.dip_decay_ps, 9990, 1);  // 1 / (1 / 10 ns + 1 / 9.99 us)
}

}  // namespace
