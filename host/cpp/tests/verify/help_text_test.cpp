#include "verify/help_text.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

bool asks_for_help(std::vector<const char*> arguments) {
  arguments.insert(arguments.begin(), "tool");
  return help_requested(static_cast<int>(arguments.size()), arguments.data());
}

TEST(HelpText, IsTheseTwentyTwoLines) {
  const std::string expected =
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
  EXPECT_EQ(expected.size(), 666u);
  EXPECT_EQ(kHelpText, expected);
}

TEST(HelpRequest, IsAnyOfFourWords) {
  for (const char* word : {"--help", "-h", "/?", "-?"}) EXPECT_TRUE(asks_for_help({word})) << word;
}

TEST(HelpRequest, MayStandAnywhere) {
  EXPECT_TRUE(asks_for_help({"x.tagcap", "abc", "--range", "--help"}));
  EXPECT_TRUE(asks_for_help({"-h", "--range=abc"}));
}

TEST(HelpRequest, IsComparedAsAWholeWord) {
  for (const char* word : {"--Help", "--help=", "--helpme", "help", "-help", "-H", "h", "?", "/h", "-h ", ""}) {
    EXPECT_FALSE(asks_for_help({word})) << word;
  }
  EXPECT_FALSE(asks_for_help({}));
}

TEST(HelpRequest, LeavesTheProgramsOwnNameOut) {
  const char* const argv[] = {"--help"};
  EXPECT_FALSE(help_requested(1, argv));
  EXPECT_FALSE(help_requested(0, argv));
}

}  // namespace
