#pragma once
// Deterministic inputs for the benchmarks: two channels of random events, of which a share are pairs, and payloads of
// them in each encoding.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "orvo/timing/stream_file_header.hpp"
#include "orvo/timing/time_tag.hpp"

namespace orvo::bench {

using Times = std::vector<std::int64_t>;
using Bytes = std::vector<std::uint8_t>;

/// splitmix64
class Random {
 public:
  explicit Random(std::uint64_t seed) : state_(seed) {}
  std::uint64_t bits() {
    std::uint64_t z = state_ += 0x9E37'79B9'7F4A'7C15;
    z = (z ^ z >> 30) * 0xBF58'476D'1CE4'E5B9;
    z = (z ^ z >> 27) * 0x94D0'49BB'1331'11EB;
    return z ^ z >> 31;
  }
  std::int64_t below(std::int64_t bound) {
    return static_cast<std::int64_t>(bits() % static_cast<std::uint64_t>(bound));
  }
  /// Exponential, with the given mean.
  std::int64_t gap(double mean) {
    return static_cast<std::int64_t>(-std::log((static_cast<double>(bits() >> 11) + 0.5) * 0x1p-53) * mean);
  }

 private:
  std::uint64_t state_;
};

/// Two channels with the same mean spacing. A share of the B events belongs to A events, 160 ps behind them with a
/// jitter of about 50 ps; the others come by chance.
struct TwoChannels {
  Times a;
  Times b;
};

inline TwoChannels two_channels(std::size_t events, double spacing_ps, int paired_percent = 50) {
  Random random(1);
  TwoChannels channels;
  channels.a.reserve(events);
  channels.b.reserve(events);
  std::int64_t a = 1'000'000;
  std::int64_t chance = 1'000'000;
  for (std::size_t i = 0; i < events; ++i) {
    a += random.gap(spacing_ps);
    channels.a.push_back(a);
    if (random.below(100) < paired_percent) {
      channels.b.push_back(a + 40 + random.below(120) + random.below(120));
    }
  }
  while (channels.b.size() < events) {
    chance += random.gap(spacing_ps * 100 / (100 - paired_percent));
    channels.b.push_back(chance);
  }
  std::sort(channels.b.begin(), channels.b.end());
  return channels;
}

/// Ticks of a clock, and one event in a hundred of them, anywhere.
inline TwoChannels clock_and_rare_events(std::size_t ticks, std::int64_t period_ps) {
  Random random(6);
  TwoChannels channels;
  for (std::size_t i = 0; i < ticks; ++i) {
    channels.a.push_back(static_cast<std::int64_t>(i) * period_ps);
    if (random.below(100) == 0) channels.b.push_back(channels.a.back() + random.below(period_ps));
  }
  return channels;
}

/// Both channels in one stream, in the order of time.
inline std::vector<timing::TimeTag> merged(const TwoChannels& channels) {
  std::vector<timing::TimeTag> tags;
  tags.reserve(channels.a.size() + channels.b.size());
  std::size_t i = 0;
  std::size_t j = 0;
  while (i < channels.a.size() || j < channels.b.size()) {
    const bool take_a = j == channels.b.size() || (i < channels.a.size() && channels.a[i] <= channels.b[j]);
    tags.push_back(take_a ? timing::TimeTag{0, channels.a[i++]} : timing::TimeTag{1, channels.b[j++]});
  }
  return tags;
}

/// Times as packed_delta can write them: whole quanta of 8 ps, each channel's strictly ascending.
inline std::vector<timing::TimeTag> in_quanta(std::vector<timing::TimeTag> tags) {
  std::array<std::int64_t, 4> last{};
  for (timing::TimeTag& tag : tags) {
    tag.time_ps = std::max(tag.time_ps / 8 * 8, last[tag.channel] + 8);
    last[tag.channel] = tag.time_ps;
  }
  return tags;
}

/// Swaps a few neighbours: one event in a hundred is late by up to 8 places.
inline Times slightly_unsorted(Times times) {
  Random random(2);
  for (std::size_t i = 0; i + 8 < times.size(); i += 100) {
    std::swap(times[i], times[i + 1 + static_cast<std::size_t>(random.below(8))]);
  }
  return times;
}

inline Times shuffled(Times times) {
  Random random(3);
  for (std::size_t i = times.size(); i > 1; --i) {
    std::swap(times[i - 1], times[static_cast<std::size_t>(random.below(static_cast<std::int64_t>(i)))]);
  }
  return times;
}

inline Bytes noise(std::size_t size) {
  Random random(4);
  Bytes bytes(size);
  for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random.bits());
  return bytes;
}

