// The reference of raw64, held to bytes and numbers worked out by hand.
#include "reference/raw64.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "support/bytes.hpp"

namespace orvo::test::reference {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

Tags decode_raw64(const std::string& tag_format, const Bytes& payload) {
  Header header;
  header.raw64_tag_format = tag_format;
  return Raw64Decoder(header).feed(payload);
}

TEST(ReferenceRaw64, DecodesPicosecondRecordsBetweenForeignBytes) {
  const Bytes payload = bytes({0xDE, 0xAD, 0xBE}) + bytes({0x00, 0, 0, 0, 0, 0, 0x27, 0x10}) +
                        bytes({0x20, 0, 0, 0, 0, 0, 0x27, 0xB0}) + bytes({0x60, 0, 0, 0, 0, 0, 0});
  EXPECT_THAT(decode_raw64("raw-cf", payload), ElementsAre(Tag{0, 10'000}, Tag{1, 10'160}));
  EXPECT_THAT(decode_raw64("ps", bytes({0x80, 0, 0, 0, 0, 0, 0, 1})), IsEmpty());
  EXPECT_THAT(decode_raw64("ps", bytes({0x00, 0, 0x10, 0, 0, 0, 0, 1})), IsEmpty());
}

TEST(ReferenceRaw64, UnwrapsPicosecondsBeyondHalfAPeriod) {
  // Half a period is 0x6828'0000000: a step back by exactly that is no wrap, one picosecond more is.
  const Bytes late = bytes({0x00, 0, 0x06, 0x82, 0x80, 0, 0, 5});
  EXPECT_THAT(decode_raw64("ps", late + bytes({0, 0, 0, 0, 0, 0, 0, 5})),
              ElementsAre(Tag{0, 7'157'562'998'789}, Tag{0, 5}));
  EXPECT_THAT(decode_raw64("ps", late + bytes({0, 0, 0, 0, 0, 0, 0, 4}) + bytes({0x20, 0, 0, 0, 0, 0, 0, 4})),
              ElementsAre(Tag{0, 7'157'562'998'789}, Tag{0, 14'315'125'997'572}, Tag{1, 4}));
  EXPECT_THAT(decode_raw64("", bytes({0x40, 0, 0x0F, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF})),
              ElementsAre(Tag{2, 3'277'060'046'847}));
}

TEST(ReferenceRaw64, DecodesCoarseAndFine) {
  // Channel 2: coarse 0xFFFFFFF0 with fine 5, then coarse 0x10 after the wrap; channel 0: coarse 0x10, fine 8191.
  const Bytes payload = bytes({0x54, 0xB8, 0x7F, 0xFF, 0xFF, 0xFE, 0x00, 0x05}) +
                        bytes({0x54, 0xB8, 0x60, 0x00, 0x00, 0x02, 0x00, 0x00}) + bytes({0x55}) +
                        bytes({0x14, 0xB8, 0x60, 0x00, 0x00, 0x02, 0x1F, 0xFF});
  EXPECT_THAT(decode_raw64("RAW_cf", payload),
              ElementsAre(Tag{2, 14'315'125'944'147}, Tag{2, 14'315'126'050'896}, Tag{0, 49'996}));
  EXPECT_THAT(decode_raw64("raw_cf", bytes({0x94, 0xB8, 0x60, 0, 0, 2, 0, 0})), IsEmpty());
  EXPECT_EQ(fine_ps(1), 19u);
  EXPECT_EQ(fine_ps(180), 3330u);
  EXPECT_EQ(fine_ps(181), 3332u);
}

TEST(ReferenceRaw64, KeepsUpTo7BytesAndItsPlaceForTheNextChunk) {
  Raw64Decoder decoder{Header{}};
  EXPECT_THAT(decoder.feed(bytes({0xFF, 0x20, 0, 0, 0, 0, 0, 0})), IsEmpty());
  EXPECT_THAT(decoder.pending, ElementsAre(0x20, 0, 0, 0, 0, 0, 0));
  EXPECT_THAT(decoder.feed(bytes({9, 0x20})), ElementsAre(Tag{1, 9}));
  EXPECT_THAT(decoder.pending, ElementsAre(0x20));
  EXPECT_THAT(decoder.previous, ElementsAre(0, 9, 0, 0));
}

}  // namespace
}  // namespace orvo::test::reference
