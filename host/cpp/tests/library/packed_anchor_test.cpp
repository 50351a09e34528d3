// packed_delta anchors: the record that sets a channel's time, and which times are accepted.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

#include "orvo/timing/stream_decoder.hpp"
#include "support/checked_feeding.hpp"
#include "support/packed_payload.hpp"

namespace {

using namespace orvo::test;
using orvo::timing::StreamDecoder;
using orvo::timing::StreamMode;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr StreamMode kBothModes[] = {StreamMode::internal, StreamMode::external};

struct Anchored {
  Tags tags;
  bool kept_lock;
};

/// An anchor at `time_ps` on channel 1, which was last at `last_ps`: at the end of a chunk and further inside it.
Anchored anchored(StreamMode mode, std::int64_t last_ps, std::uint64_t time_ps) {
  StreamDecoder decoder = running_decoder({.mode = mode}, 1, last_ps);
  PackedWriter payload(16);
  const Tags tags = feed(decoder, payload.anchor(1, time_ps).bytes());
  StreamDecoder inside = running_decoder({.mode = mode}, 1, last_ps);
  EXPECT_EQ(feed(inside, payload.tail(1).bytes()), tags);
  EXPECT_EQ(inside.packed_locked, decoder.packed_locked);
  return {tags, decoder.packed_locked};
}

TEST(PackedAnchor, TheFirstTimeOfAChannelIsTakenAsItStands) {
  for (const StreamMode mode : kBothModes) {
    StreamDecoder decoder = locked_decoder({.mode = mode});
    EXPECT_THAT(feed(decoder, PackedWriter(16).anchor(1, 0x1FF'FFFF'FFFF).bytes()),
                ElementsAre(tag(1, 2'199'023'255'551)));
    EXPECT_TRUE(decoder.pk_has_time[1]);
    EXPECT_EQ(decoder.pk_last_time[1], 2'199'023'255'551);
    EXPECT_EQ(decoder.pk_anchor_channel, -1);
    EXPECT_EQ(decoder.pk_anchor_base, 0u);
  }
}

TEST(PackedAnchor, AddsTheDifferenceOfItsRecordToTheBase) {
  StreamDecoder decoder = locked_decoder({.quantum_ps = 8});
  EXPECT_THAT(feed(decoder, PackedWriter(16).sync(1, 1000).data(1, 3).data(1, 2).bytes()),
              ElementsAre(tag(1, 8024), tag(1, 8040)));
}

TEST(PackedAnchor, TheDifferenceOfItsRecordLosesNoWrapStep) {
  // 1 ps more than the wrap step, as overflow and data.
  StreamDecoder decoder = locked_decoder({.mode = StreamMode::internal, .delta_bits = 31});
  EXPECT_THAT(feed(decoder, PackedWriter(31).sync(1, 5).gap(1, 1'078'036'791'297).bytes()),
              ElementsAre(tag(1, 1'078'036'791'302)));
}

TEST(PackedAnchor, IsOneRecordOnly) {
  StreamDecoder decoder = locked_decoder({});
  EXPECT_THAT(feed(decoder, PackedWriter(16).sync(1, 1000).data(1, 3).data(1, 3).data(1, 0).bytes()),
              ElementsAre(tag(1, 1003), tag(1, 1006), tag(1, 1006)));
}

TEST(PackedAnchor, MovesARunningChannelOn) {
  for (const StreamMode mode : kBothModes) {
    EXPECT_THAT(anchored(mode, 1000, 1001).tags, ElementsAre(tag(1, 1001)));
    EXPECT_THAT(anchored(mode, 1000, 1'000'000'000'999).tags, ElementsAre(tag(1, 1'000'000'000'999)));
    EXPECT_THAT(anchored(mode, 1000, 1'000'000'001'000).tags, ElementsAre(tag(1, 1'000'000'001'000)));
  }
}

TEST(PackedAnchor, MoreThanASecondAheadIsImplausibleInInternalModeOnly) {
  EXPECT_THAT(anchored(StreamMode::external, 1000, 1'000'000'001'001).tags, ElementsAre(tag(1, 1'000'000'001'001)));
  EXPECT_THAT(anchored(StreamMode::internal, 1000, 1'000'000'001'001).tags, IsEmpty());
  EXPECT_FALSE(anchored(StreamMode::internal, 1000, 1'000'000'001'001).kept_lock);
}

TEST(PackedAnchor, TheSameTimeOnceMoreIsImplausibleInBothModes) {
  for (const StreamMode mode : kBothModes) {
    EXPECT_THAT(anchored(mode, 5'000'000, 5'000'000).tags, IsEmpty());
    EXPECT_FALSE(anchored(mode, 5'000'000, 5'000'000).kept_lock);
  }
}

TEST(PackedAnchor, ASmallBackwardStepIsAcceptedInExternalModeOnly) {
  for (const std::uint64_t time : {4'999'999u, 4'000'001u, 4'000'000u}) {
    EXPECT_THAT(anchored(StreamMode::external, 5'000'000, time).tags,
                ElementsAre(tag(1, static_cast<std::int64_t>(time))));
    EXPECT_THAT(anchored(StreamMode::internal, 5'000'000, time).tags, IsEmpty());
    EXPECT_FALSE(anchored(StreamMode::internal, 5'000'000, time).kept_lock);
  }
}

TEST(PackedAnchor, ABackwardStepOfMoreThanAMicrosecondIsDroppedInBothModes) {
  for (const StreamMode mode : kBothModes) {
    for (const std::uint64_t time : {3'999'999u, 0u}) {
      EXPECT_THAT(anchored(mode, 5'000'000, time).tags, IsEmpty());
      EXPECT_FALSE(anchored(mode, 5'000'000, time).kept_lock);
    }
  }
}

TEST(PackedAnchor, DifferencesChainOnAnAnchorThatSteppedBack) {
  StreamDecoder decoder = running_decoder({}, 1, 5'000'000);
  EXPECT_THAT(feed(decoder, PackedWriter(16).data(1, 4).anchor(1, 4'999'000).data(1, 6).bytes()),
              ElementsAre(tag(1, 5'000'004), tag(1, 4'999'000), tag(1, 4'999'006)));
}

TEST(PackedAnchor, ADifferenceCanCarryAnEarlierBaseBeyondTheLastTime) {
  StreamDecoder decoder = running_decoder({.mode = StreamMode::internal}, 1, 5'000'000);
  const Bytes payload = PackedWriter(16).sync(1, 3'999'000).overflow(1, 15).data(1, 17'961).bytes();
  EXPECT_THAT(feed(decoder, payload), ElementsAre(tag(1, 5'000'001)));  // 15 * 65536 + 17961 = 1'001'001
}

TEST(PackedAnchor, IsComparedWithNegativeTimesAsTheyAre) {
  EXPECT_THAT(anchored(StreamMode::internal, -100, 0).tags, ElementsAre(tag(1, 0)));
  EXPECT_THAT(anchored(StreamMode::internal, -1'000'000'000'000, 0).tags, ElementsAre(tag(1, 0)));
  EXPECT_THAT(anchored(StreamMode::internal, -1'000'000'000'001, 0).tags, IsEmpty());
  EXPECT_THAT(anchored(StreamMode::external, -1'000'000'000'001, 0).tags, ElementsAre(tag(1, 0)));
}

TEST(PackedAnchor, TheLastTagAloneIsAReferenceButNoBound) {
  // Half a modulus before the last tag is placed there, and nothing compares the two.
  for (const StreamMode mode : kBothModes) {
    StreamDecoder decoder = locked_decoder({.mode = mode});
    decoder.pk_emitted_time[1] = 10'995'116'278'760;  // 5 * 2^41 + 1000
    decoder.pk_has_emitted[1] = true;
    EXPECT_THAT(feed(decoder, PackedWriter(16).anchor(1, 0).bytes()), ElementsAre(tag(1, 10'995'116'277'760)));
  }
}

TEST(PackedAnchor, ATimeBeyond63BitsIsNegative) {
  StreamDecoder decoder = locked_decoder({.delta_bits = 13});
  feed(decoder, PackedWriter(13).sync(1, 5).bytes());
  decoder.pk_overflow[1] = std::uint64_t{1} << 50;  // times 2^13 is 2^63
  EXPECT_THAT(feed(decoder, PackedWriter(13).data(1, 2).bytes()),
              ElementsAre(tag(1, std::numeric_limits<std::int64_t>::min() + 7)));
}

TEST(PackedAnchor, BehindADropTheOldTimeIsNoReference) {
  // Channel 1 is at 5 * 2^41 + 1000; a record of the inactive channel 0 costs the lock and with it that time.
  StreamDecoder decoder = running_decoder({.channel_mask = 2, .delta_bits = 13}, 1, 10'995'116'278'760);
  EXPECT_THAT(feed(decoder, PackedWriter(13).data(1, 1).data(0, 0).bytes()), ElementsAre(tag(1, 10'995'116'278'761)));
  EXPECT_FALSE(decoder.packed_locked);
  EXPECT_THAT(feed(decoder, PackedWriter(13).anchor(1, 3000).data(1, 4).bytes()),
              ElementsAre(tag(1, 3000), tag(1, 3004)));
}

}  // namespace
