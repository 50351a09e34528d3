// vq_inspect_stream_file from outside: options, messages, statuses, and where reports go.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "support/inspected_capture.hpp"

namespace {

using namespace orvo::test;
using testing::HasSubstr;
using testing::StartsWith;

class InspectOptions : public InspectedCapture {
 protected:
  InspectOptions() {
    write({{0, 10}, {0, 25}, {1, 30}, {0, 45}});
    write_file(directory() / "cut.tagcap",
               capture_bytes(made_header(), raw64_payload({{0, 10}, {1, 25}}) + Bytes(3, 0)));
  }
  void expect(std::vector<std::string> arguments, int status, const std::string& out, const std::string& err) {
    const ProgramResult result = inspector(std::move(arguments));
    EXPECT_EQ(result.exit_status, status);
    EXPECT_EQ(result.out, out);
    EXPECT_EQ(result.err, err);
  }
};

TEST_F(InspectOptions, OneCaptureIsReportedInFull) {
  const ProgramResult result = inspector({"c.tagcap"});
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.out,
            "c.tagcap: healthy\n"
            "  nothing to report\n"
            "\n"
            "File, 407 bytes (407 B)\n"
            "  encoding  raw64, tag format ps; external, usb, channel mask 3\n"
            "  created   1970-01-01T00:00:00.000000Z\n"
            "  program   a\n"
            "  device    b\n"
            "  serial    c\n"
            "  port      d\n"
            "\n"
            "Payload, 32 bytes (32 B)\n"
            "  class    bytes  share\n"
            "  records     32  100 %\n"
            "\n"
            "Tags, 4 in 35.0 ps (35 ps), from 10 to 45 ps\n"
            "  channel  tags      rate  shortest step     mean  longest  grid  steps back  equal times\n"
            "  0           3  85.7 GHz        15.0 ps  17.5 ps  20.0 ps  5 ps           0            0\n"
            "  1           1  28.6 GHz              -        -        -  0 ps           0            0\n");
}

TEST_F(InspectOptions, SeveralCapturesHaveALineEach) {
  expect({"c.tagcap", "cut.tagcap"}, 0,
         "healthy  4 tags  35.0 ps  407 B  c.tagcap\n"
         "suspect  2 tags  15.0 ps  394 B  cut.tagcap\n"
         "  suspect cut_record  the last record is cut: 3 bytes of it are there; the writer was ended or the copy is "
         "not "
         "complete\n",
         "");
}

TEST_F(InspectOptions, StrictnessShowsInTheStatus) {
  expect({"--strict", "--quiet", "c.tagcap"}, 0, "", "");
  expect({"--strict", "--quiet", "cut.tagcap"}, 2, "", "");
  expect({"--quiet", "cut.tagcap"}, 0, "", "");
}

TEST_F(InspectOptions, WhatCannotBeReadIsTold) {
  write_file(directory() / "short", std::string_view("TAGCAP"));
  write_file(directory() / "other", std::string_view("something else"));
  write_file(directory() / "header", std::string_view("TAGCAP1\n\1"));
  write_file(directory() / "within", capture_bytes("{}", {}).size() == 14
                                         ? std::string_view("TAGCAP1\n\x05\0\0\0{}", 14)
                                         : std::string_view());
  expect({"--quiet", "none"}, 1, "", "cannot open none: No such file or directory\n");
  expect({"--quiet", "."}, 1, "", "cannot read .: Is a directory\n");
  expect({"--quiet", "short"}, 1, "", "short: too short for a capture\n");
  expect({"--quiet", "other"}, 1, "", "other: not a capture, it starts with other bytes\n");
  expect({"--quiet", "header"}, 1, "", "header: ends before its header\n");
  expect({"--quiet", "within"}, 1, "", "within: ends within its header\n");
  expect({"--strict", "none", "cut.tagcap"}, 1,
         "suspect  2 tags  15.0 ps  394 B  cut.tagcap\n"
         "  suspect cut_record  the last record is cut: 3 bytes of it are there; the writer was ended or the copy is "
         "not "
         "complete\n",
         "cannot open none: No such file or directory\n");
}

TEST_F(InspectOptions, JsonOnStandardOutputStandsAlone) {
  const ProgramResult result = inspector({"--json", "-", "c.tagcap"});
  EXPECT_EQ(result.exit_status, 0);
  const Json report = Json::parse(result.out);
  EXPECT_EQ(report.at("tags"), 4);
  EXPECT_EQ(report.at("file").at("path"), "c.tagcap");
}

// Every report of these tests is held to the schema; this one shows that a report can fail.
TEST_F(InspectOptions, JsonHoldsToThePublishedSchema) {
  if (!can_check_schema()) GTEST_SKIP() << "no python3 with the module jsonschema was found";
  Json report = this->report();
  const std::string changed = (directory() / "changed.json").string();
  write_file(changed, report.dump());
  EXPECT_EQ(checked_against_schema({changed}).exit_status, 0);
  report.at("channels").erase(3);
  write_file(changed, report.dump());
  EXPECT_EQ(checked_against_schema({changed}).exit_status, 1);
}

TEST_F(InspectOptions, JsonOfSeveralCapturesIsAnArrayOfThoseThatCouldBeRead) {
  expect({"--quiet", "--json", "r.json", "c.tagcap", "none", "cut.tagcap"}, 1, "",
         "cannot open none: No such file or directory\n");
  const Json reports = Json::parse(read_file(directory() / "r.json"));
  ASSERT_EQ(reports.size(), 2u);
  EXPECT_EQ(reports.at(1).at("verdict"), "suspect");
  expect({"--quiet", "--json", "r.json", "none", "none"}, 1, "",
         "cannot open none: No such file or directory\ncannot open none: No such file or directory\n");
  EXPECT_EQ(Json::parse(read_file(directory() / "r.json")), Json::array());
}

