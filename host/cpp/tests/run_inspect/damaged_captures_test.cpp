// What is found in captures that something was done to: each by its name, and nothing else above a note where that is
// said.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "support/inspected_capture.hpp"
#include "support/packed_payload.hpp"

namespace {

using namespace orvo::test;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

class DamagedCaptures : public InspectedCapture {
 protected:
  /// Bytes from `from` up to `to` of the payload.
  static Bytes part(const Bytes& payload, std::size_t from, std::size_t to) {
    return Bytes(payload.begin() + static_cast<std::ptrdiff_t>(from),
                 payload.begin() + static_cast<std::ptrdiff_t>(to));
  }
  static Bytes with_flipped_bit(Bytes payload, std::size_t record, unsigned bit) {
    std::uint8_t& byte = payload[8 * record + 7 - bit / 8];
    byte = static_cast<std::uint8_t>(byte ^ 1u << bit % 8);
    return payload;
  }
  static std::string replaced(std::string text, const std::string& what, const std::string& by) {
    return text.replace(text.find(what), what.size(), by);
  }
  /// The tags of the capture that stay when one channel says nothing from `from` to `to`, both in ps.
  void silence(unsigned channel, std::uint64_t from, std::uint64_t to) {
    const Bytes all = payload();
    Bytes rest;
    std::uint64_t epoch = 0;
    std::uint64_t last = 0;
    for (std::size_t at = 0; at < all.size(); at += 8) {
      std::uint64_t word = 0;
      for (std::size_t i = 0; i < 8; ++i) word = word << 8 | all[at + i];
      std::uint64_t time = (word & 0xFFF'FFFF'FFFF) + epoch;
      if (time + kMadePeriodPs / 2 < last) time += kMadePeriodPs, epoch += kMadePeriodPs;
      last = std::max(last, time);
      if ((word >> 61 & 3) != channel || time < from || time >= to) rest += part(all, at, at + 8);
    }
    write(header(), rest);
  }
};

TEST_F(DamagedCaptures, SoundOnesAreHealthy) {
  for (const char* encoding : {"raw64", "delta32", "packed_delta"}) {
    simulate({"--encoding", encoding});
    EXPECT_THAT(alarms(), IsEmpty()) << encoding;
    EXPECT_EQ(report().at("verdict"), "healthy");
  }
}

TEST_F(DamagedCaptures, ForeignBytes) {
  simulate({"--garbage", "100", "--garbage-at", "1600004"});
  EXPECT_THAT(all_codes(), AllOf(Contains("S bytes_lost"), Not(Contains("B lap_lost")), Not(Contains("S pause"))));
}

TEST_F(DamagedCaptures, ACutRecord) {
  simulate({"--cut-tail", "3"});
  EXPECT_THAT(alarms(), ElementsAre("S cut_record"));
}

TEST_F(DamagedCaptures, ManyFlippedBits) {
  simulate({"--flip-every", "1000"});
  EXPECT_THAT(all_codes(), AllOf(Contains("S bytes_lost"), Contains("S outside_mask"), Contains("B time_jump"),
                                 Not(Contains("B lap_lost"))));
}

// The case that takes the coincidences: from the flipped bit on, the channel is a device period late.
TEST_F(DamagedCaptures, OneFlippedBitThatCostsAPeriod) {
  simulate({});
  const Bytes sound = payload();
  write(header(), with_flipped_bit(sound, 100'000, 43));
  EXPECT_THAT(alarms(), ElementsAre("B time_jump"));
  write(header(), with_flipped_bit(sound, 100'000, 35));
  EXPECT_THAT(alarms(), ElementsAre("S backward_steps", "S time_jump"));
  const Json found = report();
  EXPECT_THAT(std::string(found.at("findings").at(0).at("text")), testing::HasSubstr("bit 35 flipped"));
}

TEST_F(DamagedCaptures, OneFlippedBitOfALoneChannel) {
  simulate({"--channels", "2", "--rate", "50000", "--pair-rate", "0"});
  write(header(), with_flipped_bit(payload(), 50'000, 43));
  EXPECT_THAT(all_codes(), AllOf(Contains("B time_jump"), Not(Contains("B lap_lost"))));
}

TEST_F(DamagedCaptures, AChannelThatIsQuietForLongerThanItsClockCanTell) {
  simulate({"--seed", "11", "--rate", "2000", "--pair-rate", "0", "--duration", "40s"}, false);
  silence(1, 5 * kMadeSecondPs, 20 * kMadeSecondPs);
  EXPECT_THAT(all_codes(), AllOf(Contains("B lap_lost"), Not(Contains("B time_jump")), Not(Contains("S time_jump"))));
  const Json found = report();
  EXPECT_EQ(found.at("findings").at(0).at("channel"), 1);
  EXPECT_THAT(std::string(found.at("findings").at(0).at("text")), StartsWith("quiet for 15.0 s, is 14.31"));
}

TEST_F(DamagedCaptures, AQuietChannelWithinItsClock) {
  simulate({"--seed", "11", "--rate", "2000", "--pair-rate", "0", "--duration", "40s"}, false);
  silence(1, 5 * kMadeSecondPs, 8 * kMadeSecondPs);
  EXPECT_THAT(all_codes(), AllOf(Contains("S pause"), Not(Contains("B lap_lost"))));
}

TEST_F(DamagedCaptures, AChannelThatFallsSilent) {
  simulate({"--seed", "11", "--rate", "2000", "--pair-rate", "0", "--duration", "40s"}, false);
  silence(1, 5 * kMadeSecondPs, 100 * kMadeSecondPs);
  EXPECT_THAT(all_codes(), AllOf(Contains("S falls_silent"), Not(Contains("S pause"))));
}

TEST_F(DamagedCaptures, WrongMasks) {
  simulate({});
  const std::string sound = header();
  write(replaced(sound, "\"channel_mask\":3", "\"channel_mask\":7"), payload());
  EXPECT_THAT(all_codes(), Contains("N silent_channel"));
  EXPECT_THAT(alarms(), IsEmpty());
  write(replaced(sound, "\"channel_mask\":3", "\"channel_mask\":1"), payload());
  EXPECT_THAT(alarms(), ElementsAre("S outside_mask"));
  write(replaced(sound, "\"channel_mask\":3", "\"channel_mask\":0"), payload());
  EXPECT_THAT(alarms(), ElementsAre("S header_value"));
  write(sound + "}", payload());
  EXPECT_THAT(alarms(), ElementsAre("S header_not_json"));
}

TEST_F(DamagedCaptures, ASilentChannelOfALongCaptureIsNoChance) {
  simulate({"--seed", "11", "--rate", "1000", "--pair-rate", "0", "--duration", "16s"}, false);
  write(replaced(header(), "\"channel_mask\":3", "\"channel_mask\":7"), payload());
  EXPECT_THAT(alarms(), ElementsAre("S silent_channel"));
}

TEST_F(DamagedCaptures, WrongEncodings) {
  simulate({"--encoding", "delta32"});
  write(replaced(header(), "delta32", "raw64"), payload());
  EXPECT_THAT(all_codes(), Contains("B other_encoding"));
  simulate({"--tag-format", "raw_cf"});
  write(replaced(header(), "raw_cf", "ps"), payload());
  EXPECT_THAT(all_codes(), Contains("B other_encoding"));
  simulate({"--encoding", "packed_delta"});
  write(replaced(header(), "\"delta_bits\":16", "\"delta_bits\":12"), payload());
  EXPECT_THAT(all_codes(), Contains("B other_encoding"));
  EXPECT_THAT(std::string(report().at("findings").at(1).at("text")), testing::HasSubstr("delta_bits 16"));
}

TEST_F(DamagedCaptures, FlippedBitsOfDelta32) {
  simulate({"--encoding", "delta32", "--flip-every", "200000"});
  EXPECT_THAT(all_codes(), AllOf(Contains("S sync_lost"), Contains("S bytes_lost"), Not(Contains("S duplicated"))));
}

TEST_F(DamagedCaptures, BytesPutIntoPackedRecords) {
  simulate({"--encoding", "packed_delta", "--rate", "1000000", "--pair-rate", "0", "--garbage", "5", "--garbage-at",
            "300000"});
  EXPECT_THAT(all_codes(), AllOf(Contains("S lock_lost"), Contains("S bytes_lost")));
  write(header(), part(payload(), 0, 600'000));
  EXPECT_THAT(all_codes(), AllOf(Contains("S lock_lost"), Contains("B bytes_lost")));
}

// Even rates at first, so that the records align; then one channel is 1500 times as fast, and the call is discarded.
TEST_F(DamagedCaptures, ALockThatIsGivenUpForItsImbalance) {
  PackedWriter writer(13);
  writer.anchor(0, 1'000).anchor(1, 1'000);
  for (int i = 0; i < 40'000; ++i) writer.data(static_cast<unsigned>(i % 2), 500);
  for (int i = 0; i < 200'000; ++i) writer.data(i % 1'500 == 0 ? 1 : 0, 500);
  write(made_header("packed_delta", 3, 13, "internal"), writer.bytes());
  EXPECT_THAT(all_codes(),
              AllOf(Contains("S lock_lost"), Contains("B nothing_decodes"), Not(Contains("S cut_record"))));
}

TEST_F(DamagedCaptures, RecordsLeftOut) {
  simulate({});
  const Bytes sound = payload();
  write(header(), part(sound, 0, 800'000) + part(sound, 960'000, sound.size()));
  EXPECT_THAT(all_codes(), AllOf(Contains("S pause"), Not(Contains("S bytes_lost"))));
}

TEST_F(DamagedCaptures, ABufferWrittenTwice) {
  simulate({});
  Bytes sound = payload();
  write(header(), part(sound, 0, 800'000) + part(sound, 800'000 - 8 * 4'096, sound.size()));
  EXPECT_THAT(all_codes(), AllOf(Contains("S duplicated"), Not(Contains("B lap_lost"))));
  simulate({"--encoding", "delta32", "--anchor-every", "1000000"});
  sound = payload();
  write(header(), part(sound, 0, 800'000) + part(sound, 800'000 - 4 * 3'000, sound.size()));
  EXPECT_THAT(all_codes(), AllOf(Contains("S duplicated"), Not(Contains("B lap_lost"))));
}

/// Tags of both channels, evenly random at a rate, from a time on.
std::vector<MadeTag> random_tags(std::uint64_t seed, double rate_hz, std::uint64_t from, std::uint64_t to) {
  std::vector<MadeTag> tags;
  std::uint64_t state = seed * 2 + 1;
  const double mean_ps = 0.5e12 / rate_hz;
  for (double at = static_cast<double>(from);;) {
    state = state * 6'364'136'223'846'793'005 + 1'442'695'040'888'963'407;
    at -= mean_ps * std::log((static_cast<double>(state >> 11) + 0.5) / 9007199254740992.0);
    if (at >= static_cast<double>(to)) return tags;
    tags.push_back({static_cast<unsigned>(state >> 40 & 1), static_cast<std::uint64_t>(at)});
  }
}

std::vector<MadeTag> operator+(std::vector<MadeTag> left, const std::vector<MadeTag>& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

TEST_F(DamagedCaptures, AStepOfTheRate) {
  write(random_tags(1, 20'000, 0, 2 * kMadeSecondPs) + random_tags(2, 60'000, 2 * kMadeSecondPs, 4 * kMadeSecondPs));
  EXPECT_THAT(alarms(), ElementsAre("S rate_step"));
}

TEST_F(DamagedCaptures, ABurst) {
  constexpr std::uint64_t kEnd = 2 * kMadeSecondPs + kMadeSecondPs / 100;
  write(random_tags(1, 20'000, 0, 2 * kMadeSecondPs) + random_tags(2, 500'000, 2 * kMadeSecondPs, kEnd) +
        random_tags(3, 20'000, kEnd, 4 * kMadeSecondPs));
  EXPECT_THAT(all_codes(), AllOf(Contains("S burst"), Not(Contains("S pause"))));
}

TEST_F(DamagedCaptures, GarbageInFront) {
  simulate({"--front-garbage", "5000"});
  EXPECT_THAT(all_codes(), AllOf(Contains("S lead_in"), Not(Contains("S bytes_lost"))));
}

TEST_F(DamagedCaptures, AClockThatStandsStill) {
  write(made_header(), Bytes(80'000, 0));
  EXPECT_THAT(alarms(), ElementsAre("S frozen_time"));
}

/// A tick each 10 us on channel 0, but for those that are missing.
std::vector<MadeTag> ticks(std::uint64_t count, std::uint64_t first_missing, std::uint64_t missing,
                           std::uint64_t every) {
  std::vector<MadeTag> tags;
  for (std::uint64_t i = 1; i < count; ++i) {
    const bool is_missing =
        i >= first_missing && (i - first_missing) / every < missing && (i - first_missing) % every == 0;
    if (!is_missing) tags.push_back({0, 10'000'000 * i});
  }
  return tags;
}

TEST_F(DamagedCaptures, MissingTicks) {
  write(ticks(200'000, 1'000, 4, 30'000), 1);
  EXPECT_THAT(all_codes(), Contains("N missing_ticks"));
  EXPECT_THAT(alarms(), IsEmpty());
  write(ticks(200'000, 100'000, 20, 1), 1);
  EXPECT_THAT(alarms(), ElementsAre("S pause"));
}

}  // namespace
