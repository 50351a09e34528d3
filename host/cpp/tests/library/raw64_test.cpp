#include "orvo/timing/detail/raw64.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "orvo/timing/stream_decoder.hpp"
#include "support/bytes.hpp"
#include "support/checked_feeding.hpp"

namespace {

using namespace orvo::test;
using orvo::timing::StreamDecoder;
using orvo::timing::StreamFileHeader;
using orvo::timing::StreamFormat;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::int64_t kPeriod = 14'315'125'997'568;
constexpr std::int64_t kHalf = 7'157'562'998'784;

StreamDecoder raw64_decoder(const std::string& tag_format) {
  StreamFileHeader header;
  header.stream_format = StreamFormat::raw64;
  header.raw64_tag_format = tag_format;
  return StreamDecoder(header);
}
Tags decode(const std::string& tag_format, const Bytes& payload) {
  StreamDecoder decoder = raw64_decoder(tag_format);
  return feed(decoder, payload);
}
Tags decode_in_chunks(const std::string& tag_format, const Bytes& payload, const std::vector<std::size_t>& cuts) {
  StreamDecoder decoder = raw64_decoder(tag_format);
  Tags all;
  for (std::size_t i = 0; i + 1 < cuts.size(); ++i) {
    const auto at = [&](std::size_t cut) { return payload.begin() + static_cast<std::ptrdiff_t>(cut); };
    const Tags tags = feed(decoder, Bytes(at(cuts[i]), at(cuts[i + 1])));
    EXPECT_LE(decoder.pending_bytes.size(), 7u);
    all.insert(all.end(), tags.begin(), tags.end());
  }
  return all;
}

TEST(Raw64Ps, ReadsChannelAndTimeOfABigEndianWord) {
  EXPECT_THAT(decode("ps", bytes({0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x27, 0x10})), ElementsAre(tag(0, 10'000)));
  EXPECT_THAT(decode("ps", bytes({0x20, 0x00, 0x00, 0x00, 0x00, 0x00, 0x27, 0xB0})), ElementsAre(tag(1, 10'160)));
  EXPECT_THAT(decode("ps", bytes({0x40, 0x00, 0x01, 0x23, 0x45, 0x67, 0x89, 0xAB})),
              ElementsAre(tag(2, 0x0123456789AB)));
  EXPECT_THAT(decode("ps", bytes({0x60, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00})), ElementsAre(tag(3, 0)));
}

TEST(Raw64Ps, FoldsTimesBeyondThePeriod) {
  EXPECT_THAT(decode("ps", bytes({0x20, 0x00, 0x0F, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF})),
              ElementsAre(tag(1, 3'277'060'046'847)));
  EXPECT_THAT(decode("ps", ps_record(0, kPeriod - 1)), ElementsAre(tag(0, kPeriod - 1)));
  EXPECT_THAT(decode("ps", ps_record(0, kPeriod)), ElementsAre(tag(0, 0)));
  EXPECT_THAT(decode("ps", ps_record(0, kPeriod + 1)), ElementsAre(tag(0, 1)));
}

TEST(Raw64Ps, AnySetBitOutsideChannelAndTimeIsNoRecord) {
  for (int bit = 44; bit < 64; ++bit) {
    const std::uint64_t word = std::uint64_t{1} << bit | 0x5555;
    EXPECT_EQ(decode("ps", big_endian(word, 8)).size(), bit == 61 || bit == 62 ? 1u : 0u) << "bit " << bit;
  }
}

TEST(Raw64Ps, WrapsOnAStepBackOfStrictlyMoreThanHalfAPeriod) {
  EXPECT_THAT(decode("ps", ps_record(0, kHalf - 1) + ps_record(0, 0)), ElementsAre(tag(0, kHalf - 1), tag(0, 0)));
  EXPECT_THAT(decode("ps", ps_record(0, kHalf) + ps_record(0, 0)), ElementsAre(tag(0, kHalf), tag(0, 0)));
  EXPECT_THAT(decode("ps", ps_record(0, kHalf + 1) + ps_record(0, 0)),
              ElementsAre(tag(0, kHalf + 1), tag(0, kPeriod)));
}

TEST(Raw64Ps, FoldingComesBeforeUnwrapping) {
  EXPECT_THAT(decode("ps", ps_record(0, kPeriod - 1) + ps_record(0, kPeriod) + ps_record(0, kPeriod + 5)),
              ElementsAre(tag(0, kPeriod - 1), tag(0, kPeriod), tag(0, kPeriod + 5)));
}

TEST(Raw64Ps, LargeForwardAndSmallBackwardStepsPassUnchanged) {
  EXPECT_THAT(decode("ps", ps_record(1, 5) + ps_record(1, kPeriod - 1)), ElementsAre(tag(1, 5), tag(1, kPeriod - 1)));
  EXPECT_THAT(decode("ps", ps_record(1, 500) + ps_record(1, 490) + ps_record(1, 501)),
              ElementsAre(tag(1, 500), tag(1, 490), tag(1, 501)));
}

TEST(Raw64Ps, AddsAPeriodForEachWrapOfAChannelOnItsOwn) {
  const Bytes high = ps_record(2, kPeriod - 10);
  const Bytes low = ps_record(2, 10);
  EXPECT_THAT(
      decode("ps", high + ps_record(0, kPeriod - 1) + low + ps_record(1, 7) + high + low + ps_record(0, kPeriod - 2)),
      ElementsAre(tag(2, kPeriod - 10), tag(0, kPeriod - 1), tag(2, kPeriod + 10), tag(1, 7),
                  tag(2, 2 * kPeriod - 10), tag(2, 2 * kPeriod + 10), tag(0, kPeriod - 2)));
}

TEST(Raw64Ps, LosesExactlyTheStrayBytesBeforeTheFirstRecord) {
  const Bytes payload = bytes({0xDE, 0xAD, 0xBE}) + ps_record(0, 10'000) + ps_record(1, 10'160);
  EXPECT_THAT(decode("ps", payload), ElementsAre(tag(0, 10'000), tag(1, 10'160)));
}

TEST(Raw64Ps, StrayBytesThatFormARecordWithWhatFollowsAreARecord) {
  StreamDecoder decoder = raw64_decoder("ps");
  EXPECT_THAT(feed(decoder, bytes({0, 0, 0}) + ps_record(0, 10'000)), ElementsAre(tag(0, 0)));
  EXPECT_THAT(Bytes(decoder.pending_bytes.begin(), decoder.pending_bytes.end()), ElementsAre(0x00, 0x27, 0x10));
}

TEST(Raw64Ps, KeepsUpToSevenBytesForTheNextChunk) {
  StreamDecoder decoder = raw64_decoder("ps");
  EXPECT_THAT(feed(decoder, Bytes(20, 0xFF)), IsEmpty());
  EXPECT_EQ(decoder.pending_bytes.size(), 7u);
  EXPECT_THAT(feed(decoder, ps_record(0, 10'000) + bytes({0x20, 0x00})), ElementsAre(tag(0, 10'000)));
  EXPECT_THAT(Bytes(decoder.pending_bytes.begin(), decoder.pending_bytes.end()), ElementsAre(0x20, 0x00));
}

TEST(Raw64Ps, TimesWrapModulo2ToThe64) {
  StreamDecoder decoder = raw64_decoder("ps");
  decoder.raw64_epoch[3] = INT64_MAX;
  EXPECT_THAT(feed(decoder, ps_record(3, 0) + ps_record(3, 1)), ElementsAre(tag(3, INT64_MAX), tag(3, INT64_MIN)));
}

TEST(Raw64Cf, ReadsChannelCoarseAndFineOfABigEndianWord) {
  // channel 3, coarse 0x12345678, fine 0x1ABC: far beyond saturation, so 3332 ps before the edge
  EXPECT_THAT(decode("raw_cf", bytes({0x74, 0xB8, 0x62, 0x46, 0x8A, 0xCF, 0x1A, 0xBC})),
              ElementsAre(tag(3, 1'017'964'510'036)));
  // channel 2, coarse 0xFFFFFFFF, fine 5: 93 ps before the edge
  EXPECT_THAT(decode("raw_cf", bytes({0x54, 0xB8, 0x7F, 0xFF, 0xFF, 0xFF, 0xE0, 0x05})),
              ElementsAre(tag(2, 14'315'125'994'142)));
}

TEST(Raw64Cf, SubtractsTheFineTimeFromTheCoarseEdge) {
  EXPECT_THAT(decode("raw_cf", cf_record(0, 0, 0) + cf_record(0, 1, 0) + cf_record(0, 1, 1) + cf_record(0, 1, 180) +
                                   cf_record(0, 1, 181) + cf_record(0, 1, 8191) + cf_record(0, 0, 8191)),
              ElementsAre(tag(0, 0), tag(0, 3333), tag(0, 3314), tag(0, 3), tag(0, 1), tag(0, 1), tag(0, -3332)));
}

TEST(Raw64Cf, FlippingAnyBitOfMarkerOrTopIsNoRecord) {
  for (int bit = 0; bit < 64; ++bit) {
    Bytes record = cf_record(1, 0x01020304, 0x0506);
    record[static_cast<std::size_t>(7 - bit / 8)] ^= static_cast<std::uint8_t>(1 << bit % 8);
    const bool fixed = bit == 63 || (bit >= 45 && bit <= 60);
    EXPECT_EQ(decode("raw_cf", record).size(), fixed ? 0u : 1u) << "bit " << bit;
  }
}

TEST(Raw64Cf, CoarseFallThroughItsWrapGoesOnForward) {
  EXPECT_THAT(decode("raw_cf", cf_record(0, 0xFFFFFFF0, 2) + cf_record(1, 0xFFFFFFF0, 0) + cf_record(0, 0x10, 5) +
                                   cf_record(2, 0x10, 0)),
              ElementsAre(tag(0, 14'315'125'944'240 - 37), tag(1, 14'315'125'944'240),
                          tag(0, 14'315'125'944'240 + 0x20 * 3333 - 93), tag(2, 53'328)));
}

TEST(Raw64Cf, WrapsOnAStepBackOfStrictlyMoreThan2ToThe31Counts) {
  EXPECT_THAT(decode("raw_cf", cf_record(0, 0x7FFFFFFF, 0) + cf_record(0, 0, 0)),
              ElementsAre(tag(0, 7'157'562'995'451), tag(0, 0)));
  EXPECT_THAT(decode("raw_cf", cf_record(0, 0x80000000, 0) + cf_record(0, 0, 0)),
              ElementsAre(tag(0, 7'157'562'998'784), tag(0, 0)));
  EXPECT_THAT(decode("raw_cf", cf_record(0, 0x80000001, 0) + cf_record(0, 0, 0)),
              ElementsAre(tag(0, 7'157'563'002'117), tag(0, kPeriod)));
}

TEST(Raw64Cf, ATagFromBeforeTheWrapIsTakenForOneAlmostAPeriodLater) {
  EXPECT_THAT(decode("raw_cf", cf_record(0, 0xFFFFFFF0, 0) + cf_record(0, 0x10, 0) + cf_record(0, 0xFFFFFFFF, 0) +
                                   cf_record(0, 0x20, 0)),
              ElementsAre(tag(0, 14'315'125'944'240), tag(0, 14'315'126'050'896), tag(0, 28'630'251'991'803),
                          tag(0, 28'630'252'101'792)));
}

TEST(Raw64Cf, ForeignRecordsBetweenAreSkipped) {
  EXPECT_THAT(decode("raw_cf", ps_record(0, 10'000) + cf_record(1, 2, 0) + ps_record(1, 5) + bytes({0x14, 0xB8}) +
                                   cf_record(1, 3, 0)),
              ElementsAre(tag(1, 6666), tag(1, 9999)));
  EXPECT_THAT(decode("ps", Bytes(3, 0xFF) + cf_record(0, 0xFFFFFFFF, 8191)), IsEmpty());
}

TEST(Raw64TagFormat, IsRawCfInAnyLetterCaseAndPicosecondsOtherwise) {
  const Bytes cf = cf_record(1, 2, 0);
  for (const char* word : {"raw_cf", "RAW_CF", "Raw_Cf", "raw_cF"})
    EXPECT_THAT(decode(word, cf), ElementsAre(tag(1, 6666)));
  for (const char* word : {"raw-cf", "", "ps", "PS", "raw_cf ", " raw_cf", "rawcf", "raw_c", "raw_cff", "cf"}) {
    EXPECT_THAT(decode(word, cf), IsEmpty()) << word;
    EXPECT_THAT(decode(word, ps_record(2, 9)), ElementsAre(tag(2, 9))) << word;
  }
}

TEST(Raw64TagFormat, IsChosenAnewForEveryChunkAndSharesTheWrapState) {
  StreamDecoder decoder = raw64_decoder("ps");
  EXPECT_THAT(feed(decoder, ps_record(1, 5'000'000'000)), ElementsAre(tag(1, 5'000'000'000)));
  decoder.header.raw64_tag_format = "raw_cf";
  EXPECT_THAT(feed(decoder, cf_record(1, 0, 0)), ElementsAre(tag(1, kPeriod)));
  EXPECT_THAT(decoder.raw64_prev, ElementsAre(0, 0, 0, 0));
  EXPECT_THAT(decoder.raw64_prev_valid, ElementsAre(false, true, false, false));
  EXPECT_THAT(decoder.raw64_epoch, ElementsAre(0, 4'294'967'296, 0, 0));
}

Bytes mixed_payload(const std::string& tag_format) {
  Bytes payload = bytes({0x14, 0xB8, 0xFF});
  std::uint64_t random = 1;
  for (unsigned i = 0; i < 40; ++i) {
    random = random * 6'364'136'223'846'793'005u + 1'442'695'040'888'963'407u;
    const unsigned channel = static_cast<unsigned>(random >> 62);
    payload += tag_format == "ps"
                   ? ps_record(channel, random >> 20 & 0xFFF'FFFF'FFFF)
                   : cf_record(channel, static_cast<std::uint32_t>(random >> 20), random >> 50 & 0x1FFF);
    if (i % 5 == 0) payload += Bytes(i % 9, static_cast<std::uint8_t>(random >> 40 | 0x80));
  }
  return payload;
}

TEST(Raw64Chunks, EverySplitAndEveryChunkSizeYieldsTheSameTags) {
  for (const char* tag_format : {"ps", "raw_cf"}) {
    const Bytes payload = mixed_payload(tag_format);
    const Tags whole = decode(tag_format, payload);
    EXPECT_EQ(whole.size(), 40u);
    for (std::size_t cut = 0; cut <= payload.size(); ++cut) {
      ASSERT_EQ(decode_in_chunks(tag_format, payload, {0, cut, payload.size()}), whole) << "split at " << cut;
    }
    for (std::size_t size = 1; size <= 64; ++size) {
      std::vector<std::size_t> cuts;
      for (std::size_t at = 0; at < payload.size(); at += size) cuts.push_back(at);
      cuts.push_back(payload.size());
      ASSERT_EQ(decode_in_chunks(tag_format, payload, cuts), whole) << "chunks of " << size;
    }
  }
}

}  // namespace
