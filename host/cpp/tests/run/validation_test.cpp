// Settings that are numbers but make no sense: their own messages, exit status 64, after the input was chosen.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/product_root.hpp"
#include "support/verify_captures.hpp"

namespace {

using namespace orvo::test;

const std::string kChannels = "channels must be distinct and in 0..3\n";
const std::string kWidths = "range_ps and bin_ps must be positive\n";

class Validation : public ProductRoot {
 protected:
  std::string failure(const std::vector<std::string>& arguments) { return seen(verify(arguments)); }
};

TEST_F(Validation, ChannelsMustBeDistinctAndInRange) {
  const std::vector<std::vector<std::string>> wrong = {{"x", "2", "2"},   {"x", "0", "4"},
                                                       {"x", "4", "0"},   {"x", "-1", "1"},
                                                       {"x", "0", "-1"},  {"x", "1"},  // channel B is 1 unless set
                                                       {"x", "256", "1"}, {"x", "2147483647", "-2147483648"}};
  for (const auto& arguments : wrong) EXPECT_EQ(failure(arguments), seen(64, "", kChannels)) << arguments[1];
  EXPECT_EQ(files(), FileTree{});
}

TEST_F(Validation, WidthsMustBePositive) {
  for (const char* flag : {"--range=0", "--bin=0", "--range=-1", "--bin=-8", "--range=-9223372036854775808"}) {
    EXPECT_EQ(failure({"x", flag}), seen(64, "", kWidths)) << flag;
  }
  EXPECT_EQ(failure({"x", "--range=0", "--bin=0"}), seen(64, "", kWidths));
  EXPECT_EQ(files(), FileTree{});
}

TEST_F(Validation, ChannelsAreLookedAtFirst) {
  EXPECT_EQ(failure({"x", "7", "7", "--range=0", "--bin=0"}), seen(64, "", kChannels));
}

TEST_F(Validation, TheSettingsFileIsValidatedAsWellAndNotAnnounced) {
  write_settings("channel_a=2\nchannel_b=2\n");
  EXPECT_EQ(failure({"x"}), seen(64, "", kChannels));
  write_settings("bin_ps=0\n");
  EXPECT_EQ(failure({"x"}), seen(64, "", kWidths));
}

TEST_F(Validation, NeitherTheInputNorTheOffsetNorThePrefixIsLookedAtBefore) {
  fs::create_directory(cwd() / "o.csv");
  EXPECT_EQ(failure({"no/such/file", "1", "1", "--offset=x", "--out-prefix=o"}), seen(64, "", kChannels));
}

TEST_F(Validation, ComesAfterTheSearchWhichMayGenerateACapture) {
  write_settings("channel_b=7\n");
  const std::string synthetic = "VRN-B/logs/stream_file_verify/verification/synthetic_raw64_xcorr.tagcap";
  EXPECT_EQ(failure({}), seen(64,
                              "No stream capture found; generated synthetic verification file:\n  " +
                                  (cwd() / synthetic).string() + "\n",
                              kChannels));
  EXPECT_EQ(names(files()), (std::vector<std::string>{"cwd/" + synthetic, std::string("cwd/") + kSettingsName}));
  // Now a capture is found, and nothing is printed about it.
  EXPECT_EQ(failure({}), seen(64, "", kChannels));
  EXPECT_EQ(failure({"--bin=0"}), seen(64, "", kChannels));
}

TEST_F(Validation, TheEndsOfTheAllowedRangesPass) {
  write_file(cwd() / "c.tagcap", single_pair_capture());
  EXPECT_EQ(verify({"c.tagcap", "3", "0", "--range=1", "--bin=1", "--out-prefix=o"}).exit_status, 0);
  EXPECT_EQ(verify({"c.tagcap", "0", "3", "--range=1", "--bin=1", "--out-prefix=o"}).exit_status, 0);
}

}  // namespace
