#include "verify/directories.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "support/tool_surroundings.hpp"

namespace {

using testing::ElementsAre;

class Directories : public orvo::test::ToolSurroundings {};

TEST_F(Directories, OutputRootLiesBelowTheSourceRootsGrandparent) {
  EXPECT_EQ(source_root(), std::filesystem::path(ORVO_SOURCE_ROOT));
  EXPECT_EQ(verification_output_root(), product_root_of_tests() / "logs/verification/stream_file_xcorr");
}

TEST_F(Directories, OutputRootIsOnlyComputed) {
  const std::filesystem::path before = verification_output_root();
  std::filesystem::current_path("/");
  EXPECT_EQ(verification_output_root(), before);
  EXPECT_FALSE(std::filesystem::exists(product_root_of_tests()));
}

TEST_F(Directories, CapturesAreLookedForInThreePlaces) {
  EXPECT_THAT(capture_directories(),
              ElementsAre(cwd() / "VRN-B/logs/stream_file_verify", cwd() / "logs/stream_file_verify",
                          product_root_of_tests() / "logs/stream_file_verify"));
}

}  // namespace
