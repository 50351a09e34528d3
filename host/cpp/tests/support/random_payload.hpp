#pragma once
// Numbers and bytes without meaning, the same in every run: std::mt19937_64 gives the same numbers everywhere.
#include <cstddef>
#include <cstdint>
#include <random>

#include "support/bytes.hpp"
#include "support/stream_feeding.hpp"

namespace orvo::test {

class Random {
 public:
  explicit Random(std::uint64_t seed) : engine_(seed) {}
  std::uint64_t below(std::uint64_t bound) { return engine_() % bound; }
  std::uint64_t any() { return engine_(); }
  std::uint32_t word() { return static_cast<std::uint32_t>(engine_()); }

  Bytes bytes(std::size_t count) {
    Bytes out(count);
    for (std::uint8_t& byte : out) byte = static_cast<std::uint8_t>(engine_());
    return out;
  }
  /// Cuts `payload` into chunks of 1 to `longest` bytes and hands each of them to `action`.
  template <class Action>
  void cut(const Bytes& payload, std::size_t longest, Action action) {
    for (std::size_t at = 0; at < payload.size();) {
      const std::size_t size = 1 + below(longest);
      action(first(size, all_but_first(at, payload)));
      at += size;
    }
  }

 private:
  std::mt19937_64 engine_;
};

}  // namespace orvo::test
