// packed_delta: every reason to drop the lock, what it says, what it keeps and what it forgets.
//
//   reason                                  mode      held by
//   record of an inactive channel           both      ARecordOfAnInactiveChannel, AnInactiveChannelWhatever...
//   other channel in a sync sequence        both      AnotherChannelInsideASyncSequence, AnotherChannelsFlag...
//   flag in a sync sequence                 both      AFlagInsideASyncSequence, ASyncStartInsideItsOwnSequence...
//   anchor back by more than 10^6 ps        both      AnAnchorMoreThanAMicrosecondBack
//   anchor at the channel's last time       both      AnAnchorAtTheSameTime
//   anchor back by up to 10^6 ps            internal  AnAnchorALittleBackInInternalMode
//   anchor ahead by more than 10^12 ps      internal  AnAnchorMoreThanASecondAheadInInternalMode
//   difference of more than 10^12 ps        internal  ADifferenceOfMoreThanASecondInInternalMode
//   tags of a call more than 8 to 1 apart   internal  packed_imbalance_test
//
// All of them again where the fast path hands over: EveryReasonFarFromTheEndOfTheChunk. That the other mode, and
// the other side of a limit, keep the lock: packed_anchor_test, packed_wrap_test, packed_imbalance_test. A search
// that finds nothing drops nothing: packed_lock_test; what it rejects: packed_alignment_choice_test.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "orvo/timing/stream_decoder.hpp"
#include "support/checked_feeding.hpp"
#include "support/packed_debug_output.hpp"
#include "support/packed_payload.hpp"

