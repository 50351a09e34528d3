// Simulated captures that are damaged on purpose: how much of them the verification still finds.
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "support/simulated_capture.hpp"

namespace {

using namespace orvo::test;
using Arguments = std::vector<std::string>;

class SimulatedDamage : public SimulatedCapture {
 protected:
  std::uintmax_t bytes() const { return fs::file_size(cwd() / "c.tagcap"); }

  static Arguments with(Arguments arguments, const std::string& more) {
    arguments.push_back(more);
    return arguments;
  }
  /// Everything is found, coincidences included.
  void expect_all(const Told& answer) {
    const Verified found = verified(answer);
    EXPECT_EQ(found.tags, answer.number("tags"));
    EXPECT_EQ(found.coincidences, answer.number("coincidences"));
  }
  /// Tags that are not found.
  std::int64_t lost(const Told& answer) { return answer.number("tags") - verified(answer).tags; }
};

const Arguments kRaw64{"--tags=50000", "--start=10s"};
const Arguments kDelta32{"--tags=50000", "--encoding=delta32", "--anchor-every=100"};
const Arguments kPacked{"--tags=50000", "--encoding=packed_delta"};

TEST_F(SimulatedDamage, GarbageBeforeThePayloadCostsNothing) {
  for (const Arguments& capture : {kRaw64, kDelta32, kPacked}) {
    for (const int garbage : {1, 3, 13, 60}) {
      const Told answer = simulate(with(capture, "--front-garbage=" + std::to_string(garbage)));
      EXPECT_EQ(answer.number("front_garbage_bytes"), garbage);
      expect_all(answer);
    }
  }
}

TEST_F(SimulatedDamage, LongGarbageBeforeThePayloadCostsNothingWhereRecordsAreMarked) {
  for (const Arguments& capture : {kRaw64, kDelta32}) expect_all(simulate(with(capture, "--front-garbage=3000001")));
}

TEST_F(SimulatedDamage, GarbageBetweenRaw64RecordsCostsNothing) {
  for (const char* garbage : {"--garbage=1", "--garbage=8", "--garbage=100003"}) {
    expect_all(simulate(with(with(kRaw64, garbage), "--garbage-at=80000")));
    expect_all(simulate(with(with(with(kRaw64, garbage), "--garbage-at=80000"), "--tag-format=raw_cf")));
  }
}

// Each channel has a base every 100 tags. The channel that has one first is back at once, the other with its next
// base. In between 200 tags are lost, or a few more if the other channel clicks more often.
TEST_F(SimulatedDamage, GarbageBetweenDelta32WordsCostsNoMoreThanTheWayToTheNextBase) {
  for (const int garbage : {1, 2, 3, 4, 5, 1000}) {
    const Told answer = simulate(with(with(kDelta32, "--garbage=" + std::to_string(garbage)), "--garbage-at=120000"));
    EXPECT_EQ(answer.number("garbage_bytes"), garbage);
    const std::int64_t lost_tags = lost(answer);
    EXPECT_GE(lost_tags, 1) << garbage;
    EXPECT_LE(lost_tags, 250) << garbage;
  }
}

// The garbage costs the lock and ends the decoding of that read; the next read continues right after it. What is lost
// are the tags up to each channel's next anchor, of which there is one every 1000 tags.
TEST_F(SimulatedDamage, GarbageAmongPackedRecordsCostsTheWayToTheNextAnchors) {
  const Told answer = simulate({"--tags=1800000", "--encoding=packed_delta", "--delta-bits=16", "--rate=2000000",
                                "--pair-rate=100000", "--garbage=5", "--garbage-at=2200000"});
  EXPECT_GT(bytes(), 4u << 20);
  const std::int64_t lost_tags = lost(answer);
  EXPECT_GE(lost_tags, 1);
  EXPECT_LE(lost_tags, 2'200);
}

TEST_F(SimulatedDamage, ACutTailCostsWhatStoodThere) {
  const std::uintmax_t whole = (simulate(kRaw64), bytes());
  for (const auto& [cut, records] : {std::pair{0, 0}, {1, 1}, {8, 1}, {9, 2}, {8'000, 1'000}}) {
    const Told answer = simulate(with(kRaw64, "--cut-tail=" + std::to_string(cut)));
    EXPECT_EQ(bytes(), whole - static_cast<std::uintmax_t>(cut));
    EXPECT_EQ(lost(answer), records) << cut;
  }
  EXPECT_EQ(lost(simulate(with(kDelta32, "--cut-tail=3"))), 1);
  const std::int64_t packed = lost(simulate(with(kPacked, "--cut-tail=190")));  // 80 records
  EXPECT_GT(packed, 20);
  EXPECT_LE(packed, 80);
}

TEST_F(SimulatedDamage, CutsNoMoreThanThePayload) {
  const Told answer = simulate(with(kRaw64, "--cut-tail=1000000000"));
  EXPECT_EQ(lost(answer), 50'000);
}

// A flipped bit of the time moves a tag, any other costs it. Some 400 of 50,000 tags are hit.
TEST_F(SimulatedDamage, FlippedBitsCostNoMoreTagsThanThereAre) {
  const Told answer = simulate(with(kRaw64, "--flip-every=1000"));
  EXPECT_EQ(answer.number("flipped_bits"), 400);
  const std::int64_t lost_tags = lost(answer);
  EXPECT_GT(lost_tags, 0);
  EXPECT_LE(lost_tags, 400);
  EXPECT_LT(verified(answer).coincidences, answer.number("coincidences"));
}

TEST_F(SimulatedDamage, OfDelta32IsMendedByTheNextBases) {
  const Told answer = simulate(with(kDelta32, "--flip-every=20000"));
  const std::int64_t lost_tags = lost(answer);
  EXPECT_LE(lost_tags, 250 * answer.number("flipped_bits"));
  EXPECT_GE(verified(answer).coincidences, answer.number("coincidences") / 2);
}

TEST_F(SimulatedDamage, IsToldOnlyWhenThereIsSome) {
  EXPECT_FALSE(simulate(kRaw64).has("flipped_bits"));
  const Told answer = simulate(with(kRaw64, "--cut-tail=5"));
  EXPECT_EQ(answer.number("cut_tail_bytes"), 5);
  EXPECT_EQ(answer.number("flipped_bits"), 0);
}

}  // namespace
