#include "verify/output_naming.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ctime>
#include <filesystem>
#include <string>

#include "support/failure.hpp"
#include "support/tool_surroundings.hpp"

namespace {

using namespace orvo::test;
namespace fs = std::filesystem;
using testing::MatchesRegex;

class OutputNaming : public ToolSurroundings {
 protected:
  static std::string name_for(const fs::path& input, int channel_a = 0, int channel_b = 1) {
    return default_output_prefix(input, channel_a, channel_b).filename().string();
  }
};

TEST_F(OutputNaming, NameIsTheStemAndTheChannelsInTheirOrder) {
  EXPECT_EQ(name_for("/data/run_07.tagcap"), "run_07_xcorr_ch0_ch1");
  EXPECT_EQ(name_for("/data/run_07.tagcap", 3, 0), "run_07_xcorr_ch3_ch0");
}

TEST_F(OutputNaming, OnlyTheLastExtensionIsTakenOff) {
  EXPECT_EQ(name_for("capture.b2.tagcap"), "capture_b2_xcorr_ch0_ch1");
  EXPECT_EQ(name_for("capture"), "capture_xcorr_ch0_ch1");
  EXPECT_EQ(name_for("capture."), "capture_xcorr_ch0_ch1");
  EXPECT_EQ(name_for(".tagcap"), "_tagcap_xcorr_ch0_ch1");
  EXPECT_EQ(name_for("..tagcap"), "__xcorr_ch0_ch1");
  EXPECT_EQ(name_for("/data/."), "__xcorr_ch0_ch1");
  EXPECT_EQ(name_for("/data/.."), "___xcorr_ch0_ch1");
}

TEST_F(OutputNaming, EveryByteButLettersDigitsUnderscoreAndDashBecomesAnUnderscore) {
  EXPECT_EQ(name_for("/data/run 07.tagcap"), "run_07_xcorr_ch0_ch1");
  EXPECT_EQ(name_for("Az09_-.tagcap"), "Az09_-_xcorr_ch0_ch1");
  EXPECT_EQ(name_for("a(b)+c@d~e.tagcap"), "a_b__c_d_e_xcorr_ch0_ch1");
  EXPECT_EQ(name_for("a#(d),f:g.tagcap"), "a__d__f_g_xcorr_ch0_ch1");
  EXPECT_EQ(name_for("\xC2\xB5s.tagcap"), "__s_xcorr_ch0_ch1");
  EXPECT_EQ(name_for("\xFF\x80z.tagcap"), "__z_xcorr_ch0_ch1");
  EXPECT_EQ(name_for("a\nb.tagcap"), "a_b_xcorr_ch0_ch1");
}

TEST_F(OutputNaming, AnEmptyStemIsCalledStreamFile) {
  EXPECT_EQ(name_for("/data/"), "stream_file_xcorr_ch0_ch1");
  EXPECT_EQ(name_for(""), "stream_file_xcorr_ch0_ch1");
  EXPECT_EQ(name_for("/"), "stream_file_xcorr_ch0_ch1");
}

TEST_F(OutputNaming, DirectoryIsAFreshTimeStampBelowTheOutputRoot) {
  const std::time_t before = std::time(nullptr);
  const fs::path directory = default_output_prefix("a.tagcap", 0, 1).parent_path();
  const std::time_t after = std::time(nullptr);
  EXPECT_EQ(directory.parent_path(), output_root_of_tests());
  EXPECT_TRUE(fs::is_directory(directory));
  EXPECT_TRUE(fs::is_empty(directory));
  const std::string stamp = directory.filename().string();
  ASSERT_THAT(stamp, MatchesRegex("[0-9]{8}_[0-9]{6}"));
  std::tm local{};
  ASSERT_NE(::strptime((stamp.substr(0, 8) + stamp.substr(9)).c_str(), "%Y%m%d%H%M%S", &local), nullptr);
  local.tm_isdst = -1;
  const std::time_t stamped = std::mktime(&local);
  EXPECT_LE(before, stamped);
  EXPECT_LE(stamped, after);
}

TEST_F(OutputNaming, AnExistingDirectoryIsFine) {
  const fs::path first = default_output_prefix("a", 0, 1);
  write_file(first, "kept");
  EXPECT_EQ(failure_of([] { default_output_prefix("a", 0, 1); }), "nothing thrown");
  EXPECT_EQ(read_file(first), "kept");
}

TEST_F(OutputNaming, ADirectoryThatCannotBeCreatedIsThrown) {
  write_file(product_root_of_tests() / "logs", "a file where the directory should be");
  EXPECT_EQ(failure_of([] { default_output_prefix("a", 0, 1); }), "filesystem_error");
}

}  // namespace
