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
#include "support/bytes.hpp"
#include "support/delta32_payload.hpp"
#include "support/packed_payload.hpp"
#include "support/random.hpp"

namespace orvo::bench {

using Times = std::vector<std::int64_t>;
using test::Bytes;
using test::operator+;
using test::operator+=;

/// Exponential, with the given mean.
inline std::int64_t gap(test::Random& random, double mean) {
  return static_cast<std::int64_t>(-std::log((static_cast<double>(random.bits() >> 11) + 0.5) * 0x1p-53) * mean);
}

/// Two channels with the same mean spacing. A share of the B events belongs to A events, 160 ps after them with a
/// jitter of about 50 ps; the others come by chance.
struct TwoChannels {
  Times a;
  Times b;
};

inline TwoChannels two_channels(std::size_t events, double spacing_ps, int paired_percent = 50) {
  test::Random random(1);
  TwoChannels channels;
  channels.a.reserve(events);
  channels.b.reserve(events);
  std::int64_t a = 1'000'000;
  std::int64_t chance = 1'000'000;
  for (std::size_t i = 0; i < events; ++i) {
    a += gap(random, spacing_ps);
    channels.a.push_back(a);
    if (random.integer(0, 99) < paired_percent) {
      channels.b.push_back(a + 40 + random.integer(0, 119) + random.integer(0, 119));
    }
  }
  while (channels.b.size() < events) {
    chance += gap(random, spacing_ps * 100 / (100 - paired_percent));
    channels.b.push_back(chance);
  }
  std::sort(channels.b.begin(), channels.b.end());
  return channels;
}

/// Ticks of a clock, and one event in a hundred of them, anywhere.
inline TwoChannels clock_and_rare_events(std::size_t ticks, std::int64_t period_ps) {
  test::Random random(6);
  TwoChannels channels;
  for (std::size_t i = 0; i < ticks; ++i) {
    channels.a.push_back(static_cast<std::int64_t>(i) * period_ps);
    if (random.below(100) == 0) channels.b.push_back(channels.a.back() + random.integer(0, period_ps - 1));
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
  test::Random random(2);
  for (std::size_t i = 0; i + 8 < times.size(); i += 100) {
    std::swap(times[i], times[i + 1 + random.below(8)]);
  }
  return times;
}

inline Times shuffled(Times times) {
  test::Random random(3);
  for (std::size_t i = times.size(); i > 1; --i) {
    std::swap(times[i - 1], times[random.below(i)]);
  }
  return times;
}

inline Bytes noise(std::size_t size) {
  return test::Random(4).bytes(size);
}

inline Bytes raw64_ps_payload(const std::vector<timing::TimeTag>& tags) {
  constexpr std::uint64_t kPeriodPs = 3333ull << 32;
  Bytes out;
  for (const timing::TimeTag& tag : tags) {
    out += test::ps_record(tag.channel, static_cast<std::uint64_t>(tag.time_ps) % kPeriodPs);
  }
  return out;
}

inline Bytes raw64_cf_payload(const std::vector<timing::TimeTag>& tags) {
  Bytes out;
  for (const timing::TimeTag& tag : tags) {
    const auto time = static_cast<std::uint64_t>(tag.time_ps);
    const std::uint64_t coarse = (time + 3332) / 3333;
    const std::uint64_t fine = (coarse * 3333 - time) * 2 / 37;
    out += test::cf_record(tag.channel, static_cast<std::uint32_t>(coarse), static_cast<unsigned>(fine));
  }
  return out;
}

/// Before every 5000th event of a channel, but not where it has the time of the one before: decoders take a base that
/// does not lead on for damage.
inline bool is_base_due(std::uint64_t event, std::uint64_t delta) {
  return event == 0 || (event % 5000 == 0 && delta != 0);
}

/// With a time base where one is due.
inline Bytes delta32_payload(const std::vector<timing::TimeTag>& tags) {
  Bytes out;
  std::array<std::uint64_t, 4> last{};
  std::array<std::uint64_t, 4> seen{};
  for (const timing::TimeTag& tag : tags) {
    const auto time = static_cast<std::uint64_t>(tag.time_ps);
    const std::uint64_t delta = time - last[tag.channel];
    if (is_base_due(seen[tag.channel]++, delta)) {
      out += test::d32_base(time) + test::d32_event(tag.channel, 0);
    } else {
      out += test::d32_gap(tag.channel, delta);
    }
    last[tag.channel] = time;
  }
  return out;
}

struct PackedPayload {
  Bytes bytes;
  std::uint64_t records = 0;
  std::uint64_t overflow_records = 0;
};

/// With a sync sequence where one is due. Times must be `in_quanta`.
inline PackedPayload packed_payload(const std::vector<timing::TimeTag>& tags, unsigned delta_bits) {
  constexpr unsigned kQuantumShift = 3;
  test::PackedWriter out(delta_bits);
  std::array<std::uint64_t, 4> last{};
  std::array<std::uint64_t, 4> seen{};
  std::uint64_t overflow_records = 0;
  for (const timing::TimeTag& tag : tags) {
    const std::uint64_t quanta = static_cast<std::uint64_t>(tag.time_ps) >> kQuantumShift;
    const std::uint64_t delta = quanta - last[tag.channel];
    const std::uint64_t records = out.records();
    if (is_base_due(seen[tag.channel]++, delta)) {
      out.anchor(tag.channel, quanta);
    } else {
      out.gap(tag.channel, delta);
      overflow_records += out.records() - records - 1;
    }
    last[tag.channel] = quanta;
  }
  return {out.bytes(), out.records(), overflow_records};
}

}  // namespace orvo::bench
