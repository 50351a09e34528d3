#include "verify/run.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "support/bytes.hpp"
#include "support/tool_surroundings.hpp"

namespace {

using namespace orvo::test;
namespace fs = std::filesystem;
using testing::EndsWith;
using testing::StartsWith;

class Run : public ToolSurroundings {
 protected:
  int start(std::vector<std::string> words) {
    words.insert(words.begin(), "/nowhere/tool");
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    std::ostringstream out;
    std::ostringstream err;
    const int status = run(static_cast<int>(words.size()), argv.data(), out, err);
    out_ = out.str();
    err_ = err.str();
    return status;
  }
  std::string in_cwd(const char* name) const { return (cwd() / name).string(); }

  std::string out_;
  std::string err_;
};

TEST_F(Run, HelpIsPrintedBeforeAnythingElseHappens) {
  write_file(cwd() / "vq_verify_stream_file_xcorr.ini", "range_ps=abc");
  EXPECT_EQ(start({"x.tagcap", "abc", "-?"}), 0);
  EXPECT_EQ(out_.size(), 666u);
  EXPECT_EQ(err_, "");
}

TEST_F(Run, HelpIsNotAskedForWithoutAnyWord) {
  const char* const argv[] = {"--help"};
  EXPECT_FALSE(help_requested(0, argv));
}

TEST_F(Run, VerifiesASyntheticCaptureWhenThereIsNoOther) {
  const std::string synthetic = in_cwd("VRN-B/logs/stream_file_verify/verification/synthetic_raw64_xcorr.tagcap");
  EXPECT_EQ(start({"--out-prefix=o"}), 0);
  EXPECT_THAT(out_,
              StartsWith("No stream capture found; generated synthetic verification file:\n  " + synthetic +
                         "\nInput:  " + synthetic + "\nOutput: " + in_cwd("o") + ".[csv|json|svg]\nOrvo timing "));
  EXPECT_THAT(out_, EndsWith("\nlatest_summary=" + (output_root_of_tests() / "latest_summary.txt").string() + "\n"));
  EXPECT_EQ(err_, "");
  EXPECT_EQ(start({"--out-prefix=o"}), 0);
  EXPECT_THAT(out_, StartsWith("Input:  " + synthetic + "\nOutput: "));
}

TEST_F(Run, BadSettingsEndWith64AfterTheInputWasChosen) {
  write_file(cwd() / "vq_verify_stream_file_xcorr.ini", "channel_a=2\nchannel_b=2\n");
  EXPECT_EQ(start({}), 64);
  EXPECT_THAT(out_, StartsWith("No stream capture found; generated synthetic verification file:\n  "));
  EXPECT_THAT(out_, EndsWith("synthetic_raw64_xcorr.tagcap\n"));
  EXPECT_EQ(err_, "channels must be distinct and in 0..3\n");
  EXPECT_FALSE(fs::exists(product_root_of_tests()));
}

TEST_F(Run, ABadNumberEndsWith1AndTheConversionsName) {
  EXPECT_EQ(start({"--range=abc"}), 1);
  EXPECT_EQ(out_, "");
  EXPECT_EQ(err_, "stoll\n");
}

TEST_F(Run, AMissingInputFailsAfterTheAnnouncements) {
  write_file(cwd() / "vq_verify_stream_file_xcorr.ini", "input_file=none.tagcap\noutput_prefix=o\n");
  EXPECT_EQ(start({}), 1);
  EXPECT_EQ(out_, "Config: " + in_cwd("vq_verify_stream_file_xcorr.ini") + "\nInput:  " + in_cwd("none.tagcap") +
                      "\nOutput: " + in_cwd("o") + ".[csv|json|svg]\n");
  EXPECT_EQ(err_, "StreamFileReader: cannot open " + in_cwd("none.tagcap") + "\n");
}

TEST_F(Run, ACommandLineInputIsRelativeToTheSettingsFile) {
  const fs::path settings = product_root_of_tests() / "host/cpp/verification/vq_verify_stream_file_xcorr.ini";
  write_file(settings, "range_ps=12");
  write_file(settings.parent_path() / "in.tagcap", capture_bytes(R"({"stream_format":"raw64"})", ps_record(0, 1)));
  EXPECT_EQ(start({"in.tagcap", "--out-prefix", "o"}), 0);
  EXPECT_THAT(out_, StartsWith("Config: " + settings.string() +
                               "\nInput:  " + (settings.parent_path() / "in.tagcap").string() + "\n"));
  EXPECT_TRUE(fs::exists(settings.parent_path() / "o.csv"));
}

TEST_F(Run, AFailureOfTheStandardLibraryEndsWith1AndItsText) {
  write_file(cwd() / "in.tagcap", capture_bytes(R"({"stream_format":"raw64"})", ps_record(0, 1)));
  EXPECT_EQ(start({"in.tagcap", "--out-prefix=o", "--range=9223372036854775807", "--bin=1"}), 1);
  EXPECT_EQ(err_, "vector::reserve\n");
  EXPECT_FALSE(fs::exists(cwd() / "o.csv"));
}

}  // namespace
