#pragma once
// Seeded chance for tests and benchmarks: the same numbers with every compiler and library, as long as one statement
// draws them in one order.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "support/bytes.hpp"

namespace orvo::test {

class Random {
 public:
  explicit Random(std::uint64_t seed) : engine_(seed) {}

  std::uint64_t bits() { return engine_(); }
  std::uint32_t bits32() { return static_cast<std::uint32_t>(engine_()); }
  std::uint8_t byte() { return static_cast<std::uint8_t>(engine_()); }
  std::uint64_t below(std::uint64_t bound) { return engine_() % bound; }
  std::uint32_t channel() { return static_cast<std::uint32_t>(below(4)); }
  bool one_in(std::uint64_t n) { return below(n) == 0; }

  /// Both ends included.
  std::uint64_t between(std::uint64_t low, std::uint64_t high) {
    const std::uint64_t width = high - low;
    return low + (width + 1 == 0 ? bits() : below(width + 1));
  }
  std::int64_t integer(std::int64_t low, std::int64_t high) {
    return static_cast<std::int64_t>(between(0, static_cast<std::uint64_t>(high) - static_cast<std::uint64_t>(low)) +
                                     static_cast<std::uint64_t>(low));
  }

  /// A number whose length in bits is uniform up to `most_bits` (1 to 64).
  std::uint64_t of_any_size(std::uint64_t most_bits) { return bits() >> (64 - between(1, most_bits)); }

  Bytes bytes(std::size_t count) {
    Bytes out(count);
    for (std::uint8_t& byte : out) byte = this->byte();
    return out;
  }

  template <typename T>
  T pick(const std::vector<T>& values) {
    return values[static_cast<std::size_t>(below(values.size()))];
  }
  std::string word(const std::vector<std::string>& values) { return pick(values); }

  /// Cuts `payload` into chunks of 1 to `longest` bytes and hands each of them to `action`.
  template <class Action>
  void cut(const Bytes& payload, std::size_t longest, Action action) {
    for (std::size_t at = 0; at < payload.size();) {
      const std::size_t size = std::min<std::size_t>(1 + below(longest), payload.size() - at);
      const auto from = payload.begin() + static_cast<std::ptrdiff_t>(at);
      action(Bytes(from, from + static_cast<std::ptrdiff_t>(size)));
      at += size;
    }
  }

 private:
  std::mt19937_64 engine_;
};

/// How many rounds a random comparison has that usually has `usual`: as many times that as ORVO_TEST_ROUNDS says,
/// above 1 for long runs by hand and below where a round takes long, as under Valgrind.
inline std::uint64_t rounds(std::uint64_t usual = 1) {
  const char* const text = std::getenv("ORVO_TEST_ROUNDS");
  const double factor = text == nullptr ? 1 : std::strtod(text, nullptr);
  return factor > 0 ? std::max<std::uint64_t>(static_cast<std::uint64_t>(static_cast<double>(usual) * factor), 1)
                    : usual;
}

/// The seeds of rounds(number), from ORVO_TEST_SEED on, or 1. Of a few none is left out.
inline std::vector<std::uint64_t> seeds(std::uint64_t number) {
  const char* const start = std::getenv("ORVO_TEST_SEED");
  const std::uint64_t first = start == nullptr ? 1 : std::strtoull(start, nullptr, 10);
  const std::uint64_t count = number < 10 ? number * rounds() : rounds(number);
  std::vector<std::uint64_t> out;
  for (std::uint64_t seed = first; seed < first + count; ++seed) out.push_back(seed);
  return out;
}

}  // namespace orvo::test
