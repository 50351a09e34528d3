#include "simulate/options.hpp"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <set>
#include <string>

#include "simulate/command_line.hpp"

namespace {

using orvo::timing::StreamFormat;
using orvo::timing::StreamMode;

Settings with(const std::string& name, const std::string& value, bool packed = false) {
  return settings_from({"--encoding", packed ? "packed_delta" : "raw64", "--" + name, value});
}

std::string failure(const std::string& name, const std::string& value, bool packed = false) {
  try {
    with(name, value, packed);
  } catch (const UsageError& error) {
    return error.what();
  }
  return "none";
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
    {"rate", "-1", "0", "100000000", "100000001", [](const Settings& s) { return s.channels[1].rate_hz; }},
    {"pair-rate", "-1", "0", "100000000", "100000001", [](const Settings& s) { return s.pairs.rate_hz; }},
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
      EXPECT_EQ(option.set(with(option.name, value, option.packed)), std::stoull(value)) << option.name;
    }
    for (const std::string& value : {option.below, option.above}) {
      EXPECT_EQ(
          failure(option.name, value, option.packed),
          "--" + option.name + ": '" + value + "' is not a whole number from " + option.least + " to " + option.most);
    }
  }
}

/// The same for times.
struct TimeOption {
  std::string name;
  std::string below, least, most, above;
  std::int64_t (*set)(const Settings&);
};

const TimeOption kTimes[] = {
    {"dead-time", "-1", "0", "1000000000", "1000000001",
     [](const Settings& s) { return s.channels[0].dead_time_ps; }},
    {"delay", "-1000000001", "-1000000000", "1000000000", "1000000001",
     [](const Settings& s) { return s.pairs.delay_ps; }},
    {"jitter", "-1", "0", "1000000", "1000001", [](const Settings& s) { return s.pairs.jitter_ps; }},
    {"range", "0", "1", "1000000000", "1000000001", [](const Settings& s) { return s.pairs.range_ps; }},
    {"duration", "-1", "0", "1000000000000000000", "1000000000000000001",
     [](const Settings& s) { return *s.duration_ps; }},
    {"start", "-1", "0", "14315125997567", "14315125997568", [](const Settings& s) { return s.start_ps; }},
};

TEST(Options, HoldTimesToTheirLimits) {
  for (const TimeOption& option : kTimes) {
    for (const std::string& value : {option.least, option.most}) {
      EXPECT_EQ(option.set(with(option.name, value)), std::stoll(value)) << option.name;
    }
    for (const std::string& value : {option.below, option.above}) {
      EXPECT_EQ(failure(option.name, value), "--" + option.name + ": '" + value + "' is not a time from " +
                                                 option.least + " ps to " + option.most +
                                                 " ps, as in 250, 250ps, 10ns, 2us, 1ms or 3s");
    }
  }
}

TEST(Options, WithLimitsAreAllTestedHere) {
  std::set<std::string> tested;
  for (const NumberOption& option : kNumbers) tested.insert(option.name);
  for (const TimeOption& option : kTimes) tested.insert(option.name);
  for (const Option& option : kOptions) {
    EXPECT_EQ(tested.count(std::string(option.name)), option.limits.most == 0 ? 0u : 1u) << option.name;
  }
}

TEST(Options, KnowTheirWords) {
  EXPECT_EQ(settings_from({"--encoding=raw64"}).encoding, StreamFormat::raw64);
  EXPECT_EQ(settings_from({"--encoding=delta32"}).encoding, StreamFormat::delta32);
  EXPECT_EQ(settings_from({"--encoding=packed_delta"}).encoding, StreamFormat::packed_delta);
  EXPECT_EQ(with("mode", "internal").mode, StreamMode::internal);
  EXPECT_EQ(with("mode", "external").mode, StreamMode::external);
  EXPECT_EQ(with("tag-format", "ps").tag_format, "ps");
  EXPECT_EQ(with("tag-format", "raw_cf").tag_format, "raw_cf");
  EXPECT_EQ(failure("mode", "inside"), "--mode: 'inside' is none of internal, external");
  EXPECT_EQ(failure("tag-format", "cf"), "--tag-format: 'cf' is none of ps, raw_cf");
  EXPECT_EQ(failure("channels", "0,4"), "--channels: '0,4' is no list of different channels from 0 to 3, as in 0,1");
}

TEST(Options, TakeTwoChannelsForPairs) {
  const Settings settings = with("pair-channels", "1,0");
  EXPECT_EQ(settings.pairs.channel_a, 1u);
  EXPECT_EQ(settings.pairs.channel_b, 0u);
  EXPECT_EQ(failure("pair-channels", "1"), "--pair-channels: '1' is not two channels, as in 0,1");
  EXPECT_EQ(failure("pair-channels", "0,1,2"), "--pair-channels: '0,1,2' is not two channels, as in 0,1");
  EXPECT_EQ(failure("pair-channels", "1,1"),
            "--pair-channels: '1,1' is no list of different channels from 0 to 3, as in 0,1");
}

TEST(Options, TakeListsForTheActiveChannels) {
  EXPECT_EQ(failure("rate", "1,2,3"), "--rate: give one value, or one for each of the 2 active channels, not 3");
  EXPECT_EQ(failure("dead-time", "1,2,3"),
            "--dead-time: give one value, or one for each of the 2 active channels, not 3");
}

}  // namespace
