#pragma once
// What the random streams of all encodings share: damage, sizes of chunks, the times of a clean stream. A clean
// stream carries the times that a decoder must give; an aimed stream walks along the limits of the decoding rules and
// serves comparisons only.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <initializer_list>

#include "reference/tag.hpp"
#include "support/bytes.hpp"
#include "support/random.hpp"

namespace orvo::test {

/// From one byte to several KiB, now and then 1 MiB.
inline std::size_t chunk_size(Random& random) {
  if (random.one_in(40)) return 1'048'576;
  return random.between(1, std::uint64_t{1} << random.between(0, 13));
}

/// One defect at a random place: bits flipped, bytes cut out, put in, overwritten or repeated.
inline void damage_once(Random& random, Bytes& bytes) {
  if (bytes.empty()) return;
  const auto at = [&] { return bytes.begin() + static_cast<std::ptrdiff_t>(random.below(bytes.size())); };
  const auto place = at();
  const auto run_length = static_cast<std::ptrdiff_t>(random.between(1, std::uint64_t{1} << random.between(0, 7)));
  const auto end = place + std::min(run_length, bytes.end() - place);
  switch (random.below(7)) {
    case 0:
    case 1:
      *place = static_cast<std::uint8_t>(*place ^ 1u << random.below(8));
      return;
    case 2:
      bytes.erase(place, end);
      return;
    case 3: {
      const Bytes extra = random.bytes(static_cast<std::size_t>(run_length));
      bytes.insert(place, extra.begin(), extra.end());
      return;
    }
    case 4:
      std::generate(place, end, [&] { return random.byte(); });
      return;
    case 5:
      std::fill(place, end, random.one_in(2) ? std::uint8_t{0} : std::uint8_t{0xFF});
      return;
    default: {
      const Bytes copy(place, end);
      bytes.insert(at(), copy.begin(), copy.end());
      return;
    }
  }
}

inline void damage(Random& random, Bytes& bytes, std::uint64_t defects) {
  for (std::uint64_t i = 0; i < defects; ++i) damage_once(random, bytes);
}

inline constexpr std::uint64_t kDevicePeriod = 3333 * (std::uint64_t{1} << 32);
inline constexpr std::uint64_t k41Bits = (std::uint64_t{1} << 41) - 1;

/// A time of the device's first period; often just before the end of the period or of its 41-bit part.
inline std::uint64_t start_time(Random& random) {
  const std::uint64_t before = random.of_any_size(36);
  switch (random.below(4)) {
    case 0:
      return random.below(1'000'000);
    case 1:
      return kDevicePeriod - 1 - before;
    case 2:
      return (random.between(1, 6) << 41) - 1 - before;
    default:
      return random.below(kDevicePeriod);
  }
}

/// A value of the list, or one beside it.
inline std::uint64_t near_one_of(Random& random, std::initializer_list<std::uint64_t> values) {
  return values.begin()[random.below(values.size())] + random.below(5) - 2;
}

struct CleanStream {
  Bytes bytes;
  reference::Tags tags;
};

/// What the clean streams know of a channel: its last event, and how far the decoder's axis lies from the device's.
struct CleanChannel {
  bool has_time = false;
  std::uint64_t last = 0;
  std::uint64_t axis_shift = 0;
};

inline reference::Tag clean_tag(std::uint32_t channel, std::uint64_t time) {
  return {static_cast<int>(channel), static_cast<std::int64_t>(time)};
}

}  // namespace orvo::test
