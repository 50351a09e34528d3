#pragma once
// raw64: one 8-byte word after the other, and one byte further where there is no record.
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "reference/header.hpp"
#include "reference/tag.hpp"

namespace orvo::test::reference {

/// Picoseconds that fine code `code` lies before the clock edge: 18.5 a code rounded half up, 3332 at most.
inline std::uint64_t fine_ps(std::uint64_t code) {
  const std::uint64_t rounded = (37 * code + 1) / 2;
  return rounded < 3332 ? rounded : 3332;
}

class Raw64Decoder {
 public:
  explicit Raw64Decoder(const Header& header) : coarse_fine(lower_case(header.raw64_tag_format) == "raw_cf") {}

  /// Appends one chunk and decodes what can be decoded.
  Tags feed(std::span<const std::uint8_t> chunk) {
    pending.insert(pending.end(), chunk.begin(), chunk.end());
    Tags tags;
    std::size_t position = 0;
    while (position + 8 <= pending.size()) {
      const std::uint64_t word = word_at(position);
      const bool take = is_record(word);
      if (take) tags.push_back(tag_of(word));
      position += take ? 8 : 1;
    }
    pending.erase(pending.begin(), pending.begin() + static_cast<std::ptrdiff_t>(position));
    return tags;
  }

  bool coarse_fine;  // the tag format: clock edges and fine codes, or picoseconds
  std::vector<std::uint8_t> pending;
  std::array<std::uint64_t, 4> previous{};  // as recorded, by channel
  std::array<bool, 4> previous_valid{};
  std::array<std::uint64_t, 4> epoch{};  // of the wraps so far

 private:
  static constexpr std::uint64_t kCoarsePeriod = std::uint64_t{1} << 32;  // counts of 3333 ps
  static constexpr std::uint64_t kTimePeriod = 3333 * kCoarsePeriod;      // ps

  std::uint64_t word_at(std::size_t position) const {
    std::uint64_t word = 0;
    for (std::size_t i = 0; i < 8; ++i) word = word << 8 | pending[position + i];
    return word;
  }

  bool is_record(std::uint64_t word) const {
    if (word >> 63 != 0) return false;
    return coarse_fine ? (word >> 45 & 0xFFFF) == 0xA5C3 : (word >> 44 & 0x1FFFF) == 0;
  }

  /// Puts a value that wraps at `period` on the channel's unwrapped axis.
  std::uint64_t unwrapped(std::size_t channel, std::uint64_t value, std::uint64_t period) {
    const std::uint64_t last = previous[channel];
    if (previous_valid[channel] && value < last && last - value > period / 2) epoch[channel] += period;
    previous[channel] = value;
    previous_valid[channel] = true;
    return value + epoch[channel];
  }

  Tag tag_of(std::uint64_t word) {
    const std::size_t channel = word >> 61 & 3;
    const std::uint64_t time_ps =
        coarse_fine ? unwrapped(channel, word >> 13 & 0xFFFF'FFFF, kCoarsePeriod) * 3333 - fine_ps(word & 0x1FFF)
                    : unwrapped(channel, (word & 0xFFF'FFFF'FFFF) % kTimePeriod, kTimePeriod);
    return {static_cast<int>(channel), static_cast<std::int64_t>(time_ps)};
  }
};

}  // namespace orvo::test::reference
