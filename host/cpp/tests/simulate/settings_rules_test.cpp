#include "simulate/settings_rules.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "simulate/given_settings.hpp"

namespace {

std::string verdict(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), "a.tagcap");
  try {
    check_settings(settings_from(arguments));
  } catch (const UsageError& error) {
    return error.what();
  }
  return "fine";
}

TEST(SettingsRules, AcceptWhatIsUsual) {
  EXPECT_EQ(verdict({}), "fine");
}

TEST(SettingsRules, AskForAFile) {
  EXPECT_THROW(check_settings(settings_from({})), UsageError);
  try {
    check_settings(settings_from({}));
  } catch (const UsageError& error) {
    EXPECT_STREQ(error.what(), "no file given: name the capture to write (--help lists the options)");
  }
}

TEST(SettingsRules, WantPairsOfActiveChannels) {
  EXPECT_EQ(verdict({"--channels=1", "--pair-rate=5000"}),
            "--pair-rate: pairs need two active channels (--channels)");
  EXPECT_EQ(verdict({"--channels=1"}), "fine");
  EXPECT_EQ(verdict({"--pair-channels=0,3"}), "--pair-channels: channel 3 is not active (--channels)");
  EXPECT_EQ(verdict({"--pair-channels=2,1"}), "--pair-channels: channel 2 is not active (--channels)");
  EXPECT_EQ(verdict({"--channels=0,1,2,3", "--pair-channels=0,3"}), "fine");
}

TEST(SettingsRules, WantChannelsThatClickOftenOrNever) {
  EXPECT_EQ(verdict({"--rate=99", "--pair-rate=0"}),
            "--rate, --pair-rate: channel 0 would click 99 times per second; it takes 0, or at least 100");
  EXPECT_EQ(verdict({"--rate=100,50", "--pair-rate=49"}),
            "--rate, --pair-rate: channel 1 would click 99 times per second; it takes 0, or at least 100");
  EXPECT_EQ(verdict({"--rate=50", "--pair-rate=50"}), "fine");
  EXPECT_EQ(verdict({"--rate=0,100", "--pair-rate=0"}), "fine");
}

TEST(SettingsRules, CountDarkTagsAndLightAmongTheClicks) {
  EXPECT_EQ(verdict({"--rate=99.5", "--dark-rate=0.25", "--pair-rate=0.24"}),
            "--rate, --pair-rate: channel 0 would click 99.99 times per second; it takes 0, or at least 100");
  EXPECT_EQ(verdict({"--rate=0.01", "--dark-rate=99.98", "--pair-rate=0.01"}), "fine");
  EXPECT_EQ(verdict({"--rate=0", "--light=emitter", "--emission-rate=200"}), "fine");
  EXPECT_EQ(verdict({"--rate=0", "--light=emitter", "--emission-rate=199.9"}),
            "--rate, --pair-rate: channel 0 would click 99.95 times per second; it takes 0, or at least 100");
}

TEST(NumberText, HasUpToTwoDecimals) {
  EXPECT_EQ(number_text(0), "0");
  EXPECT_EQ(number_text(250), "250");
  EXPECT_EQ(number_text(0.5), "0.5");
  EXPECT_EQ(number_text(0.05), "0.05");
  EXPECT_EQ(number_text(99.99), "99.99");
  EXPECT_EQ(number_text(99.996), "100");
}

TEST(SettingsRules, WantLightThatCanBe) {
  EXPECT_EQ(verdict({"--light=pulses", "--channels=2"}), "--light: it takes two active channels (--channels)");
  EXPECT_EQ(verdict({"--light=pulses", "--pulse-period=0"}),
            "--pulse-period: pulses need one; continuous light is that of an emitter");
  EXPECT_EQ(verdict({"--light=pulses", "--photons=2"}),
            "--photons, --pulse-period: 160000000 photons per second; it takes at most 100000000");
  EXPECT_EQ(verdict({"--light=pulses", "--photons=1"}), "fine");
  EXPECT_EQ(verdict({"--light=emitter", "--emission-rate=1000000", "--lifetime=1us"}),
            "--lifetime: an emitter of 1000000 photons per second lives shorter than the time between them");
  EXPECT_EQ(verdict({"--light=emitter", "--emission-rate=1000000", "--lifetime=900ns"}), "fine");
  EXPECT_EQ(verdict({"--light=emitter", "--emission-rate=0"}), "fine");
}

