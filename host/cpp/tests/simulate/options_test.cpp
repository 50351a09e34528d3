#include "simulate/options.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "simulate/given_settings.hpp"

namespace {

using orvo::timing::StreamFormat;
using orvo::timing::StreamMode;
using testing::ElementsAre;
using testing::HasSubstr;
using Arguments = std::vector<std::string>;

std::string failure(const Arguments& arguments) {
  try {
    settings_from(arguments);
  } catch (const UsageError& error) {
    return error.what();
  }
  return "none";
}

Arguments with(const std::string& name, const std::string& value, bool packed = false) {
  return {"--encoding", packed ? "packed_delta" : "raw64", "--" + name, value};
}

TEST(Options, HaveDefaults) {
  const Settings settings = settings_from({"a.tagcap"});
  EXPECT_EQ(settings.out, "a.tagcap");
  EXPECT_EQ(settings.encoding, StreamFormat::raw64);
  EXPECT_EQ(settings.mode, StreamMode::external);
  EXPECT_EQ(settings.tag_format, "ps");
  EXPECT_EQ(settings.delta_bits, 16u);
  EXPECT_EQ(settings.quantum_ps, 8u);
  EXPECT_EQ(settings.start_bit, 0u);
  EXPECT_EQ(settings.anchor_every, 1000u);
  for (unsigned c = 0; c < 4; ++c) {
    EXPECT_EQ(settings.channels[c].active, c < 2);
    EXPECT_EQ(settings.channels[c].rate_hz, c < 2 ? 100'000u : 0u);
    EXPECT_EQ(settings.channels[c].dead_time_ps, 0);
  }
  EXPECT_EQ(settings.pairs.channel_a, 0u);
  EXPECT_EQ(settings.pairs.channel_b, 1u);
  EXPECT_EQ(settings.pairs.rate_hz, 50'000u);
  EXPECT_EQ(settings.pairs.delay_ps, 160);
  EXPECT_EQ(settings.pairs.jitter_ps, 40);
  EXPECT_EQ(settings.pairs.range_ps, 5000);
  EXPECT_EQ(settings.tags, 1'000'000u);
  EXPECT_FALSE(settings.duration_ps);
  EXPECT_EQ(settings.start_ps, 0);
  EXPECT_EQ(settings.seed, 1u);
  EXPECT_FALSE(settings.damage.any());
}

TEST(Options, TakeTheFileWithOrWithoutItsName) {
  for (const Arguments& arguments : {Arguments{"--seed=7", "--out=b"}, Arguments{"--out", "b", "--seed", "7"},
                                     Arguments{"b", "--seed", "7"}, Arguments{"--seed", "7", "b"}}) {
    EXPECT_EQ(settings_from(arguments).seed, 7u);
    EXPECT_EQ(settings_from(arguments).out, "b");
  }
  EXPECT_EQ(settings_from({"--out=--odd=name"}).out, "--odd=name");
  EXPECT_EQ(failure({"a", "b"}), "The following argument was not expected: b");
  EXPECT_EQ(failure({"a", "--out=b"}), "--out: given twice");
}

/// A number that an option sets: from `least` to `most`, and neither `below` nor `above`.
struct NumberOption {
  std::string name;
  std::string below, least, most, above;
  std::uint64_t (*set)(const Settings&);
  bool packed = false;
};

const NumberOption kNumbers[] = {
    {"delta-bits", "0", "1", "31", "32", [](const Settings& s) -> std::uint64_t { return s.delta_bits; }, true},
    {"quantum-ps", "0", "1", "65535", "65536", [](const Settings& s) -> std::uint64_t { return s.quantum_ps; }, true},
    {"start-bit", "-1", "0", "7", "8", [](const Settings& s) -> std::uint64_t { return s.start_bit; }, true},
    {"anchor-every", "0", "1", "1000000", "1000001", [](const Settings& s) { return s.anchor_every; }, true},
    {"tags", "-1", "0", "1000000000000", "1000000000001", [](const Settings& s) { return *s.tags; }},
    {"seed", "-1", "0", "18446744073709551615", "18446744073709551616", [](const Settings& s) { return s.seed; }},
    {"front-garbage", "-1", "0", "1000000000000", "1000000000001",
     [](const Settings& s) { return s.damage.front_garbage_bytes; }},
    {"garbage", "-1", "0", "1000000000000", "1000000000001",
     [](const Settings& s) { return s.damage.garbage_bytes; }},
    {"garbage-at", "-1", "0", "1000000000000", "1000000000001",
     [](const Settings& s) { return s.damage.garbage_at; }},
    {"flip-every", "-1", "0", "1000000000000", "1000000000001",
     [](const Settings& s) { return s.damage.flip_every_bytes; }},
    {"cut-tail", "-1", "0", "1000000000000", "1000000000001",
     [](const Settings& s) { return s.damage.cut_tail_bytes; }},
};

TEST(Options, HoldNumbersToTheirLimits) {
  for (const NumberOption& option : kNumbers) {
    for (const std::string& value : {option.least, option.most}) {
      EXPECT_EQ(option.set(settings_from(with(option.name, value, option.packed))), std::stoull(value))
          << option.name;
    }
    for (const std::string& value : {option.below, option.above}) {
      EXPECT_EQ(
          failure(with(option.name, value, option.packed)),
          "--" + option.name + ": '" + value + "' is not a whole number from " + option.least + " to " + option.most);
    }
  }
}

/// The same for numbers from 0 on with some digits after the point.
struct DecimalOption {
  std::string name;
  std::string finest, too_fine, most, above;
  double (*set)(const Settings&);
  Arguments needs = {};
};

const Arguments kPulses{"--light=pulses"};
const Arguments kEmitter{"--light=emitter"};

const DecimalOption kDecimals[] = {
    {"rate", "0.01", "0.001", "100000000", "100000000.01", [](const Settings& s) { return s.channels[1].rate_hz; }},
    {"dark-rate", "0.01", "0.001", "100000000", "100000001", [](const Settings& s) { return s.channels[1].dark_hz; }},
    {"pair-rate", "0.01", "0.001", "100000000", "100000001", [](const Settings& s) { return s.pairs.rate_hz; }},
    {"photons", "0.0001", "0.00001", "100", "100.5", [](const Settings& s) { return s.light.photons; }, kPulses},
    {"emission-rate", "0.01", "0.001", "100000000", "100000001",
     [](const Settings& s) { return s.light.emission_rate_hz; }, kEmitter},
};

TEST(Options, HoldDecimalsToTheirLimits) {
  for (const DecimalOption& option : kDecimals) {
    const auto with_needs = [&](const std::string& value) {
      Arguments arguments = option.needs;
      arguments.push_back("--" + option.name + '=' + value);
      return arguments;
    };
    for (const std::string& value : {std::string("0"), option.finest, std::string("12.5"), option.most})
      EXPECT_EQ(option.set(settings_from(with_needs(value))), std::stod(value)) << option.name;
    for (const std::string& value : {std::string("-1"), option.too_fine, option.above, std::string("1e3"),
                                     std::string(".5"), std::string("5."), std::string("0x10"), std::string("x")}) {
      EXPECT_EQ(failure(with_needs(value)), "--" + option.name + ": '" + value + "' is not a number from 0 to " +
                                                option.most + " with at most " +
                                                std::to_string(option.finest.size() - 2) + " decimals");
    }
  }
}

/// The same for times.
struct TimeOption {
  std::string name;
  std::string below, least, most, above;
  std::int64_t (*set)(const Settings&);
  Arguments needs = {};
};

const TimeOption kTimes[] = {
    {"dead-time", "-1", "0", "1000000000", "1000000001",
     [](const Settings& s) { return s.channels[0].dead_time_ps; }},
    {"delay", "-10000000000001", "-10000000000000", "10000000000000", "10000000000001",
     [](const Settings& s) { return s.pairs.delay_ps; }},
    {"jitter", "-1", "0", "1000000", "1000001", [](const Settings& s) { return s.pairs.jitter_ps; }},
    {"range", "0", "1", "1000000000", "1000000001", [](const Settings& s) { return s.pairs.range_ps; }},
    {"duration", "-1", "0", "1000000000000000000", "1000000000000000001",
     [](const Settings& s) { return *s.duration_ps; }},
    {"start", "-1", "0", "14315125997567", "14315125997568", [](const Settings& s) { return s.start_ps; }},
    {"pulse-period", "-1", "0", "1000000000", "1000000001", [](const Settings& s) { return s.light.pulse_period_ps; },
     kPulses},
    {"pulse-jitter", "-1", "0", "1000000", "1000001", [](const Settings& s) { return s.light.pulse_jitter_ps; },
     kPulses},
    {"lifetime", "0", "1", "1000000000", "1000000001", [](const Settings& s) { return s.light.lifetime_ps; },
     kEmitter},
};

TEST(Options, HoldTimesToTheirLimits) {
  for (const TimeOption& option : kTimes) {
    const auto with_needs = [&](const std::string& value) {
      Arguments arguments = option.needs;
      arguments.push_back("--" + option.name + '=' + value);
      return arguments;
    };
    for (const std::string& value : {option.least, option.most}) {
      EXPECT_EQ(option.set(settings_from(with_needs(value))), std::stoll(value)) << option.name;
    }
    for (const std::string& value : {option.below, option.above}) {
      EXPECT_EQ(failure(with_needs(value)), "--" + option.name + ": '" + value + "' is not a time from " +
                                                option.least + " ps to " + option.most +
                                                " ps, as in 250, 250ps, 10ns, 2us, 1ms or 3s");
    }
  }
}

TEST(Options, WithLimitsAreAllTestedHere) {
  std::set<std::string> tested;
  for (const NumberOption& option : kNumbers) tested.insert("--" + option.name);
  for (const DecimalOption& option : kDecimals) tested.insert("--" + option.name);
  for (const TimeOption& option : kTimes) tested.insert("--" + option.name);
  std::set<std::string> limited;
  Options options;
  for (const CLI::Option* const option : options.app().get_options()) {
    if (option->get_type_name().find('[') != std::string::npos &&
        option->get_type_name().find("to") != std::string::npos)
      limited.insert(option->get_name());
  }
  EXPECT_EQ(tested, limited);
}

TEST(Options, ShowTheirLimitsInTheHelp) {
  Options options;
  const std::string help = options.app().help();
  const auto expect_limits = [&help](const std::string& name, const std::string& unit, const std::string& least,
                                     const std::string& most) {
    const std::size_t at = help.find("\n  --" + name + ' ');
    ASSERT_NE(at, help.npos) << name;
    const std::string line = help.substr(at, help.find('\n', at + 1) - at);
    EXPECT_THAT(line, testing::EndsWith(" [" + least + " to " + most + unit + "]"));
  };
  for (const NumberOption& option : kNumbers) expect_limits(option.name, "", option.least, option.most);
  for (const DecimalOption& option : kDecimals) expect_limits(option.name, "", "0", option.most);
  for (const TimeOption& option : kTimes) expect_limits(option.name, " ps", option.least, option.most);
}

TEST(Options, ShowWordsAndDefaultsInTheHelp) {
  Options options;
  const std::string help = options.app().help();
  EXPECT_THAT(help, HasSubstr("\nUsage: vq_simulate_stream_file [OPTIONS] [FILE]\n"));
  EXPECT_THAT(help, HasSubstr("\n  --encoding raw64|delta32|packed_delta\n      encoding of the payload (raw64)\n"));
  EXPECT_THAT(help, HasSubstr("\n  --delta-bits N [1 to 31]\n      packed_delta: payload bits of a record (16)\n"));
  EXPECT_THAT(help, HasSubstr(" in a pair (160 ps)\n"));
  EXPECT_THAT(help, HasSubstr("\n      active channels, from 0 to 3 (0,1)\n"));
}

TEST(Options, KnowTheirWords) {
  EXPECT_EQ(settings_from({"--encoding=raw64"}).encoding, StreamFormat::raw64);
  EXPECT_EQ(settings_from({"--encoding=delta32"}).encoding, StreamFormat::delta32);
  EXPECT_EQ(settings_from({"--encoding=packed_delta"}).encoding, StreamFormat::packed_delta);
  EXPECT_EQ(settings_from({"--mode=internal"}).mode, StreamMode::internal);
  EXPECT_EQ(settings_from({"--mode=external"}).mode, StreamMode::external);
  EXPECT_EQ(settings_from({"--tag-format=ps"}).tag_format, "ps");
  EXPECT_EQ(settings_from({"--tag-format=raw_cf"}).tag_format, "raw_cf");
}

TEST(Options, RefuseOtherWords) {
  EXPECT_EQ(failure({"--encoding=raw32"}), "--encoding: raw32 not in {raw64,delta32,packed_delta}");
  EXPECT_EQ(failure({"--encoding=RAW64"}), "--encoding: RAW64 not in {raw64,delta32,packed_delta}");
  EXPECT_EQ(failure({"--encoding=0"}), "--encoding: 0 not in {raw64,delta32,packed_delta}");
  EXPECT_EQ(failure({"--mode=inside"}), "--mode: inside not in {internal,external}");
  EXPECT_EQ(failure({"--tag-format=cf"}), "--tag-format: cf not in {ps,raw_cf}");
}

TEST(Options, OfAnotherEncodingAreRefused) {
  for (const char* name : {"--delta-bits", "--quantum-ps", "--start-bit"}) {
    EXPECT_EQ(failure({"--encoding=packed_delta", name, "1"}), "none");
    for (const char* encoding : {"raw64", "delta32"}) {
      EXPECT_EQ(failure({"--encoding", encoding, name, "1"}),
                std::string(name) + ": only with --encoding packed_delta");
    }
  }
  EXPECT_EQ(failure({"--anchor-every=5"}), "--anchor-every: only with --encoding delta32 or packed_delta");
  EXPECT_EQ(failure({"--anchor-every=5", "--encoding=delta32"}), "none");
  EXPECT_EQ(failure({"--tag-format=ps", "--encoding=delta32"}), "--tag-format: only with --encoding raw64");
  EXPECT_EQ(failure({"--tag-format=ps", "--encoding=packed_delta"}), "--tag-format: only with --encoding raw64");
}

TEST(Options, TakeDifferentChannels) {
  EXPECT_THAT(active_channels_of(settings_from({"--channels=2"})), ElementsAre(2));
  EXPECT_THAT(active_channels_of(settings_from({"--channels=3,0,1"})), ElementsAre(0, 1, 3));
  for (const char* text : {"4", "0,", ",0", "0,0", "0 1", "0;1", "-1", "+1", "0,1,2,3,0"}) {
    EXPECT_EQ(failure({"--channels", text}),
              "--channels: '" + std::string(text) + "' is not a list of different channels from 0 to 3, as in 0,1");
  }
}

TEST(Options, TakeTwoChannelsForPairs) {
  const Settings settings = settings_from({"--pair-channels", "1,0"});
  EXPECT_EQ(settings.pairs.channel_a, 1u);
  EXPECT_EQ(settings.pairs.channel_b, 0u);
  for (const char* text : {"1", "0,1,2", "1,1", "0,4"}) {
    EXPECT_EQ(failure({"--pair-channels", text}),
              "--pair-channels: '" + std::string(text) + "' is not two different channels from 0 to 3, as in 0,1");
  }
}

TEST(Options, TakeTheFirstTwoActiveChannelsForPairsUnlessToldOtherwise) {
  const Settings settings = settings_from({"--channels=3,1,2"});
  EXPECT_EQ(settings.pairs.channel_a, 1u);
  EXPECT_EQ(settings.pairs.channel_b, 2u);
}

TEST(Options, MakeNoPairsOfOneChannelUnlessToldTo) {
  EXPECT_EQ(settings_from({"--channels=2"}).pairs.rate_hz, 0u);
  EXPECT_EQ(settings_from({"--channels=2", "--pair-rate=5"}).pairs.rate_hz, 5u);
}

TEST(Options, SpreadOneValueOverAllActiveChannels) {
  const Settings settings = settings_from({"--rate=5", "--dead-time=2ns", "--channels=0,2,3"});
  for (const unsigned c : {0u, 2u, 3u}) {
    EXPECT_EQ(settings.channels[c].rate_hz, 5u);
    EXPECT_EQ(settings.channels[c].dead_time_ps, 2000);
  }
  EXPECT_FALSE(settings.channels[1].active);
  EXPECT_EQ(settings.channels[1].rate_hz, 0u);
}

TEST(Options, GiveListsToTheChannelsInAscendingOrder) {
  const Settings settings = settings_from({"--rate=5,6", "--dead-time=1ns,2", "--channels=3,1"});
  EXPECT_EQ(settings.channels[1].rate_hz, 5u);
  EXPECT_EQ(settings.channels[3].rate_hz, 6u);
  EXPECT_EQ(settings.channels[1].dead_time_ps, 1000);
  EXPECT_EQ(settings.channels[3].dead_time_ps, 2);
}

TEST(Options, RefuseListsOfAnotherLength) {
  for (const char* name : {"--rate", "--dead-time"}) {
    EXPECT_EQ(failure({name, "1,2,3"}),
              std::string(name) + ": give one value, or one for each of the 2 active channels, not 3");
    EXPECT_EQ(failure({name, "1,2", "--channels=0,1,2"}),
              std::string(name) + ": give one value, or one for each of the 3 active channels, not 2");
  }
}

TEST(Options, RefuseListsWithAnItemThatIsNone) {
  EXPECT_EQ(failure({"--rate=5,,0"}), "--rate: '' is not a number from 0 to 100000000 with at most 2 decimals");
  EXPECT_EQ(failure({"--rate=5,x"}), "--rate: 'x' is not a number from 0 to 100000000 with at most 2 decimals");
  EXPECT_EQ(failure({"--dead-time=1,2m"}),
            "--dead-time: '2m' is not a time from 0 ps to 1000000000 ps, as in 250, 250ps, 10ns, 2us, 1ms or 3s");
}

TEST(Options, OfOtherLightAreRefused) {
  for (const char* name : {"--photons=1", "--pulse-jitter=5", "--pulse-period=5"}) {
    const std::string message = std::string(name).substr(0, std::string(name).find('=')) +
                                ": only with light in pulses (--light, --pulse-period)";
    EXPECT_EQ(failure({name}), message);
    EXPECT_EQ(failure({"--light=pulses", name}), "none");
  }
  EXPECT_EQ(failure({"--light=emitter", "--photons=1"}),
            "--photons: only with light in pulses (--light, --pulse-period)");
  EXPECT_EQ(failure({"--light=emitter", "--pulse-period=5ns", "--photons=1"}), "none");
  for (const char* name : {"--emission-rate=5", "--lifetime=5"}) {
    const std::string message =
        std::string(name).substr(0, std::string(name).find('=')) + ": only with an emitter of continuous light";
    EXPECT_EQ(failure({name}), message);
    EXPECT_EQ(failure({"--light=emitter", "--pulse-period=5ns", name}), message);
    EXPECT_EQ(failure({"--light=emitter", name}), "none");
  }
}

TEST(Options, OfLightLeaveOutThePairs) {
  EXPECT_EQ(settings_from({"--light=pulses"}).pairs.rate_hz, 0);
  EXPECT_EQ(settings_from({"--light=pulses", "--pair-rate=7"}).pairs.rate_hz, 7);
  EXPECT_EQ(settings_from({"--light=pulses"}).light.pulse_period_ps, 12'500);
  EXPECT_EQ(settings_from({"--light=emitter"}).light.pulse_period_ps, 0);
}

TEST(Options, SetTheUsualNumberOfTagsOnlyWithoutADuration) {
  EXPECT_EQ(settings_from({"--duration=1s"}).duration_ps, 1'000'000'000'000);
  EXPECT_FALSE(settings_from({"--duration=1s"}).tags);
  EXPECT_EQ(settings_from({"--duration=1s", "--tags=5"}).tags, 5u);
}

TEST(Options, TakeANegativeDelayInEitherForm) {
  EXPECT_EQ(settings_from({"--delay", "-160"}).pairs.delay_ps, -160);
  EXPECT_EQ(settings_from({"--delay=-2ns"}).pairs.delay_ps, -2000);
}

}  // namespace
