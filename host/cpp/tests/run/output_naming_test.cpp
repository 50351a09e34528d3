// Where reports go without a configured prefix: a directory named after the local time, with files named after
// capture and channels.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>

#include <filesystem>
#include <string>

#include "support/product_root.hpp"
#include "support/verify_captures.hpp"

namespace {

using namespace orvo::test;

class OutputNaming : public ProductRoot {
 protected:
  // The file name part of the prefix announced for an input of that name.
  std::string base_name(const std::string& input, const std::string& a = "0", const std::string& b = "1") {
    const ProgramResult result = verify({input, a, b});
    const auto from = result.out.find("\nOutput: ");
    const auto to = result.out.rfind(".[csv|json|svg]\n");
    if (from == result.out.npos || to == result.out.npos) return "no output line";
    return fs::path(result.out.substr(from + 9, to - from - 9)).filename().string();
  }
};

TEST_F(OutputNaming, TheRunDirectoryLiesInTheOutputRoot) {
  write_file(cwd() / "run 07.tagcap", pairs_capture());
  const ProgramResult result = verify({"run 07.tagcap", "2", "0", "--range=500", "--bin=10", "--offset=-1200"});
  const fs::path prefix = run_directory() / "run_07_xcorr_ch2_ch0";
  const Reports reports = golden("pairs", cwd() / "run 07.tagcap", prefix, result.out);
  EXPECT_EQ(seen(result),
            seen(0, announcement(cwd() / "run 07.tagcap", prefix) + closing_lines(reports.summary), ""));
  const std::string place = "product/logs/verification/stream_file_xcorr";
  EXPECT_EQ(files(), (FileTree{{"cwd/run 07.tagcap", read_file(cwd() / "run 07.tagcap")}} +
                      reports_under(place + "/STAMP/run_07_xcorr_ch2_ch0", reports) + latest_files(place, reports)));
}

TEST_F(OutputNaming, TheTimeStampIsTheLocalTime) {
  const auto stamp = [](time_t at) {
    tm utc = {};
    ::gmtime_r(&at, &utc);
    char text[32];
    ::strftime(text, sizeof text, "%Y%m%d_%H%M%S", &utc);
    return std::string(text);
  };
  constexpr time_t kAhead = 13 * 3600 + 45 * 60;
  const time_t before = ::time(nullptr);
  run({.arguments = {"none"}, .environment = {{"TZ", "AAA-13:45"}}});  // 13 h 45 min ahead of UTC
  const time_t after = ::time(nullptr);
  const std::string found = run_directory().filename().string();
  EXPECT_LE(stamp(before + kAhead), found);
  EXPECT_GE(stamp(after + kAhead), found);
}

TEST_F(OutputNaming, TheDirectoryIsMadeEvenIfTheRunFails) {
  EXPECT_EQ(verify({"none"}).exit_status, 1);
  run_directory();
  EXPECT_THAT(names(files()), testing::ElementsAre("product/logs/verification/stream_file_xcorr/STAMP/"));
}

TEST_F(OutputNaming, AConfiguredPrefixMakesNoRunDirectory) {
  EXPECT_EQ(verify({"none", "--out-prefix=a/o"}).exit_status, 1);
  EXPECT_EQ(files(), FileTree{});
}

TEST_F(OutputNaming, TheBaseNameIsTheStemMadeSafe) {
  EXPECT_EQ(base_name("run_07.tagcap"), "run_07_xcorr_ch0_ch1");
  EXPECT_EQ(base_name("capture.b2.tagcap"), "capture_b2_xcorr_ch0_ch1");
  EXPECT_EQ(base_name("Az09_-.x"), "Az09_-_xcorr_ch0_ch1");
  EXPECT_EQ(base_name("a b+c#(d)~e,f:g.tagcap"), "a_b_c__d__e_f_g_xcorr_ch0_ch1");
  EXPECT_EQ(base_name("noextension"), "noextension_xcorr_ch0_ch1");
  EXPECT_EQ(base_name("dir.d/x.y"), "x_xcorr_ch0_ch1");
}

TEST_F(OutputNaming, EveryByteAbove127BecomesOneUnderscore) {
  EXPECT_EQ(base_name("caf\xC3\xA9.tagcap"), "caf___xcorr_ch0_ch1");
  EXPECT_EQ(base_name("\xFF\x80z.tagcap"), "__z_xcorr_ch0_ch1");
}

TEST_F(OutputNaming, NamesOfDotsFollowTheRuleOfTheStem) {
  EXPECT_EQ(base_name(".tagcap"), "_tagcap_xcorr_ch0_ch1");
  EXPECT_EQ(base_name("..tagcap"), "__xcorr_ch0_ch1");
  EXPECT_EQ(base_name("x."), "x_xcorr_ch0_ch1");
  EXPECT_EQ(base_name("."), "__xcorr_ch0_ch1");
  EXPECT_EQ(base_name(".."), "___xcorr_ch0_ch1");
}

TEST_F(OutputNaming, AnEmptyFileNameBecomesStreamFile) {
  EXPECT_EQ(base_name("somewhere/"), "stream_file_xcorr_ch0_ch1");
  EXPECT_EQ(base_name(""), "stream_file_xcorr_ch0_ch1");
}

TEST_F(OutputNaming, ChannelsStandAsConfigured) {
  EXPECT_EQ(base_name("c.tagcap", "3", "0"), "c_xcorr_ch3_ch0");
}

TEST_F(OutputNaming, TheOutputRootDoesNotMoveWithTheCurrentDirectory) {
  fs::create_directory(cwd() / "sub");
  run({.arguments = {"none"}, .directory = cwd() / "sub"});
  EXPECT_EQ(names(file_tree(cwd())), std::vector<std::string>{"sub/"});
  EXPECT_TRUE(fs::is_directory(run_directory()));
}

}  // namespace
