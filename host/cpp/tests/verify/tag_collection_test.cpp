#include "verify/tag_collection.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "support/bytes.hpp"
#include "support/tool_surroundings.hpp"

namespace {

using namespace orvo::test;
using orvo::timing::StreamFileReader;
using testing::ElementsAre;
using testing::IsEmpty;

class TagCollection : public ToolSurroundings {
 protected:
  void open(const Bytes& payload) {
    write_file(cwd() / "in.tagcap", capture_bytes(R"({"stream_format":"raw64"})", payload));
    reader_.open((cwd() / "in.tagcap").string());
  }
  // `count` tags, 100 ps apart, on all channels in turn.
  void open_cycling(std::size_t count) {
    Bytes payload(8 * count);
    for (std::size_t i = 0; i < count; ++i) {
      const Bytes record = ps_record(static_cast<unsigned>(i % 4), 100 * i);
      std::copy(record.begin(), record.end(), payload.begin() + static_cast<std::ptrdiff_t>(8 * i));
    }
    open(payload);
  }

  StreamFileReader reader_;
};

TEST_F(TagCollection, ListsTheTimesOfEachChannelInDecodingOrder) {
  open(ps_record(2, 30) + ps_record(0, 20) + ps_record(2, 10) + ps_record(3, 5) + ps_record(2, 40));
  const auto times = collect_tags(reader_, 0);
  EXPECT_THAT(times[0], ElementsAre(20));
  EXPECT_THAT(times[1], IsEmpty());
  EXPECT_THAT(times[2], ElementsAre(30, 10, 40));
  EXPECT_THAT(times[3], ElementsAre(5));
  EXPECT_EQ(times.total(), 5u);
  EXPECT_EQ(times.size(2), 3u);
}

TEST_F(TagCollection, OfAnEmptyPayloadIsEmpty) {
  open({});
  EXPECT_EQ(collect_tags(reader_, 0).total(), 0u);
  EXPECT_EQ(collect_tags(reader_, 5).total(), 0u);
}

TEST_F(TagCollection, ALimitTakesTheFirstTags) {
  for (std::uint64_t limit = 1; limit <= 11; ++limit) {
    open_cycling(10);
    EXPECT_EQ(collect_tags(reader_, limit).total(), limit < 10 ? limit : 10);
  }
  open_cycling(10);
  const auto times = collect_tags(reader_, 6);
  EXPECT_THAT(times[0], ElementsAre(0, 400));
  EXPECT_THAT(times[1], ElementsAre(100, 500));
  EXPECT_THAT(times[2], ElementsAre(200));
  EXPECT_THAT(times[3], ElementsAre(300));
}

TEST_F(TagCollection, ALimitBeyondTheEndTakesAll) {
  open_cycling(10);
  EXPECT_EQ(collect_tags(reader_, UINT64_MAX).total(), 10u);
}

TEST_F(TagCollection, LimitsAreExactAroundTheNumberOfTagsAskedForAtOnce) {
  open_cycling(131'080);
  for (const std::uint64_t limit : {65'535u, 65'536u, 65'537u, 100'000u, 131'072u, 131'073u}) {
    reader_.open((cwd() / "in.tagcap").string());
    const auto times = collect_tags(reader_, limit);
    EXPECT_EQ(times.total(), limit);
    EXPECT_EQ(times[(limit - 1) % 4].back(), static_cast<std::int64_t>(100 * (limit - 1)));
  }
}

TEST_F(TagCollection, WithoutALimitEveryTagOfALongCaptureIsListed) {
  open_cycling(300'001);
  const auto times = collect_tags(reader_, 0);
  EXPECT_EQ(times.total(), 300'001u);
  for (std::size_t channel = 0; channel < 4; ++channel) {
    ASSERT_EQ(times.size(channel), channel == 0 ? 75'001u : 75'000u);
    for (std::size_t i = 0; i < times.size(channel); ++i) {
      ASSERT_EQ(times[channel][i], static_cast<std::int64_t>(100 * (4 * i + channel)));
    }
  }
}

}  // namespace
