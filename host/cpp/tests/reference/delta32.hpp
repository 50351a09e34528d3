#pragma once
// delta32: one word after the other, each through every rule.
#include <algorithm>
#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "reference/header.hpp"
#include "reference/tag.hpp"

namespace orvo::test::reference {

class Delta32Decoder {
 public:
  explicit Delta32Decoder(const Header& = {}) {}

  /// Appends one chunk and decodes what can be decoded.
  Tags feed(std::span<const std::uint8_t> chunk) {
    pending.insert(pending.end(), chunk.begin(), chunk.end());
    Tags tags;
    std::size_t position = 0;
    while (true) {
      if (!synced) {
        const std::size_t found = find_sync(position);
        if (found == pending.size()) {
          keep_last(std::min<std::size_t>(pending.size(), 3));
          return tags;
        }
        keep_last(pending.size() - found - 4);
        synced = true;
        sync_reset();
        position = 0;
        continue;
      }
      if (pending.size() - position < 4) {
        keep_last(pending.size() - position);
        return tags;
      }
      const std::uint32_t word = word_at(position);
      position += 4;
      if (frame_state == 1) {
        base_low_expected(word);
      } else if (frame_state == 2) {
        base_high_expected(word);
      } else {
        data_word(word, tags);
      }
    }
  }

  std::vector<std::uint8_t> pending;
  std::array<std::int64_t, 4> last_time{};
  std::array<bool, 4> has_time{};
  bool synced = false;
  std::uint32_t frame_state = 0;
  std::uint32_t base_low = 0;
  std::uint64_t base = 0;
  bool base_valid = false;
  std::uint64_t extension = 0;

 private:
  static constexpr std::uint32_t kSync = 0xEB5A55AA;
  static constexpr std::uint64_t kPeriod = 14'315'125'997'568;
  static constexpr std::uint64_t kWrapStep = 1'078'036'791'296;
  static constexpr std::uint64_t kSmallRest = 10'000'000'000;
  static constexpr std::uint64_t k2To41 = std::uint64_t{1} << 41;

  std::uint32_t word_at(std::size_t i) const {
    return std::uint32_t{pending[i]} << 24 | std::uint32_t{pending[i + 1]} << 16 |
           std::uint32_t{pending[i + 2]} << 8 | pending[i + 3];
  }

  std::size_t find_sync(std::size_t from) const {
    for (std::size_t i = from; i + 4 <= pending.size(); ++i) {
      if (word_at(i) == kSync) return i;
    }
    return pending.size();
  }

  void keep_last(std::size_t count) {
    pending.erase(pending.begin(), pending.end() - static_cast<std::ptrdiff_t>(count));
  }

  void sync_reset() {
    frame_state = 1;
    base_low = 0;
    base = 0;
    base_valid = false;
    extension = 0;
  }

  void lose_sync() {
    sync_reset();
    frame_state = 0;
    synced = false;
  }

  // The fields of a word.
  static bool control(std::uint32_t word) { return word >> 31 == 1; }
  static std::uint32_t channel(std::uint32_t word) { return word >> 29 & 3; }
  static std::uint32_t type(std::uint32_t word) { return word >> 25 & 15; }
  static std::uint32_t payload(std::uint32_t word) { return word & 0x1FFFFFF; }
  static bool is_control(std::uint32_t word, std::uint32_t sub_type) {
    return control(word) && type(word) == 5 && channel(word) == sub_type;
  }
  static bool fits_16_bits(std::uint32_t word) { return payload(word) < 65536; }

  void base_low_expected(std::uint32_t word) {
    if (is_control(word, 1)) {
      base_low = payload(word);
      frame_state = 2;
    } else if (word == kSync) {
      sync_reset();
    } else {
      lose_sync();
    }
  }

  void base_high_expected(std::uint32_t word) {
    if (is_control(word, 2) && fits_16_bits(word)) {
      base = std::uint64_t{payload(word)} * 33'554'432 + base_low;
      base_valid = true;
      extension = 0;
      frame_state = 0;
      base_low = 0;
    } else if (word == kSync) {
      sync_reset();
    } else {
      lose_sync();
    }
  }

  void data_word(std::uint32_t word, Tags& tags) {
    if (!control(word) && type(word) == 10) {
      event(channel(word), payload(word), tags);
    } else if (is_control(word, 3)) {
      if (word == kSync) sync_reset();
    } else if (is_control(word, 0) && fits_16_bits(word) && !base_valid) {
      extension += payload(word);
    } else {
      lose_sync();
    }
  }

  void event(std::uint32_t c, std::uint64_t x, Tags& tags) {
    std::uint64_t delta = extension * 33'554'432 + x;
    extension = 0;
    std::uint64_t time = 0;
    if (base_valid) {
      time = delta + lifted_base(c);
      if (has_time[c] && last_time[c] >= static_cast<std::int64_t>(time)) return lose_sync();
      base_valid = false;
      base = 0;
    } else {
      if (!has_time[c]) return;
      delta = without_step(delta, not_negative(last_time[c]));
      time = static_cast<std::uint64_t>(last_time[c]) + delta;
    }
    last_time[c] = static_cast<std::int64_t>(time);
    has_time[c] = true;
    tags.push_back({static_cast<int>(c), last_time[c]});
  }

  /// The base on the channel's time axis.
  std::uint64_t lifted_base(std::uint32_t c) const {
    const std::uint64_t b = base % k2To41;
    if (!has_time[c]) return b;
    const std::uint64_t last = not_negative(last_time[c]);
    std::uint64_t lifted = b + (last - last % k2To41);
    if (lifted + k2To41 / 2 < last) lifted += k2To41;
    return lifted > last ? last + without_step(lifted - last, last) : lifted;
  }

  static std::uint64_t not_negative(std::int64_t time) { return time > 0 ? static_cast<std::uint64_t>(time) : 0; }

  static std::uint64_t without_step(std::uint64_t gap, std::uint64_t last) {
    if (gap <= kWrapStep) return gap;
    const std::uint64_t rest = gap - kWrapStep;
    return rest <= kSmallRest || last % kPeriod + rest >= kPeriod ? rest : gap;
  }
};

}  // namespace orvo::test::reference
