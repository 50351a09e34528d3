// vq_inspect_stream_file --pairs on captures that no pair of channels can be made of.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "support/inspected_capture.hpp"

namespace {

using namespace orvo::test;

class InspectHostilePairs : public InspectedCapture {
 protected:
  /// All pairs, after what holds for any capture: a page, and numbers that are numbers. The schema is checked, too.
  Json pairs(std::vector<std::string> options = {"--pairs"}) {
    options.insert(options.end(), {"--html", (directory() / "p.html").string()});
    const Json report = this->report(options);
    const std::string text = report.dump();
    for (const std::string word : {"nan", "inf"}) EXPECT_EQ(text.find(word), text.npos);
    const std::string page = read_file(directory() / "p.html");
    EXPECT_LT(page.size(), 600'000U);
    EXPECT_EQ(page.find(">nan"), page.npos);
    EXPECT_EQ(page.find(">inf"), page.npos);
    return report.at("pairs");
  }
  void expect_none(const std::vector<std::string>& options = {"--pairs"}) {
    for (const Json& pair : pairs(options)) {
      EXPECT_EQ(pair["verdict"], "none");
      EXPECT_EQ(pair["significant"], false);
      EXPECT_TRUE(pair["verify_command"].is_null());
    }
  }
};

TEST_F(InspectHostilePairs, WithoutAPayload) {
  write({}, 15);
  expect_none();
}

TEST_F(InspectHostilePairs, OfOneTagOrOneForEachChannel) {
  write({{0, 5}}, 15);
  expect_none();
  write({{0, 5}, {1, 5}, {2, 9}, {3, 1'000'000}}, 15);
  expect_none();
}

TEST_F(InspectHostilePairs, OfEqualTimes) {
  std::vector<MadeTag> tags;
  for (unsigned i = 0; i < 3000; ++i) tags.push_back({i % 4, 777});
  write(tags, 15);
  expect_none();
}

TEST_F(InspectHostilePairs, OfARecordingShorterThanTheReach) {
  std::mt19937_64 random(3);
  std::vector<MadeTag> tags;
  for (std::uint64_t time = 0; time < 10'000'000; time += 1 + random() % 20'000)
    tags.push_back({static_cast<unsigned>(random() % 4), time});
  write(tags, 15);
  expect_none({"--pair=0,1", "--reach=1000s"});
  expect_none({"--pair=1,2", "--reach=1ps"});
  expect_none({"--pair=2,3", "--reach=0"});
}

TEST_F(InspectHostilePairs, OfRatesThatFillEveryPicosecond) {
  std::vector<MadeTag> tags;
  for (std::uint64_t i = 0; i < 10'000; ++i) tags.push_back({static_cast<unsigned>(i % 4), i / 20});
  write(tags, 15);
  EXPECT_EQ(pairs().size(), 6U);
}

TEST_F(InspectHostilePairs, OfNoiseInPlaceOfRecords) {
  std::mt19937_64 random(4);
  for (const char* const format : {"raw64", "delta32", "packed_delta"}) {
    Bytes noise;
    for (int i = 0; i < 100'000; ++i) noise += bytes({static_cast<int>(random() % 256)});
    write(made_header(format, 15), noise);
    EXPECT_EQ(pairs().size(), 6U);
  }
}

// All of one channel, then all of the other: partners come too late to be counted as they go by.
TEST_F(InspectHostilePairs, OfChannelsOneAfterTheOther) {
  std::mt19937_64 random(5);
  std::vector<MadeTag> first;
  std::vector<MadeTag> second;
  for (std::uint64_t time = 0; time < kMadeSecondPs; time += 1 + random() % 100'000'000) {
    first.push_back({0, time});
    second.push_back({1, time + 40'000 + random() % 100});
  }
  first.insert(first.end(), second.begin(), second.end());
  write(first);
  const Json pair = pairs({"--pair=0,1"})[0];
  EXPECT_EQ(pair["verdict"], "peak");
  EXPECT_NEAR(pair["delay_ps"].get<double>(), 40'050, 3);
  EXPECT_NEAR(pair["pairs"].get<double>(), static_cast<double>(second.size()), 500);
}

}  // namespace
