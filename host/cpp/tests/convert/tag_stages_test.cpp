// What happens to tags between the inputs and OUT: selection, changes, sorting, and the check of what was written.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "convert/capture_header.hpp"
#include "convert/payload_check.hpp"
#include "convert/tag_selection.hpp"
#include "convert/tag_sorting.hpp"
#include "support/encoded.hpp"
#include "support/failure.hpp"
#include "support/random.hpp"

namespace {

using namespace orvo::test;
using testing::HasSubstr;

Tags taken(const SelectionSettings& settings, Tags tags, std::size_t block = 2) {
  TagSelection selection(settings);
  Tags out;
  for (std::size_t at = 0; at < tags.size(); at += block) {
    const auto some = selection.take(std::span(tags).subspan(at, std::min(block, tags.size() - at)));
    out.insert(out.end(), some.begin(), some.end());
  }
  return out;
}

const Tags kFive{tag(0, 100), tag(1, 110), tag(0, 120), tag(2, 130), tag(1, 140)};

TEST(TagSelection, TakesChannels) {
  EXPECT_EQ(taken({}, kFive), kFive);
  EXPECT_EQ(taken({.channels = 0b110}, kFive), (Tags{kFive[1], kFive[3], kFive[4]}));
}

TEST(TagSelection, CountsTimesFromTheFirstTagOfAnyChannel) {
  EXPECT_EQ(taken({.channels = 0b10, .from_ps = 10, .to_ps = 40}, kFive), (Tags{kFive[1]}));
  EXPECT_EQ(taken({.from_ps = 10}, kFive), (Tags{kFive[1], kFive[2], kFive[3], kFive[4]}));
  EXPECT_EQ(taken({.to_ps = 20}, kFive), (Tags{kFive[0], kFive[1]}));
  EXPECT_EQ(taken({.from_ps = INT64_MAX}, kFive), Tags{});
}

TEST(TagSelection, CountsTagsOfThoseThatAreLeft) {
  EXPECT_EQ(taken({.channels = 0b11, .skip_tags = 1, .most_tags = 2}, kFive), (Tags{kFive[1], kFive[2]}));
  EXPECT_EQ(taken({.skip_tags = 5}, kFive), Tags{});
  EXPECT_EQ(taken({.most_tags = 0}, kFive), Tags{});
}

TEST(TagSelection, IsDoneWhenNoLaterTagCanBeTaken) {
  constexpr std::int64_t kSecondPs = 1'000'000'000'000;
  TagSelection by_count({.most_tags = 2});
  Tags tags = kFive;
  by_count.take(tags);
  EXPECT_TRUE(by_count.is_done());
  TagSelection by_time({.to_ps = 10});
  Tags first{tag(0, 0), tag(0, 10 + kSecondPs)};
  by_time.take(first);
  EXPECT_FALSE(by_time.is_done()) << "not the whole read";
  Tags late{tag(0, 9 + kSecondPs)};
  by_time.take(late);
  EXPECT_FALSE(by_time.is_done()) << "a tag may be a second late";
  Tags past{tag(0, 10 + kSecondPs), tag(1, 11 + kSecondPs)};
  by_time.take(past);
  EXPECT_TRUE(by_time.is_done());
}

TEST(ChangeTags, ShiftsByTheChannelThatWasAndSwapsThen) {
  ChangeSettings changes;
  changes.shift_ps = {0, -35, 0, 7};
  changes.channel = {1, 0, 2, 3};
  Tags tags{tag(0, 100), tag(1, 100), tag(3, 100)};
  change_tags(changes, tags);
  EXPECT_EQ(tags, (Tags{tag(1, 100), tag(0, 65), tag(3, 107)}));
  Tags last{tag(3, INT64_MAX)};
  EXPECT_THAT(failure_of([&] { change_tags(changes, last); }), HasSubstr("moves channel 3 past the end"));
}

Tags sorted(std::int64_t reach_ps, const Tags& tags, std::size_t block) {
  TagSorting sorting(reach_ps);
  Tags out;
  const auto take = [&out](std::span<const orvo::timing::TimeTag> some) {
    out.insert(out.end(), some.begin(), some.end());
  };
  for (std::size_t at = 0; at < tags.size(); at += block) {
    take(sorting.add(std::span(tags).subspan(at, std::min(block, tags.size() - at))));
  }
  take(sorting.finish());
  return out;
}

TEST(TagSorting, SortsWithinItsReachWhateverTheBlocks) {
  Random random(5);
  for (const std::size_t late_in : {2u, 5u, 1'000u}) {
    Tags tags;
    for (std::int64_t i = 0; i < 5'000; ++i) {
      const std::int64_t late = random.below(late_in) == 0 ? static_cast<std::int64_t>(random.below(501)) : 0;
      tags.push_back(tag(static_cast<unsigned>(random.below(4)), 10 * i - late));
    }
    Tags expected = tags;
    std::stable_sort(expected.begin(), expected.end(),
                     [](const auto& a, const auto& b) { return a.time_ps < b.time_ps; });
    for (const std::size_t block : {1u, 7u, 1'000u, 5'000u}) expect_same(sorted(500, tags, block), expected);
  }
}

TEST(TagSorting, KeepsTheOrderOfEqualTimes) {
  EXPECT_EQ(sorted(10, {tag(1, 5), tag(0, 5), tag(2, 4)}, 1), (Tags{tag(2, 4), tag(1, 5), tag(0, 5)}));
}

TEST(TagSorting, RefusesATagBeyondItsReach) {
  const Tags tags{tag(0, 100), tag(1, 211), tag(2, 99)};
  EXPECT_THAT(failure_of([&] { sorted(110, tags, 1); }),
              HasSubstr("--sort: channel 2 at 99 ps comes after tags up to 211"));
  EXPECT_EQ(sorted(112, tags, 1), (Tags{tags[2], tags[0], tags[1]}));
}

TEST(PayloadCheck, AcceptsWhatDecodesAgainPieceByPiece) {
  const Tags tags = tags_in_turn(1, orvo::test::rounds(300'000), 0, 10'000);
  for (const auto& header : {raw64_header(), delta32_header(), packed_header({.delta_bits = 13}),
                             packed_header({.delta_bits = 13, .mode = orvo::timing::StreamMode::internal})}) {
    for (const std::size_t piece : {1'000u, 77'777u}) {
      orvo::timing::TagEncoder encoder(header);
      orvo::timing::ByteQueue payload;
      PayloadCheck check(header, 0);
      for (std::size_t at = 0; at < tags.size(); at += piece) {
        const auto some = std::span(tags).subspan(at, std::min(piece, tags.size() - at));
        payload.clear();
        encoder.encode(some, payload);
        check.add(some, payload.bytes(), 0);
      }
      payload.clear();
      encoder.finish(payload);
      check.add({}, payload.bytes(), 0);
      check.finish();
      EXPECT_EQ(check.tags(), tags.size());
    }
  }
}

std::string finding(const Bytes& payload, const Tags& expected, std::int64_t axis_ps = 0,
                    std::int64_t tolerance_ps = 0) {
  return failure_of([&] {
    PayloadCheck check(raw64_header(), tolerance_ps);
    check.add(expected, payload, axis_ps);
    check.finish();
  });
}

TEST(PayloadCheck, FindsEveryDifference) {
  const Tags tags{tag(0, 100), tag(1, 110), tag(0, 120)};
  const Bytes payload = encoded(raw64_header(), tags);
  EXPECT_EQ(finding(payload, tags), "nothing thrown");
  EXPECT_THAT(finding(payload, {tags[0], tag(1, 111), tags[2]}), HasSubstr("from channel 1 at 111 ps on"));
  EXPECT_THAT(finding(payload, {tags[0], tag(2, 110), tags[2]}), HasSubstr("from channel 2 at 110 ps on"));
  EXPECT_THAT(finding(payload, {tags[0], tags[1]}), HasSubstr("does not decode to what was to be written"));
  EXPECT_THAT(finding(payload, {}), HasSubstr("does not decode to what was to be written"));
  EXPECT_THAT(finding(payload, {tags[0], tags[1], tags[2], tag(3, 130)}), HasSubstr("from channel 3 at 130 ps on"));
  EXPECT_THAT(finding({}, tags), HasSubstr("from channel 0 at 100 ps on"));
}

TEST(PayloadCheck, AllowsForTheAxisAndForRounding) {
  const Bytes payload = encoded(raw64_header(), {tag(0, 100)});
  EXPECT_EQ(finding(payload, {tag(0, 1'100)}, -1'000), "nothing thrown");
  EXPECT_EQ(finding(payload, {tag(0, 104)}, 0, 4), "nothing thrown");
  EXPECT_EQ(finding(payload, {tag(0, 96)}, 0, 4), "nothing thrown");
  EXPECT_THAT(finding(payload, {tag(0, 105)}, 0, 4), HasSubstr("channel 0 at 105 ps"));
  EXPECT_THAT(finding(payload, {tag(0, 95)}, 0, 4), HasSubstr("channel 0 at 95 ps"));
}

// A gap of 2^20 - 1 quanta fits 20 bits; with fewer each tag takes an overflow record.
TEST(BestDeltaBits, FitsTheGaps) {
  Tags tags;
  for (std::int64_t i = 1; i <= 100; ++i) tags.push_back(tag(0, i * ((1 << 20) - 1)));
  EXPECT_EQ(best_delta_bits(tags, 1), 20u);
  EXPECT_EQ(best_delta_bits(tags, 12), 18u) << "quanta of 4 ps";
  EXPECT_EQ(best_delta_bits({}, 1), 4u);
}

// 100 gaps of 100 quanta fit 7 bits. One of 10^9 would take 62 003 overflow records there, and an anchor 8.
TEST(BestDeltaBits, ALongGapCostsNoMoreThanAnAnchor) {
  Tags tags;
  for (std::int64_t i = 1; i <= 100; ++i) tags.push_back(tag(0, 100 * i));
  tags.push_back(tag(0, 1'000'010'000));
  EXPECT_EQ(best_delta_bits(tags, 1), 7u);
}

TEST(ConvertedMask, IsThatOfAllInputsOrOfTheSelectedChannels) {
  const auto mask = [](const Settings& settings, std::vector<std::uint8_t> masks) {
    std::vector<orvo::timing::StreamFileHeader> headers(masks.size());
    for (std::size_t i = 0; i < masks.size(); ++i) headers[i].channel_mask = masks[i];
    return converted_mask(settings, headers);
  };
  Settings settings;
  EXPECT_EQ(mask(settings, {0b0001, 0b0100}), 0b0101);
  EXPECT_EQ(mask(settings, {0b0001, 0}), 0b1111) << "an input that names none may have all";
  settings.changes.channel = {1, 0, 2, 3};
  EXPECT_EQ(mask(settings, {0b0001, 0b0100}), 0b0110);
  settings.selection.channels = 0b1000;
  EXPECT_EQ(mask(settings, {0b0001}), 0b1000);
}

TEST(ConversionNote, NamesFilesWithoutTheirDirectories) {
  EXPECT_EQ(conversion_note({"/data/a.tagcap"}, "").substr(0, 23), "vq_convert_stream_file ");
  EXPECT_THAT(conversion_note({"/data/a.tagcap", "-"}, "daq"), HasSubstr(" of a.tagcap, standard input; daq"));
  EXPECT_THAT(conversion_note({"a", "b", "c"}, ""), testing::EndsWith(" of a, b, c"));
  EXPECT_THAT(conversion_note({"a", "b", "c", "d", "e"}, ""), HasSubstr(" of a, b, c and 2 more"));
}

}  // namespace
