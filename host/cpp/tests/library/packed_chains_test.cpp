// packed_delta: differences that only add up, alone and after overflow records of their own or another channel.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "orvo/timing/stream_decoder.hpp"
#include "support/checked_feeding.hpp"
#include "support/packed_payload.hpp"

namespace {

using namespace orvo::test;
using orvo::timing::StreamDecoder;
using orvo::timing::StreamMode;
using testing::ElementsAre;
using testing::IsEmpty;

/// Locked, channel 0 at 1000 ps, channel 1 at 2000 ps.
StreamDecoder two_channels(const PackedSetup& setup = {}) {
  StreamDecoder decoder = running_decoder(setup, 0, 1000);
  decoder.pk_last_time[1] = 2000;
  decoder.pk_has_time[1] = true;
  return decoder;
}

Tags tags_of(PackedWriter payload, const PackedSetup& setup = {}) {
  StreamDecoder decoder = two_channels(setup);
  return feed(decoder, payload.tail(0).fill_byte(0).bytes());
}

TEST(PackedChains, AnOverflowRecordLengthensTheDataRecordRightAfterIt) {
  EXPECT_THAT(tags_of(PackedWriter(16).overflow(0, 2).data(0, 5).data(0, 7)),
              ElementsAre(tag(0, 132'077), tag(0, 132'084)));
}

TEST(PackedChains, OverflowRecordsOfOtherChannelsMayStandBetween) {
  EXPECT_THAT(tags_of(PackedWriter(16).overflow(0, 2).data(1, 5).data(0, 7).data(1, 1)),
              ElementsAre(tag(1, 2005), tag(0, 132'079), tag(1, 2006)));
  EXPECT_THAT(tags_of(PackedWriter(16).overflow(0, 1).overflow(1, 3).data(1, 2).data(0, 4).data(0, 1)),
              ElementsAre(tag(1, 198'610), tag(0, 66'540), tag(0, 66'541)));
}

TEST(PackedChains, OverflowRecordsAddUp) {
  EXPECT_THAT(tags_of(PackedWriter(16).overflow(0, 1).overflow(0, 2).data(0, 3).data(0, 4)),
              ElementsAre(tag(0, 197'611), tag(0, 197'615)));
  EXPECT_THAT(tags_of(PackedWriter(16).overflow(0, 1).data(1, 1).overflow(0, 2).data(0, 3).overflow(0, 1).data(0, 4)),
              ElementsAre(tag(1, 2001), tag(0, 197'611), tag(0, 263'151)));
}

TEST(PackedChains, AnOverflowRecordOfNothingAddsNothing) {
  EXPECT_THAT(tags_of(PackedWriter(16).overflow(0, 0).data(0, 5).overflow(0, 0).overflow(0, 0).data(0, 1)),
              ElementsAre(tag(0, 1005), tag(0, 1006)));
}

TEST(PackedChains, TheLargestPayloadsAddUp) {
  EXPECT_THAT(tags_of(PackedWriter(16).overflow(1, 0xFFFE).data(1, 0xFFFF)), ElementsAre(tag(1, 4'294'903'759)));
  EXPECT_THAT(tags_of(PackedWriter(1).overflow(1, 0).data(1, 1).data(1, 1), {.delta_bits = 1}),
              ElementsAre(tag(1, 2001), tag(1, 2002)));
}

TEST(PackedChains, AnOverflowRecordOfAChannelWithoutTimeIsForItsAnchor) {
  EXPECT_THAT(tags_of(PackedWriter(16).overflow(2, 1).data(2, 5).data(0, 1).anchor(2, 700).overflow(2, 1).data(2, 5)),
              ElementsAre(tag(0, 1001), tag(2, 700), tag(2, 66'241)));
  EXPECT_THAT(tags_of(PackedWriter(16).sync(2, 700).overflow(2, 1).data(0, 1).data(2, 5)),
              ElementsAre(tag(0, 1001), tag(2, 66'241)));
}

TEST(PackedChains, ASyncStartForgetsTheOverflowRecordsThatWait) {
  EXPECT_THAT(tags_of(PackedWriter(16).overflow(0, 9).anchor(0, 700'000).data(0, 5)),
              ElementsAre(tag(0, 700'000), tag(0, 700'005)));
}

TEST(PackedChains, ARecordOfAnInactiveChannelCostsTheLockWhateverItIs) {
  const PackedSetup setup{.channel_mask = 0x3};
  EXPECT_THAT(tags_of(PackedWriter(16).data(0, 1).overflow(3, 1).data(3, 1).data(0, 1), setup),
              ElementsAre(tag(0, 1001)));
  EXPECT_THAT(tags_of(PackedWriter(16).overflow(0, 1).data(0, 1).data(3, 1).data(0, 1), setup),
              ElementsAre(tag(0, 66'537)));
}

/// Up to 25 bits, an overflow record and its data record come out of one load of 8 bytes.
TEST(PackedChains, LongDifferencesAreJudgedAtEveryWidth) {
  for (const unsigned delta_bits : {24u, 25u, 26u, 31u}) {
    const auto internal = [&](std::uint64_t quanta) {
      const PackedSetup setup{.mode = StreamMode::internal, .delta_bits = delta_bits};
      return tags_of(PackedWriter(delta_bits).gap(1, quanta).data(1, 1), setup);
    };
    EXPECT_THAT(internal(999'999'999'999), ElementsAre(tag(1, 1'000'000'001'999), tag(1, 1'000'000'002'000)));
    EXPECT_THAT(internal(1'000'000'000'000), ElementsAre(tag(1, 1'000'000'002'000), tag(1, 1'000'000'002'001)));
    EXPECT_THAT(internal(1'000'000'000'001), IsEmpty());
    const auto external = [&](std::uint64_t quanta) {
      return tags_of(PackedWriter(delta_bits).gap(1, quanta).data(1, 1), {.delta_bits = delta_bits});
    };
    // The wrap step of a quantum of 1 ps: one beyond it is a step of 1 ps; from 2^41 back, a step back.
    EXPECT_THAT(external(1'078'036'791'296), ElementsAre(tag(1, 1'078'036'793'296), tag(1, 1'078'036'793'297)));
    EXPECT_THAT(external(1'078'036'791'297), ElementsAre(tag(1, 2001), tag(1, 2002)));
    EXPECT_THAT(external(2'199'023'255'551), ElementsAre(tag(1, 1999), tag(1, 2000)));
  }
}

/// Differences from nothing to three times what a data record holds, on two channels.
struct Stream {
  explicit Stream(unsigned delta_bits) : payload(delta_bits) {
    const std::uint64_t most = std::uint64_t{3} << delta_bits;
    std::int64_t times[] = {1000, 2000};
    for (std::uint64_t i = 0; i < 60; ++i) {
      const auto channel = static_cast<unsigned>(i * i / 3 % 2);
      const std::uint64_t quanta = i * 0x9E37'79B9 % most;
      payload.gap(channel, quanta);
      times[channel] += static_cast<std::int64_t>(quanta);
      tags.push_back(tag(channel, times[channel]));
      tag_ends_at_bit.push_back(payload.bit_count());
    }
    payload.fill_byte(0);
  }

  PackedWriter payload;
  Tags tags;
  std::vector<std::size_t> tag_ends_at_bit;
};

TEST(PackedChains, AreTheSameHoweverTheStreamIsCut) {
  for (const unsigned delta_bits : {2u, 5u, 8u, 16u, 25u, 26u, 31u}) {
    const Stream stream(delta_bits);
    const PackedSetup setup{.delta_bits = delta_bits};
    const Bytes& bytes = stream.payload.bytes();
    for (std::size_t cut = 0; cut <= bytes.size(); ++cut) {
      StreamDecoder decoder = two_channels(setup);
      const Tags before = feed(decoder, first(cut, bytes));
      std::size_t complete = 0;
      while (complete < 60 && stream.tag_ends_at_bit[complete] <= 8 * cut) ++complete;
      ASSERT_EQ(before, Tags(stream.tags.begin(), stream.tags.begin() + static_cast<std::ptrdiff_t>(complete)))
          << delta_bits << " bits, " << cut << " bytes";
      ASSERT_EQ(before + feed(decoder, all_but_first(cut, bytes)), stream.tags)
          << delta_bits << " bits, cut at " << cut;
    }
  }
}

}  // namespace
