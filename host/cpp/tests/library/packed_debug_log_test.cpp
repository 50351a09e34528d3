// The packed debug log: on with ORVO_PACKED_DEBUG, at most 200 lines per decoder.
#include "orvo/timing/detail/packed_debug_log.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "orvo/timing/stream_decoder.hpp"
#include "support/checked_feeding.hpp"
#include "support/packed_debug_output.hpp"
#include "support/packed_payload.hpp"

namespace {

using namespace orvo::test;
using orvo::timing::StreamDecoder;
using orvo::timing::StreamMode;

constexpr const char* kDropLine = "packed-decoder: drop inactive ch=1 active_mask=0x1 record=0 records=1\n";

StreamDecoder one_channel() {
  return packed_decoder({.channel_mask = 0x1, .delta_bits = 5});
}

/// One line: a lock, then a record of the inactive channel 1.
void drop_once(StreamDecoder& decoder) {
  decoder.packed_locked = true;
  feed(decoder, bytes({0x40}));
}

std::string repeated(const std::string& line, int times) {
  std::string text;
  for (; times > 0; --times) text += line;
  return text;
}

TEST(PackedDebugLog, OfARefusedAlignmentNamesSyncedBeforeActiveChannels) {
  StreamDecoder decoder = one_channel();
  orvo::timing::detail::PackedDebugLog log(decoder);
  EXPECT_EQ(debug_output_of([&] {
              log.alignment_refused({.drop_bytes = 6,
                                     .bit_offset = 5,
                                     .synced_channels = 2,
                                     .active_channels = 3,
                                     .balance = {.min = 7, .max = 80, .total = 90}});
            }),
            "packed-decoder: reject internal alignment drop_bytes=6 bit_offset=5 synced=2/3 min=7 max=80 total=90\n");
}

TEST(PackedDebugLog, LinesThatWereToldBeforeARewindAreNotToldAgain) {
  StreamDecoder decoder = one_channel();
  decoder.pk_debug_told = 2;
  orvo::timing::detail::PackedDebugLog log(decoder);
  EXPECT_EQ(debug_output_of([&] {
              for (const std::uint64_t bytes : {11u, 12u, 13u}) log.search_failed(bytes);
            }),
            "packed-decoder: no alignment bits=5 width=8 raw_bytes=13\n");
}

TEST(PackedDebugLog, SaysAndCountsNothingWithoutTheVariable) {
  StreamDecoder decoder = one_channel();
  EXPECT_EQ(standard_error_of([&] {
              for (int i = 0; i < 300; ++i) drop_once(decoder);
              feed(decoder, Bytes(5000, 0));
              feed(decoder, PackedWriter(5).anchor(0, 1).bytes());
            }),
            "");
  EXPECT_EQ(decoder.pk_debug_lines, 0u);
  EXPECT_EQ(debug_output_of([&] { drop_once(decoder); }).substr(0, 15), "packed-decoder:");
}

TEST(PackedDebugLog, IsOnWithAnyValueTheEmptyOneIncluded) {
  for (const char* value : {"", "0", "1", "off"}) {
    const PackedDebugOn on(value);
    StreamDecoder decoder = one_channel();
    EXPECT_EQ(standard_error_of([&] { drop_once(decoder); }), kDropLine) << value;
    EXPECT_EQ(decoder.pk_debug_lines, 1u);
  }
}

TEST(PackedDebugLog, LooksTheVariableUpAtEveryLine) {
  StreamDecoder decoder = one_channel();
  EXPECT_EQ(standard_error_of([&] { drop_once(decoder); }), "");
  EXPECT_EQ(debug_output_of([&] { drop_once(decoder); }), kDropLine);
  EXPECT_EQ(standard_error_of([&] { drop_once(decoder); }), "");
  EXPECT_EQ(debug_output_of([&] { drop_once(decoder); }), kDropLine);
  EXPECT_EQ(decoder.pk_debug_lines, 2u);
}

TEST(PackedDebugLog, StopsAfterTwoHundredLinesWhileDropsGoOn) {
  StreamDecoder decoder = one_channel();
  const std::string output = debug_output_of([&] {
    for (int i = 0; i < 199; ++i) drop_once(decoder);
  });
  EXPECT_EQ(output, repeated(kDropLine, 199));
  EXPECT_EQ(debug_output_of([&] { drop_once(decoder); }), kDropLine);
  EXPECT_EQ(debug_output_of([&] { drop_once(decoder); }), "");
  EXPECT_EQ(debug_output_of([&] { drop_once(decoder); }), "");
  EXPECT_FALSE(decoder.packed_locked);
  EXPECT_EQ(decoder.pk_debug_lines, 200u);
}

TEST(PackedDebugLog, CountsPerDecoder) {
  StreamDecoder silent = one_channel();
  silent.pk_debug_lines = 200;
  StreamDecoder other = one_channel();
  EXPECT_EQ(debug_output_of([&] { drop_once(silent); }), "");
  EXPECT_EQ(debug_output_of([&] { drop_once(other); }), kDropLine);
}

TEST(PackedDebugLog, ALockDropDoesNotResetTheCount) {
  StreamDecoder decoder = one_channel();
  decoder.pk_debug_lines = 150;
  decoder.drop_packed_lock();
  EXPECT_EQ(decoder.pk_debug_lines, 150u);
}

TEST(PackedDebugLog, EveryKindOfLineSharesTheCount) {
  // In this order: no alignment, rejected, locked, inactive.
  StreamDecoder decoder = packed_decoder({.mode = StreamMode::internal, .channel_mask = 0x3, .delta_bits = 5});
  const auto line_from = [&](std::uint64_t written, const Bytes& chunk) {
    decoder.pk_debug_lines = written;
    const std::string output = debug_output_of([&] { feed(decoder, chunk); });
    EXPECT_LE(decoder.pk_debug_lines, 200u);
    return output;
  };
  EXPECT_EQ(line_from(199, Bytes(4096, 0)), "packed-decoder: no alignment bits=5 width=8 raw_bytes=4096\n");
  EXPECT_EQ(line_from(200, {}), "");
  decoder.pending_bytes.clear();
  const Bytes lopsided = PackedWriter(5).anchor(0, 1).data(0, 1).data(0, 1).anchor(1, 1).bytes();
  EXPECT_EQ(line_from(199, lopsided),
            "packed-decoder: reject internal alignment drop_bytes=0 bit_offset=0 synced=2/2 min=1 max=3 total=4\n");
  EXPECT_EQ(line_from(200, {}), "");
  EXPECT_EQ(line_from(199, bytes({0x41})), "packed-decoder: locked bits=5 drop_bytes=0 bit_offset=0 raw_bytes=25\n");
  EXPECT_EQ(line_from(199, bytes({0x80})), "packed-decoder: drop inactive ch=2 active_mask=0x3 record=0 records=1\n");
}

TEST(PackedDebugLog, ASearchThatIsRejectedAndTooLongSaysBoth) {
  StreamDecoder decoder = packed_decoder({.mode = StreamMode::internal, .channel_mask = 0x3, .delta_bits = 5});
  const Bytes lopsided = PackedWriter(5).anchor(0, 1).anchor(1, 1).bytes() + Bytes(4074, 0);
  EXPECT_EQ(
      debug_output_of([&] { feed(decoder, lopsided); }),
      "packed-decoder: reject internal alignment drop_bytes=0 bit_offset=0 synced=2/2 min=1 max=4075 total=4076\n"
      "packed-decoder: no alignment bits=5 width=8 raw_bytes=4096\n");
  EXPECT_EQ(decoder.pk_debug_lines, 2u);
}

TEST(PackedDebugLog, ALockAndItsDropMaySpeakInOneCall) {
  // The search lets a sync sequence start over on its own channel, the decoder does not.
  StreamDecoder decoder = one_channel();
  const Bytes payload = PackedWriter(5).sync_start(0).anchor(0, 900).bytes();
  EXPECT_EQ(debug_output_of([&] { EXPECT_TRUE(feed(decoder, payload).empty()); }),
            "packed-decoder: locked bits=5 drop_bytes=0 bit_offset=0 raw_bytes=12\n"
            "packed-decoder: drop ovf in sync ch=0 record=1 chunks_left=9\n");
}

}  // namespace
