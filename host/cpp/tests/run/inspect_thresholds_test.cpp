// Each rule on both sides of its threshold.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "support/delta32_payload.hpp"
#include "support/inspected_capture.hpp"
#include "support/packed_payload.hpp"

namespace {

using namespace orvo::test;

using Tags = std::vector<MadeTag>;

class Thresholds : public InspectedCapture {
 protected:
  /// Writes raw64 tags and tells whether the finding is there, "S burst" for one.
  bool finds(const std::string& finding, const Tags& tags, unsigned mask = 1) {
    write(tags, mask);
    return all_codes().count(finding) != 0;
  }
  bool finds(const std::string& finding, const std::string& header, const Bytes& payload) {
    write(header, payload);
    return all_codes().count(finding) != 0;
  }
};

/// Random times of one channel: exponential distances, the same on every machine.
class Clicks {
 public:
  explicit Clicks(std::uint64_t seed) : state_(seed) {}
  double exponential(double mean) {
    state_ = state_ * 6'364'136'223'846'793'005 + 1'442'695'040'888'963'407;
    return -mean * std::log((static_cast<double>(state_ >> 11) + 0.5) / 9007199254740992.0);
  }
  /// Appends tags of a channel at a mean distance, from a time up to another.
  Tags at(unsigned channel, double mean_ps, double from, double to) {
    Tags tags;
    for (double time = from + exponential(mean_ps); time < to; time += exponential(mean_ps)) {
      tags.push_back({channel, static_cast<std::uint64_t>(time)});
    }
    return tags;
  }

