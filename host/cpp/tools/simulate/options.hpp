#pragma once
// Part of vq_simulate_stream_file: file-local throughout.
// The options: names, limits, what they set, and what the help says of them.
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string_view>
#include <vector>

#include "orvo/timing/detail/device_time.hpp"
#include "orvo/timing/stream_file_header.hpp"
#include "simulate/option_value.hpp"
#include "simulate/settings.hpp"

namespace {

/// The captures that an option means something to.
enum class OptionScope { any, raw64, anchored, packed };

struct Option {
  std::string_view name;
  std::string_view placeholder;  ///< of its value, in the help
  Limits limits;
  OptionScope scope;
  void (*apply)(Settings&, const OptionValue&);
  std::string_view help;

  bool is_time() const { return placeholder.starts_with("TIME"); }
};

inline std::vector<unsigned> active_channels_of(const Settings& settings) {
  std::vector<unsigned> active;
  for (unsigned c = 0; c < orvo::timing::kChannels; ++c) {
    if (settings.channels[c].active) active.push_back(c);
  }
  return active;
}

/// The first two active channels make pairs unless told otherwise.
inline void set_active_channels(Settings& settings, const std::vector<unsigned>& channels) {
  for (ChannelSettings& channel : settings.channels) channel = {};
  for (const unsigned c : channels) settings.channels[c] = {true, ChannelSettings::kUsualRateHz, 0};
  const std::vector<unsigned> active = active_channels_of(settings);
  settings.pairs.channel_a = active.front();
  settings.pairs.channel_b = active.size() > 1 ? active[1] : active.front();
  if (active.size() == 1) settings.pairs.rate_hz = 0;
}

inline void set_rates(Settings& settings, const OptionValue& value) {
  const std::vector<unsigned> active = active_channels_of(settings);
  const std::vector<std::uint64_t> rates = value.numbers(active.size());
  for (std::size_t i = 0; i < active.size(); ++i) settings.channels[active[i]].rate_hz = rates[i];
}

inline void set_dead_times(Settings& settings, const OptionValue& value) {
  const std::vector<unsigned> active = active_channels_of(settings);
  const std::vector<std::int64_t> times = value.times_ps(active.size());
  for (std::size_t i = 0; i < active.size(); ++i) settings.channels[active[i]].dead_time_ps = times[i];
}

inline void set_pair_channels(Settings& settings, const OptionValue& value) {
  const std::vector<unsigned> channels = value.channels();
  if (channels.size() != 2)
    throw UsageError("--pair-channels: '" + value.text() + "' is not two channels, as in 0,1");
  settings.pairs.channel_a = channels[0];
  settings.pairs.channel_b = channels[1];
}

inline constexpr Limits kAnyWord{};
inline constexpr std::uint64_t kMostBytes = 1'000'000'000'000;
inline constexpr std::uint64_t kMillisecondPs = 1'000'000'000;

/// In the order in which they are applied, whatever their order on the command line.
inline constexpr Option kOptions[] = {
    {"out", "FILE", kAnyWord, OptionScope::any, [](Settings& s, const OptionValue& v) { s.out = v.text(); },
     "the capture to write; a first argument without a name is the same"},
    {"encoding", "WORD", kAnyWord, OptionScope::any,
     [](Settings& s, const OptionValue& v) {
       s.encoding = static_cast<orvo::timing::StreamFormat>(v.choice({"raw64", "delta32", "packed_delta"}));
     },
     "raw64 (if nothing is said), delta32 or packed_delta"},
    {"tag-format", "WORD", kAnyWord, OptionScope::raw64,
     [](Settings& s, const OptionValue& v) {
       s.tag_format = v.choice({"ps", "raw_cf"}) == 0 ? "ps" : "raw_cf";
     },
     "of raw64 words: ps, or raw_cf for coarse and fine counts (ps)"},
    {"delta-bits", "N", Limits{1, 31}, OptionScope::packed,
     [](Settings& s, const OptionValue& v) { s.delta_bits = static_cast<unsigned>(v.number()); },
     "payload bits of a packed record (16)"},
    {"quantum-ps", "N", Limits{1, 65'535}, OptionScope::packed,
     [](Settings& s, const OptionValue& v) { s.quantum_ps = static_cast<unsigned>(v.number()); },
     "time quantum of packed records, of which the power of two counts (8)"},
    {"start-bit", "N", Limits{0, 7}, OptionScope::packed,
     [](Settings& s, const OptionValue& v) { s.start_bit = static_cast<unsigned>(v.number()); },
     "bit of the first byte at which packed records start (0)"},
    {"anchor-every", "N", Limits{1, 1'000'000}, OptionScope::anchored,
     [](Settings& s, const OptionValue& v) { s.anchor_every = v.number(); },
     "tags of a channel from one time base or anchor to the next (1000)"},
    {"mode", "WORD", kAnyWord, OptionScope::any,
     [](Settings& s, const OptionValue& v) {
       s.mode = static_cast<orvo::timing::StreamMode>(v.choice({"internal", "external"}));
     },
     "internal or external (external)"},
    {"channels", "N[,N...]", kAnyWord, OptionScope::any,
     [](Settings& s, const OptionValue& v) { set_active_channels(s, v.channels()); }, "active channels (0,1)"},
    {"rate", "N[,N...]", Limits{0, 100'000'000}, OptionScope::any, set_rates,
     "uncorrelated tags per second: one number, or one for each active channel (100000)"},
    {"dead-time", "TIME[,TIME...]", Limits{0, kMillisecondPs}, OptionScope::any, set_dead_times,
     "for which a channel is blind behind a tag: one time, or one for each active channel (0)"},
    {"pair-channels", "A,B", kAnyWord, OptionScope::any, set_pair_channels,
     "channels of the correlated pairs (the first two active ones)"},
    {"pair-rate", "N", Limits{0, 100'000'000}, OptionScope::any,
     [](Settings& s, const OptionValue& v) { s.pairs.rate_hz = v.number(); }, "correlated pairs per second (50000)"},
    {"delay", "TIME", Limits{-static_cast<std::int64_t>(kMillisecondPs), kMillisecondPs}, OptionScope::any,
     [](Settings& s, const OptionValue& v) { s.pairs.delay_ps = v.time_ps(); }, "of B behind A in a pair (160)"},
    {"jitter", "TIME", Limits{0, 1'000'000}, OptionScope::any,
     [](Settings& s, const OptionValue& v) { s.pairs.jitter_ps = v.time_ps(); },
     "standard deviation of the delay, Gaussian (40)"},
    {"range", "TIME", Limits{1, kMillisecondPs}, OptionScope::any,
     [](Settings& s, const OptionValue& v) { s.pairs.range_ps = v.time_ps(); },
     "distance from the delay up to which coincidences are told (5000)"},
    {"tags", "N", Limits{0, 1'000'000'000'000}, OptionScope::any,
     [](Settings& s, const OptionValue& v) { s.tags = v.number(); }, "length of the capture in tags (1000000)"},
    {"duration", "TIME", Limits{0, static_cast<std::uint64_t>(kLongestPs)}, OptionScope::any,
     [](Settings& s, const OptionValue& v) { s.duration_ps = v.time_ps(); }, "length of the capture in time"},
    {"start", "TIME", Limits{0, orvo::timing::detail::kDevicePeriodPs - 1}, OptionScope::any,
     [](Settings& s, const OptionValue& v) { s.start_ps = v.time_ps(); },
     "device time at the start; it wraps at 14315125997568 ps (0)"},
    {"seed", "N", Limits{0, std::numeric_limits<std::uint64_t>::max()}, OptionScope::any,
     [](Settings& s, const OptionValue& v) { s.seed = v.number(); }, "of the random numbers (1)"},
    {"front-garbage", "N", Limits{0, kMostBytes}, OptionScope::any,
     [](Settings& s, const OptionValue& v) { s.damage.front_garbage_bytes = v.number(); },
     "bytes of garbage before the payload (0)"},
    {"garbage", "N", Limits{0, kMostBytes}, OptionScope::any,
     [](Settings& s, const OptionValue& v) { s.damage.garbage_bytes = v.number(); },
     "bytes of garbage inside the payload (0)"},
    {"garbage-at", "N", Limits{0, kMostBytes}, OptionScope::any,
     [](Settings& s, const OptionValue& v) { s.damage.garbage_at = v.number(); },
     "payload byte before which that garbage stands (0)"},
    {"flip-every", "N", Limits{0, kMostBytes}, OptionScope::any,
     [](Settings& s, const OptionValue& v) { s.damage.flip_every_bytes = v.number(); },
     "one random bit is flipped in each stretch of so many bytes; 0 flips none (0)"},
    {"cut-tail", "N", Limits{0, kMostBytes}, OptionScope::any,
     [](Settings& s, const OptionValue& v) { s.damage.cut_tail_bytes = v.number(); },
     "bytes cut off the end of the payload (0)"},
};

}  // namespace
