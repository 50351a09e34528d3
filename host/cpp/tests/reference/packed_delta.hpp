#pragma once
// packed_delta: one record after the other, each through every rule, with the alignment search that tries each
// candidate.
#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "reference/header.hpp"
#include "reference/packed_alignment.hpp"
#include "reference/tag.hpp"

namespace orvo::test::reference {

class PackedDeltaDecoder {
 public:
  explicit PackedDeltaDecoder(const Header& header)
      : mask(static_cast<std::uint8_t>(header.channel_mask)),
        internal(header.mode == 0),
        d(header.delta_bits == 0 ? 16 : static_cast<std::uint32_t>(header.delta_bits)),
        shift(static_cast<unsigned>(std::countr_zero(header.quantum_ps == 0 ? 8 : header.quantum_ps))),
        modulus(k2To41 << shift),
        wrap_step((kPeriod + modulus - 1) / modulus * modulus - kPeriod) {}

  /// Appends one chunk and decodes what can be decoded.
  Tags feed(std::span<const std::uint8_t> chunk) {
    pending.insert(pending.end(), chunk.begin(), chunk.end());
    if (d == 0 || d > 31) return {};
    if (!locked && !find_lock()) return {};
    const std::uint64_t bits = 8 * pending.size();
    if (bit_offset >= bits || bits - bit_offset < d + 3) return {};
    const std::uint64_t records = (bits - bit_offset) / (d + 3);
    Tags tags;
    for (std::uint64_t k = 0; k < records; ++k) {
      if (take_record(k, records, tags)) continue;
      consume(k + 1);
      drop_lock();
      return tags;
    }
    const bool keeps_lock = is_balanced(tags, records);
    consume(records);
    if (keeps_lock) return tags;
    drop_lock();
    return {};
  }

  std::vector<std::uint8_t> pending;
  std::vector<std::string> lines;  // diagnostic lines without their prefix, at most 200
  std::uint64_t bit_offset = 0;
  bool locked = false;
  std::array<std::int64_t, 4> last_time{};
  std::array<bool, 4> has_time{};
  std::array<std::uint64_t, 4> overflow{};
  std::array<std::int64_t, 4> emitted_time{};
  std::array<bool, 4> has_emitted{};
  std::int32_t sync_left = 0;
  std::int32_t sync_channel = 0;
  std::uint64_t sync_value = 0;
  std::uint32_t sync_bits = 0;
  std::int32_t anchor_channel = -1;
  std::uint64_t anchor_base = 0;

 private:
  static constexpr std::uint64_t kPeriod = 14'315'125'997'568;
  static constexpr std::uint64_t kImplausible = 1'000'000'000'000;
  static constexpr std::uint64_t kSmallRest = 10'000'000'000;
  static constexpr std::uint64_t kBackward = 1'000'000;
  static constexpr std::uint64_t k2To41 = std::uint64_t{1} << 41;

  std::uint8_t mask;
  bool internal;
  std::uint32_t d;  // payload bits of a record
  unsigned shift;   // one quantum is 2^shift ps
  std::uint64_t modulus;
  std::uint64_t wrap_step;

  static std::uint64_t not_negative(std::int64_t time) { return time > 0 ? static_cast<std::uint64_t>(time) : 0; }
  template <typename Number>
  static std::string text(Number value) {
    return std::to_string(value);
  }

  void log(const std::string& line) {
    if (lines.size() < 200) lines.push_back(line);
  }
  bool drop(const std::string& line) {
    log(line);
    return false;
  }

  bool find_lock() {
    const int bits = static_cast<int>(d);
    const std::string settings = "bits=" + text(d) + " width=" + text(d + 3);
    const AlignmentAnswer answer = search_alignment(
        {.channel_mask = mask, .internal = internal, .delta_bits = bits, .width = bits + 3, .bytes = pending});
    if (!answer.reject_line.empty()) log(answer.reject_line);
    if (!answer.found) {
      if (pending.size() < 4096) return false;
      log("no alignment " + settings + " raw_bytes=" + text(pending.size()));
      if (pending.size() <= 65536) return false;
      pending.erase(pending.begin(), pending.end() - 4096);
      bit_offset = 0;
      return false;
    }
    pending.erase(pending.begin(), pending.begin() + static_cast<std::ptrdiff_t>(answer.drop_bytes));
    locked = true;
    bit_offset = answer.bit_offset;
    log("locked bits=" + text(d) + " drop_bytes=" + text(answer.drop_bytes) + " bit_offset=" + text(bit_offset) +
        " raw_bytes=" + text(pending.size()));
    return true;
  }

  void consume(std::uint64_t records) {
    const std::uint64_t bits = (d + 3) * records + bit_offset;
    bit_offset = bits % 8;
    pending.erase(pending.begin(), pending.begin() + static_cast<std::ptrdiff_t>(bits / 8));
  }

  void drop_lock() {
    locked = false;
    bit_offset = 0;
    last_time = {};
    has_time = {};
    overflow = {};
    emitted_time = {};
    has_emitted = {};
    sync_left = sync_channel = 0;
    sync_value = sync_bits = 0;
    anchor_channel = -1;
    anchor_base = 0;
  }

  // Each of these is false, and has written its line, when the lock cannot be kept.

