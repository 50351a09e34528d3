// Simulated captures of every encoding, verified: the tool must find what the simulator says is there.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "support/simulated_capture.hpp"

namespace {

using namespace orvo::test;
using Arguments = std::vector<std::string>;

/// Half a bin: no difference is farther from its bin's centre, so binning cannot change a mean or standard deviation
/// by more.
constexpr double kHalfBinPs = 4;

/// Statistical limits are 5 standard deviations, which chance exceeds once in 1.7 million; and the seeds are fixed.
constexpr double kSigmas = 5;

class SimulatedCaptures : public SimulatedCapture {
 protected:
  /// Counts are exact: of the tags, and of the coincidences within the range.
  void expect_counts(const Told& answer, const Verified& found) {
    EXPECT_EQ(found.tags, answer.number("tags"));
    for (int c = 0; c < 4; ++c) EXPECT_EQ(found.channel_tags[c], answer.number("ch" + std::to_string(c))) << c;
    EXPECT_EQ(found.coincidences, answer.number("coincidences"));
  }

  /// The verification's moments are those of the stored tags, apart from binning; and those are what the settings
  /// call for, apart from chance.
  void expect_moments(const Told& answer, const Verified& found) {
    EXPECT_NEAR(found.mean_ps, answer.decimal("mean_ps"), kHalfBinPs);
    EXPECT_NEAR(found.sigma_ps, answer.decimal("rms_ps"), kHalfBinPs);
    EXPECT_NEAR(found.fwhm_ps, answer.decimal("fwhm_ps"), 2.354820045 * kHalfBinPs);
    EXPECT_NEAR(answer.decimal("mean_ps"), 0, kSigmas * answer.decimal("mean_error_ps"));
    EXPECT_NEAR(answer.decimal("rms_ps"), answer.decimal("expected_rms_ps"),
                kSigmas * answer.decimal("rms_error_ps"));
  }

