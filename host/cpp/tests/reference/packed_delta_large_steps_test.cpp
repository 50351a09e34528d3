// The reference of packed_delta, and the product's decoder beside it, on streams worked out by hand with 31 bits of
// payload (large differences in few records), and on streams whose times are known.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "support/bytes.hpp"
#include "support/checked_decoders.hpp"
#include "support/packed_streams.hpp"
#include "support/streams.hpp"

namespace orvo::test {
namespace {

using reference::Tags;
using testing::ElementsAre;
using testing::IsEmpty;
using timing::StreamFileHeader;
using timing::StreamMode;

reference::Tag tag(int channel, std::int64_t time_ps) {
  return {channel, time_ps};
}

struct Decoded {
  Tags tags;
  std::string drop;  // the last line, when it is not the one of the lock
};

class ReferencePackedDeltaWithLargeSteps : public testing::Test {
 protected:
  static constexpr std::uint64_t kStep1 = 1'078'036'791'296;  // 7 * 2^41 - P, quanta of 1 ps
  static constexpr std::uint64_t kStep8 = 3'277'060'046'848;  // 2^44 - P, quanta of 8 ps

  ReferencePackedDeltaWithLargeSteps() : stream_(31) {}
  void anchor(std::uint64_t quanta) {
    stream_.sync(0, quanta);
    stream_.data(0, 0);
  }
  void difference(std::uint64_t quanta) { stream_.gap(0, quanta); }

  Decoded decoded(StreamMode mode, int quantum_ps) const {
    CheckedPacked model(packed_header(mode, 1, 31, quantum_ps));
    Decoded out{.tags = model.feed(stream_.bytes()), .drop = {}};
    if (model.lines.size() > 1) out.drop = model.lines[1];
    return out;
  }
  Tags external_1() const { return decoded(StreamMode::external, 1).tags; }
  std::string dropped_1(StreamMode mode) const { return decoded(mode, 1).drop; }

