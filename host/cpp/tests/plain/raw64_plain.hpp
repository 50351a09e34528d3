#pragma once
// raw64 as one would first write it: every word put together from its bytes, its fine time computed, its tag pushed
// back.
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "orvo/timing/stream_file_header.hpp"
#include "orvo/timing/time_tag.hpp"

namespace orvo::test::plain {

class Raw64Decoder {
 public:
  explicit Raw64Decoder(const timing::StreamFileHeader& header)
      : coarse_fine_(is_coarse_fine(header.raw64_tag_format)) {}

  /// Appends one chunk and decodes what can be decoded.
  std::vector<timing::TimeTag> feed(std::span<const std::uint8_t> chunk) {
    pending.insert(pending.end(), chunk.begin(), chunk.end());
    std::vector<timing::TimeTag> tags;
    std::size_t position = 0;
    while (pending.size() - position >= 8) {
      const std::uint64_t word = word_at(position);
      if (!is_record(word)) {
        position += 1;
        continue;
      }
      tags.push_back(coarse_fine_ ? coarse_fine_tag(word) : picosecond_tag(word));
      position += 8;
    }
    pending.erase(pending.begin(), pending.begin() + static_cast<std::ptrdiff_t>(position));
    return tags;
  }

  std::vector<std::uint8_t> pending;
  std::array<std::uint64_t, 4> previous{};
  std::array<bool, 4> previous_valid{};
  std::array<std::uint64_t, 4> epoch{};

 private:
  static constexpr std::uint64_t kCoarsePeriod = std::uint64_t{1} << 32;  // counts of 3333 ps
  static constexpr std::uint64_t kPeriod = 14'315'125'997'568;            // ps

  bool coarse_fine_;

  static bool is_coarse_fine(const std::string& tag_format) {
    std::string lower;
    for (const char c : tag_format) lower.push_back(c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c);
    return lower == "raw_cf";
  }

  std::uint64_t word_at(std::size_t position) const {
    std::uint64_t word = 0;
    for (std::size_t i = 0; i < 8; ++i) word = word << 8 | pending[position + i];
    return word;
  }

  bool is_record(std::uint64_t word) const {
    if (word >> 63 != 0) return false;
    return coarse_fine_ ? (word >> 45 & 0xFFFF) == 0xA5C3 : (word >> 44 & 0x1FFFF) == 0;
  }

  /// Takes a value that wraps at `period`, and returns it on the channel's unwrapped axis.
  std::uint64_t unwrapped(std::size_t c, std::uint64_t value, std::uint64_t period) {
    if (previous_valid[c] && value < previous[c] && previous[c] - value > period / 2) epoch[c] += period;
    previous[c] = value;
    previous_valid[c] = true;
    return value + epoch[c];
  }

  timing::TimeTag picosecond_tag(std::uint64_t word) {
    const std::size_t c = word >> 61 & 3;
    const std::uint64_t time = unwrapped(c, (word & 0xFFF'FFFF'FFFF) % kPeriod, kPeriod);
    return {static_cast<std::uint8_t>(c), static_cast<std::int64_t>(time)};
  }

  /// The fine time is 18.5 ps a code, rounded half up, and ends just before the next clock edge.
  timing::TimeTag coarse_fine_tag(std::uint64_t word) {
    const std::size_t c = word >> 61 & 3;
    const std::uint64_t coarse = unwrapped(c, word >> 13 & 0xFFFF'FFFF, kCoarsePeriod);
    const std::uint64_t rounded = (37 * (word & 0x1FFF) + 1) / 2;
    const std::uint64_t fine = rounded < 3332 ? rounded : 3332;
    return {static_cast<std::uint8_t>(c), static_cast<std::int64_t>(coarse * 3333 - fine)};
  }
};

}  // namespace orvo::test::plain
