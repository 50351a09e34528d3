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

using OutputNaming = ProductRoot;

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

TEST_F(OutputNaming, TheOutputRootDoesNotMoveWithTheCurrentDirectory) {
  fs::create_directory(cwd() / "sub");
  run({.arguments = {"none"}, .directory = cwd() / "sub"});
  EXPECT_EQ(names(file_tree(cwd())), std::vector<std::string>{"sub/"});
  EXPECT_TRUE(fs::is_directory(run_directory()));
}

}  // namespace
