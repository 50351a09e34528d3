#pragma once
// Seeded delta32 streams.
#include <algorithm>
#include <array>
#include <cstdint>
#include <span>

#include "reference/delta32.hpp"
#include "support/delta32_payload.hpp"
#include "support/streams.hpp"

namespace orvo::test {

/// Events of up to four channels, over the end of the device period at most once.
inline CleanStream clean_delta32(Random& random, std::size_t events) {
  constexpr std::uint64_t kWrapStep = (std::uint64_t{1} << 41) - (kDevicePeriod & k41Bits);
  Bytes out;
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
      out += d32_base(base);
      out += d32_gap(c, delta);
    } else {
      const bool wraps = time / kDevicePeriod != channel.last / kDevicePeriod;
      out += d32_gap(c, time - channel.last + (wraps ? kWrapStep : 0));
    }
    channel.has_time = true;
    channel.last = time;
    clean.tags.push_back(clean_tag(c, time + channel.axis_shift));
  }
  clean.bytes = out;
  return clean;
}

/// Well-framed words whose differences and bases lie at the limits of the decoder's rules. A reference decoder says
/// where its channels stand; it only aims the values.
inline Bytes aimed_delta32(Random& random, std::size_t events) {
  constexpr std::uint64_t kStep = 1'078'036'791'296, kSmall = 10'000'000'000, kHalf = std::uint64_t{1} << 40;
  Bytes out;
  reference::Delta32Decoder aim;
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
      out += d32_base(backward ? last - gap : last + gap);
      out += d32_event(c, random.one_in(2) ? random.below(3) : random.of_any_size(25));
    } else if (kind == 6) {
      out += d32_base(random.bits());
    } else if (kind == 7) {
      out += d32_word({.control = 1, .channel = 3, .type = 5, .payload = random.of_any_size(25)});
    } else if (kind == 8) {
      out += d32_sync();
    } else if (kind == 9) {
      out += d32_extension(random.of_any_size(16));
    } else {
      out += d32_gap(c, gap);
    }
    aim.feed(std::span(out).subspan(fed));
    fed = out.size();
  }
  return out;
}

/// Words of the right kinds in any order: the framing rules without sense.
inline Bytes shuffled_delta32(Random& random, std::size_t words) {
  Bytes out;
  for (std::size_t i = 0; i < words; ++i) {
    switch (random.below(8)) {
      case 0:
        out += d32_sync();
        break;
      case 1:
        out += d32_base_low(random.of_any_size(25));
        break;
      case 2:
        out += d32_base_high(random.of_any_size(17));
        break;
      case 3:
        out += d32_extension(random.of_any_size(17));
        break;
      case 4:
        out += d32_base(random.bits());
        break;
      case 5:
        out += d32_word({.control = 1,
                         .channel = random.channel(),
                         .type = random.one_in(4) ? static_cast<std::uint32_t>(random.below(16)) : 5u,
                         .payload = random.of_any_size(25)});
        break;
      default:
        out += d32_word({.control = 0,
                         .channel = random.channel(),
                         .type = random.one_in(30) ? static_cast<std::uint32_t>(random.below(16)) : 10u,
                         .payload = random.of_any_size(25)});
    }
  }
  return out;
}

}  // namespace orvo::test
