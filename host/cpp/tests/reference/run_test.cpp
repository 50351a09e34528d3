// The reference of a run, from a capture's bytes to what is found in them, held to numbers worked out by hand.
#include "reference/run.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <optional>
#include <stdexcept>

#include "support/bytes.hpp"

namespace orvo::test::reference {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

const Tags kFiveTags = {{2, 10'000}, {3, 10'160}, {2, 20'000}, {3, 20'168}, {0, 30'000}};

TEST(ReferenceRun, CorrelatesTwoChannels) {
  const Findings found = correlate(kFiveTags, 2, 3, {20, 8, 0}, true);
  EXPECT_EQ(found.decoded_tags, 5u);
  EXPECT_THAT(found.channel_counts, ElementsAre(1, 0, 2, 2));
  EXPECT_EQ(found.window.offset_ps, 168);  // of 160 and 168 the upper
  EXPECT_THAT(found.histogram.centers, ElementsAre(-16, -8, 0, 8, 16));
  EXPECT_THAT(found.histogram.counts, ElementsAre(0, 1, 1, 0, 0));
}

TEST(ReferenceRun, TakesAnOffsetThatIsGiven) {
  EXPECT_THAT(correlate(kFiveTags, 2, 3, {20, 8, 150}, false).histogram.counts, ElementsAre(0, 0, 0, 1, 1));
  EXPECT_THROW(correlate({}, 0, 1, {std::numeric_limits<std::int64_t>::max(), 1, 0}, false), std::length_error);
}

TEST(ReferenceRun, CutsTheTagsOffAndReportsTheRest) {
  RunSettings settings;
  settings.input = "/c";
  settings.prefix = "/p";
  settings.max_tags = 3;
  Bytes payload;
  for (const Tag& tag : kFiveTags) {
    payload += ps_record(static_cast<unsigned>(tag.channel % 2), static_cast<std::uint64_t>(tag.time_ps));
  }
  const RunOutcome outcome = run(settings, capture_bytes(R"({"stream_format":"raw64"})", payload), 5);
  EXPECT_EQ(outcome.exit_status, 0);
  EXPECT_THAT(outcome.out, HasSubstr("decoded_tags=3\nch0=2\nch1=1\ncoincidences=1\npeak_count=1\npeak_ps=0\n"));
  EXPECT_EQ(outcome.files.size(), 9u);
}

TEST(ReferenceRun, NamesEveryWayToFail) {
  RunSettings settings;
  settings.input = "/c";
  settings.prefix = "/p";
  const Bytes empty = capture_bytes(R"({"stream_format":"raw64"})", {});
  EXPECT_EQ(run(settings, std::nullopt, 0).err, "StreamFileReader: cannot open /c\n");
  EXPECT_EQ(run(settings, std::nullopt, 0).out, "Input:  /c\nOutput: /p.[csv|json|svg]\n");
  EXPECT_EQ(run(settings, empty, 0).exit_status, 0);
  settings.offset = "none";
  EXPECT_EQ(run(settings, empty, 0).err, "stoll\n");
  settings.offset = "-9223372036854775808ps";
  EXPECT_EQ(run(settings, empty, 0).found.window.offset_ps, std::numeric_limits<std::int64_t>::min());
  settings.range_ps = std::numeric_limits<std::int64_t>::max();
  EXPECT_EQ(run(settings, empty, 0).err, "vector::reserve\n");
  settings.bin_ps = 0;
  EXPECT_EQ(run(settings, empty, 0).err, "range_ps and bin_ps must be positive\n");
  EXPECT_EQ(run(settings, empty, 0).exit_status, 64);
  settings.channel_b = 4;
  EXPECT_EQ(run(settings, empty, 0).err, "channels must be distinct and in 0..3\n");
  EXPECT_EQ(run(settings, empty, 0).exit_status, 64);
}

}  // namespace
}  // namespace orvo::test::reference
