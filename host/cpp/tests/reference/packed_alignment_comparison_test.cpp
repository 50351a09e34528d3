// The alignment search against its reference, on seeded windows of every kind: the answer and the diagnostic line of
// a rejected candidate must be the same.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>

#include "orvo/timing/stream_decoder.hpp"
#include "reference/packed_alignment.hpp"
#include "support/bytes.hpp"
#include "support/packed_streams.hpp"
#include "support/streams.hpp"

namespace orvo::test {
namespace {

using reference::AlignmentAnswer;
using reference::AlignmentQuestion;
using reference::search_alignment;
using timing::StreamDecoder;
using timing::StreamFileHeader;
using timing::StreamMode;

struct Window {
  StreamMode mode = StreamMode::external;
  std::uint8_t channel_mask = 15;
  int delta_bits = 5;
  Bytes bytes;

  AlignmentQuestion question() const {
    return {.channel_mask = channel_mask,
            .internal = mode == StreamMode::internal,
            .delta_bits = delta_bits,
            .width = delta_bits + 3,
            .bytes = bytes};
  }
};

StreamFileHeader header_of(const Window& window) {
  StreamFileHeader header;
  header.stream_format = timing::StreamFormat::packed_delta;
  header.mode = window.mode;
  header.channel_mask = window.channel_mask;
  header.delta_bits = static_cast<std::uint8_t>(window.delta_bits);
  return header;
}

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
  window.mode = random.one_in(2) ? StreamMode::internal : StreamMode::external;
  window.channel_mask = mask;
  window.delta_bits = static_cast<int>(random.one_in(4) ? random.between(1, 31) : random.between(2, 7));
  const PackedSettings settings{
      .delta_bits = static_cast<std::uint32_t>(window.delta_bits), .shift = 0, .channel_mask = mask};
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
    const auto width = static_cast<std::uint64_t>(window.delta_bits + 3);
    const bool reject = !answer.reject_line.empty();
    found_at_once += answer.found && answer.chosen.skipped_records == 0 ? 1 : 0;
    found_after_resets += answer.found && answer.chosen.skipped_records > 0 ? 1 : 0;
    rejected += reject ? 1 : 0;
    not_found += !answer.found && !reject ? 1 : 0;
    tied += answer.found && answer.equal_trials > 0 ? 1 : 0;
    rejected_tied += reject && answer.equal_trials > 0 ? 1 : 0;
    found_late += answer.found && 8 * answer.chosen.start_byte >= width ? 1 : 0;
    some_unsynced += answer.found && answer.chosen.synced < reference::active_count(window.channel_mask) ? 1 : 0;
  }
};

std::string describe(const Window& window) {
  std::string out = (window.mode == StreamMode::internal ? "internal, mask " : "external, mask ") +
                    std::to_string(window.channel_mask) + ", bits " + std::to_string(window.delta_bits) + ", " +
                    std::to_string(window.bytes.size()) + " bytes:";
  for (std::size_t i = 0; i < std::min<std::size_t>(window.bytes.size(), 400); ++i)
    out += " " + std::to_string(window.bytes[i]);
  return out;
}

/// Asks both; the decoder's diagnostic lines go to standard error, those of the reference to `lines`.
void compare_on(const Window& window, Outcomes& outcomes, std::string& lines) {
  StreamDecoder decoder{header_of(window)};
  decoder.pending_bytes.append(window.bytes.data(), window.bytes.size());
  const auto found = decoder.probe_packed_alignment(window.delta_bits, window.delta_bits + 3);
  const AlignmentAnswer answer = search_alignment(window.question());
  ASSERT_EQ(found.found, answer.found) << describe(window);
  if (found.found) {
    ASSERT_EQ(found.drop_bytes, answer.drop_bytes) << describe(window);
    ASSERT_EQ(found.bit_offset, answer.bit_offset) << describe(window);
  }
  ASSERT_EQ(decoder.pending_bytes.size(), window.bytes.size());
  ASSERT_FALSE(decoder.packed_locked);
  ASSERT_EQ(decoder.bit_offset, 0u);
  ASSERT_EQ(decoder.pk_debug_lines, answer.reject_line.empty() ? 0u : 1u) << describe(window);
  if (!answer.reject_line.empty()) lines += "packed-decoder: " + answer.reject_line + "\n";
  outcomes.add(answer, window);
}

/// Where two texts part, with what follows there.
std::string first_line_apart(const std::string& a, const std::string& b) {
  if (a == b) return {};
  const auto apart =
      static_cast<std::size_t>(std::mismatch(a.begin(), a.end(), b.begin(), b.end()).first - a.begin());
  const std::size_t start = apart == 0 ? 0 : a.rfind('\n', apart - 1) + 1;
  return a.substr(start, 120) + "\n and \n" + b.substr(start, 120);
}

class PackedAlignmentAgainstReference : public testing::Test {
 protected:
  PackedAlignmentAgainstReference() {
    ::setenv("ORVO_PACKED_DEBUG", "1", 1);
    testing::internal::CaptureStderr();
  }
  ~PackedAlignmentAgainstReference() override {
    EXPECT_EQ(first_line_apart(testing::internal::GetCapturedStderr(), lines_), "");
    ::unsetenv("ORVO_PACKED_DEBUG");
  }

  void compare(const Window& window) { compare_on(window, outcomes_, lines_); }

  Outcomes outcomes_;
  std::string lines_;
};

TEST_F(PackedAlignmentAgainstReference, SmallWindows) {
  Random random(3401);
  for (std::uint64_t i = 0; i < 102'000 * rounds() && !HasFatalFailure(); ++i) {
    Window window = random_window(random, static_cast<std::uint8_t>(i % 16), window_size(random));
    const unsigned upper = random.one_in(20) ? random.byte() & 0xF0u : 0;  // bits that name no channel
    window.channel_mask = static_cast<std::uint8_t>(window.channel_mask | upper);
    compare(window);
  }
  const std::uint64_t often = 500 * rounds();
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
  window.delta_bits = static_cast<int>(random.between(4, 20));
  const PackedSettings settings{
      .delta_bits = static_cast<std::uint32_t>(window.delta_bits), .shift = 0, .channel_mask = mask};
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
