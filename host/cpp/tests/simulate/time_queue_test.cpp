#include "simulate/time_queue.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <queue>
#include <vector>

#include "simulate/random.hpp"

namespace {

TEST(TimeQueue, IsEmptyAtFirst) {
  EXPECT_EQ(TimeQueue().front(), TimeQueue::kNever);
}

TEST(TimeQueue, PutsALateComerWhereItBelongs) {
  TimeQueue queue;
  for (const std::int64_t time : {10, 30, 20, 5}) queue.push(time);
  for (const std::int64_t time : {5, 10, 20, 30}) {
    EXPECT_EQ(queue.front(), time);
    queue.pop();
  }
  EXPECT_EQ(queue.front(), TimeQueue::kNever);
}

TEST(TimeQueue, KeepsEqualTimes) {
  TimeQueue queue;
  for (int i = 0; i < 3; ++i) queue.push(7);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(queue.front(), 7);
    queue.pop();
  }
  EXPECT_EQ(queue.front(), TimeQueue::kNever);
}

// There is room for 64 at first.
TEST(TimeQueue, GrowsAmidItsRing) {
  TimeQueue queue;
  for (std::int64_t time = 0; time < 10; ++time) queue.push(time);
  for (int i = 0; i < 10; ++i) queue.pop();
  for (std::int64_t time = 100; time < 300; ++time) queue.push(time);
  for (std::int64_t time = 100; time < 300; ++time) {
    ASSERT_EQ(queue.front(), time);
    queue.pop();
  }
  EXPECT_EQ(queue.front(), TimeQueue::kNever);
}

TEST(TimeQueue, AgreesWithAPriorityQueueWhileItGrowsAndWraps) {
  Random random(1);
  TimeQueue queue;
  std::priority_queue<std::int64_t, std::vector<std::int64_t>, std::greater<>> plain;
  std::int64_t now = 0;
  for (int i = 0; i < 200'000; ++i) {
    const bool grows = (i / 5'000) % 2 == 0;
    if (random.below(3) < (grows ? 2u : 1u)) {
      now += static_cast<std::int64_t>(random.below(10));
      const std::int64_t time = now + static_cast<std::int64_t>(random.below(100));
      queue.push(time);
      plain.push(time);
    } else if (!plain.empty()) {
      ASSERT_EQ(queue.front(), plain.top());
      queue.pop();
      plain.pop();
    }
  }
}

}  // namespace
