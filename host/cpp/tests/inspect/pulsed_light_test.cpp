// Two detectors of pulsed light have as many delays as there are pulses: the answer is a comb without a delay, or
// none, and never one delay out of many. Pairs of photons that each pulse makes are told by the one tooth that is
// higher, or left ambiguous. A single emitter is told as a dip.
//
// ORVO_SIMULATION_SEEDS sets the recordings of each case.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <random>
#include <string>

#include "inspect/pair_report.hpp"
#include "inspect/pair_search.hpp"
#include "support/simulated_recording.hpp"

namespace {

using orvo::test::kSecondPs;
using orvo::test::PairTags;
using orvo::test::simulation_setting;
using orvo::timing::PairVerdict;

struct PulsedSource {
  double period_ps = 12'500;
  double rate_hz = 50'000;  ///< on either channel
  double seconds = 2;
  double delay_ps = 0;
  double jitter_ps = 100;
  double pairs = 0;     ///< share of a channel's tags that are pairs of the same pulse
  bool single = false;  ///< at most one photon a pulse, for either channel
};

/// The photons of all pulses in a row are a Poisson process in time counted in pulses; an emitter gives the first of
/// each pulse only.
PairTags recorded_pulses(const PulsedSource& source, std::uint64_t seed) {
  std::mt19937_64 random(seed);
  std::normal_distribution<double> jitter(0, source.jitter_ps);
  std::bernoulli_distribution is_pair(source.pairs / (2 - source.pairs));
  const double pulse_hz = kSecondPs / source.period_ps;
  std::exponential_distribution<double> gap(source.rate_hz * (2 - source.pairs) / pulse_hz);  // of photons or pairs
  const double lead = std::abs(source.delay_ps) / source.period_ps + 1;
  PairTags tags;
  const auto add = [&](double pulse, bool to_a) {
    const double at = pulse * source.period_ps + (to_a ? 0 : source.delay_ps) + jitter(random);
    if (at >= 0 && at < source.seconds * kSecondPs) (to_a ? tags.a : tags.b).push_back(std::llround(at));
  };
  double before = -lead - 1;
  for (double at = -lead; at < source.seconds * pulse_hz + lead; at += gap(random)) {
    const double pulse = std::floor(at);
    if (source.single && pulse == before) continue;
    before = pulse;
    const bool pair = is_pair(random);
    const bool to_a = random() % 2 == 0;
    if (pair || to_a) add(pulse, true);
    if (pair || !to_a) add(pulse, false);
  }
  std::sort(tags.a.begin(), tags.a.end());
  std::sort(tags.b.begin(), tags.b.end());
  return tags;
}

/// How many recordings were told as what.
struct Answers {
  int none = 0;
  int comb = 0;
  int right = 0;  ///< a peak or dip at the delay
  int wrong = 0;  ///< at another place
};

Answers answers_to(PulsedSource source, std::optional<std::int64_t> reach_ps, double farthest_ps, int bins) {
  Answers answers;
  const int seeds = simulation_setting("ORVO_SIMULATION_SEEDS", 1);
  for (int seed = 0; seed < seeds; ++seed) {
    std::mt19937_64 random(static_cast<std::uint64_t>(seed));
    source.delay_ps = std::uniform_real_distribution<double>(-farthest_ps, farthest_ps)(random);
    const PairTags tags = recorded_pulses(source, static_cast<std::uint64_t>(seed));
    PairSearch search({tags.a, tags.b}, {reach_ps, std::size_t{1} << bins});
    const PairFinding finding = search.find(0, 1);
    const auto delay_ps = finding.delay_ps();
    const PairVerdict verdict = verdict_of(finding);
    answers.none += verdict == PairVerdict::none ? 1 : 0;
    answers.comb += verdict == PairVerdict::comb ? 1 : 0;
    if (verdict != PairVerdict::peak && verdict != PairVerdict::dip) continue;
    const bool is_right = (source.pairs > 0 || source.single) && delay_ps &&
                          std::abs(delay_ps->value - source.delay_ps) < 3 * source.jitter_ps;
    (is_right ? answers.right : answers.wrong) += 1;
    if (!is_right)
      std::printf("seed %d: %s at %.0f ps, true %.0f ps\n", seed, std::string(to_text(verdict)).c_str(),
                  delay_ps ? delay_ps->value : std::nan(""), source.delay_ps);
  }
  std::printf("period %9.4g us, rate %7.0f Hz, pairs %4.1f %%%s, reach %7s s: right %d, comb %d, none %d, wrong %d\n",
              source.period_ps / 1e6, source.rate_hz, 100 * source.pairs, source.single ? ", emitter" : "",
              reach_ps ? std::to_string(static_cast<double>(*reach_ps) / kSecondPs).c_str() : "default",
              answers.right, answers.comb, answers.none, answers.wrong);
  std::fflush(stdout);
  return answers;
}

/// The number of bins of the program where long simulations are asked for.
int bins_for(const std::optional<std::int64_t>& reach_ps) {
  if (std::getenv("ORVO_SIMULATION_SEEDS") == nullptr) return 18;
  return reach_ps ? 22 : 20;
}

class PulsedLight : public testing::TestWithParam<double> {};

TEST_P(PulsedLight, HasNoSingleDelay) {
  for (const std::optional<std::int64_t> reach_ps :
       {std::optional<std::int64_t>(), std::optional<std::int64_t>(1'000'000'000)}) {
    const PulsedSource source{.period_ps = GetParam(), .rate_hz = std::min(50'000.0, 0.5 * kSecondPs / GetParam())};
    EXPECT_EQ(answers_to(source, reach_ps, 9e8, bins_for(reach_ps)).wrong, 0);
  }
}

TEST_P(PulsedLight, WithPairsHasTheirDelayOrIsAmbiguous) {
  for (const std::optional<std::int64_t> reach_ps :
       {std::optional<std::int64_t>(), std::optional<std::int64_t>(1'000'000'000)}) {
    const PulsedSource source{
        .period_ps = GetParam(), .rate_hz = std::min(50'000.0, 0.05 * kSecondPs / GetParam()), .pairs = 0.3};
    EXPECT_EQ(answers_to(source, reach_ps, 9e8, bins_for(reach_ps)).wrong, 0);
  }
}

INSTANTIATE_TEST_SUITE_P(Periods, PulsedLight, testing::Values(2e3, 12'500, 1e5, 1e6, 3.3e6, 1e7, 1e8, 1e9),
                         [](const auto& period) { return std::to_string(std::llround(period.param)) + "ps"; });

TEST(SingleEmitter, IsToldAsADip) {
  const int seeds = simulation_setting("ORVO_SIMULATION_SEEDS", 1);
  for (const double period_ps : {12'500.0, 50'000.0}) {
    const PulsedSource source{
        .period_ps = period_ps, .rate_hz = 1'000'000, .seconds = 0.2, .jitter_ps = 500, .single = true};
    const Answers answers = answers_to(source, {}, 40'000, bins_for({}));
    EXPECT_EQ(answers.wrong, 0);
    EXPECT_EQ(answers.right, seeds);
  }
}

}  // namespace