// 131 073 tags of 8 bytes: one more than are read at once.
TEST_F(InspectOptions, JsonTellsThePayloadsOfTheFileAndOfWhatWasRead) {
  write(std::vector<MadeTag>(131'073));
  const Json report = this->report({"--max-tags=1"});
  EXPECT_EQ(report.at("file").at("payload_bytes"), 1'048'584);
  EXPECT_EQ(report.at("payload").at("bytes"), 1'048'576);
}

TEST_F(InspectOptions, ThePagePlotsTimesFromTheFirstTagOn) {
  write({{0, 5'000'000'000'000}, {0, 5'000'000'000'100}});
  expect({"--quiet", "--html", "p.html", "c.tagcap"}, 0, "", "");
  const std::string page = read_file(directory() / "p.html");
  const std::string begin = "<script type=\"application/json\" id=\"report\">";
  const auto from = page.find(begin) + begin.size();
  const Json rates = Json::parse(page.substr(from, page.find("</script>", from) - from)).at("rates");
  EXPECT_EQ(rates.at("start_s"), 0.0);
  EXPECT_EQ(rates.at("slice_s"), 1e-12);
  EXPECT_EQ(rates.at("counts").at(0).size(), 101u);
}

TEST_F(InspectOptions, AReportThatCannotBeWrittenIsAFailure) {
  expect({"--quiet", "--json", "no/where.json", "c.tagcap"}, 1, "", "cannot create no/where.json\n");
  expect({"--quiet", "--json", ".", "c.tagcap"}, 1, "", ". is not an ordinary file\n");
  expect({"--quiet", "--json", "n.json", "none"}, 1, "", "cannot open none: No such file or directory\n");
  EXPECT_FALSE(std::filesystem::exists(directory() / "n.json"));
  const std::string full = "exec " ORVO_TEST_INSPECTOR " c.tagcap > /dev/full";
  const ProgramResult result = run_program({.program = "/bin/sh",
                                            .arguments = {"-c", full},
                                            .directory = directory().path(),
                                            .argv0 = {},
                                            .environment = {}});
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.err, "cannot write to standard output\n");
}

TEST_F(InspectOptions, StandardInputIsACapture) {
  const std::string pipe = "cat c.tagcap | " ORVO_TEST_INSPECTOR " --json - -";
  const ProgramResult result = run_program({.program = "/bin/sh",
                                            .arguments = {"-c", pipe},
                                            .directory = directory().path(),
                                            .argv0 = {},
                                            .environment = {}});
  EXPECT_EQ(result.exit_status, 0);
  const Json report = Json::parse(result.out);
  EXPECT_EQ(report.at("file").at("path"), "-");
  EXPECT_EQ(report.at("file").at("bytes"), 407);
  EXPECT_EQ(report.at("tags"), 4);
}

TEST_F(InspectOptions, OnlyTheFirstTagsWhereThatIsAsked) {
  const Json first = report({"--max-tags", "2"});
  EXPECT_EQ(first.at("tags"), 2);
  EXPECT_EQ(first.at("time").at("last_ps"), 25);
  EXPECT_EQ(first.at("file").at("bytes"), 407);
  EXPECT_EQ(report({"--max-tags", "0"}).at("tags"), 4);
  EXPECT_EQ(report({"--max-tags=4"}).at("tags"), 4);
}

TEST_F(InspectOptions, UnusableOnesAreRefused) {
  expect({}, 64, "", "CAPTURE is required\n");
  expect({"--what", "c.tagcap"}, 64, "", "unknown option --what (--help lists the options)\n");
  expect({"--json"}, 64, "", "--json: no value given\n");
  expect({"--max-tags", "x", "c.tagcap"}, 64, "",
         "--max-tags: 'x' is not a whole number from 0 to 18446744073709551615\n");
  expect({"--max-tags", "1", "--max-tags", "2", "c.tagcap"}, 64, "", "--max-tags: given twice\n");
  expect({"-", "-"}, 64, "", "CAPTURE: standard input (-) can be inspected once\n");
}

TEST_F(InspectOptions, HelpAndVersion) {
  const ProgramResult help = inspector({"--help"});
  EXPECT_EQ(help.exit_status, 0);
  EXPECT_THAT(help.out, HasSubstr("--max-tags N"));
  EXPECT_THAT(help.out, HasSubstr("Exit status: 0 all captures were read"));
  const ProgramResult version = inspector({"--version"});
  EXPECT_EQ(version.exit_status, 0);
  EXPECT_THAT(version.out, StartsWith("vq_inspect_stream_file "));
}

TEST_F(InspectOptions, ForeignTextCannotDisturbATerminal) {
  std::string header = made_header();
  header.replace(header.find("\"a\""), 3, "\"\x1b[31m\xff\"");
  write(header, raw64_payload({{0, 10}}));
  const ProgramResult result = inspector({"c.tagcap"});
  EXPECT_EQ(result.out.find('\x1b'), std::string::npos);
  EXPECT_THAT(result.out, HasSubstr("  program   ?[31m?\n"));
  EXPECT_EQ(report().at("header").at("application"), "\x1b[31m\xEF\xBF\xBD");
}

TEST_F(InspectOptions, AnEarlierMagicIsACaptureToo) {
  write_file(path(), capture_bytes(made_header(), raw64_payload({{0, 10}}), "VQSTRM1\n"));
  EXPECT_EQ(report().at("file").at("magic"), "VQSTRM1");
}

}  // namespace
