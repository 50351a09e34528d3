#pragma once
// Seeded chance for the tests that compare decoders with their models, and what the streams of both encodings share:
// damage, sizes of chunks, the times of a clean stream. A clean stream carries the times that a decoder must give; an
// aimed stream walks along the limits of the decoding rules and serves comparisons only.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <initializer_list>
#include <random>
#include <string>
#include <vector>

#include "orvo/timing/time_tag.hpp"
#include "support/bytes.hpp"

namespace orvo::test::model {

class Random {
 public:
  explicit Random(std::uint64_t seed) : engine_(seed) {}

  std::uint64_t bits() { return engine_(); }
  std::uint64_t below(std::uint64_t bound) { return engine_() % bound; }
  std::uint64_t between(std::uint64_t low, std::uint64_t high) { return low + below(high - low + 1); }
  bool one_in(std::uint64_t n) { return below(n) == 0; }
  std::uint8_t byte() { return static_cast<std::uint8_t>(engine_()); }
  std::uint32_t channel() { return static_cast<std::uint32_t>(below(4)); }

  /// A number whose length in bits is uniform up to `most_bits` (1 to 64).
  std::uint64_t of_any_size(std::uint64_t most_bits) { return bits() >> (64 - between(1, most_bits)); }

 private:
  std::mt19937_64 engine_;
};

/// How many times the usual amount is tried: ORVO_MODEL_ROUNDS, for long runs by hand.
inline std::uint64_t rounds() {
  const char* text = std::getenv("ORVO_MODEL_ROUNDS");
  const std::uint64_t value = text == nullptr ? 1 : std::strtoull(text, nullptr, 10);
  return std::max<std::uint64_t>(value, 1);
}

/// From one byte to several KiB, now and then 1 MiB.
inline std::size_t chunk_size(Random& random) {
  if (random.one_in(40)) return 1'048'576;
  return random.between(1, std::uint64_t{1} << random.between(0, 13));
}

inline Bytes noise(Random& random, std::size_t size) {
  Bytes out(size);
  for (std::uint8_t& byte : out) byte = random.byte();
  return out;
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
      const Bytes extra = noise(random, static_cast<std::size_t>(run_length));
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
  std::vector<timing::TimeTag> tags;
};

/// What the clean streams know of a channel: its last event, and how far the decoder's axis lies from the device's.
struct CleanChannel {
  bool has_time = false;
  std::uint64_t last = 0;
  std::uint64_t axis_shift = 0;
};

inline timing::TimeTag clean_tag(std::uint32_t channel, std::uint64_t time) {
  return {static_cast<std::uint8_t>(channel), static_cast<std::int64_t>(time)};
}

/// Where two lists of tags part; empty when they are equal.
inline std::string first_difference(const std::vector<timing::TimeTag>& a, const std::vector<timing::TimeTag>& b) {
  std::size_t i = 0;
  while (i < a.size() && i < b.size() && a[i] == b[i]) ++i;
  if (i == a.size() && i == b.size()) return {};
  const auto entry = [i](const std::vector<timing::TimeTag>& tags) {
    if (i == tags.size()) return std::string("the end");
    return std::to_string(tags[i].channel) + "@" + std::to_string(tags[i].time_ps);
  };
  return "tag " + std::to_string(i) + ": " + entry(a) + " and " + entry(b);
}

}  // namespace orvo::test::model