/// Bits, most significant first.
class BitWriter {
 public:
  void put(std::uint64_t value, unsigned width) {
    for (; width > 8; width -= 8) put_short(value >> (width - 8) & 0xFF, 8);
    put_short(value & ((1u << width) - 1), width);
  }
  Bytes finish() {
    if (held_ > 0) put_short(0, 8 - held_);
    return std::move(bytes_);
  }

 private:
  void put_short(std::uint64_t value, unsigned width) {
    word_ = word_ << width | value;
    held_ += width;
    if (held_ < 8) return;
    held_ -= 8;
    bytes_.push_back(static_cast<std::uint8_t>(word_ >> held_));
  }

  Bytes bytes_;
  std::uint64_t word_ = 0;
  unsigned held_ = 0;
};

inline Bytes raw64_ps_payload(const std::vector<timing::TimeTag>& tags) {
  constexpr std::uint64_t kPeriodPs = 3333ull << 32;
  BitWriter out;
  for (const timing::TimeTag& tag : tags) {
    out.put(std::uint64_t{tag.channel} << 61 | static_cast<std::uint64_t>(tag.time_ps) % kPeriodPs, 64);
  }
  return out.finish();
}

inline Bytes raw64_cf_payload(const std::vector<timing::TimeTag>& tags) {
  BitWriter out;
  for (const timing::TimeTag& tag : tags) {
    const auto time = static_cast<std::uint64_t>(tag.time_ps);
    const std::uint64_t coarse = (time + 3332) / 3333;
    const std::uint64_t fine = (coarse * 3333 - time) * 2 / 37;
    out.put(std::uint64_t{tag.channel} << 61 | std::uint64_t{0xA5C3} << 45 | (coarse & 0xFFFF'FFFF) << 13 | fine, 64);
  }
  return out.finish();
}

/// Before every 5000th event of a channel, but not where it has the time of the one before: decoders take a base that
/// does not lead on for damage.
inline bool is_base_due(std::uint64_t event, std::uint64_t delta) {
  return event == 0 || (event % 5000 == 0 && delta != 0);
}

/// With a time base where one is due.
inline Bytes delta32_payload(const std::vector<timing::TimeTag>& tags) {
  BitWriter out;
  std::array<std::uint64_t, 4> last{};
  std::array<std::uint64_t, 4> seen{};
  for (const timing::TimeTag& tag : tags) {
    const auto time = static_cast<std::uint64_t>(tag.time_ps);
    std::uint64_t delta = time - last[tag.channel];
    if (is_base_due(seen[tag.channel]++, delta)) {
      out.put(0xEB5A'55AA, 32);
      out.put(0xAA00'0000 | (time & 0x1FF'FFFF), 32);
      out.put(0xCA00'0000 | (time >> 25 & 0xFFFF), 32);
      delta = 0;
    }
    if (delta >> 25 != 0) out.put(0x8A00'0000 | delta >> 25, 32);
    out.put(std::uint64_t{tag.channel} << 29 | 0x1400'0000 | (delta & 0x1FF'FFFF), 32);
    last[tag.channel] = time;
  }
  return out.finish();
}

struct PackedPayload {
  Bytes bytes;
  std::uint64_t records = 0;
  std::uint64_t overflow_records = 0;
};

/// With a sync sequence where one is due. Times must be `in_quanta`.
inline PackedPayload packed_payload(const std::vector<timing::TimeTag>& tags, unsigned delta_bits) {
  constexpr unsigned kQuantumShift = 3;
  const std::uint64_t ones = (std::uint64_t{1} << delta_bits) - 1;
  PackedPayload payload;
  BitWriter out;
  std::array<std::uint64_t, 4> last{};
  std::array<std::uint64_t, 4> seen{};
  for (const timing::TimeTag& tag : tags) {
    const std::uint64_t quanta = static_cast<std::uint64_t>(tag.time_ps) >> kQuantumShift;
    const auto record = [&](std::uint64_t flag, std::uint64_t value) {
      out.put(std::uint64_t{tag.channel} << (delta_bits + 1) | flag << delta_bits | value, delta_bits + 3);
      ++payload.records;
    };
    std::uint64_t delta = quanta - last[tag.channel];
    if (is_base_due(seen[tag.channel]++, delta)) {
      record(1, ones);
      for (unsigned piece = 0; piece < 41; piece += delta_bits) record(0, quanta >> piece & ones);
      delta = 0;
    }
    for (std::uint64_t units = delta >> delta_bits; units != 0;) {
      const std::uint64_t part = std::min(units, ones - 1);
      record(1, part);
      ++payload.overflow_records;
      units -= part;
    }
    record(0, delta & ones);
    last[tag.channel] = quanta;
  }
  payload.bytes = out.finish();
  return payload;
}

}  // namespace orvo::bench
