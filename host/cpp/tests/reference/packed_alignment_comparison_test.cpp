// The alignment search against its reference, on seeded windows of every kind: the answer and the diagnostic line of
// a rejected candidate must be the same.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "reference/packed_alignment.hpp"
#include "support/bytes.hpp"
#include "support/checked_probe.hpp"
#include "support/packed_debug_output.hpp"
#include "support/packed_streams.hpp"
#include "support/streams.hpp"

namespace orvo::test {
namespace {

using reference::AlignmentAnswer;
using timing::StreamMode;

struct Window {
  PackedSetup setup;
  Bytes bytes;
};

Bytes part_of(Random& random, const Bytes& bytes, std::size_t size) {
  const std::size_t start = bytes.size() > size ? random.below(bytes.size() - size + 1) : 0;
  const auto from = bytes.begin() + static_cast<std::ptrdiff_t>(start);
  return Bytes(from, from + static_cast<std::ptrdiff_t>(std::min(size, bytes.size())));
}

/// Mostly small: the reference takes about `size` squared.
std::size_t window_size(Random& random) {
  const std::uint64_t kind = random.below(200);
  if (kind == 0) return random.between(150, 400);
  return kind < 20 ? random.between(60, 150) : random.between(random.one_in(10) ? 1 : 15, 50);
}

/// A window of `size` bytes at most; few payload bits and few channels make small ones eventful.
Window random_window(Random& random, std::uint8_t mask, std::size_t size) {
  Window window;
  window.setup.mode = random.one_in(2) ? StreamMode::internal : StreamMode::external;
  window.setup.channel_mask = mask;
  window.setup.delta_bits = static_cast<unsigned>(random.one_in(4) ? random.between(1, 31) : random.between(2, 7));
  const PackedSettings settings{.delta_bits = window.setup.delta_bits, .shift = 0, .channel_mask = mask};
  const std::size_t steps = 4 + 8 * size / (settings.delta_bits + 3) / 3;
  switch (random.below(12)) {
    case 0:
      window.bytes = random.one_in(2) ? random.bytes(size) : Bytes(size, random.one_in(2) ? 0 : 0xFF);
      break;
    case 1:
    case 2:
      window.bytes = part_of(random, clean_packed(random, settings, 2 * steps, 4).bytes, size);
      break;
    case 3:
      window.bytes = part_of(random, clean_packed(random, settings, 2 * steps, 4).bytes, size);
      damage(random, window.bytes, random.between(1, 3));
      break;
    case 4:
      window.bytes = part_of(random, shuffled_packed(random, settings, steps, 10).bytes(), size);
      damage(random, window.bytes, 1);
      break;
    case 5:
      window.bytes = shifted_packed(random, settings, random.between(2, 3)).bytes();
      break;
    default:
      window.bytes =
          part_of(random, shuffled_packed(random, settings, steps, random.one_in(2) ? 20 : 1000).bytes(), size);
  }
  return window;
}

struct Outcomes {
  std::uint64_t windows = 0, found_at_once = 0, found_after_resets = 0, rejected = 0, not_found = 0;
  std::uint64_t tied = 0, rejected_tied = 0, some_unsynced = 0;
  std::uint64_t found_late = 0;  // by a candidate more than one record in

  void add(const AlignmentAnswer& answer, const Window& window) {
    ++windows;
    const std::uint64_t width = window.setup.delta_bits + 3;
    const auto active = reference::active_count(static_cast<std::uint8_t>(window.setup.channel_mask));
    const bool reject = !answer.reject_line.empty();
    found_at_once += answer.found && answer.chosen.skipped_records == 0 ? 1 : 0;
    found_after_resets += answer.found && answer.chosen.skipped_records > 0 ? 1 : 0;
    rejected += reject ? 1 : 0;
    not_found += !answer.found && !reject ? 1 : 0;
    tied += answer.found && answer.equal_trials > 0 ? 1 : 0;
    rejected_tied += reject && answer.equal_trials > 0 ? 1 : 0;
    found_late += answer.found && 8 * answer.chosen.start_byte >= width ? 1 : 0;
    some_unsynced += answer.found && answer.chosen.synced < active ? 1 : 0;
  }
};

std::string describe(const Window& window) {
  std::string out = (window.setup.mode == StreamMode::internal ? "internal, mask " : "external, mask ") +
                    std::to_string(window.setup.channel_mask) + ", bits " + std::to_string(window.setup.delta_bits) +
                    ", " + std::to_string(window.bytes.size()) + " bytes:";
  for (std::size_t i = 0; i < std::min<std::size_t>(window.bytes.size(), 400); ++i)
    out += " " + std::to_string(window.bytes[i]);
  return out;
}

class PackedAlignmentAgainstReference : public testing::Test {
 protected:
  void compare(const Window& window) {
    const ComparedSearch compared = compare_search(window.setup, window.bytes);
    ASSERT_EQ(compared.apart, "") << describe(window);
    outcomes_.add(compared.expected, window);
  }

  Outcomes outcomes_;
  PackedDebugUnseen log_;
};

TEST_F(PackedAlignmentAgainstReference, SmallWindows) {
  Random random(3401);
  for (std::uint64_t i = 0; i < rounds(102'000) && !HasFatalFailure(); ++i) {
    Window window = random_window(random, static_cast<std::uint8_t>(i % 16), window_size(random));
    window.setup.channel_mask |= random.one_in(20) ? random.byte() & 0xF0u : 0;  // bits that name no channel
    compare(window);
  }
  const std::uint64_t often = rounds(500);
  EXPECT_GT(outcomes_.found_at_once, often);
  EXPECT_GT(outcomes_.found_after_resets, often);
  EXPECT_GT(outcomes_.rejected, often);
  EXPECT_GT(outcomes_.not_found, often);
  EXPECT_GT(outcomes_.tied, often);
  EXPECT_GT(outcomes_.rejected_tied, often);
  EXPECT_GT(outcomes_.found_late, often);
  EXPECT_GT(outcomes_.some_unsynced, often);
}

/// A clean stream cut somewhere. A candidate reads 65536 bytes from its own start, so later ones see a little more.
Window long_window(Random& random, std::uint8_t mask, std::size_t size) {
  Window window = random_window(random, mask, 1);
  window.setup.delta_bits = static_cast<unsigned>(random.between(4, 20));
  const PackedSettings settings{.delta_bits = window.setup.delta_bits, .shift = 0, .channel_mask = mask};
  window.bytes = part_of(random, clean_packed(random, settings, 80'000).bytes, size);
  if (random.one_in(4)) damage_once(random, window.bytes);
  return window;
}

TEST_F(PackedAlignmentAgainstReference, WindowsBeyond65536BytesWhereTheCandidatesEndApart) {
  Random random(3402);
  for (std::uint64_t i = 0; i < 12 * rounds() && !HasFatalFailure(); ++i) {
    const std::uint64_t mask = i % 3 == 0 ? random.below(16) : 1u << random.below(4);
    compare(long_window(random, static_cast<std::uint8_t>(mask), 65'536 + random.between(1, 80)));
  }
  EXPECT_GT(outcomes_.found_at_once + outcomes_.found_after_resets, 6 * rounds());
  EXPECT_GT(outcomes_.found_late, 3 * rounds());
}

}  // namespace
}  // namespace orvo::test
