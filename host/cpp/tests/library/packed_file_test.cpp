// packed_delta captures of several reads of 1 MiB: what crosses their ends, and what a drop costs there.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>

#include "support/packed_payload.hpp"
#include "support/stream_feeding.hpp"

namespace {

using namespace orvo::test;

constexpr std::size_t kRead = 1048576;

constexpr const char* kOneChannel19Bits = R"({"stream_format":"packed_delta","mode":"external","channel_mask":1,)"
                                          R"("packed_delta_config":{"delta_bits":16,"quantum_ps":1}})";
constexpr const char* kOneChannel8Bits = R"({"stream_format":"packed_delta","mode":"external","channel_mask":1,)"
                                         R"("packed_delta_config":{"delta_bits":5,"quantum_ps":1}})";
constexpr const char* kTwoChannelsInternal8Bits =
    R"({"stream_format":"packed_delta","mode":"internal","channel_mask":3,)"
    R"("packed_delta_config":{"delta_bits":5,"quantum_ps":1}})";

/// `count` tags on channel 0 from `first_ps` on, 1 ps apart.
Tags steady_tags(std::int64_t first_ps, std::size_t count) {
  Tags tags(count);
  for (std::size_t i = 0; i < count; ++i) tags[i] = tag(0, first_ps + static_cast<std::int64_t>(i));
  return tags;
}

// 8-bit records, one byte each.
Bytes anchor(std::uint64_t time_ps) {
  return PackedWriter(5).anchor(0, time_ps).bytes();
}
Bytes steps(std::size_t count) {
  return Bytes(count, 0x01);
}
const Bytes kInactive = {0x40};

TEST(PackedFile, RecordsAcrossTheEndsOfReadsDecodeOnce) {
  for (const unsigned stray : {0u, 5u}) {
    PackedWriter payload(16);
    payload.ones(stray).anchor(0, 1000);
    for (int i = 0; i < 1'200'000; ++i) payload.data(0, 1);  // 2.85 MB: three reads
    expect_same(read_capture(kOneChannel19Bits, payload.bytes()), steady_tags(1000, 1'200'001));
  }
}

TEST(PackedFile, ASequenceAndItsAnchorMayLieAcrossTheEndOfARead) {
  // A read is 441'505 records of 19 bits and 13 bits more.
  PackedWriter start(16);
  start.anchor(0, 1000);
  for (int i = 0; i < 441'495; ++i) start.data(0, 1);  // 441'500 records
  for (std::size_t more = 0; more <= 7; ++more) {
    PackedWriter payload = start;
    for (std::size_t i = 0; i < more; ++i) payload.data(0, 1);
    payload.overflow(0, 3).sync(0, 5'000'000).data(0, 7).data(0, 1);
    expect_same(read_capture(kOneChannel19Bits, payload.bytes()),
                steady_tags(1000, 441'496 + more) + Tags{tag(0, 5'000'007), tag(0, 5'000'008)});
  }
}

TEST(PackedFile, NothingIsDecodedBehindTheFirstDropOfACaptureOfOneRead) {
  const Bytes payload = anchor(1000) + steps(100'000) + kInactive + anchor(500'000) + steps(100'000);
  ASSERT_LT(payload.size(), kRead);
  expect_same(read_capture(kOneChannel8Bits, payload), steady_tags(1000, 100'001));
}

TEST(PackedFile, TheRestOfAReadIsDecodedWithTheNextOne) {
  const Bytes payload = anchor(1000) + steps(100'000) + kInactive + anchor(5'000'000) + steps(1'000'000);
  ASSERT_GT(payload.size(), kRead);
  expect_same(read_capture(kOneChannel8Bits, payload),
              steady_tags(1000, 100'001) + steady_tags(5'000'000, 1'000'001));
}

TEST(PackedFile, OneByteOfAFurtherReadIsEnoughForTheRest) {
  const Bytes first_read = anchor(1000) + steps(900'000) + kInactive + anchor(5'000'000) + steps(kRead - 900'023);
  ASSERT_EQ(first_read.size(), kRead);
  expect_same(read_capture(kOneChannel8Bits, first_read), steady_tags(1000, 900'001));
  expect_same(read_capture(kOneChannel8Bits, first_read + steps(1)),
              steady_tags(1000, 900'001) + steady_tags(5'000'000, kRead - 900'021));
}

TEST(PackedFile, ADropOnTheLastRecordOfAReadLosesNothing) {
  const Bytes first_read = anchor(1000) + steps(kRead - 12) + kInactive;
  ASSERT_EQ(first_read.size(), kRead);
  expect_same(read_capture(kOneChannel8Bits, first_read + anchor(5'000'000) + steps(9)),
              steady_tags(1000, kRead - 11) + steady_tags(5'000'000, 10));
}

TEST(PackedFile, ADropOnTheFirstRecordOfAReadWaitsForTheNext) {
  const Bytes two_reads = anchor(1000) + steps(kRead - 11) + kInactive + anchor(5'000'000) + steps(kRead - 12);
  ASSERT_EQ(two_reads.size(), 2 * kRead);
  expect_same(read_capture(kOneChannel8Bits, two_reads), steady_tags(1000, kRead - 10));
  expect_same(read_capture(kOneChannel8Bits, two_reads + steps(4)),
              steady_tags(1000, kRead - 10) + steady_tags(5'000'000, kRead - 12 + 5));
}

TEST(PackedFile, EveryReadEndsAtItsOwnDrop) {
  // Both drops are in the first read; the second read reaches the second of them, the third continues.
  const Bytes payload = anchor(1000) + steps(100'000) + kInactive + anchor(5'000'000) + steps(100'000) + kInactive +
                        anchor(9'000'000) + steps(2'000'000);
  expect_same(read_capture(kOneChannel8Bits, payload),
              steady_tags(1000, 100'001) + steady_tags(5'000'000, 100'001) + steady_tags(9'000'000, 2'000'001));
  ASSERT_GT(payload.size(), 2 * kRead);
  const Bytes two_reads = first(2 * kRead, payload);
  expect_same(read_capture(kOneChannel8Bits, two_reads),
              steady_tags(1000, 100'001) + steady_tags(5'000'000, 100'001));
}

TEST(PackedFile, ASearchThatFindsNothingKeepsTheLast4096BytesOfARead) {
  // After the drop, the sequence at byte 1'000'000 is beyond the reach of the second read's search and is trimmed
  // with all but 4096 bytes. The one 2000 bytes before the end of that read is left for the third.
  Bytes payload = anchor(1000) + steps(899'989) + kInactive;
  payload += steps(1'000'000 - payload.size()) + anchor(4'000'000);
  payload += steps(2 * kRead - 2000 - payload.size()) + anchor(7'000'000) + steps(1989);
  ASSERT_EQ(payload.size(), 2 * kRead);
  expect_same(read_capture(kOneChannel8Bits, payload), steady_tags(1000, 899'990));
  expect_same(read_capture(kOneChannel8Bits, payload + steps(10)),
              steady_tags(1000, 899'990) + steady_tags(7'000'000, 2000));
}

TEST(PackedFile, ADropWithoutAFurtherSequenceEndsTheTags) {
  expect_same(read_capture(kOneChannel8Bits, anchor(1000) + steps(100'000) + kInactive + steps(3 * kRead)),
              steady_tags(1000, 100'001));
}

// Internal mode: the spread of the tags over the channels is judged per read.

Bytes both_anchors(std::uint64_t time_ps) {
  return PackedWriter(5).anchor(0, time_ps).anchor(1, time_ps).bytes();
}
Bytes both_steps(std::size_t pairs) {
  return repeated({0x01, 0x41}, pairs);
}
Tags both_tags(std::int64_t first_ps, std::size_t pairs) {
  Tags tags;
  for (std::size_t i = 0; i < pairs; ++i) {
    const std::int64_t time_ps = first_ps + static_cast<std::int64_t>(i);
    tags.push_back(tag(0, time_ps));
    tags.push_back(tag(1, time_ps));
  }
  return tags;
}

TEST(PackedFile, AnImbalancedReadIsDiscardedWhole) {
  const Bytes first_read = both_anchors(1000) + both_steps(kRead / 2 - 11);
  ASSERT_EQ(first_read.size(), kRead);
  const Bytes second_read = both_steps(2) + steps(kRead - 4);
  const Bytes third_read = both_anchors(9'000'000) + both_steps(50);
  expect_same(read_capture(kTwoChannelsInternal8Bits, first_read + second_read + third_read),
              both_tags(1000, kRead / 2 - 10) + both_tags(9'000'000, 51));
}

TEST(PackedFile, AnAnchorInAnImbalancedReadIsLostWithIt) {
  const Bytes first_read = both_anchors(1000) + both_steps(kRead / 2 - 11);
  const Bytes second_read = steps(kRead - 22) + both_anchors(9'000'000);
  expect_same(read_capture(kTwoChannelsInternal8Bits, first_read + second_read + both_steps(50)),
              both_tags(1000, kRead / 2 - 10));
}

}  // namespace
