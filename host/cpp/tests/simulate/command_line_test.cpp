#include "simulate/command_line.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using orvo::timing::StreamFormat;
using orvo::timing::StreamMode;
using Arguments = std::vector<std::string>;

std::string failure(const Arguments& arguments) {
  try {
    settings_from(arguments);
  } catch (const UsageError& error) {
    return error.what();
  }
  return "none";
}

TEST(CommandLine, HasSettingsForEverythingThatIsNotSaid) {
  const Settings settings = settings_from({"a.tagcap"});
  EXPECT_EQ(settings.out, "a.tagcap");
  EXPECT_EQ(settings.encoding, StreamFormat::raw64);
  EXPECT_EQ(settings.mode, StreamMode::external);
  EXPECT_EQ(settings.tag_format, "ps");
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

TEST(CommandLine, TakesAValueBehindAnEqualsSignOrASpace) {
  for (const Arguments& arguments : {Arguments{"--seed=7", "--out=b"}, Arguments{"--out", "b", "--seed", "7"},
                                     Arguments{"b", "--seed", "7"}, Arguments{"--seed", "7", "b"}}) {
    EXPECT_EQ(settings_from(arguments).seed, 7u);
    EXPECT_EQ(settings_from(arguments).out, "b");
  }
  EXPECT_EQ(settings_from({"b", "--delay", "-160"}).pairs.delay_ps, -160);
  EXPECT_EQ(settings_from({"--out=--odd=name"}).out, "--odd=name");
}

TEST(CommandLine, RefusesAnUnknownEncoding) {
  EXPECT_EQ(failure({"--encoding=raw32"}), "--encoding: 'raw32' is none of raw64, delta32, packed_delta");
}

TEST(CommandLine, RefusesWhatItDoesNotKnow) {
  EXPECT_EQ(failure({"a", "--sead=7"}), "unknown option --sead (--help lists them)");
  EXPECT_EQ(failure({"a", "--sead", "7"}), "unknown option --sead (--help lists them)");
  EXPECT_EQ(failure({"a", "--"}), "unknown option -- (--help lists them)");
  EXPECT_EQ(failure({"a", "-s", "7"}), "unknown option -s (--help lists them)");
  EXPECT_EQ(failure({"a", "-out", "7"}), "unknown option -out (--help lists them)");
  EXPECT_EQ(failure({"a", "--Seed", "7"}), "unknown option --Seed (--help lists them)");
}

TEST(CommandLine, RefusesOptionsWithoutAValueOrGivenTwice) {
  EXPECT_EQ(failure({"a", "--seed"}), "--seed: no value given");
  EXPECT_EQ(failure({"a", "--seed", "--rate=5"}), "--seed: no value given");
  EXPECT_EQ(failure({"a", "--seed=1", "--seed", "2"}), "--seed: given twice, the second time as '2'");
  EXPECT_EQ(failure({"a", "b"}), "--out: given twice, the second time as 'b'");
}

TEST(CommandLine, KnowsARequestForHelpAnywhere) {
  EXPECT_TRUE(help_wanted({"a", "--seed", "x", "--help"}));
  EXPECT_TRUE(help_wanted({"-h"}));
  EXPECT_FALSE(help_wanted({"a", "--seed=1"}));
}

TEST(CommandLine, RefusesOptionsThatTheEncodingHasNoUseFor) {
  for (const char* name : {"delta-bits", "quantum-ps", "start-bit"}) {
    for (const char* encoding : {"raw64", "delta32"}) {
      EXPECT_EQ(failure({"--encoding", encoding, "--" + std::string(name), "1"}),
                "--" + std::string(name) + ": only with --encoding packed_delta");
    }
  }
  EXPECT_EQ(failure({"--anchor-every=5"}), "--anchor-every: only with --encoding delta32 or packed_delta");
  EXPECT_EQ(failure({"--anchor-every=5", "--encoding=delta32"}), "none");
  EXPECT_EQ(failure({"--tag-format=ps", "--encoding=delta32"}), "--tag-format: only with --encoding raw64");
  EXPECT_EQ(failure({"--tag-format=ps", "--encoding=packed_delta"}), "--tag-format: only with --encoding raw64");
}

TEST(CommandLine, AppliesChannelsBeforeWhatDependsOnThem) {
  const Settings settings = settings_from({"--rate=5,6", "--dead-time=1ns,2ns", "--channels=3,1"});
  EXPECT_EQ(settings.channels[1].rate_hz, 5u) << "in ascending order of the channels";
  EXPECT_EQ(settings.channels[3].rate_hz, 6u);
  EXPECT_EQ(settings.channels[1].dead_time_ps, 1000);
  EXPECT_EQ(settings.channels[3].dead_time_ps, 2000);
  EXPECT_FALSE(settings.channels[0].active);
  EXPECT_EQ(settings.pairs.channel_a, 1u);
  EXPECT_EQ(settings.pairs.channel_b, 3u);
}

TEST(CommandLine, MakesNoPairsOfOneChannelUnlessToldTo) {
  EXPECT_EQ(settings_from({"--channels=2"}).pairs.rate_hz, 0u);
  EXPECT_EQ(settings_from({"--channels=2", "--pair-rate=5"}).pairs.rate_hz, 5u);
}

TEST(CommandLine, SetsTheUsualNumberOfTagsOnlyWithoutADuration) {
  EXPECT_FALSE(settings_from({"--duration=1s"}).tags);
  EXPECT_EQ(settings_from({"--duration=1s", "--tags=5"}).tags, 5u);
}

}  // namespace
