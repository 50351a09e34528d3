// The library against the references, in process, on seeded random inputs.
#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

#include "orvo/timing/timing.hpp"
#include "reference/capture_file.hpp"
#include "reference/histogram.hpp"
#include "support/checked_correlation.hpp"
#include "support/checked_header.hpp"
#include "support/random_captures.hpp"
#include "support/temp_directory.hpp"

namespace orvo::test {

namespace {

using reference::Tags;
using reference::Times;
using reference::Wide;

constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();

TEST(LibraryAgainstReference, ReadsHeaders) {
  for (const std::uint64_t seed : seeds(4000)) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    Random random(seed);
    const std::string text = random_header(random);
    checked_header(text);
    ASSERT_FALSE(HasFailure()) << text;
    for (const char* key : {"mode", "quantum_ps", "application", "", "packed_delta_config", "\"", "mode\":\"x"}) {
      ASSERT_EQ(timing::detail::json_find_string(text, key), reference::find_string(text, key))
          << key << " in " << text;
      ASSERT_EQ(timing::detail::json_find_uint(text, key), reference::find_number(text, key))
          << key << " in " << text;
    }
    std::string any_bytes;
    while (!random.one_in(30))
      any_bytes.push_back(static_cast<char>(random.one_in(2) ? random.below(256) : random.below(40)));
    ASSERT_EQ(timing::detail::json_escape(any_bytes), reference::json_escape(any_bytes));
  }
}

/// All tags that the reader hands out, asked for in random portions.
Tags read_all(timing::StreamFileReader& reader, Random& random) {
  Tags tags;
  const std::uint64_t most_tags = random.pick<std::uint64_t>({1, 2, 7, 100, 65'536});
  const std::uint64_t most_bytes = random.pick<std::uint64_t>({0, 1, 7, 8, 9, 64, 1000, 1'048'576});
  while (true) {
    if (random.one_in(10)) {
      EXPECT_TRUE(reader.decode_next_tags(0, 1).empty());
    }
    const std::uint64_t asked = 1 + random.below(most_tags);
    const std::vector<timing::TimeTag> portion = reader.decode_next_tags(asked, random.below(most_bytes + 1));
    EXPECT_LE(portion.size(), asked);
    if (portion.empty()) return tags;
    for (const timing::TimeTag& tag : portion) tags.push_back({tag.channel, tag.time_ps});
  }
}

TEST(LibraryAgainstReference, ReadsCaptures) {
  const TempDirectory directory;
  const std::string path = (directory / "some.tagcap").string();
  timing::StreamFileReader reader;  // one for all: opening resets it
  for (const std::uint64_t seed : seeds(600)) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    Random random(seed);
    const Bytes file = random_capture(random, 200);
    write_file(path, file);
    const reference::Capture expected = reference::read_capture(path, file);
    try {
      reader.open(path);
      ASSERT_EQ(expected.failure, "");
    } catch (const timing::Error& error) {
      ASSERT_EQ(error.what(), expected.failure);
      ASSERT_EQ(error.code, expected.failure_code);
      continue;
    }
    ASSERT_EQ(reader.header_json(), expected.header_json);
    expect_as_reference(reader.header(), expected.header);
    ASSERT_EQ(reader.payload_offset(), expected.payload_offset);
    if (expected.header.stream_format != reference::Encoding::raw64) continue;
    if (random.one_in(8)) {  // abandoned with tags pending
      ASSERT_LE(reader.decode_next_tags(1, 1'000).size(), 1U);
      continue;
    }
    ASSERT_EQ(read_all(reader, random), reference::decode(expected.header, expected.payload));
    ASSERT_TRUE(reader.decode_next_tags(5, 5).empty());
  }
}

/// Times near `middle`, unsorted, with duplicates; those that 64 bits cannot hold stop at the end.
Times random_times(Random& random, std::int64_t middle, std::uint64_t spread) {
  Times times;
  for (std::uint64_t n = random.below(random.one_in(5) ? 3 : 60); n > 0; --n) {
    const auto step = static_cast<std::int64_t>(random.below(2 * spread + 1));
    times.push_back(reference::in_64_bits(Wide{middle} + step - static_cast<std::int64_t>(spread)));
    if (random.one_in(6)) times.push_back(times.back());
  }
  return times;
}

void compare_histograms(const Times& a, const Times& b, std::int64_t range_ps, std::int64_t bin_ps,
                        std::int64_t offset_ps) {
  SCOPED_TRACE("range " + std::to_string(range_ps) + ", bin " + std::to_string(bin_ps) + ", offset " +
               std::to_string(offset_ps));
  checked_histogram(a, b, range_ps, bin_ps, offset_ps);
  ASSERT_FALSE(testing::Test::HasFailure());
}

TEST(LibraryAgainstReference, BuildsHistograms) {
  for (const std::uint64_t seed : seeds(2000)) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    Random random(seed);
    const std::uint64_t spread = random.pick<std::uint64_t>({3, 40, 1000, 100'000});
    const std::int64_t middle = random.integer(-50, 50);
    const Times a = random_times(random, 0, spread);
    const Times b = random_times(random, middle, spread);
    const auto widest = static_cast<std::int64_t>(2 * spread);
    const std::int64_t range = random.integer(random.one_in(20) ? -1 : 1, widest);
    const std::int64_t widest_bin = random.pick<std::int64_t>({3, 20, 1 + widest, 3 * widest});
    const std::int64_t bin = random.integer(random.one_in(20) ? -1 : 1, widest_bin);
    const std::int64_t offset = middle + random.integer(-10, 10);
    compare_histograms(a, b, range, bin, offset);
    if (HasFatalFailure()) return;
    const reference::Window window{range, bin, offset};
    ASSERT_EQ(reference::histogram<std::int64_t>(a, b, window).counts, reference::histogram(a, b, window).counts);
  }
}

TEST(LibraryAgainstReference, BuildsHistogramsAtTheEndsOf64Bits) {
  for (const std::uint64_t seed : seeds(3000)) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    Random random(seed);
    const auto place = [&] {
      return random.pick<std::int64_t>({kMin, kMax, kMin / 2, kMax / 2, 0, random.integer(kMin, kMax)});
    };
    const std::uint64_t spread = random.pick<std::uint64_t>({5, 1000, 1ULL << 40, (1ULL << 62) - 1});
    const std::int64_t middle_a = place();
    const std::int64_t middle_b = place();
    const Times a = random_times(random, middle_a, spread);
    const Times b = random_times(random, middle_b, spread);
    const std::int64_t middle_offset = reference::in_64_bits(Wide{middle_b} - middle_a);
    const std::int64_t offset =
        random.one_in(2) ? place() : reference::in_64_bits(Wide{middle_offset} + random.integer(-9, 9));
    const std::int64_t range = random.one_in(2) ? reference::in_64_bits(Wide{kMax} - random.integer(0, 9))
                                                : 1 + reference::in_64_bits(Wide{place()}) / 2;
    const std::int64_t bins = random.integer(1, 200);
    const std::int64_t bin = random.one_in(6) ? kMax - random.integer(0, 3) : range / bins + random.integer(0, 2);
    if (reference::number_of_bins(range, bin) > 2000) continue;
    compare_histograms(a, b, range, bin, offset);
    if (HasFatalFailure()) return;
  }
}

/// Deviations are squared first and weighted then; the other order gives another last digit here. The numbers are the
/// square roots of exact fractions, rounded to double.
TEST(LibraryAgainstReference, WeighsSquaredDeviations) {
  EXPECT_EQ((timing::XcorrHistogram{{-4, -2, 0, 2, 4}, {14, 1, 18, 14, 18}}.rms_ps()), 2.8952521836794443);
  EXPECT_EQ((timing::XcorrHistogram{{-4, -2, 0, 2, 4}, {5, 3, 6, 16, 14}}.rms_ps()), 2.5789196277280513);
  EXPECT_EQ((timing::XcorrHistogram{{-12, -6, 0, 6, 12}, {18, 1, 13, 0, 10}}.rms_ps()), 9.537252417414011);
}

TEST(LibraryAgainstReference, EstimatesOffsets) {
  for (const std::uint64_t seed : seeds(2000)) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    Random random(seed);
    const std::uint64_t spread = random.pick<std::uint64_t>({3, 40, 1000, 100'000, (1ULL << 62) - 1});
    const bool at_the_ends = random.one_in(3);
    const std::int64_t middle = at_the_ends ? random.pick<std::int64_t>({kMin, kMax}) : random.integer(-50, 50);
    const Times a = random_times(random, middle, spread);
    const Times b = random_times(random, random.one_in(20) ? ~middle : middle, spread);
    checked_offset_ps(a, b);
    ASSERT_FALSE(HasFailure());
  }
}

TEST(LibraryAgainstReference, EstimatesOffsetsOfLongLists) {
  for (const std::int64_t events : {3999, 4000, 4001, 7999, 8000, 12'001}) {
    SCOPED_TRACE("events " + std::to_string(events));
    Random random(static_cast<std::uint64_t>(events));
    Times a, b;
    for (std::int64_t i = 0; i < events; ++i) a.push_back(random.integer(0, 10'000'000));
    for (std::int64_t i = 0; i < 300; ++i) b.push_back(random.integer(0, 3'000'000));
    checked_offset_ps(a, b);
    ASSERT_FALSE(HasFailure());
  }
}

}  // namespace
}  // namespace orvo::test
