#include "orvo/timing/byte_queue.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <list>
#include <utility>

#include "support/bytes.hpp"
#include "support/random.hpp"

namespace {

using orvo::test::Bytes;
using orvo::timing::ByteQueue;
using testing::ElementsAre;

ByteQueue queue_of(const Bytes& bytes) {
  ByteQueue queue;
  queue = bytes;
  return queue;
}

TEST(ByteQueue, StartsEmpty) {
  const ByteQueue queue;
  EXPECT_TRUE(queue.empty());
  EXPECT_EQ(queue.size(), 0u);
  EXPECT_EQ(queue.begin(), queue.end());
}

TEST(ByteQueue, IsFilledAndReadLikeAVectorOfBytes) {
  const Bytes four = {1, 2, 3, 4};
  ByteQueue queue;
  queue.assign(four.begin(), four.end());
  queue.push_back(5);
  EXPECT_EQ(*queue.insert(queue.end(), four.begin() + 1, four.begin() + 3), 2);
  EXPECT_THAT(queue, ElementsAre(1, 2, 3, 4, 5, 2, 3));
  EXPECT_EQ(queue.front(), 1);
  EXPECT_EQ(queue.back(), 3);
  EXPECT_EQ(queue[4], 5);
  queue = four;
  EXPECT_EQ(queue, four);
  queue = {9, 8};
  EXPECT_THAT(queue, ElementsAre(9, 8));
  queue = {};
  EXPECT_TRUE(queue.empty());
  queue.assign(3, 7);
  EXPECT_THAT(queue, ElementsAre(7, 7, 7));
}

TEST(ByteQueue, TakesRangesOfOtherContainersAndOtherIntegers) {
  const std::list<std::uint8_t> scattered = {1, 2};
  const std::array<int, 2> wide = {3, 0x104};
  ByteQueue queue;
  queue.insert(queue.end(), scattered.begin(), scattered.end());
  queue.insert(queue.end(), wide.begin(), wide.end());
  EXPECT_THAT(queue, ElementsAre(1, 2, 3, 4));
}

TEST(ByteQueue, ComparesContentAndNotPlace) {
  ByteQueue moved_on = queue_of({9, 9, 1, 2});
  moved_on.consume(2);
  EXPECT_EQ(moved_on, queue_of({1, 2}));
  EXPECT_NE(moved_on, queue_of({1, 3}));
  EXPECT_NE(moved_on, queue_of({1, 2, 3}));
  EXPECT_NE(moved_on, (Bytes{9, 9}));
}

TEST(ByteQueue, ACopyIsIndependent) {
  ByteQueue queue = queue_of({1, 2, 3});
  queue.consume(1);
  ByteQueue copy = queue;
  copy.push_back(4);
  EXPECT_THAT(queue, ElementsAre(2, 3));
  EXPECT_THAT(copy, ElementsAre(2, 3, 4));
}

TEST(ByteQueue, MovingTakesTheConsumedFrontAlong) {
  ByteQueue queue = queue_of({1, 2, 3});
  queue.consume(2);
  const ByteQueue moved = std::move(queue);
  EXPECT_THAT(moved, ElementsAre(3));
  ByteQueue assigned = queue_of({7});
  assigned = ByteQueue(moved);
  EXPECT_THAT(assigned, ElementsAre(3));
}

TEST(ByteQueue, IsWhatAVectorErasedAtTheFrontIs) {
  orvo::test::Random random(1);
  ByteQueue queue;
  Bytes model;
  for (int step = 0; step < 20'000; ++step) {
    if (random.below(2) == 0) {
      const Bytes more = random.bytes(random.below(300));
      queue.append(more.data(), more.size());
      model.insert(model.end(), more.begin(), more.end());
    } else {
      const auto count = static_cast<std::size_t>(random.below(model.size() + 1));
      queue.consume(count);
      model.erase(model.begin(), model.begin() + static_cast<std::ptrdiff_t>(count));
    }
    ASSERT_EQ(queue, model) << step;
  }
}

}  // namespace