 private:
  std::uint64_t state_;
};

Tags merged(Tags left, const Tags& right) {
  left.insert(left.end(), right.begin(), right.end());
  std::stable_sort(left.begin(), left.end(),
                   [](const MadeTag& a, const MadeTag& b) { return a.time_ps < b.time_ps; });
  return left;
}

/// Distances of 1 ms that vary a little, so that nothing else is found.
Tags steady(std::uint64_t count, std::uint64_t step_ps = 1'000'000'000) {
  Tags tags;
  for (std::uint64_t i = 0; i < count; ++i) tags.push_back({0, i * step_ps + i * i % 7});
  return tags;
}

TEST_F(Thresholds, HeaderValues) {
  const Bytes payload = raw64_payload(steady(10));
  const std::string sound = made_header("raw64", 1);
  EXPECT_FALSE(finds("S header_value", sound, payload));
  const auto with = [&](const std::string& what, const std::string& by) {
    std::string text = sound;
    return text.replace(text.find(what), what.size(), by);
  };
  for (const auto& [what, by] : std::vector<std::pair<std::string, std::string>>{
           {"\"channel_mask\":1", "\"channel_mask\":16"},
           {"\"channel_mask\":1", "\"channel_mask\":\"1\""},
           {"\"delta_bits\":16", "\"delta_bits\":0"},
           {"\"delta_bits\":16", "\"delta_bits\":32"},
           {"\"quantum_ps\":8", "\"quantum_ps\":0"},
           {"\"quantum_ps\":8", "\"quantum_ps\":65536"},
           {"\"quantum_ps\":8", "\"quantum_ps\":8.5"},
           {"\"tdl_index\":0", "\"tdl_index\":256"},
           {"\"tdl_index\":0", "\"tdl_index\":-1"},
           {"\"raw64\"", "\"raw-64\""},
           {"\"external\"", "\"outside\""},
           {"\"usb\"", "\"pci\""},
           {"\"application\":\"a\"", "\"application\":5"},
           {"\"application\":\"a\"", "\"application\":\"device_port\""},
           {"\"mode\":\"external\"", "\"mode\":\"external\",\"mode\":\"external\""},
           {"\"schema_version\":1", "\"schema_version\":2"},
           {"\"device_port\":\"d\"", "\"device_port\":\"\\u0041\""},
       }) {
    EXPECT_TRUE(finds("S header_value", with(what, by), payload)) << by;
  }
  for (const auto& [what, by] : std::vector<std::pair<std::string, std::string>>{
           {"\"channel_mask\":1", "\"channel_mask\":15"},
           {"\"delta_bits\":16", "\"delta_bits\":31"},
           {"\"delta_bits\":16", "\"delta_bits\":1"},
           {"\"quantum_ps\":8", "\"quantum_ps\":65535"},
           {"\"tdl_index\":0", "\"tdl_index\":255"},
           {"\"raw64\"", "\"RAW64\""},
           {"\"usb\"", "\"usb-async\""},
           {"\"ps\"", "\"\""},
       }) {
    EXPECT_FALSE(finds("S header_value", with(what, by), payload)) << by;
  }
}

TEST_F(Thresholds, PackedRecordsThatNobodyCanDecode) {
  EXPECT_FALSE(finds("B header_value", made_header("packed_delta", 3, 31), Bytes(5'000, 0)));
  EXPECT_TRUE(finds("B header_value", made_header("packed_delta", 3, 32), Bytes(5'000, 0)));
  EXPECT_EQ(report().at("payload").at("classes").back().at("bits"), 40'000);
}

TEST_F(Thresholds, HeaderFields) {
  const Bytes payload = raw64_payload(steady(10));
  std::string text = made_header("raw64", 1);
  EXPECT_FALSE(finds("N header_fields", text, payload));
  EXPECT_TRUE(finds("N header_fields", "{\"x\":1," + text.substr(1), payload));
  EXPECT_TRUE(finds("N header_fields", text.replace(text.find("\"tdl_index\":0,"), 14, ""), payload));
  std::string packed = made_header("packed_delta");
  EXPECT_TRUE(finds("N header_fields", packed.replace(packed.find("\"quantum_ps\":8"), 14, "\"quantum_ps\":12"), {}));
}

TEST_F(Thresholds, EmptyAndShortPayloads) {
  EXPECT_TRUE(finds("S empty", made_header(), {}));
  EXPECT_FALSE(finds("S empty", made_header(), {0}));
  EXPECT_TRUE(finds("N nothing_decodes", made_header("packed_delta"), Bytes(4'095, 0)));
  EXPECT_TRUE(finds("B nothing_decodes", made_header("packed_delta"), Bytes(4'096, 0)));
  EXPECT_TRUE(finds("B nothing_decodes", made_header("delta32"), Bytes(4, 0)));
}

TEST_F(Thresholds, LeadIn) {
  const Bytes records = raw64_payload(steady(10));
  EXPECT_FALSE(finds("N lead_in", made_header("raw64", 1), records));
  EXPECT_TRUE(finds("N lead_in", made_header("raw64", 1), Bytes(7, 0xFF) + records));
  EXPECT_TRUE(finds("S lead_in", made_header("raw64", 1), Bytes(8, 0xFF) + records));
  const Bytes words = d32_base(1'000) + d32_event(0, 0);
  EXPECT_TRUE(finds("N lead_in", made_header("delta32", 1), Bytes(65'600, 0) + words));
  EXPECT_TRUE(finds("S lead_in", made_header("delta32", 1), Bytes(65'601, 0) + words));
  EXPECT_TRUE(finds("N lead_in", made_header("delta32", 1), words + d32_event(1, 1)));
}

TEST_F(Thresholds, BytesLost) {
  const Bytes records = raw64_payload(steady(99));
  EXPECT_TRUE(finds("S bytes_lost", made_header("raw64", 1), records + Bytes(7, 0xFF) + records));
  EXPECT_TRUE(finds("B bytes_lost", made_header("raw64", 1), raw64_payload(steady(98)) + Bytes(16, 0xFF) + records));
}

TEST_F(Thresholds, SyncLost) {
  const auto capture = [](int breaks, std::size_t bytes) {
    Bytes payload = d32_base(1'000) + d32_event(0, 0);
    for (int i = 1; i <= breaks; ++i) {
      payload += Bytes(4, 0) + d32_base(1'000 + 100'000u * static_cast<unsigned>(i)) + d32_event(0, 0);
    }
    while (payload.size() < bytes) payload += d32_event(0, 3);
    return payload;
  };
  EXPECT_FALSE(finds("S sync_lost", made_header("delta32", 1), capture(0, 0)));
  EXPECT_TRUE(finds("S sync_lost", made_header("delta32", 1), capture(1, 0)));
  EXPECT_TRUE(finds("S sync_lost", made_header("delta32", 1), capture(9, 0)));
  EXPECT_TRUE(finds("B sync_lost", made_header("delta32", 1), capture(10, 0)));
  EXPECT_TRUE(finds("B sync_lost", made_header("delta32", 1), capture(10, 10'485'000)));
  EXPECT_TRUE(finds("S sync_lost", made_header("delta32", 1), capture(10, 10'486'000)));
}

TEST_F(Thresholds, CutRecords) {
  const Bytes payload = raw64_payload(steady(10));
  EXPECT_FALSE(finds("S cut_record", made_header("raw64", 1), payload));
  EXPECT_TRUE(finds("S cut_record", made_header("raw64", 1), payload + Bytes(1, 0)));
}

TEST_F(Thresholds, SilentChannels) {
  Tags tags = steady(14'000);
  EXPECT_TRUE(finds("N silent_channel", tags, 3));
  tags.push_back({0, 14'000'000'000'000});
  EXPECT_TRUE(finds("S silent_channel", tags, 3));
  EXPECT_FALSE(finds("S silent_channel", tags, 1));
  EXPECT_TRUE(finds("S outside_mask", tags, 2));
}

TEST_F(Thresholds, BackwardSteps) {
  const auto capture = [](std::uint64_t back) {
    Tags tags = steady(100);
    tags[50].time_ps = tags[49].time_ps - back;
    return tags;
  };
  EXPECT_FALSE(finds("N backward_steps", steady(100)));
  EXPECT_TRUE(finds("N backward_steps", capture(1'000'000)));
  EXPECT_TRUE(finds("S backward_steps", capture(1'000'001)));
}

TEST_F(Thresholds, LostLaps) {
  // Channel 0 all the time; channel 1 for a second, and again after a silence of a period and what is given.
  const auto capture = [](std::uint64_t silence) {
    Tags tags = steady(24'000);
    Tags other;
    for (std::uint64_t i = 0; i < 500; ++i) other.push_back({1, i * 2'000'000'000 + 1'000 + i % 5});
    const std::uint64_t again = other.back().time_ps + silence;
    for (std::uint64_t i = 0; i < 500; ++i) other.push_back({1, again + i * 2'000'000'000 + i % 3});
    return merged(tags, other);
  };
  EXPECT_FALSE(finds("B lap_lost", capture(7'000'000'000'000), 3));
  EXPECT_TRUE(finds("B lap_lost", capture(14'400'000'000'000), 3));
  Tags late = steady(15'000);
  Tags first_heard_after_the_wrap;
  for (std::uint64_t i = 0; i < 100; ++i) {
    first_heard_after_the_wrap.push_back({1, 14'500'000'000'000 + i * 1'000'000'000 + i % 3});
  }
  EXPECT_TRUE(finds("B lap_lost", merged(late, first_heard_after_the_wrap), 3));
  EXPECT_FALSE(finds("B lap_lost", merged(late, first_heard_after_the_wrap), 1));
}

TEST_F(Thresholds, Jumps) {
  // One tag of channel 1 lies that far before the tag before it.
  const auto capture = [](std::uint64_t back, std::uint64_t others) {
    Tags tags = steady(400);
    for (std::uint64_t i = 0; i < others; ++i) {
      tags.insert(tags.begin() + static_cast<std::ptrdiff_t>(1 + 2 * i), MadeTag{1, i * 1'000'000'000 + 300});
    }
    tags.push_back({1, tags.back().time_ps - back});
    return tags;
  };
  EXPECT_FALSE(finds("S time_jump", capture(1'000'000'000, 100), 3));
  EXPECT_TRUE(finds("S time_jump", capture(1'000'000'001, 100), 3));
  EXPECT_TRUE(finds("B time_jump", capture(1'000'000'001, 99), 3));
}

TEST_F(Thresholds, TwoStepsThatMakeAPeriod) {
  // Steps of a channel alone: `others` short ones, then the two.
  const auto capture = [](std::uint64_t others, std::uint64_t first, std::uint64_t second) {
    Tags tags = steady(others + 1);
    tags.push_back({0, tags.back().time_ps + first});
    tags.push_back({0, tags.back().time_ps + second});
    return tags;
  };
  // A step back of strictly more than half a period is a wrap: the first step is the longer one.
  constexpr std::uint64_t kLonger = kMadePeriodPs / 2 + 1'000;
  constexpr std::uint64_t kShorter = kMadePeriodPs / 2 - 1'000;
  EXPECT_TRUE(finds("B time_jump", capture(32, kLonger, kShorter)));
  EXPECT_FALSE(finds("B time_jump", capture(31, kLonger, kShorter)));
  EXPECT_TRUE(finds("B time_jump", capture(40, kLonger + kMadePeriodPs / 64, kShorter)));
  EXPECT_FALSE(finds("B time_jump", capture(40, kLonger + kMadePeriodPs / 64 + 1'000, kShorter)));
  EXPECT_TRUE(finds("B time_jump", capture(40, kMadePeriodPs - kMadePeriodPs / 4, kMadePeriodPs / 4)));
  EXPECT_FALSE(finds("B time_jump", capture(40, kMadePeriodPs - kMadePeriodPs / 4, kMadePeriodPs / 4 - 1'000)));
}

TEST_F(Thresholds, PausesOfAPeriodicChannel) {
  const auto capture = [](std::uint64_t missed) {
    Tags tags = steady(10'000, 10'000'000);
    for (std::size_t i = 5'000; i < tags.size(); ++i) tags[i].time_ps += missed * 10'000'000;
    return tags;
  };
  EXPECT_FALSE(finds("S pause", capture(12)));
  EXPECT_TRUE(finds("S pause", capture(13)));
}

TEST_F(Thresholds, EdgesOfAPeriodicChannel) {
  // Channel 1 clicks all the time, channel 0 some periods less at one end.
  const auto capture = [](std::uint64_t late, std::uint64_t early) {
    Tags tags;
    for (std::uint64_t i = 0; i < 20'000; ++i) {
      tags.push_back({1, i * 10'000'000 + 3 + i % 5});
      if (i >= late && i + early < 20'000) tags.push_back({0, i * 10'000'000 + 2'000'000 + i * i % 7});
    }
    return tags;
  };
  EXPECT_FALSE(finds("S starts_late", capture(12, 0), 3));
  EXPECT_TRUE(finds("S starts_late", capture(15, 0), 3));
  EXPECT_FALSE(finds("S falls_silent", capture(0, 12), 3));
  EXPECT_TRUE(finds("S falls_silent", capture(0, 15), 3));
}

TEST_F(Thresholds, Bunching) {
  Clicks clicks(7);
  const Tags random = clicks.at(0, 1e8, 0, 1e12);
  EXPECT_FALSE(finds("N bunched", random));
  Tags blinking;  // on and off, 2 ms each in the mean: 40 times as long as the distances while it is on
  for (double at = 0; at < 1e12;) {
    const double on = clicks.exponential(2e9);
    for (const MadeTag& tag : clicks.at(0, 5e7, at, at + on)) blinking.push_back(tag);
    at += on + clicks.exponential(2e9);
  }
  EXPECT_TRUE(finds("N bunched", blinking));
}

TEST_F(Thresholds, MissingTicks) {
  const auto capture = [](std::uint64_t count, std::uint64_t longer) {
    Tags tags = steady(count + 1, 10'000'000);
    for (std::uint64_t i = 1; i <= longer; ++i) {
      for (std::size_t j = tags.size() - 2 * i; j < tags.size(); ++j) tags[j].time_ps += 10'000'000;
    }
    return tags;
  };
  EXPECT_TRUE(finds("N missing_ticks", capture(1'000, 1)));
  EXPECT_FALSE(finds("N missing_ticks", capture(999, 1)));
  EXPECT_TRUE(finds("N missing_ticks", capture(1'000, 10)));
  EXPECT_FALSE(finds("N missing_ticks", capture(1'000, 11)));
  EXPECT_FALSE(finds("N missing_ticks", capture(1'000, 0)));
}

TEST_F(Thresholds, Bursts) {
  // The rate is ten times as high, or one and a half times, for 10 ms; or so at more places, 0.6 s apart.
  const auto capture = [](double factor, int places) {
    Clicks clicks(11);
    Tags tags;
    double at = 0;
    for (int i = 0; i < places; ++i) {
      for (const MadeTag& tag : clicks.at(0, 2e7, at, at + 6e11)) tags.push_back(tag);
      for (const MadeTag& tag : clicks.at(0, 2e7 / factor, at + 6e11, at + 6.1e11)) tags.push_back(tag);
      at += 6.1e11;
    }
    for (const MadeTag& tag : clicks.at(0, 2e7, at, at + 4e11)) tags.push_back(tag);
    return tags;
  };
  EXPECT_TRUE(finds("S burst", capture(10, 1)));
  EXPECT_FALSE(finds("S burst", capture(1.5, 1)));
  EXPECT_TRUE(finds("S burst", capture(10, 8)));
  EXPECT_TRUE(finds("N burst", capture(10, 9)));
}

TEST_F(Thresholds, RateSteps) {
  const auto capture = [](double factor, int places) {
    Clicks clicks(13);
    Tags tags;
    double at = 0;
    for (int i = 0; i <= places; ++i) {
      for (const MadeTag& tag : clicks.at(0, i % 2 == 0 ? 2e7 : 2e7 / factor, at, at + 2e11)) tags.push_back(tag);
      at += 2e11;
    }
    return tags;
  };
  EXPECT_TRUE(finds("S rate_step", capture(3, 1)));
  EXPECT_FALSE(finds("S rate_step", capture(1.7, 1)));
  EXPECT_TRUE(finds("S rate_step", capture(3, 8)));
  EXPECT_TRUE(finds("N rate_step", capture(3, 9)));
}

TEST_F(Thresholds, DeadTime) {
  // 1000 steps around 1 us; the shortest is 13.9 or 14.1 thousandths of the mean.
  const auto capture = [](std::uint64_t shortest, std::uint64_t count) {
    Clicks clicks(17);
    Tags tags{{0, 0}};
    for (std::uint64_t i = 1; i <= count; ++i) {
      const std::uint64_t step = i == 5 ? shortest : 500'000 + 1'000'000 * (i % 2);
      tags.push_back({0, tags.back().time_ps + step});
    }
    return tags;
  };
  EXPECT_TRUE(finds("N dead_time", capture(14'100, 1'000)));
  EXPECT_FALSE(finds("N dead_time", capture(13'900, 1'000)));
  EXPECT_TRUE(finds("N dead_time", capture(500'000, 100)));
  EXPECT_FALSE(finds("N dead_time", capture(500'000, 99)));
}

TEST_F(Thresholds, SharedLimits) {
  // Two channels that take turns at a fixed pace, so that their sum does not vary; or independent ones.
  Tags turns;
  Clicks clicks(19);
  for (std::uint64_t i = 0; i < 60'000; ++i) {
    turns.push_back({clicks.exponential(1) < 0.693 ? 0u : 1u, i * 20'000'000 + i % 5});
  }
  EXPECT_TRUE(finds("N shared_limit", turns, 3));
  EXPECT_FALSE(finds("N shared_limit", merged(clicks.at(0, 4e7, 0, 1.2e12), clicks.at(1, 4e7, 0, 1.2e12)), 3));
}

TEST_F(Thresholds, FrozenTimes) {
  EXPECT_TRUE(finds("S frozen_time", Tags(65, {0, 5})));
  EXPECT_FALSE(finds("S frozen_time", Tags(64, {0, 5})));
  Tags one_step = Tags(65, {0, 5});
  one_step.back().time_ps = 6;
  EXPECT_FALSE(finds("S frozen_time", one_step));
}

TEST_F(Thresholds, CoarseGrids) {
  const auto capture = [](std::uint64_t grid, std::uint64_t count) {
    Tags tags;
    for (std::uint64_t i = 0; i < count; ++i) tags.push_back({0, grid * (i * 1'000'000 + i * i % 7)});
    return tags;
  };
  EXPECT_TRUE(finds("N coarse_grid", capture(4, 33)));
  EXPECT_FALSE(finds("N coarse_grid", capture(4, 32)));
  EXPECT_FALSE(finds("N coarse_grid", capture(1, 33)));
  Tags equal;
  for (std::uint64_t i = 0; i < 40; ++i) equal.push_back({0, 4'000'000 * i});
  EXPECT_FALSE(finds("N coarse_grid", equal));
}

TEST_F(Thresholds, OverflowShare) {
  // Overflow records among data: every fifth, and one more than that.
  const auto capture = [](int overflows) {
    PackedWriter writer(16);
    writer.anchor(0, 1'000).anchor(1, 1'000);
    for (int i = 0; i < 8'000; ++i) {
      writer.data(static_cast<unsigned>(i % 2), 500 + static_cast<unsigned>(i * i % 7));
      if (i % 4 == 0 && i / 4 < overflows) writer.overflow(0, 1);
    }
    return writer.bytes();
  };
  EXPECT_FALSE(finds("N overflow_share", made_header("packed_delta"), capture(1'990)));
  PackedWriter many(16);
  many.anchor(0, 1'000).anchor(1, 1'000);
  for (int i = 0; i < 8'000; ++i) {
    many.data(static_cast<unsigned>(i % 2), 500);
    if (i % 3 == 0) many.overflow(0, 1);
  }
  EXPECT_TRUE(finds("N overflow_share", made_header("packed_delta"), many.bytes()));
}

TEST_F(Thresholds, Imbalance) {
  const auto capture = [](std::uint64_t first, std::uint64_t second) {
    Tags tags;
    for (std::uint64_t i = 0; i < first; ++i) tags.push_back({0, i * 1'000'000});
    for (std::uint64_t i = 0; i < second; ++i) tags.push_back({1, i * 2'000'000 + 3});
    return raw64_payload(merged(tags, {}));
  };
  const std::string internal = made_header("raw64", 3, 16, "internal");
  EXPECT_TRUE(finds("N imbalance", internal, capture(2'731, 1'365)));
  EXPECT_FALSE(finds("N imbalance", internal, capture(2'730, 1'365)));
  EXPECT_FALSE(finds("N imbalance", internal, capture(2'732, 1'366)));
  EXPECT_FALSE(finds("N imbalance", made_header("raw64", 3), capture(2'731, 1'365)));
}

TEST_F(Thresholds, Dates) {
  // The header says when the recording began; the file was last written to some seconds later.
  const auto capture = [this](int seconds, std::uint64_t duration_ps) {
    std::string text = made_header("raw64", 1);
    text.replace(text.find("1970-01-01T00:00:00"), 19, "2026-01-01T00:00:00");
    Tags tags = steady(100);
    tags.push_back({0, duration_ps});
    write(text, raw64_payload(tags));
    const std::string touch = "touch -d '2026-01-01 00:00:00 UTC + " + std::to_string(seconds) + " seconds' ";
    EXPECT_EQ(std::system((touch + path().string()).c_str()), 0);
    return all_codes().count("N shorter_than_dates") != 0;
  };
  EXPECT_FALSE(capture(11, 1'000'000'000'000));
  EXPECT_TRUE(capture(12, 1'000'000'000'000));
  EXPECT_FALSE(capture(24, 12'000'000'000'000));
  EXPECT_TRUE(capture(25, 12'000'000'000'000));
  EXPECT_TRUE(capture(86'400, 1'000'000'000'000));
  EXPECT_FALSE(capture(86'401, 1'000'000'000'000));
}

}  // namespace
