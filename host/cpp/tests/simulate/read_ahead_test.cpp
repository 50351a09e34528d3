#include "simulate/read_ahead.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>

#include "support/stream_feeding.hpp"

namespace {

using namespace orvo::test;
using testing::ElementsAre;

TEST(ReadAhead, HandsOutTheBlocksInOrder) {
  int made = 0;
  ReadAhead blocks([made](ReadAhead::Block& block) mutable {
    block = {tag(0, made)};
    return ++made < 1000;
  });
  ReadAhead::Block block;
  for (int i = 0; i < 1000; ++i) {
    ASSERT_TRUE(blocks.next(block));
    ASSERT_THAT(block, ElementsAre(tag(0, i)));
  }
  EXPECT_FALSE(blocks.next(block));
  EXPECT_FALSE(blocks.next(block));
}

TEST(ReadAhead, ThrowsWhatTheMakerThrewInItsPlace) {
  int made = 0;
  ReadAhead blocks([made](ReadAhead::Block&) mutable -> bool {
    if (++made == 3) throw std::runtime_error("the third");
    return true;
  });
  ReadAhead::Block block;
  EXPECT_TRUE(blocks.next(block));
  EXPECT_TRUE(blocks.next(block));
  EXPECT_THROW(blocks.next(block), std::runtime_error);
}

TEST(ReadAhead, MakesOnlyAFewBlocksThatNobodyAsksFor) {
  std::atomic<int> made = 0;
  {
    ReadAhead blocks([&made](ReadAhead::Block&) {
      ++made;
      return true;
    });
    ReadAhead::Block block;
    EXPECT_TRUE(blocks.next(block));
  }
  EXPECT_LE(made, 3);
}

}  // namespace