  PackedWriter stream_;
};

TEST_F(ReferencePackedDeltaWithLargeSteps, TheEncoderWritesTheBitsOfTheFormat) {
  anchor((std::uint64_t{1} << 31) + 5);
  difference((std::uint64_t{3} << 31) + 6);
  EXPECT_EQ(stream_.bytes(), bit_text("00 1 1111111111111111111111111111111  00 0 0000000000000000000000000000101"
                                      "00 0 0000000000000000000000000000001  00 0 0000000000000000000000000000000"
                                      "00 1 0000000000000000000000000000011  00 0 0000000000000000000000000000110"));
  EXPECT_THAT(external_1(), ElementsAre(tag(0, 2'147'483'653), tag(0, 4 * 2'147'483'648 + 11)));
}

TEST_F(ReferencePackedDeltaWithLargeSteps, AWrapStepIsTakenOutWhenTheRestIsSmall) {
  anchor(1000);
  difference(kStep1 + 5000);
  difference(kStep1);
  EXPECT_THAT(external_1(), ElementsAre(tag(0, 1000), tag(0, 6000), tag(0, 6000 + 1'078'036'791'296)));
  EXPECT_EQ(dropped_1(StreamMode::internal), "drop implausible delta ch=0 delta=1078036791296 prev=6000 record=7");
}

TEST_F(ReferencePackedDeltaWithLargeSteps, ASmallRestHasTenThousandMillionPicoseconds) {
  anchor(1000);
  difference(kStep1 + 10'000'000'000);
  difference(kStep1 + 10'000'000'001);
  EXPECT_THAT(external_1(),
              ElementsAre(tag(0, 1000), tag(0, 10'000'001'000), tag(0, 20'000'001'001 + 1'078'036'791'296)));
}

TEST_F(ReferencePackedDeltaWithLargeSteps, AnImplausibleDifferenceIsMoreThanASecond) {
  anchor(1000);
  difference(1'000'000'000'000);
  difference(1'000'000'000'001);
  EXPECT_EQ(decoded(StreamMode::internal, 1).tags.size(), 2u);
  EXPECT_EQ(dropped_1(StreamMode::internal),
            "drop implausible delta ch=0 delta=1000000000001 prev=1000000001000 record=7");
  EXPECT_EQ(dropped_1(StreamMode::external), "");
}

TEST_F(ReferencePackedDeltaWithLargeSteps, ADifferenceJustBelowTheModulusIsAStepBack) {
  const std::uint64_t modulus = std::uint64_t{1} << 41;
  anchor(5'000'000);
  difference(modulus);
  difference(modulus - 1'000'000);
  difference(modulus - 1'000'001);
  EXPECT_THAT(external_1(), ElementsAre(tag(0, 5'000'000), tag(0, 5'000'000), tag(0, 4'000'000),
                                        tag(0, 4'000'000 + 2'199'023'255'552 - 1'000'001)));
}

TEST_F(ReferencePackedDeltaWithLargeSteps, ALargeRestIsTakenWhenItLeadsToTheEndOfTheDevicePeriod) {
  anchor((kDevicePeriod - 20'000'000'000) / 8);
  difference((kStep8 + 20'000'000'000) / 8);
  EXPECT_THAT(decoded(StreamMode::external, 8).tags,
              ElementsAre(tag(0, 14'295'125'997'568), tag(0, 14'315'125'997'568)));
  EXPECT_EQ(decoded(StreamMode::internal, 8).tags.size(),
            2u);  // the implausible step was taken out before the judgement
}

TEST_F(ReferencePackedDeltaWithLargeSteps, ALargeRestThatEndsBeforeThePeriodStays) {
  anchor((kDevicePeriod - 20'000'000'000) / 8);
  difference((kStep8 + 20'000'000'000) / 8 - 1);
  EXPECT_THAT(decoded(StreamMode::external, 8).tags,
              ElementsAre(tag(0, 14'295'125'997'568), tag(0, 14'315'125'997'568 + 3'277'060'046'840)));
  EXPECT_EQ(decoded(StreamMode::internal, 8).drop,
            "drop implausible delta ch=0 delta=3297060046840 prev=14295125997568 record=5");
}

TEST_F(ReferencePackedDeltaWithLargeSteps, SyncValuesHave41Bits) {
  anchor((std::uint64_t{1} << 41) + 7);
  EXPECT_THAT(external_1(), ElementsAre(tag(0, 7)));
}

TEST_F(ReferencePackedDeltaWithLargeSteps, SyncTimesAreFoldedIntoTheDevicePeriod) {
  anchor((std::uint64_t{1} << 41) - 1);  // 2^44 - 8 ps
  EXPECT_THAT(decoded(StreamMode::external, 8).tags, ElementsAre(tag(0, 3'277'060'046'840)));
}

TEST_F(ReferencePackedDeltaWithLargeSteps, SyncTimesAreLiftedToTheChannel) {
  anchor((std::uint64_t{1} << 41) - 1);
  anchor(1000);
  EXPECT_THAT(external_1(), ElementsAre(tag(0, 2'199'023'255'551), tag(0, 2'199'023'256'552)));
}

TEST_F(ReferencePackedDeltaWithLargeSteps, SyncTimesAreLiftedByThePeriodWhenTheModulusIsLarger) {
  anchor(kDevicePeriod / 8 - 1);
  anchor(100);
  EXPECT_THAT(decoded(StreamMode::external, 8).tags,
              ElementsAre(tag(0, 14'315'125'997'560), tag(0, 14'315'125'998'368)));
}

TEST_F(ReferencePackedDeltaWithLargeSteps, AWrapStepIsTakenOutOfASyncTime) {
  anchor(1000);
  anchor(1000 + kStep1 + 5000);
  EXPECT_THAT(external_1(), ElementsAre(tag(0, 1000), tag(0, 6000)));
  anchor(6000 + kStep1);
  EXPECT_THAT(external_1().back(), tag(0, 6000 + 1'078'036'791'296));
}

TEST_F(ReferencePackedDeltaWithLargeSteps, AnchorsMayStepBackAMillionPicosecondsInExternalMode) {
  anchor(5'000'000);
  anchor(4'000'000);
  anchor(2'999'999);
  EXPECT_THAT(external_1(), ElementsAre(tag(0, 5'000'000), tag(0, 4'000'000)));
  EXPECT_EQ(dropped_1(StreamMode::external), "drop nonmonotonic sync ch=0 next=2999999 prev=4000000 record=11");
  EXPECT_EQ(dropped_1(StreamMode::internal),
            "drop implausible sync delta ch=0 delta=18446744073708551616 next=4000000 prev=5000000 record=7");
}

TEST_F(ReferencePackedDeltaWithLargeSteps, AnchorsMayStepForwardASecondInInternalMode) {
  anchor(1000);
  anchor(1'000'000'001'000);
  anchor(2'000'000'001'001);
  EXPECT_EQ(decoded(StreamMode::internal, 1).tags.size(), 2u);
  EXPECT_EQ(dropped_1(StreamMode::internal),
            "drop implausible sync delta ch=0 delta=1000000000001 next=2000000001001 "
            "prev=1000000001000 record=11");
  EXPECT_EQ(external_1().size(), 3u);
}

TEST(ReferencePackedDeltaOnCleanStreams, GivesTheEncodedTimes) {
  Random random(3301);
  for (int i = 0; i < 160; ++i) {
    const StreamFileHeader header = random_packed_header(random, i % 16);
    const CleanStream clean = clean_packed(random, settings_of(header), 800);
    EXPECT_EQ(first_difference(CheckedPacked(header).feed(clean.bytes), clean.tags), "")
        << "stream " << i << ", " << int{header.delta_bits} << " bits, quantum " << header.quantum_ps;
  }
}

}  // namespace
}  // namespace orvo::test
