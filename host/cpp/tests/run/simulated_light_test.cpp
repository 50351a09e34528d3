// What the simulator's answer expects of a peak, a dip or a comb is what the statistics of the capture find.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "orvo/timing/pair_statistics.hpp"
#include "orvo/timing/stream_file_reader.hpp"
#include "support/simulated_capture.hpp"

namespace {

using namespace orvo::test;
using orvo::timing::Estimate;
using orvo::timing::PairStatistics;
using orvo::timing::PairVerdict;

class SimulatedLight : public SimulatedCapture {
 protected:
  /// Channels 0 and 1 of the capture about the answer's delay.
  PairStatistics statistics(const Told& answer, std::int64_t range_ps, std::int64_t bin_ps) {
    orvo::timing::StreamFileReader reader;
    reader.open((cwd() / "c.tagcap").string());
    std::array<std::vector<std::int64_t>, 4> times;
    for (auto tags = reader.decode_next_tags(65'536, 1 << 20); !tags.empty();
         tags = reader.decode_next_tags(65'536, 1 << 20)) {
      for (const orvo::timing::TimeTag& tag : tags) times[tag.channel].push_back(tag.time_ps);
    }
    return orvo::timing::pair_statistics(times[0], times[1], {range_ps, bin_ps, answer.number("offset_ps")});
  }

  static void expect_near(const Estimate& found, double expected) {
    EXPECT_NEAR(found.value, expected, 5 * found.error + 0.01 * std::abs(expected));
  }
  static void expect_background(const PairStatistics& found, const Told& answer) {
    const auto& [background, bins] = std::pair(found.judgement.background, found.bins);
    const double per_ps = bins.expected[bins.size() / 2] / bins.bin_ps;
    expect_near({background.level * per_ps, background.error * per_ps}, answer.decimal("expected_background_per_ps"));
  }
};

TEST_F(SimulatedLight, OfPairsIsAPeak) {
  const Told answer =
      simulate({"--rate=40000", "--dark-rate=10000.5", "--pair-rate=5000.25", "--jitter=60", "--duration=4s"});
  const PairStatistics found = statistics(answer, 2000, 15);
  ASSERT_EQ(answer.text("expected_verdict"), "peak");
  ASSERT_EQ(found.judgement.verdict, PairVerdict::peak);
  const auto& peak = *found.judgement.peak;
  expect_near(peak.pairs, answer.decimal("expected_pairs"));
  expect_near(*peak.place_ps, 0);
  expect_near(*peak.fwhm_ps, answer.decimal("pair_fwhm_ps"));
  expect_near(*found.share_a, answer.decimal("expected_share_a"));
  expect_near(*found.share_b, answer.decimal("expected_share_b"));
  expect_background(found, answer);
}

TEST_F(SimulatedLight, OfPairsSecondsApartIsAPeakThere) {
  const Told answer = simulate({"--rate=2000", "--pair-rate=500.5", "--delay=-6s", "--duration=20s"});
  const PairStatistics found = statistics(answer, 1000, 9);
  EXPECT_EQ(answer.number("offset_ps"), -6'000'000'000'000);
  ASSERT_EQ(found.judgement.verdict, PairVerdict::peak);
  expect_near(found.judgement.peak->pairs, answer.decimal("expected_pairs"));
  EXPECT_NEAR(answer.decimal("expected_pairs"), 500.5 * 14, 1);
  expect_near(*found.share_a, answer.decimal("expected_share_a"));
  EXPECT_NEAR(answer.decimal("coincidences"), answer.decimal("expected_coincidences"), 5 * std::sqrt(7007.0));
}

TEST_F(SimulatedLight, InPulsesIsAComb) {
  const Told answer = simulate(
      {"--light=pulses", "--photons=0.02", "--rate=1000", "--dark-rate=500", "--duration=1s", "--delay=3ns"});
  const PairStatistics found = statistics(answer, 100'000, 101);
  ASSERT_EQ(answer.text("expected_verdict"), "comb");
  ASSERT_EQ(found.judgement.verdict, PairVerdict::comb);
  const auto& comb = *found.judgement.comb;
  expect_near(comb.period_ps, answer.decimal("expected_period_ps"));
  expect_near(comb.pairs, answer.decimal("expected_tooth_pairs"));
  EXPECT_NEAR(std::remainder(comb.tooth_ps, 12'500), 0, 10);
  expect_background(found, answer);
}

TEST_F(SimulatedLight, OfAPulsedEmitterIsADip) {
  const Told answer = simulate(
      {"--light=emitter", "--pulse-period=12500", "--photons=0.02", "--rate=1000", "--duration=1s", "--delay=24ns"});
  const PairStatistics found = statistics(answer, 100'000, 101);
  ASSERT_EQ(answer.text("expected_verdict"), "dip");
  ASSERT_EQ(found.judgement.verdict, PairVerdict::dip);
  EXPECT_NEAR(found.judgement.peak->place_ps->value, 0, 20);
  EXPECT_NEAR(found.judgement.peak->g2->g2, answer.decimal("expected_g2"), 0.01);
  expect_near(found.judgement.comb->pairs, answer.decimal("expected_tooth_pairs"));
}

TEST_F(SimulatedLight, OfAContinuousEmitterIsADipOfItsLifetime) {
  const Told answer = simulate({"--light=emitter", "--emission-rate=1000000", "--lifetime=20ns", "--rate=1000",
                                "--duration=2s", "--delay=5ns"});
  const PairStatistics found = statistics(answer, 300'000, 501);
  ASSERT_EQ(answer.text("expected_verdict"), "dip");
  ASSERT_EQ(found.judgement.verdict, PairVerdict::dip);
  const auto& dip = *found.judgement.peak;
  expect_near(*dip.place_ps, 0);
  EXPECT_NEAR(dip.g2->g2, answer.decimal("expected_g2"), 0.05);
  EXPECT_LT(answer.decimal("expected_g2_at_zero"), 0.01);
  // Full width at half maximum of a two-sided exponential, and what widths by smoothing make of it.
  const double fwhm_ps = 2 * std::log(2.0) * answer.decimal("expected_dip_decay_ps");
  EXPECT_NEAR(dip.fwhm_ps->value, 1.15 * fwhm_ps, 0.12 * fwhm_ps);
  expect_background(found, answer);
}

TEST_F(SimulatedLight, WithoutCorrelationIsNone) {
  const Told answer = simulate({"--rate=0", "--dark-rate=200000", "--pair-rate=0", "--duration=1s"});
  const PairStatistics found = statistics(answer, 500'000, 999);
  EXPECT_EQ(answer.text("expected_verdict"), "none");
  EXPECT_EQ(found.judgement.verdict, PairVerdict::none);
  expect_background(found, answer);
}

}  // namespace
