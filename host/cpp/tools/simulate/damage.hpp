#pragma once
// Part of vq_simulate_stream_file: file-local throughout.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "simulate/random.hpp"
#include "simulate/settings.hpp"

namespace {

/// Damages a payload on its way to the file. Positions count the bytes of the sound payload.
///
/// Every byte of garbage has its topmost bit set, so that it holds neither the start of a raw64 record nor a delta32
/// sync word.
class Damage {
 public:
  explicit Damage(const Settings& settings)
      : settings_(settings.damage),
        garbage_random_(settings.seed ^ 0x9A5B'0000'0000'0000),
        flip_random_(settings.seed ^ 0xF11B'0000'0000'0000),
        garbage_at_(settings.damage.garbage_at),
        next_flip_(settings_.flip_every_bytes == 0 ? kNever : flip_random_.below(settings_.flip_every_bytes)) {}

  /// Writes the garbage before the payload.
  template <class Write>
  void begin(Write write) {
    write_garbage(settings_.front_garbage_bytes, write);
  }

  /// Passes the next piece of the payload to `write(data, size)`, in one or more calls.
  template <class Write>
  void pass(std::span<const std::uint8_t> payload, Write write) {
    if (next_flip_ < position_ + payload.size()) payload = flipped(payload);
    if (garbage_at_ - position_ < payload.size()) {
      const auto before = static_cast<std::size_t>(garbage_at_ - position_);
      write(payload.data(), before);
      write_garbage(settings_.garbage_bytes, write);
      inserted_ = settings_.garbage_bytes;
      write(payload.data() + before, payload.size() - before);
    } else {
      write(payload.data(), payload.size());
    }
    position_ += payload.size();
  }

  std::uint64_t flipped_bits() const { return flipped_; }
  /// Bytes of garbage inside the payload: 0 if it ended before their place.
  std::uint64_t inserted_bytes() const { return inserted_; }

 private:
  static constexpr std::uint64_t kNever = ~std::uint64_t{0};

  /// A copy with the flips that are due in it.
  std::span<const std::uint8_t> flipped(std::span<const std::uint8_t> payload) {
    spoilt_.assign(payload.begin(), payload.end());
    for (; next_flip_ < position_ + payload.size(); flip_next_stretch()) flip(spoilt_[next_flip_ - position_]);
    return spoilt_;
  }

  void flip(std::uint8_t& byte) {
    byte = static_cast<std::uint8_t>(byte ^ 1u << flip_random_.below(8));
    ++flipped_;
  }

  void flip_next_stretch() {
    stretch_ += settings_.flip_every_bytes;
    next_flip_ = stretch_ + flip_random_.below(settings_.flip_every_bytes);
  }

  template <class Write>
  void write_garbage(std::uint64_t bytes, Write write) {
    std::vector<std::uint8_t> garbage(static_cast<std::size_t>(std::min<std::uint64_t>(bytes, 65'536)));
    for (std::uint64_t left = bytes; left != 0;) {
      for (std::uint8_t& byte : garbage) byte = static_cast<std::uint8_t>(0x80 | garbage_random_.below(128));
      const std::uint64_t size = std::min<std::uint64_t>(left, garbage.size());
      write(garbage.data(), static_cast<std::size_t>(size));
      left -= size;
    }
  }

  DamageSettings settings_;
  Random garbage_random_;
  Random flip_random_;
  std::uint64_t garbage_at_;
  std::uint64_t position_ = 0;
  std::uint64_t stretch_ = 0;
  std::uint64_t next_flip_;
  std::uint64_t flipped_ = 0;
  std::vector<std::uint8_t> spoilt_;
  std::uint64_t inserted_ = 0;
};

}  // namespace
