#include "simulate/detectors.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "simulate/time_grid.hpp"
#include "support/stream_feeding.hpp"

namespace {

using namespace orvo::test;
using testing::ElementsAre;
using testing::HasSubstr;

template <class Grid>
Tags detected(const Settings& settings, Grid grid, Tags events) {
  Detectors<Grid> detectors(settings, grid);
  detectors.detect(events);
  return events;
}

TEST(Detectors, StoreTimesOnTheGrid) {
  EXPECT_THAT(detected({}, QuantumGrid{3}, {tag(0, 7), tag(1, 8), tag(0, 17)}),
              ElementsAre(tag(0, 0), tag(1, 8), tag(0, 16)));
}

TEST(Detectors, AreBlindForTheDeadTimeBehindAStoredTag) {
  Settings settings;
  settings.channels[0].dead_time_ps = 100;
  const Tags events{tag(0, 1000), tag(0, 1099), tag(1, 1099), tag(0, 1100), tag(0, 1150), tag(1, 1151), tag(0, 1200)};
  EXPECT_THAT(detected(settings, PicosecondGrid{}, events),
              ElementsAre(tag(0, 1000), tag(1, 1099), tag(0, 1100), tag(1, 1151), tag(0, 1200)));
}

TEST(Detectors, StoreNoTimeTwiceOnAChannel) {
  EXPECT_THAT(detected({}, PicosecondGrid{}, {tag(2, 5), tag(2, 5), tag(3, 5), tag(2, 6)}),
              ElementsAre(tag(2, 5), tag(3, 5), tag(2, 6)));
  EXPECT_THAT(detected({}, QuantumGrid{4}, {tag(2, 16), tag(2, 31), tag(2, 32)}),
              ElementsAre(tag(2, 16), tag(2, 32)));
}

TEST(Detectors, TakeATagAtTheVeryStart) {
  Settings settings;
  settings.start_ps = 1'000'001;
  settings.channels[0].dead_time_ps = 1'000'000'000;
  EXPECT_THAT(detected(settings, QuantumGrid{15}, {tag(0, 1'000'001)}), ElementsAre(tag(0, 983'040)));
}

TEST(Detectors, RememberTheLastTagFromBlockToBlock) {
  Settings settings;
  settings.channels[1].dead_time_ps = 50;
  Detectors<PicosecondGrid> detectors(settings, {});
  Tags block{tag(1, 100)};
  detectors.detect(block);
  block = {tag(1, 149), tag(1, 150)};
  detectors.detect(block);
  EXPECT_THAT(block, ElementsAre(tag(1, 150)));
}

TEST(Detectors, RefuseASilenceOfMoreThanASecond) {
  const std::int64_t second = 1'000'000'000'000;
  EXPECT_EQ(detected({}, PicosecondGrid{}, {tag(0, 5), tag(0, 5 + second)}).size(), 2u);
  try {
    detected({}, PicosecondGrid{}, {tag(0, 5), tag(1, 6), tag(0, 6 + second)});
    FAIL();
  } catch (const orvo::timing::Error& error) {
    EXPECT_THAT(error.what(), HasSubstr("channel 0 is silent for 1000000000001 ps"));
  }
}

}  // namespace