  /// Takes record `k` of this call.
  bool take_record(std::uint64_t k, std::uint64_t records, Tags& tags) {
    const std::uint64_t record = read_record(pending, bit_offset + k * (d + 3), d + 3);
    const auto c = static_cast<std::uint32_t>(record >> (d + 1));
    const bool flag = (record >> d & 1) != 0;
    const std::uint64_t all_ones = (std::uint64_t{1} << d) - 1;
    const std::uint64_t x = record & all_ones;
    if (!is_active(mask, c)) return drop(inactive_line(c, k, records));
    if (sync_left >= 1) return sync_piece(c, flag, x, k);
    if (flag && x == all_ones) {
      sync_channel = static_cast<std::int32_t>(c);
      sync_value = 0;
      sync_bits = 0;
      sync_left = static_cast<std::int32_t>((d + 40) / d);
      overflow[c] = 0;
      return true;
    }
    if (flag) {
      overflow[c] += x;
      return true;
    }
    const std::uint64_t v = ((overflow[c] << d) + x) << shift;
    overflow[c] = 0;
    if (static_cast<std::int32_t>(c) == anchor_channel) return anchor_record(c, v, k, tags);
    return !has_time[c] || data_record(c, v, k, tags);
  }

  std::string inactive_line(std::uint32_t c, std::uint64_t k, std::uint64_t records) const {
    static constexpr char kHex[] = "0123456789abcdef";
    return "drop inactive ch=" + text(c) + " active_mask=0x" + kHex[active_channels(mask)] + " record=" + text(k) +
           " records=" + text(records);
  }

  bool sync_piece(std::uint32_t c, bool flag, std::uint64_t x, std::uint64_t k) {
    if (static_cast<std::int32_t>(c) != sync_channel) {
      return drop("drop sync channel mismatch ch=" + text(c) + " expected=" + text(sync_channel) +
                  " record=" + text(k) + " chunks_left=" + text(sync_left));
    }
    if (flag) {
      return drop("drop ovf in sync ch=" + text(c) + " record=" + text(k) + " chunks_left=" + text(sync_left));
    }
    sync_value |= x << sync_bits;
    sync_bits += d;
    sync_left -= 1;
    if (sync_left > 0) return true;
    anchor_base = base_of(c);
    anchor_channel = static_cast<std::int32_t>(c);
    sync_value = 0;
    sync_bits = 0;
    return true;
  }

  /// The time of the finished sync sequence on the channel's time axis.
  std::uint64_t base_of(std::uint32_t c) const {
    const std::uint64_t mc = std::min(modulus, kPeriod);
    const std::uint64_t b = (sync_value % k2To41 << shift) % mc;
    if (!has_time[c] && !has_emitted[c]) return b;
    const std::uint64_t last = not_negative(has_time[c] ? last_time[c] : emitted_time[c]);
    std::uint64_t lifted = b + (last - last % mc);
    if (lifted + mc / 2 < last) lifted += mc;
    if (modulus > kPeriod || lifted <= last || lifted - last <= wrap_step) return lifted;
    const std::uint64_t rest = lifted - last - wrap_step;
    return rest <= kSmallRest || last % kPeriod + rest >= kPeriod ? last + rest : lifted;
  }

  bool anchor_record(std::uint32_t c, std::uint64_t v, std::uint64_t k, Tags& tags) {
    const auto t = static_cast<std::int64_t>(v + anchor_base);
    if (has_time[c]) {
      const std::int64_t prev = last_time[c];
      const std::uint64_t forward = static_cast<std::uint64_t>(t) - static_cast<std::uint64_t>(prev);
      const std::uint64_t backward = 0 - forward;
      const auto where = [&] { return " next=" + text(t) + " prev=" + text(prev) + " record=" + text(k); };
      if (prev >= t && backward > kBackward) return drop("drop nonmonotonic sync ch=" + text(c) + where());
      if (prev == t || (internal && (prev > t || forward > kImplausible))) {
        return drop("drop implausible sync delta ch=" + text(c) + " delta=" + text(forward) + where());
      }
    }
    anchor_channel = -1;
    anchor_base = 0;
    return emit(c, t, tags);
  }

  bool data_record(std::uint32_t c, std::uint64_t v, std::uint64_t k, Tags& tags) {
    const auto prev = static_cast<std::uint64_t>(last_time[c]);
    if (modulus / 2 < v && v <= modulus && modulus - v <= kBackward) {
      return emit(c, static_cast<std::int64_t>(prev - (modulus - v)), tags);
    }
    if (v > wrap_step) {
      const std::uint64_t rest = v - wrap_step;
      if (rest <= kSmallRest) return emit(c, static_cast<std::int64_t>(prev + rest), tags);
      if (not_negative(last_time[c]) % kPeriod + rest >= kPeriod) v = rest;
    }
    if (internal && v > kImplausible) {
      return drop("drop implausible delta ch=" + text(c) + " delta=" + text(v) + " prev=" + text(last_time[c]) +
                  " record=" + text(k));
    }
    return emit(c, static_cast<std::int64_t>(prev + v), tags);
  }

  bool emit(std::uint32_t c, std::int64_t time, Tags& tags) {
    last_time[c] = emitted_time[c] = time;
    has_time[c] = has_emitted[c] = true;
    tags.push_back({static_cast<int>(c), time});
    return true;
  }

  /// The tags of one call must not lie too unevenly on the active channels.
  bool is_balanced(const Tags& tags, std::uint64_t records) {
    if (!internal || active_count(mask) < 2 || tags.empty()) return true;
    std::array<std::uint64_t, 4> counts{};
    for (const Tag& tag : tags) counts[static_cast<std::size_t>(tag.channel)] += 1;
    std::uint64_t min = UINT64_MAX, max = 0, total = 0;
    for (std::uint32_t c = 0; c < 4; ++c) {
      if (!is_active(mask, c)) continue;
      min = std::min(min, counts[c]);
      max = std::max(max, counts[c]);
      total += counts[c];
    }
    if (total < 4096 || (min > 0 && 8 * min >= max)) return true;
    return drop("drop internal imbalanced lock min=" + text(min) + " max=" + text(max) + " total=" + text(total) +
                " records=" + text(records));
  }
};

}  // namespace orvo::test::reference
