// Sound captures of every encoding and mode, at rates at which the decoder gives every tag: nothing above a note.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/inspected_capture.hpp"
#include "support/sanitizer.hpp"

namespace {

using namespace orvo::test;
using testing::IsEmpty;

class SoundCaptures : public InspectedCapture {
 protected:
  void expect_healthy(const std::vector<std::string>& options) {
    for (const char* mode : {"internal", "external"}) {
      for (int seed = 1; seed <= (kUnderAddressSanitizer ? 1 : 5); ++seed) {
        std::vector<std::string> arguments = {"--tags", "30000", "--seed", std::to_string(seed), "--mode", mode};
        arguments.insert(arguments.end(), options.begin(), options.end());
        simulate(arguments, false);
        const Json found = report();
        EXPECT_THAT(codes(found, "SB"), IsEmpty()) << mode << " " << seed;
        EXPECT_EQ(found.at("verdict"), "healthy");
        EXPECT_EQ(found.at("tags"), 30'000);
      }
    }
  }
};

TEST_F(SoundCaptures, Raw64) {
  expect_healthy({});
  expect_healthy({"--rate", "2000", "--pair-rate", "500"});
}
TEST_F(SoundCaptures, Raw64WithCoarseAndFineTimes) {
  expect_healthy({"--tag-format", "raw_cf"});
}
TEST_F(SoundCaptures, Delta32) {
  expect_healthy({"--encoding", "delta32"});
  expect_healthy({"--encoding", "delta32", "--channels", "0,1,2,3", "--dead-time", "40ns"});
}
TEST_F(SoundCaptures, PackedDelta) {
  expect_healthy({"--encoding", "packed_delta"});
  expect_healthy({"--encoding", "packed_delta", "--delta-bits", "24", "--quantum-ps", "1"});
}

}  // namespace
