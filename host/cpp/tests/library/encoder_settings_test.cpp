#include "orvo/timing/encoder_settings.hpp"

#include <gtest/gtest.h>

namespace {

using orvo::timing::Rounding;

TEST(Rounding, CountsTheTagsThatMovedAndTheFarthestMoveInEitherDirection) {
  Rounding rounding;
  rounding.add(100, 100);
  EXPECT_EQ(rounding.tags, 0u);
  EXPECT_EQ(rounding.largest_ps, 0);
  rounding.add(100, 103);
  EXPECT_EQ(rounding.largest_ps, 3);
  rounding.add(100, 91);
  EXPECT_EQ(rounding.largest_ps, 9);
  rounding.add(100, 92);
  EXPECT_EQ(rounding.largest_ps, 9);
  EXPECT_EQ(rounding.tags, 3u);
}

}  // namespace
