// The help request: any help word, anywhere, before everything else.
#include <gtest/gtest.h>

#include <string>

#include "support/product_root.hpp"

namespace {

using namespace orvo::test;
using Help = ProductRoot;

const std::string kHelp =
    "vq_verify_stream_file_xcorr\n"
    "\n"
    "Run with no command-line arguments. The executable reads\n"
    "vq_verify_stream_file_xcorr.ini if present next to the executable or in the\n"
    "current directory. If no input file is configured, it uses the newest .tagcap\n"
    "file under VRN-B/logs/stream_file_verify. If none exists, it creates a small\n"
    "synthetic stream capture and verifies that path instead.\n"
    "\n"
    "Outputs:\n"
    "  <prefix>.csv   histogram bins\n"
    "  <prefix>.json  summary, counts, moment fit\n"
    "  <prefix>.svg   dependency-free plot\n"
    "\n"
    "Config keys:\n"
    "  input_file=path/to/file.tagcap\n"
    "  output_prefix=path/to/output_prefix\n"
    "  channel_a=0\n"
    "  channel_b=1\n"
    "  range_ps=5000\n"
    "  bin_ps=8\n"
    "  offset=auto\n"
    "  max_tags=0\n";

TEST_F(Help, Is666BytesIn22Lines) {
  const ProgramResult result = verify({"--help"});
  EXPECT_EQ(result.out.size(), 666U);
  EXPECT_EQ(std::count(result.out.begin(), result.out.end(), '\n'), 22);
  EXPECT_EQ(seen(result), seen(0, kHelp, ""));
}

TEST_F(Help, AnswersEachOfTheFourWordsAndLeavesNothingBehind) {
  for (const char* word : {"--help", "-h", "/?", "-?"}) {
    EXPECT_EQ(seen(verify({word})), seen(0, kHelp, "")) << word;
  }
  EXPECT_EQ(files(), FileTree{});
}

TEST_F(Help, ComesBeforeInvalidArgumentsAndInvalidSettings) {
  write_settings("range_ps=abc\n");
  EXPECT_EQ(seen(verify({"--range", "abc", "nowhere.tagcap", "9", "9", "-h"})), seen(0, kHelp, ""));
}

TEST_F(Help, IsFoundWhereAFlagWouldHaveItsValue) {
  EXPECT_EQ(seen(verify({"--bin", "-?"})), seen(0, kHelp, ""));
  EXPECT_EQ(seen(verify({"--", "/?"})), seen(0, kHelp, ""));
}

TEST_F(Help, IsNotAskedForByAnyOtherWord) {
  write_settings("range_ps=abc\n");
  for (const char* word : {"--HELP", "--Help", "-H", "--help=1", "--help=", "--helpme", "-help", "--help ", "-h ",
                           "?", "/h", "h", "help", ""}) {
    EXPECT_EQ(seen(verify({word})), seen(1, "", "stoll\n")) << word;
  }
}

TEST_F(Help, IsNotAskedForByTheProgramsOwnName) {
  write_settings("range_ps=abc\n");
  EXPECT_EQ(seen(run({.argv0 = "--help"})), seen(1, "", "stoll\n"));
}

TEST_F(Help, IsGivenInARemovedDirectory) {
  EXPECT_EQ(seen(shell(R"(mkdir gone && cd gone && rmdir ../gone && exec "$0" -h)")), seen(0, kHelp, ""));
}

}  // namespace
