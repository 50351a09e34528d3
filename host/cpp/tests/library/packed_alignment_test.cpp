// packed_delta alignment: what a trial accepts, what resets it, and where it then starts.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "orvo/timing/stream_decoder.hpp"
#include "support/checked_probe.hpp"
#include "support/packed_debug_output.hpp"
#include "support/packed_payload.hpp"

namespace {

using namespace orvo::test;
using orvo::timing::PackedAlignment;
using orvo::timing::StreamDecoder;
using orvo::timing::StreamMode;

/// 5 payload bits, so a record is a byte: the sequence has 9 pieces, a whole anchor 11 bytes.
PackedWriter records() {
  return PackedWriter(5);
}
constexpr PackedSetup kTwoChannels = {.mode = StreamMode::external, .channel_mask = 0x3, .delta_bits = 5};

PackedAlignment probe_two(const PackedWriter& payload) {
  return probe(kTwoChannels, payload.bytes());
}

/// What the search counted from the start of `payload`, as the line of the rejected candidate says; channels 0 and 1.
std::string counted(const PackedWriter& payload) {
  const PackedSetup setup = {.mode = StreamMode::internal, .channel_mask = 0x3, .delta_bits = 5};
  return debug_output_of([&] { EXPECT_EQ(probe(setup, payload.bytes()), kNotFound); });
}

TEST(PackedAlignment, IsNotFoundInNoBytesOrRecordsOfNoWidth) {
  EXPECT_EQ(probe({.channel_mask = 1}, {}), kNotFound);
  StreamDecoder decoder = packed_decoder({.channel_mask = 1, .delta_bits = 5});
  const Bytes payload = records().anchor(0, 1).bytes();
  decoder.pending_bytes.append(payload.data(), payload.size());
  EXPECT_EQ(decoder.probe_packed_alignment(0, 3), kNotFound);
  EXPECT_EQ(decoder.probe_packed_alignment(-1, 2), kNotFound);
  EXPECT_EQ(decoder.probe_packed_alignment(-8, -5), kNotFound);
  EXPECT_EQ(decoder.probe_packed_alignment(5, 0), kNotFound);
  for (const std::int32_t bits : {32, 61, 62, 255, 0x7FFF'FFFF}) {  // no record has so many
    EXPECT_EQ(decoder.probe_packed_alignment(bits, 8), kNotFound) << bits;
    EXPECT_EQ(decoder.probe_packed_alignment(bits, 0x7FFF'FFFF), kNotFound) << bits;
  }
  EXPECT_EQ(decoder.probe_packed_alignment(5, 0x7FFF'FFFF), at(0, 0));  // the width follows from the payload bits
  EXPECT_EQ(decoder.probe_packed_alignment(5, 8), at(0, 0));
  using reference::search_alignment;
  EXPECT_FALSE(search_alignment({.channel_mask = 1, .delta_bits = 0, .width = 3, .bytes = payload}).found);
  EXPECT_FALSE(search_alignment({.channel_mask = 1, .delta_bits = 5, .width = 0, .bytes = payload}).found);
}

TEST(PackedAlignment, IsNotFoundInFewerBitsThanARecord) {
  for (std::size_t size = 1; size <= 4; ++size) {
    EXPECT_EQ(probe({.channel_mask = 1, .delta_bits = 31}, Bytes(size, 0x3F)), kNotFound);
  }
  EXPECT_EQ(probe({.channel_mask = 1, .delta_bits = 1}, bytes({0x33})), kNotFound);
}

TEST(PackedAlignment, GoesByTheWidthItIsAskedFor) {
  StreamDecoder decoder = packed_decoder({.channel_mask = 1, .delta_bits = 16});
  const Bytes payload = records().anchor(0, 1).bytes();
  decoder.pending_bytes.append(payload.data(), payload.size());
  EXPECT_EQ(decoder.probe_packed_alignment(5, 8), at(0, 0));
}

TEST(PackedAlignment, ChangesNothing) {
  StreamDecoder decoder = packed_decoder({.channel_mask = 1, .delta_bits = 5});
  const Bytes payload = records().data(1, 1).anchor(0, 1).bytes();
  decoder.pending_bytes.append(payload.data(), payload.size());
  decoder.bit_offset = 5;  // of no concern to the search either
  EXPECT_EQ(decoder.probe_packed_alignment(5, 8), at(1, 0));
  EXPECT_EQ(pending(decoder), payload);
  EXPECT_EQ(decoder.bit_offset, 5u);
  EXPECT_FALSE(decoder.packed_locked);
  EXPECT_FALSE(decoder.pk_has_time[0]);
  EXPECT_EQ(decoder.pk_anchor_channel, -1);
  EXPECT_EQ(decoder.pk_debug_lines, 0u);
}

TEST(PackedAlignment, FindsAStreamAtAnyBit) {
  // The one bits before it read as records of the inactive channel 3.
  for (unsigned start = 0; start <= 300; ++start) {
    const Bytes payload = PackedWriter(16).ones(start).anchor(0, 1000).bytes();
    EXPECT_EQ(probe({.channel_mask = 1}, payload), at(start / 8, start % 8)) << "bit " << start;
  }
}

TEST(PackedAlignment, FindsBit5OfByte3) {
  EXPECT_EQ(probe({.channel_mask = 1}, PackedWriter(16).ones(29).anchor(0, 1000).bytes()), at(3, 5));
  // Zero bits read as a data record that counts nowhere: the stream starts 19 bits earlier.
  EXPECT_EQ(probe({.channel_mask = 1}, PackedWriter(16).zeros(29).anchor(0, 1000).bytes()), at(1, 2));
}

TEST(PackedAlignment, FindsEveryWidthAtABitOfItsOwn) {
  for (unsigned d = 5; d <= 31; ++d) {
    PackedWriter payload(d);
    payload.ones(d).anchor(0, 0).data(0, 1);
    EXPECT_EQ(probe({.channel_mask = 1, .delta_bits = d}, payload.bytes()), at(d / 8, d % 8)) << d << " bits";
  }
}

TEST(PackedAlignment, NeedsTheWholeSequenceAndItsAnchor) {
  const Bytes payload = records().anchor(0, 1).bytes();
  for (std::size_t size = 1; size < 11; ++size) {
    EXPECT_EQ(probe({.channel_mask = 1, .delta_bits = 5}, first(size, payload)), kNotFound) << size;
  }
  EXPECT_EQ(probe({.channel_mask = 1, .delta_bits = 5}, payload), at(0, 0));
}

TEST(PackedAlignment, StartsBehindARecordOfAnInactiveChannel) {
  EXPECT_EQ(probe_two(records().data(2, 0).anchor(0, 0).anchor(1, 0)), at(1, 0));
  EXPECT_EQ(probe_two(records().overflow(3, 0).anchor(0, 0).anchor(1, 0)), at(1, 0));
  EXPECT_EQ(probe_two(records().sync_start(2).anchor(0, 0).anchor(1, 0)), at(1, 0));
  EXPECT_EQ(probe_two(records().anchor(0, 0).anchor(1, 0).data(2, 0).anchor(0, 0).anchor(1, 0)), at(23, 0));
}

TEST(PackedAlignment, ARecordOfAnInactiveChannelForgetsAll) {
  EXPECT_EQ(probe_two(records().anchor(0, 0).data(2, 0).anchor(1, 0)), kNotFound);
  EXPECT_EQ(probe_two(records().anchor(0, 0).anchor(1, 0).data(2, 0)), kNotFound);
  EXPECT_EQ(probe_two(records().sync(0, 0).data(2, 0).data(0, 0).anchor(1, 0)), kNotFound) << "an awaited anchor";
  PackedWriter running = records();
  running.anchor(1, 0).sync_start(0);
  for (int piece = 0; piece < 8; ++piece) running.data(0, 0);
  running.data(2, 0).data(0, 0).data(0, 0).anchor(1, 0);
  EXPECT_EQ(probe_two(running), kNotFound) << "a running sequence";
}

TEST(PackedAlignment, AnotherChannelInsideASequenceSetsTheTrialBack) {
  EXPECT_EQ(probe_two(records().sync_start(1).data(0, 0).anchor(0, 0).anchor(1, 0)), at(2, 0));
  EXPECT_EQ(probe_two(records().sync_start(1).overflow(0, 0).anchor(0, 0).anchor(1, 0)), at(2, 0));
  // A sync start of another channel is lost with the trial, so its own sequence is, too.
  EXPECT_EQ(probe_two(records().data(2, 0).sync_start(1).anchor(0, 0).anchor(1, 0)), at(2, 0));
  EXPECT_EQ(probe_two(records().anchor(0, 0).anchor(1, 0).sync_start(1).sync_start(0)), kNotFound);
}

TEST(PackedAlignment, AnOverflowInsideASequenceSetsTheTrialBack) {
  EXPECT_EQ(probe_two(records().sync_start(0).data(0, 0).overflow(0, 3).anchor(0, 0).anchor(1, 0)), at(3, 0));
}

TEST(PackedAlignment, OverflowsElsewhereAreAccepted) {
  EXPECT_EQ(
      probe_two(
          records().overflow(0, 3).overflow(1, 30).sync(0, 0).overflow(0, 1).data(0, 0).anchor(1, 0).overflow(1, 0)),
      at(0, 0));
}

TEST(PackedAlignment, ASyncStartInsideASequenceOfItsChannelStartsItAnew) {
  EXPECT_EQ(probe_two(records().sync_start(0).data(0, 0).anchor(0, 0).anchor(1, 0)), at(0, 0));
  // Only 9 pieces after the second start complete it: one short, the anchor is taken as the last piece.
  PackedWriter one_short = records();
  one_short.anchor(1, 0).sync_start(0).sync_start(0);
  for (int piece = 0; piece < 9; ++piece) one_short.data(0, 0);
  EXPECT_EQ(probe_two(one_short), kNotFound);
  EXPECT_EQ(probe_two(one_short.data(0, 0)), at(0, 0));
}

TEST(PackedAlignment, SeveralChannelsMayAwaitTheirAnchorsAtOnce) {
  EXPECT_EQ(probe_two(records().sync(0, 0).sync(1, 0).data(1, 0).data(0, 0)), at(0, 0));
  EXPECT_EQ(probe_two(records().sync(0, 0).sync(1, 0).data(0, 0)), kNotFound);
}

TEST(PackedAlignment, CountsAnchorsAndDataOfSyncedChannelsOnly) {
  // Before its sequence a channel's data counts nowhere, nor do pieces, overflows and sync starts.
  EXPECT_EQ(counted(records().anchor(0, 0).data(1, 0).data(1, 0).data(0, 0).overflow(0, 1).data(0, 0).anchor(1, 0)),
            "packed-decoder: reject internal alignment drop_bytes=0 bit_offset=0 synced=2/2 min=1 max=3 total=4\n");
  EXPECT_EQ(counted(records().anchor(1, 0).anchor(0, 0).data(0, 0).data(0, 0).sync(1, 0).anchor(0, 0)),
            "packed-decoder: reject internal alignment drop_bytes=0 bit_offset=0 synced=2/2 min=1 max=4 total=5\n");
}

TEST(PackedAlignment, CountsAnewBehindASetback) {
  PackedWriter payload = records();
  payload.anchor(0, 0).anchor(1, 0).data(1, 0).data(1, 0).data(3, 0);
  payload.anchor(0, 0).anchor(1, 0).data(0, 0).data(0, 0).data(0, 0);
  EXPECT_EQ(counted(payload),
            "packed-decoder: reject internal alignment drop_bytes=25 bit_offset=0 synced=2/2 min=1 max=4 total=5\n");
}

TEST(PackedAlignment, ASyncStartOfAnotherChannelInsideASequenceStartsNothing) {
  // Found by the trial that begins with channel 0's start: the one before it is reset there, with its sequence.
  EXPECT_EQ(probe_two(records().sync_start(1).anchor(0, 0).anchor(1, 0)), at(1, 0));
}

TEST(PackedAlignment, ATrialSetBackTwiceStartsBehindTheSecondTime) {
  EXPECT_EQ(probe_two(records().data(2, 0).data(0, 0).data(2, 0).anchor(0, 0).anchor(1, 0)), at(3, 0));
  // Far apart, and the second one after all first bytes of trials.
  PackedWriter payload = records();
  payload.data(0, 0).data(2, 0);
  for (int i = 0; i < 70; ++i) payload.data(0, 0);
  payload.data(3, 0).anchor(0, 0).anchor(1, 0);
  EXPECT_EQ(probe_two(payload), at(73, 0));
}

}  // namespace