namespace {

using namespace orvo::test;
using orvo::timing::StreamDecoder;
using orvo::timing::StreamMode;
using testing::ElementsAre;
using testing::IsEmpty;

struct Drop {
  Tags tags;
  std::string output;
  Bytes left;
};

/// Feeds `payload`, which must cost `decoder` its lock, with the debug log on. Channel 2 has state to be forgotten.
Drop drop_of(StreamDecoder decoder, const Bytes& payload) {
  Drop drop;
  decoder.pk_last_time[2] = 1;
  decoder.pk_has_time[2] = true;
  decoder.pk_overflow[2] = 2;
  decoder.pk_last_delta[2] = 3;
  decoder.pk_emitted_time[2] = 4;
  decoder.pk_has_emitted[2] = true;
  EXPECT_TRUE(decoder.packed_locked);
  drop.output = debug_output_of([&] { drop.tags = feed(decoder, payload); });
  drop.left = pending(decoder);
  EXPECT_FALSE(decoder.packed_locked);
  EXPECT_EQ(decoder.bit_offset, 0u);
  EXPECT_EQ(decoder.pk_debug_lines, 1u);
  for (unsigned channel = 0; channel < 4; ++channel) {
    EXPECT_EQ(decoder.pk_last_time[channel], 0);
    EXPECT_FALSE(decoder.pk_has_time[channel]);
    EXPECT_EQ(decoder.pk_overflow[channel], 0u);
    EXPECT_EQ(decoder.pk_last_delta[channel], 0u);
    EXPECT_EQ(decoder.pk_emitted_time[channel], 0);
    EXPECT_FALSE(decoder.pk_has_emitted[channel]);
  }
  EXPECT_EQ(decoder.pk_sync_left, 0);
  EXPECT_EQ(decoder.pk_sync_channel, 0);
  EXPECT_EQ(decoder.pk_sync_value, 0u);
  EXPECT_EQ(decoder.pk_sync_bits, 0u);
  EXPECT_EQ(decoder.pk_anchor_channel, -1);
  EXPECT_EQ(decoder.pk_anchor_base, 0u);
  return drop;
}

// 13 payload bits: a record is two bytes.
constexpr PackedSetup kInternal = {.mode = StreamMode::internal, .channel_mask = 0x3, .delta_bits = 13};
constexpr PackedSetup kExternal = {.mode = StreamMode::external, .channel_mask = 0x3, .delta_bits = 13};
constexpr PackedSetup kBoth[] = {kInternal, kExternal};

PackedWriter records() {
  return PackedWriter(13);
}

TEST(PackedDrop, ARecordOfAnInactiveChannel) {
  for (const PackedSetup& setup : kBoth) {
    const Drop drop = drop_of(running_decoder(setup, 1, 50), records().data(1, 2).data(2, 7).data(1, 3).bytes());
    EXPECT_EQ(drop.output, "packed-decoder: drop inactive ch=2 active_mask=0x3 record=1 records=3\n");
    EXPECT_THAT(drop.tags, ElementsAre(tag(1, 52)));
    EXPECT_EQ(drop.left, records().data(1, 3).bytes());
  }
}

TEST(PackedDrop, AnInactiveChannelWhateverItsRecordAndInsideASequence) {
  EXPECT_EQ(drop_of(locked_decoder(kExternal), records().overflow(3, 7).bytes()).output,
            "packed-decoder: drop inactive ch=3 active_mask=0x3 record=0 records=1\n");
  EXPECT_EQ(drop_of(locked_decoder(kExternal), records().sync_start(3).data(3, 0).bytes()).output,
            "packed-decoder: drop inactive ch=3 active_mask=0x3 record=0 records=2\n");
  EXPECT_EQ(drop_of(locked_decoder(kExternal), records().sync_start(0).data(2, 0).bytes()).output,
            "packed-decoder: drop inactive ch=2 active_mask=0x3 record=1 records=2\n");
}

// Records far from the end of a chunk may be decoded many at a time.
TEST(PackedDrop, AnInactiveChannelWhateverItsRecordFarFromTheEndOfTheChunk) {
  for (const bool flag : {false, true}) {
    for (const std::uint64_t payload : {0u, 7u, 0x1FFEu, 0x1FFFu}) {
      const Drop drop =
          drop_of(running_decoder(kExternal, 1, 50), records().data(1, 2).record(2, flag, payload).tail(1).bytes());
      EXPECT_EQ(drop.output, "packed-decoder: drop inactive ch=2 active_mask=0x3 record=1 records=7\n");
      EXPECT_THAT(drop.tags, ElementsAre(tag(1, 52)));
      EXPECT_EQ(drop.left, records().tail(1).bytes());
    }
  }
}

TEST(PackedDrop, TheActiveMaskIsHexadecimal) {
  const auto output_with = [](unsigned mask, unsigned channel) {
    return drop_of(locked_decoder({.channel_mask = mask, .delta_bits = 13}), records().data(channel, 0).bytes())
        .output;
  };
  EXPECT_EQ(output_with(0xE, 0), "packed-decoder: drop inactive ch=0 active_mask=0xe record=0 records=1\n");
  EXPECT_EQ(output_with(0xB, 2), "packed-decoder: drop inactive ch=2 active_mask=0xb record=0 records=1\n");
  EXPECT_EQ(output_with(0xF7, 3), "packed-decoder: drop inactive ch=3 active_mask=0x7 record=0 records=1\n");
  EXPECT_EQ(output_with(0x10, 0), "packed-decoder: drop inactive ch=0 active_mask=0x0 record=0 records=1\n");
}

TEST(PackedDrop, AnotherChannelInsideASyncSequence) {
  for (const PackedSetup& setup : kBoth) {
    const Drop drop = drop_of(running_decoder(setup, 1, 50),
                              records().data(1, 2).sync_start(0).data(0, 9).data(1, 3).data(1, 4).bytes());
    EXPECT_EQ(drop.output, "packed-decoder: drop sync channel mismatch ch=1 expected=0 record=3 chunks_left=3\n");
    EXPECT_THAT(drop.tags, ElementsAre(tag(1, 52)));
    EXPECT_EQ(drop.left, records().data(1, 4).bytes());
  }
}

TEST(PackedDrop, AnotherChannelsFlagInsideASyncSequenceIsAMismatchToo) {
  EXPECT_EQ(drop_of(locked_decoder(kExternal), records().sync_start(1).overflow(0, 3).bytes()).output,
            "packed-decoder: drop sync channel mismatch ch=0 expected=1 record=1 chunks_left=4\n");
  EXPECT_EQ(drop_of(locked_decoder(kExternal), records().sync_start(1).sync_start(0).bytes()).output,
            "packed-decoder: drop sync channel mismatch ch=0 expected=1 record=1 chunks_left=4\n");
}

TEST(PackedDrop, AFlagInsideASyncSequence) {
  for (const PackedSetup& setup : kBoth) {
    const Drop drop = drop_of(running_decoder(setup, 1, 50),
                              records().sync_start(1).data(1, 1).data(1, 1).data(1, 1).overflow(1, 5).bytes());
    EXPECT_EQ(drop.output, "packed-decoder: drop ovf in sync ch=1 record=4 chunks_left=1\n");
    EXPECT_THAT(drop.tags, IsEmpty());
    EXPECT_THAT(drop.left, IsEmpty());
  }
}

TEST(PackedDrop, ASyncStartInsideItsOwnSequenceIsAFlagLikeAnyOther) {
  const Drop drop = drop_of(locked_decoder(kExternal), records().sync_start(1).sync(1, 9).bytes());
  EXPECT_EQ(drop.output, "packed-decoder: drop ovf in sync ch=1 record=1 chunks_left=4\n");
  EXPECT_EQ(drop.left.size(), 8u);
}

TEST(PackedDrop, AnAnchorMoreThanAMicrosecondBack) {
  for (const PackedSetup& setup : kBoth) {
    const Drop drop =
        drop_of(running_decoder(setup, 1, 5'000'000), records().anchor(1, 3'999'999).data(1, 4).bytes());
    EXPECT_EQ(drop.output, "packed-decoder: drop nonmonotonic sync ch=1 next=3999999 prev=5000000 record=5\n");
    EXPECT_THAT(drop.tags, IsEmpty());
    EXPECT_EQ(drop.left, records().data(1, 4).bytes());
  }
}

TEST(PackedDrop, AnAnchorAtTheSameTime) {
  for (const PackedSetup& setup : kBoth) {
    EXPECT_EQ(drop_of(running_decoder(setup, 0, 70), records().sync(0, 60).data(0, 10).bytes()).output,
              "packed-decoder: drop implausible sync delta ch=0 delta=0 next=70 prev=70 record=5\n");
  }
}

TEST(PackedDrop, AnAnchorALittleBackInInternalMode) {
  EXPECT_EQ(drop_of(running_decoder(kInternal, 0, 70), records().anchor(0, 69).bytes()).output,
            "packed-decoder: drop implausible sync delta ch=0 delta=18446744073709551615 next=69 prev=70 record=5\n");
  EXPECT_EQ(drop_of(running_decoder(kInternal, 0, 1'000'070), records().anchor(0, 70).bytes()).output,
            "packed-decoder: drop implausible sync delta ch=0 delta=18446744073708551616 next=70 prev=1000070 "
            "record=5\n");
}

TEST(PackedDrop, AnAnchorMoreThanASecondAheadInInternalMode) {
  EXPECT_EQ(drop_of(running_decoder(kInternal, 0, 70), records().anchor(0, 1'000'000'000'071).bytes()).output,
            "packed-decoder: drop implausible sync delta ch=0 delta=1000000000001 next=1000000000071 prev=70 "
            "record=5\n");
  EXPECT_EQ(drop_of(running_decoder(kInternal, 0, -1'000'000'000'001), records().anchor(0, 0).bytes()).output,
            "packed-decoder: drop implausible sync delta ch=0 delta=1000000000001 next=0 prev=-1000000000001 "
            "record=5\n");
}

TEST(PackedDrop, ADifferenceOfMoreThanASecondInInternalMode) {
  // 1'000'000'000'001 = 122'070'312 * 2^13 + 4'097
  StreamDecoder decoder = running_decoder(kInternal, 1, -30);
  decoder.pk_overflow[1] = 122'070'312;
  const Drop drop = drop_of(decoder, records().data(1, 4097).data(1, 4).bytes());
  EXPECT_EQ(drop.output, "packed-decoder: drop implausible delta ch=1 delta=1000000000001 prev=-30 record=0\n");
  EXPECT_THAT(drop.tags, IsEmpty());
  EXPECT_EQ(drop.left, records().data(1, 4).bytes());
}

TEST(PackedDrop, NamesTheDifferenceWithoutTheWrapStepThatWentFromIt) {
  // A second before the wrap, wrap step and a second and 1 ps: 2'078'036'791'297 = 253'666'600 * 2^13 + 4'097
  StreamDecoder decoder = running_decoder(kInternal, 1, 13'315'125'997'568);
  decoder.pk_overflow[1] = 253'666'600;
  EXPECT_EQ(drop_of(decoder, records().data(1, 4097).bytes()).output,
            "packed-decoder: drop implausible delta ch=1 delta=1000000000001 prev=13315125997568 record=0\n");
}

TEST(PackedDrop, EveryReasonFarFromTheEndOfTheChunk) {
  const auto output = [](const PackedSetup& setup, const PackedWriter& payload) {
    PackedWriter far = payload;
    return drop_of(running_decoder(setup, 1, 5'000'000), far.tail(1).bytes()).output;
  };
  EXPECT_EQ(output(kExternal, records().data(1, 2).sync_start(0).data(1, 3)),
            "packed-decoder: drop sync channel mismatch ch=1 expected=0 record=2 chunks_left=4\n");
  EXPECT_EQ(output(kExternal, records().data(1, 2).sync_start(1).overflow(1, 3)),
            "packed-decoder: drop ovf in sync ch=1 record=2 chunks_left=4\n");
  EXPECT_EQ(output(kExternal, records().anchor(1, 3'999'999)),
            "packed-decoder: drop nonmonotonic sync ch=1 next=3999999 prev=5000000 record=5\n");
  EXPECT_EQ(output(kExternal, records().anchor(1, 5'000'000)),
            "packed-decoder: drop implausible sync delta ch=1 delta=0 next=5000000 prev=5000000 record=5\n");
  EXPECT_EQ(output(kInternal, records().anchor(1, 4'999'999)),
            "packed-decoder: drop implausible sync delta ch=1 delta=18446744073709551615 next=4999999 prev=5000000 "
            "record=5\n");
  EXPECT_EQ(output(kInternal, records().anchor(1, 1'000'005'000'001)),
            "packed-decoder: drop implausible sync delta ch=1 delta=1000000000001 next=1000005000001 prev=5000000 "
            "record=5\n");
  // 1'000'000'000'001 = 122'070'312 * 2^13 + 4'097; an overflow record carries 8190 at most.
  EXPECT_EQ(output(kInternal, records().gap(1, 1'000'000'000'001)),
            "packed-decoder: drop implausible delta ch=1 delta=1000000000001 prev=5000000 record=14905\n");
}

TEST(PackedDrop, ConsumesTheOffendingRecordAndWhatIsBeforeItInWholeBytes) {
  // 19-bit records: 3 of them are 57 bits, so the rest starts in bit 1 of byte 7. That byte stays.
  StreamDecoder decoder = running_decoder({.channel_mask = 1}, 0, 50);
  const Bytes payload = PackedWriter(16).data(0, 1).data(0, 2).data(1, 0).data(0, 3).data(0, 4).bytes();
  const Drop drop = drop_of(decoder, payload);
  EXPECT_EQ(drop.output, "packed-decoder: drop inactive ch=1 active_mask=0x1 record=2 records=5\n");
  EXPECT_THAT(drop.tags, ElementsAre(tag(0, 51), tag(0, 53)));
  EXPECT_EQ(drop.left, all_but_first(7, payload));
}

TEST(PackedDrop, ForgetsAnAwaitedAnchor) {
  const Drop drop = drop_of(locked_decoder(kExternal), records().sync(1, 9).data(3, 0).bytes());
  EXPECT_EQ(drop.output, "packed-decoder: drop inactive ch=3 active_mask=0x3 record=5 records=6\n");
}

TEST(PackedDrop, CountsTheBitOffsetOfTheLockWhenItConsumes) {
  StreamDecoder decoder = running_decoder({.channel_mask = 1}, 0, 50);
  decoder.bit_offset = 7;
  const Bytes payload = PackedWriter(16).ones(7).data(0, 1).data(1, 0).data(0, 3).bytes();
  const Drop drop = drop_of(decoder, payload);  // 7 + 38 bits
  EXPECT_EQ(drop.left, all_but_first(5, payload));
}

}  // namespace
