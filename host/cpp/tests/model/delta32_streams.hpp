#pragma once
// Writes delta32 words, and seeded delta32 streams made of them.
#include <algorithm>
#include <array>
#include <cstdint>
#include <span>

#include "model/delta32_model.hpp"
#include "model/stream_generators.hpp"

namespace orvo::test::model {

/// Writes delta32 words.
class Delta32Encoder {
 public:
  Bytes bytes;

  void word(std::uint32_t control, std::uint32_t channel, std::uint32_t type, std::uint64_t payload) {
    bytes += big_endian(control << 31 | channel << 29 | type << 25 | payload, 4);
  }
  void sync() { bytes += test::bytes({0xEB, 0x5A, 0x55, 0xAA}); }
  void sync_with_base(std::uint64_t base) {
    sync();
    word(1, 1, 5, base & 0x1FFFFFF);
    word(1, 2, 5, base >> 25 & 0xFFFF);
  }
  void event(std::uint32_t channel, std::uint64_t delta) {
    for (std::uint64_t units = delta >> 25; units > 0; units -= std::min<std::uint64_t>(units, 65535)) {
      word(1, 0, 5, std::min<std::uint64_t>(units, 65535));
    }
    word(0, channel, 10, delta & 0x1FFFFFF);
  }
};

/// Events of up to four channels, over the end of the device period at most once.
inline CleanStream clean_delta32(Random& random, std::size_t events) {
  constexpr std::uint64_t kWrapStep = (std::uint64_t{1} << 41) - (kDevicePeriod & k41Bits);
  Delta32Encoder out;
  CleanStream clean;
  std::array<CleanChannel, 4> channels;
  std::uint64_t time = start_time(random);
  for (std::size_t i = 0; i < events; ++i) {
    const std::uint32_t c = random.channel();
    CleanChannel& channel = channels[c];
    time += 1 + random.of_any_size(30);
    if (!channel.has_time || random.one_in(40)) {
      const std::uint64_t earliest = channel.has_time ? channel.last + 1 : 0;
      const std::uint64_t delta = std::min(time - earliest, random.of_any_size(25));
      const std::uint64_t base = (time - delta) % kDevicePeriod & k41Bits;
      if (!channel.has_time) channel.axis_shift = base + delta - time;
      out.sync_with_base(base);
      out.event(c, delta);
    } else {
      const bool wraps = time / kDevicePeriod != channel.last / kDevicePeriod;
      out.event(c, time - channel.last + (wraps ? kWrapStep : 0));
    }
    channel.has_time = true;
    channel.last = time;
    clean.tags.push_back(clean_tag(c, time + channel.axis_shift));
  }
  clean.bytes = out.bytes;
  return clean;
}

/// Well-framed words whose differences and bases lie at the limits of the decoder's rules. A model says where its
/// channels stand; it only aims the values.
inline Bytes aimed_delta32(Random& random, std::size_t events) {
  constexpr std::uint64_t kStep = 1'078'036'791'296, kSmall = 10'000'000'000, kHalf = std::uint64_t{1} << 40;
  Delta32Encoder out;
  Delta32Model aim{timing::StreamFileHeader{}};
  std::size_t fed = 0;
  for (std::size_t i = 0; i < events; ++i) {
    const std::uint32_t c = random.channel();
    const auto last = static_cast<std::uint64_t>(std::max<std::int64_t>(aim.last_time[c], 0));
    const std::uint64_t to_end = kDevicePeriod - last % kDevicePeriod;
    std::uint64_t gap = random.of_any_size(random.one_in(8) ? 45 : 30);
    if (random.one_in(3))
      gap = near_one_of(random, {2, kStep, kStep + kSmall, kStep + to_end, to_end, kHalf, 2 * kHalf});
    gap %= std::uint64_t{1} << 46;  // "one below zero" would need millions of extension words
    const std::uint64_t kind = random.below(60);
    if (kind < 6 || i == 0) {
      const bool backward = random.one_in(8);
      out.sync_with_base(backward ? last - gap : last + gap);
      out.word(0, c, 10, random.one_in(2) ? random.below(3) : random.of_any_size(25));
    } else if (kind == 6) {
      out.sync_with_base(random.bits());
    } else if (kind == 7) {
      out.word(1, 3, 5, random.of_any_size(25));
    } else if (kind == 8) {
      out.sync();
    } else if (kind == 9) {
      out.word(1, 0, 5, random.of_any_size(16));
    } else {
      out.event(c, gap);
    }
    aim.feed(std::span(out.bytes).subspan(fed));
    fed = out.bytes.size();
  }
  return out.bytes;
}

/// Words of the right kinds in any order: the framing rules without sense.
inline Bytes shuffled_delta32(Random& random, std::size_t words) {
  Delta32Encoder out;
  for (std::size_t i = 0; i < words; ++i) {
    switch (random.below(8)) {
      case 0:
        out.sync();
        break;
      case 1:
        out.word(1, 1, 5, random.of_any_size(25));
        break;
      case 2:
        out.word(1, 2, 5, random.of_any_size(17));
        break;
      case 3:
        out.word(1, 0, 5, random.of_any_size(17));
        break;
      case 4:
        out.sync_with_base(random.bits());
        break;
      case 5:
        out.word(1, random.channel(), random.one_in(4) ? random.below(16) & 15u : 5u, random.of_any_size(25));
        break;
      default:
        out.word(0, random.channel(), random.one_in(30) ? random.below(16) & 15u : 10u, random.of_any_size(25));
    }
  }
  return out.bytes;
}

}  // namespace orvo::test::model