  void expect_found(const Told& answer) {
    const Verified found = verified(answer);
    expect_counts(answer, found);
    expect_moments(answer, found);
    // A bin one standard deviation from the middle one counts 61 % of what that counts.
    EXPECT_LE(std::abs(found.peak_ps), answer.decimal("pair_sigma_ps"));
  }
};

/// 300,000 tags of four channels, 0.3 s, across the wrap of the device time after 0.1 s.
Arguments across_the_wrap(const Arguments& encoding) {
  Arguments arguments{"--channels=0,1,2,3",
                      "--rate=200000,150000,150000,200000",
                      "--pair-channels=1,2",
                      "--pair-rate=50000",
                      "--delay=12344",
                      "--jitter=60",
                      "--start=14215125997568",
                      "--tags=300000",
                      "--range=1000"};
  arguments.insert(arguments.end(), encoding.begin(), encoding.end());
  return arguments;
}

class EveryEncoding : public SimulatedCaptures, public testing::WithParamInterface<Arguments> {};

TEST_P(EveryEncoding, IsFoundAsItWasSimulated) {
  const Told answer = simulate(across_the_wrap(GetParam()));
  EXPECT_EQ(answer.number("tags"), 300'000);
  EXPECT_LT(answer.number("first_ps"), 14'315'125'997'568);
  EXPECT_GT(answer.number("last_ps"), 14'315'125'997'568 + 100'000'000'000);
  expect_found(answer);
}

TEST_P(EveryEncoding, HasTheCoincidencesThatItsRatesMake) {
  const Told answer = simulate(across_the_wrap(GetParam()));
  EXPECT_NEAR(answer.decimal("coincidences"), answer.decimal("expected_coincidences"),
              kSigmas * answer.decimal("coincidences_error"));
}

// Bins of 1 ps do not round: what is found differs from theory by chance alone.
TEST_P(EveryEncoding, AgreesWithTheoryAtOtherDelaysJittersAndBackgrounds) {
  for (const Arguments& pairs :
       {Arguments{"--rate=1000000", "--pair-rate=20000", "--delay=-5us", "--jitter=2000", "--range=20000"},
        Arguments{"--rate=0", "--pair-rate=100000", "--delay=0", "--jitter=10", "--range=400"}}) {
    Arguments arguments{"--start=14215125997568", "--tags=200000"};
    arguments.insert(arguments.end(), pairs.begin(), pairs.end());
    arguments.insert(arguments.end(), GetParam().begin(), GetParam().end());
    const Told answer = simulate(arguments);
    const Verified found = verified(answer, 1);
    expect_counts(answer, found);
    EXPECT_NEAR(static_cast<double>(found.coincidences), answer.decimal("expected_coincidences"),
                kSigmas * answer.decimal("coincidences_error"));
    EXPECT_NEAR(found.mean_ps, 0, kSigmas * answer.decimal("mean_error_ps"));
    EXPECT_NEAR(found.sigma_ps, answer.decimal("expected_rms_ps"), kSigmas * answer.decimal("rms_error_ps"));
    EXPECT_NEAR(found.fwhm_ps, 2.354820045 * found.sigma_ps, 0.002);  // both have three decimals
  }
}

TEST_P(EveryEncoding, KeepsToTheDeadTime) {
  Arguments arguments = across_the_wrap(GetParam());
  arguments.push_back("--dead-time=1us,0,2us,50ns");
  const Told answer = simulate(arguments);
  expect_counts(answer, verified(answer));
  // A channel of rate r that is blind for t after each tag stores r / (1 + r t).
  const double seconds = static_cast<double>(answer.number("last_ps") - 14'215'125'997'568) * 1e-12;
  for (const auto& [channel, stored_hz] : {std::pair{0, 200'000 / 1.2}, {1, 200'000.0}, {2, 200'000 / 1.4}}) {
    const double expected = stored_hz * seconds;
    EXPECT_NEAR(answer.decimal("ch" + std::to_string(channel)), expected, kSigmas * std::sqrt(expected)) << channel;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Encodings, EveryEncoding,
    testing::Values(Arguments{"--encoding=raw64"}, Arguments{"--tag-format=raw_cf"}, Arguments{"--encoding=delta32"},
                    Arguments{"--encoding=packed_delta"},
                    Arguments{"--encoding=packed_delta", "--mode=internal", "--delta-bits=20", "--start-bit=3"},
                    Arguments{"--encoding=packed_delta", "--quantum-ps=1", "--delta-bits=24"},
                    Arguments{"--encoding=packed_delta", "--mode=internal", "--quantum-ps=64", "--delta-bits=5"}));

// Quanta and fine codes that are coarse compared with the jitter widen the peak: to the square root of
// 64^2 / 6 + 10^2, which is 28 ps, and of 18.5^2 / 6 + 5^2, which is 9.07 ps.
TEST_F(SimulatedCaptures, AreAsWideAsTheirGridMakesThem) {
  const Arguments pairs{"--rate=0", "--pair-rate=100000", "--range=400", "--delay=1024", "--tags=200000"};
  for (const auto& [more, sigma_ps] :
       {std::pair{Arguments{"--encoding=packed_delta", "--quantum-ps=64", "--jitter=100"}, std::sqrt(10'682.67)},
        std::pair{Arguments{"--tag-format=raw_cf", "--jitter=20"}, std::sqrt(457.04)}}) {
    Arguments arguments = pairs;
    arguments.insert(arguments.end(), more.begin(), more.end());
    const Told answer = simulate(arguments);
    EXPECT_NEAR(answer.decimal("pair_sigma_ps"), sigma_ps, 0.01);
    EXPECT_NEAR(answer.decimal("pair_fwhm_ps"), 2.354820045 * sigma_ps, 0.03);
    EXPECT_NEAR(answer.decimal("rms_ps"), sigma_ps, kSigmas * sigma_ps / std::sqrt(2 * 100'000.0));
    expect_counts(answer, verified(answer));
  }
}

TEST_F(SimulatedCaptures, OfWidelyDifferentRatesAndDelaysAreFound) {
  expect_found(simulate({"--channels=1,3", "--rate=2000000,2000", "--pair-rate=20000", "--delay=-1ms", "--jitter=500",
                         "--pair-channels=3,1", "--encoding=delta32", "--duration=200ms"}));
  expect_found(
      simulate({"--channels=0,3", "--rate=0", "--pair-rate=50000000", "--delay=1us", "--jitter=20", "--range=200",
                "--encoding=packed_delta", "--quantum-ps=2", "--mode=internal", "--tags=400000"}));
}

// 100 s of device time wrap seven times.
TEST_F(SimulatedCaptures, OfManyDevicePeriodsAreFound) {
  for (const Arguments& encoding :
       {Arguments{"--encoding=raw64"}, Arguments{"--tag-format=raw_cf"},
        Arguments{"--encoding=delta32", "--anchor-every=50"}, Arguments{"--encoding=packed_delta"},
        Arguments{"--encoding=packed_delta", "--quantum-ps=1"}}) {
    Arguments arguments{"--rate=200", "--pair-rate=100", "--start=14s", "--duration=100s", "--range=1000"};
    arguments.insert(arguments.end(), encoding.begin(), encoding.end());
    const Told answer = simulate(arguments);
    EXPECT_GT(answer.number("last_ps"), 7 * 14'315'125'997'568);
    expect_found(answer);
  }
}

// 41 bits last 2.2 s: a decoder cannot know how many such laps have passed before the first tag.
TEST_F(SimulatedCaptures, TellHowFarDecodedTimesAreBehind) {
  const Told raw = simulate({"--start=5s", "--tags=1000"});
  EXPECT_FALSE(raw.has("ch0_axis_ps"));
  const Told delta = simulate({"--start=5s", "--tags=1000", "--encoding=delta32"});
  EXPECT_EQ(delta.number("ch0_axis_ps"), -2 * 2'199'023'255'552);
  EXPECT_EQ(delta.number("ch1_axis_ps"), -2 * 2'199'023'255'552);
}

// One channel clicks before the 41 bits wrap, the other only after that: they decode 2^41 ps apart.
TEST_F(SimulatedCaptures, AreFoundAtTheOffsetThatTheirChannelsDecodeAt) {
  const Told answer = simulate({"--start=2199022255552", "--rate=10000000,0", "--pair-rate=1000", "--delay=160",
                                "--encoding=delta32", "--tags=200000"});
  EXPECT_EQ(answer.number("offset_ps"), 160 - 2'199'023'255'552);
  expect_counts(answer, verified(answer));
}

TEST_F(SimulatedCaptures, OfNothingOrOfOneChannelAreFine) {
  const Told empty = simulate({"--tags=0"});
  EXPECT_EQ(empty.number("tags"), 0);
  expect_counts(empty, verified(empty));
  const Told one = simulate({"--channels=2", "--tags=5000", "--encoding=packed_delta", "--mode=internal"});
  EXPECT_EQ(one.number("ch2"), 5000);
  EXPECT_FALSE(one.has("coincidences"));
  EXPECT_EQ(verify({"c.tagcap", "2", "0", "--out-prefix=v"}).exit_status, 0);
}

}  // namespace
