#pragma once
// Seeded packed_delta streams.
#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>

#include "orvo/timing/stream_file_header.hpp"
#include "support/packed_payload.hpp"
#include "support/streams.hpp"

namespace orvo::test {

struct PackedSettings {
  std::uint32_t delta_bits = 16;
  unsigned shift = 3;  // one quantum is 2^shift ps
  std::uint8_t channel_mask = 15;

  std::uint64_t modulus() const { return (k41Bits + 1) << shift; }
  std::uint64_t wrap_step() const { return (kDevicePeriod / modulus() + 1) * modulus() - kDevicePeriod; }
};

inline timing::StreamFileHeader packed_header(timing::StreamMode mode, int channel_mask, int delta_bits,
                                              int quantum_ps) {
  timing::StreamFileHeader header;
  header.stream_format = timing::StreamFormat::packed_delta;
  header.mode = mode;
  header.channel_mask = static_cast<std::uint8_t>(channel_mask);
  header.delta_bits = static_cast<std::uint8_t>(delta_bits);
  header.quantum_ps = static_cast<std::uint16_t>(quantum_ps);
  return header;
}

/// Any payload width, any quantum, either mode.
inline timing::StreamFileHeader random_packed_header(Random& random, int channel_mask) {
  const auto odd = static_cast<int>(random.bits() | 1);
  const std::uint64_t shift = random.below(16);
  return packed_header(random.one_in(2) ? timing::StreamMode::internal : timing::StreamMode::external, channel_mask,
                       static_cast<int>(random.between(1, 31)), odd << shift & 0xFFFF);
}

inline PackedSettings settings_of(const timing::StreamFileHeader& header) {
  return {.delta_bits = header.delta_bits,
          .shift = static_cast<unsigned>(std::countr_zero(unsigned{header.quantum_ps})),
          .channel_mask = header.channel_mask};
}

inline std::uint32_t active_channel(Random& random, std::uint8_t mask) {
  while (true) {
    const std::uint32_t channel = random.channel();
    if (mask == 0 || (mask >> channel & 1) != 0) return channel;
  }
}

/// Bits of no meaning before the first record. (Those of a clean stream are zeros: what looks like a sync start there
/// would cost the first channel its sync sequence.)
inline void stray_bits(Random& random, PackedWriter& out, std::uint64_t most_bits) {
  for (std::uint64_t left = random.below(most_bits + 1); left > 0; --left) out.bits(random.bits(), 1);
}

/// Events of the active channels, over the end of the device period at most once (never for quanta of 2 ps, whose
/// 42-bit times cannot be told apart across it).
inline CleanStream clean_packed(Random& random, const PackedSettings& settings, std::size_t events,
                                std::uint64_t sync_every = 60) {
  const std::uint32_t d = settings.delta_bits;
  const std::uint64_t quantum = std::uint64_t{1} << settings.shift;
  PackedWriter out(d);
  out.zeros(static_cast<unsigned>(random.below(100)));
  CleanStream clean;
  std::array<CleanChannel, 4> channels;
  std::uint64_t time =
      (settings.shift == 1 ? random.below(kDevicePeriod / 2) : start_time(random)) / quantum * quantum;
  for (std::size_t i = 0; i < events; ++i) {
    const std::uint32_t c = active_channel(random, settings.channel_mask);
    CleanChannel& channel = channels[c];
    time += quantum * (1 + random.of_any_size(std::min(d + 2, 29 - settings.shift)));
    const bool wraps = time / kDevicePeriod != channel.last / kDevicePeriod;
    const std::uint64_t gap = time - channel.last + (wraps ? settings.wrap_step() : 0);
    if (!channel.has_time || random.one_in(sync_every) || !out.short_gap(c, gap / quantum)) {
      const std::uint64_t earliest = channel.has_time ? channel.last + quantum : 0;
      const std::uint64_t rest = std::min((time - earliest) / quantum, random.of_any_size(d)) * quantum;
      const std::uint64_t base = (time - rest) % kDevicePeriod / quantum & k41Bits;
      if (!channel.has_time) channel.axis_shift = base * quantum + rest - time;
      out.sync(c, base);
      out.short_gap(c, rest / quantum);
    }
    channel.has_time = true;
    channel.last = time;
    clean.tags.push_back(clean_tag(c, time + channel.axis_shift));
  }
  out.fill_byte(static_cast<unsigned>(clean.tags.back().channel));
  clean.bytes = out.bytes();
  return clean;
}

/// Records of every kind in any order, whole and broken sync sequences among them, on few or many channels; one in
/// `stray` lies on any channel, active or not.
inline PackedWriter shuffled_packed(Random& random, const PackedSettings& settings, std::size_t steps,
                                    std::uint64_t stray) {
  const std::uint64_t all_ones = (std::uint64_t{1} << settings.delta_bits) - 1;
  const std::uint32_t pieces = (settings.delta_bits + 40) / settings.delta_bits;
  PackedWriter out(settings.delta_bits);
  stray_bits(random, out, 40);
  const std::uint64_t sync_share = random.between(1, 5);
  for (std::size_t i = 0; i < steps; ++i) {
    const std::uint32_t c = random.one_in(stray) ? random.channel() : active_channel(random, settings.channel_mask);
    const std::uint64_t kind = random.below(12);
    if (kind < sync_share) {
      out.sync(c, random.bits());
      if (!random.one_in(4)) out.record(c, false, random.of_any_size(31) & all_ones);
    } else if (kind == 5 && random.one_in(4)) {
      out.record(c, true, all_ones);
      for (std::uint64_t left = random.below(pieces + 1); left > 0; --left)
        out.record(c, false, random.bits() & all_ones);
    } else if (kind == 6) {
      out.record(c, true, random.bits() & all_ones);
    } else {
      out.record(c, false, random.one_in(2) ? random.bits() & all_ones : random.below(2));
    }
  }
  return out;
}

/// Parts that each start at a bit of their own, all of few one bits: read with the other parts' alignment they are
/// mostly harmless records, so that several alignments lock and their scores compete.
inline PackedWriter shifted_packed(Random& random, const PackedSettings& settings, std::size_t parts) {
  PackedWriter out(settings.delta_bits);
  for (std::size_t part = 0; part < parts; ++part) {
    out.zeros(static_cast<unsigned>(random.below(settings.delta_bits + 3)));
    for (std::uint64_t left = random.between(2, 3); left > 0; --left) {
      const std::uint32_t c = active_channel(random, settings.channel_mask);
      out.sync(c, random.below(2));
      for (std::uint64_t events = random.below(8); events > 0; --events) {
        out.short_gap(random.one_in(4) ? active_channel(random, settings.channel_mask) : c, random.below(2));
      }
    }
  }
  return out;
}

/// Blocks that begin with an anchor on every active channel and a balanced part, and end with one channel getting
/// nearly all events.
inline PackedWriter lopsided_packed(Random& random, const PackedSettings& settings, std::size_t blocks) {
  PackedWriter out(settings.delta_bits);
  std::uint64_t quanta = 1;
  for (std::size_t block = 0; block < blocks; ++block) {
    for (std::uint32_t c = 0; c < 4; ++c) {
      if ((settings.channel_mask >> c & 1) == 0) continue;
      out.sync(c, quanta += 20'000);
      out.short_gap(c, 1);
    }
    for (std::uint64_t left = random.between(100, 5000); left > 0; --left)
      out.short_gap(active_channel(random, settings.channel_mask), 1);
    const std::uint32_t favourite = active_channel(random, settings.channel_mask);
    const std::uint64_t others = random.between(6, 40);
    for (std::uint64_t left = random.between(3000, 12'000); left > 0; --left) {
      out.short_gap(random.one_in(others) ? active_channel(random, settings.channel_mask) : favourite, 1);
    }
  }
  return out;
}

}  // namespace orvo::test