TEST(SettingsRules, WantFewClicksUnderWay) {
  EXPECT_EQ(verdict({"--delay=10s", "--rate=9900000", "--pair-rate=100000"}), "fine");
  EXPECT_EQ(verdict({"--delay=-10s", "--rate=9900000", "--pair-rate=100001"}),
            "--delay: 100000010 clicks would be under way; it takes at most 100000000");
}

TEST(SettingsRules, WantOneLengthThatCanBeReached) {
  EXPECT_EQ(verdict({"--tags=5", "--duration=5s"}), "--tags, --duration: give only one of them");
  EXPECT_EQ(verdict({"--rate=0", "--pair-rate=0"}), "--tags: no channel ever clicks (--rate, --pair-rate)");
  EXPECT_EQ(verdict({"--rate=0", "--pair-rate=0", "--tags=0"}), "fine");
  EXPECT_EQ(verdict({"--rate=0", "--pair-rate=0", "--duration=1s"}), "fine");
  EXPECT_EQ(verdict({"--rate=100", "--pair-rate=0", "--tags=180000000"}), "fine");
  EXPECT_EQ(verdict({"--rate=100", "--pair-rate=0", "--tags=180000001"}),
            "--tags: 180000001 would take more than 900000 s at these rates");
  // At 100,000,000 per second and 1 ms of dead time, just below 1000 per second are stored.
  EXPECT_EQ(verdict({"--rate=100000000", "--pair-rate=0", "--dead-time=1ms", "--tags=1800000000"}),
            "--tags: 1800000000 would take more than 900000 s at these rates");
}

TEST(SettingsRules, WantPackedRecordsToBeFound) {
  const std::string encoding = "--encoding=packed_delta";
  EXPECT_EQ(verdict({encoding, "--rate=0,100", "--pair-rate=0"}),
            "--rate: packed_delta needs at least two channels that click, where several are active");
  EXPECT_EQ(verdict({"--encoding=delta32", "--rate=0,100", "--pair-rate=0"}), "fine");
  EXPECT_EQ(verdict({encoding, "--channels=0,1,2", "--rate=0,100,5000", "--pair-rate=0"}), "fine");
  EXPECT_EQ(verdict({encoding, "--channels=3"}), "fine");
}

TEST(SettingsRules, WantSimilarRatesInPackedInternalMode) {
  const std::string uneven =
      "--rate: packed_delta in internal mode needs similar rates: the highest, pairs included, may be at most 1.5 "
      "times the lowest";
  const auto internal = [](const std::string& rates, const std::string& pair_rate) {
    return verdict({"--encoding=packed_delta", "--mode=internal", "--channels=0,1,2", "--rate=" + rates,
                    "--pair-rate=" + pair_rate});
  };
  EXPECT_EQ(internal("1000,1000,1500", "0"), "fine");
  EXPECT_EQ(internal("1000,1000,1501", "0"), uneven);
  EXPECT_EQ(internal("1000,1000,1000", "500"), "fine");
  EXPECT_EQ(internal("1000,1000,1000", "501"), uneven);
  EXPECT_EQ(internal("1000,1000,0", "0"), uneven);
  EXPECT_EQ(verdict({"--encoding=packed_delta", "--mode=external", "--rate=1000,5000"}), "fine");
  EXPECT_EQ(verdict({"--encoding=raw64", "--mode=internal", "--rate=1000,5000", "--pair-rate=0"}), "fine");
}

}  // namespace
