#include "orvo/timing/stream_file_layout.hpp"

#include <gtest/gtest.h>

#include <string_view>

namespace {

TEST(StreamFileLayout, MagicIsSevenCharactersAndALineFeed) {
  const std::string_view magic = orvo::timing::kStreamFileMagic;
  EXPECT_EQ(magic, std::string_view("\x54\x41\x47\x43\x41\x50\x31\x0A", 8));
}

}  // namespace
