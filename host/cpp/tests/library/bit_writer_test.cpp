#include "orvo/timing/detail/bit_writer.hpp"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>

#include "support/packed_payload.hpp"
#include "support/random.hpp"

namespace {

using namespace orvo::test;
using orvo::timing::detail::BitWriter;
using orvo::timing::detail::store_be32;
using orvo::timing::detail::store_be64;

TEST(ByteStores, PutTheMostSignificantByteFirst) {
  Bytes bytes(12);
  std::uint8_t* at = store_be32(bytes.data(), 0x01020304);
  at = store_be64(at, 0x1112131415161718);
  EXPECT_EQ(at, bytes.data() + 12);
  EXPECT_EQ(bytes, orvo::test::bytes({1, 2, 3, 4, 0x11, 0x12, 0x13, 0x14, 0x15, 0x16, 0x17, 0x18}));
}

TEST(BitWriter, FillsBytesFromTheMostSignificantBit) {
  Bytes bytes(3 + BitWriter::kSlackBytes);
  BitWriter bits;
  bits.move_to(bytes.data());
  bits.put(0b101, 3);
  EXPECT_EQ(bits.at(), bytes.data());
  EXPECT_EQ(bits.waiting(), 3u);
  bits.put(0b1'1111'0000'1, 10);
  EXPECT_EQ(bits.at(), bytes.data() + 1);
  EXPECT_EQ(bits.waiting(), 5u);
  bits.put(0b111, 3);
  EXPECT_EQ(bits.at(), bytes.data() + 2);
  EXPECT_EQ(bits.waiting(), 0u);
  EXPECT_EQ(bytes[0], 0b101'11111);
  EXPECT_EQ(bytes[1], 0b00001'111);
}

TEST(BitWriter, CarriesWaitingBitsToAnotherPlace) {
  Bytes first(1 + BitWriter::kSlackBytes);
  Bytes second(1 + BitWriter::kSlackBytes);
  BitWriter bits;
  bits.move_to(first.data());
  bits.put(0b1100, 4);
  bits.move_to(second.data());
  bits.put(0b0101, 4);
  EXPECT_EQ(bits.at(), second.data() + 1);
  EXPECT_EQ(second[0], 0b1100'0101);
}

TEST(BitWriter, WritesWhatIsWrittenBitByBit) {
  Random random(1);
  Bytes bytes(10'000 + BitWriter::kSlackBytes);
  BitWriter bits;
  bits.move_to(bytes.data());
  PackedWriter plain(16);
  while (bits.at() < bytes.data() + 9'990) {
    const auto width = static_cast<unsigned>(1 + random.below(BitWriter::kMostBits));
    const std::uint64_t value = random.bits() >> (64 - width);
    bits.put(value, width);
    plain.bits(value, width);
  }
  bytes.resize(static_cast<std::size_t>(bits.at() - bytes.data()));
  EXPECT_EQ(bytes, Bytes(plain.bytes().begin(), plain.bytes().begin() + static_cast<std::ptrdiff_t>(bytes.size())));
}

}  // namespace
