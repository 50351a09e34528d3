// The report files of a run, byte for byte, and the copies of the newest run.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "support/product_root.hpp"
#include "support/verify_captures.hpp"

namespace {

using namespace orvo::test;

const std::string kPlace = "product/logs/verification/stream_file_xcorr";

class ReportFiles : public ProductRoot {
 protected:
  // Verifies cwd/c.tagcap with reports under cwd/out/run, and expects exactly the golden reports and nothing else.
  void expect_golden(const std::string& name, const Bytes& capture, std::vector<std::string> options) {
    const fs::path input = cwd() / "c.tagcap";
    const fs::path prefix = cwd() / "out/run";
    write_file(input, capture);
    std::vector<std::string> arguments = {"c.tagcap"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    arguments.push_back("--out-prefix=out/run");
    const ProgramResult result = verify(arguments);
    const Reports reports = golden(name, input, prefix, result.out);
    EXPECT_EQ(seen(result), seen(0, announcement(input, prefix) + closing_lines(reports.summary), ""));
    EXPECT_EQ(files(), (FileTree{{"cwd/c.tagcap", read_file(input)}} + reports_under("cwd/out/run", reports) +
                        latest_files(kPlace, reports)));
  }
};

TEST_F(ReportFiles, ChannelsStandInTheOrderGivenAndTiesNameTheEarlierBin) {
  expect_golden("pairs", pairs_capture(), {"2", "0", "--range=500", "--bin=10", "--offset=-1200"});
}

TEST_F(ReportFiles, ACaptureWithoutTagsGivesReportsOfZeros) {
  expect_golden("no_tags", raw64_capture({}), {"0", "1", "--range=100", "--bin=100"});
}

TEST_F(ReportFiles, OneBinIsDrawnWithoutASpan) {
  Bytes payload;
  for (std::uint64_t t = 1000; t < 11'000; t += 1000) payload += ps_record(1, t + 52) + ps_record(0, t);
  const Bytes capture = capture_bytes(
      R"({"stream_format":"raw64","mode":"internal","stream_transport":"usb_async","raw64_tag_format":"ps"})",
      payload);
  expect_golden("one_bin", capture, {"--range=4", "--bin=8", "--offset=50"});
}

TEST_F(ReportFiles, BinsMayBeVastAsLongAsTheyAreFew) {
  expect_golden("vast", single_pair_capture(),
                {"--range=1000000000000000000", "--bin=100000000000000000", "--offset=300000000000000000"});
}

TEST_F(ReportFiles, TheSettingsFileIsNamedFirst) {
  write_file(cwd() / "c.tagcap", pairs_capture());
  write_settings("input_file=c.tagcap\noutput_prefix=o\nch_a=2\nch_b=0\nrange_ps=500\nbin_ps=10\noffset=-1200\n");
  const ProgramResult result = verify();
  const Reports reports = golden("pairs", cwd() / "c.tagcap", cwd() / "o", result.out);
  EXPECT_EQ(seen(result), seen(0,
                               "Config: " + (cwd() / kSettingsName).string() + "\n" +
                                   announcement(cwd() / "c.tagcap", cwd() / "o") + closing_lines(reports.summary),
                               ""));
}

TEST_F(ReportFiles, ASecondRunOverwritesTheReportsAndAllFiveLatestFiles) {
  write_file(cwd() / "long.tagcap", periodic_capture(50));
  EXPECT_EQ(verify({"long.tagcap", "--out-prefix=out/run"}).exit_status, 0);
  const FileTree first = files();
  fs::remove(cwd() / "long.tagcap");
  expect_golden("pairs", pairs_capture(), {"2", "0", "--range=500", "--bin=10", "--offset=-1200"});
  EXPECT_GT(first.at("cwd/out/run.csv").size(),
            read_file(cwd() / "out/run.csv").size());  // nothing longer is left over
}

TEST_F(ReportFiles, StaleLatestFilesAreReplaced) {
  for (const char* name : {"latest.csv", "latest.json", "latest.svg", "latest_summary.txt", "open_latest_plot.bat"}) {
    write_file(output_root() / name, std::string(100'000, 'x'));
  }
  expect_golden("pairs", pairs_capture(), {"2", "0", "--range=500", "--bin=10", "--offset=-1200"});
}

TEST_F(ReportFiles, OtherFilesInTheOutputRootAreLeftAlone) {
  write_file(output_root() / "notes.txt", std::string("mine"));
  write_file(cwd() / "out/run.txt", std::string("mine, too"));
  write_file(cwd() / "c.tagcap", single_pair_capture());
  EXPECT_EQ(verify({"c.tagcap", "--out-prefix=out/run"}).exit_status, 0);
  EXPECT_EQ(read_file(output_root() / "notes.txt"), "mine");
  EXPECT_EQ(read_file(cwd() / "out/run.txt"), "mine, too");
}

TEST_F(ReportFiles, APrefixNamedLatestInTheOutputRootKeepsItsFiles) {
  write_file(cwd() / "c.tagcap", pairs_capture());
  const fs::path prefix = output_root() / "latest";
  const ProgramResult result =
      verify({"c.tagcap", "2", "0", "--range=500", "--bin=10", "--offset=-1200", "--out-prefix=" + prefix.string()});
  const Reports reports = golden("pairs", cwd() / "c.tagcap", prefix, result.out);
  EXPECT_EQ(seen(result), seen(0, announcement(cwd() / "c.tagcap", prefix) + closing_lines(reports.summary), ""));
  EXPECT_EQ(file_tree(output_root(), kPlace + "/"),
            reports_under(kPlace + "/latest", reports) + latest_files(kPlace, reports));
}

TEST_F(ReportFiles, TheCaptureIsOnlyRead) {
  write_file(cwd() / "c.tagcap", pairs_capture());
  ASSERT_TRUE(set_modified(cwd() / "c.tagcap", 1'700'000'000, 123));
  fs::permissions(cwd() / "c.tagcap", fs::perms::owner_read);
  const std::string before = read_file(cwd() / "c.tagcap");
  EXPECT_EQ(verify({"c.tagcap", "--out-prefix=o"}).exit_status, 0);
  EXPECT_EQ(read_file(cwd() / "c.tagcap"), before);
  EXPECT_EQ(modified_ns(cwd() / "c.tagcap"), 1'700'000'000'000'000'123);
}

}  // namespace
