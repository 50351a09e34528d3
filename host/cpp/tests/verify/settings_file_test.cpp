#include "verify/settings_file.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <sstream>
#include <string>

#include "support/failure.hpp"
#include "support/tool_surroundings.hpp"

namespace {

using namespace orvo::test;
namespace fs = std::filesystem;

constexpr const char* kName = "vq_verify_stream_file_xcorr.ini";

Config settings(const std::string& text) {
  std::istringstream in(text);
  Config config;
  read_settings(in, config);
  return config;
}

TEST(Trim, TakesWhiteSpaceOffBothEnds) {
  EXPECT_EQ(trim("  a b\t"), "a b");
  EXPECT_EQ(trim(" \t\n\v\f\rx\r\f\v\n\t "), "x");
  EXPECT_EQ(trim("x"), "x");
}

TEST(Trim, OfBlankTextIsEmpty) {
  EXPECT_EQ(trim(""), "");
  EXPECT_EQ(trim(" \t\n\v\f\r"), "");
}

TEST(Trim, KeepsEveryOtherByte) {
  EXPECT_EQ(trim("\xA0x\x85"), "\xA0x\x85");
  EXPECT_EQ(trim(std::string_view("\0 \0", 3)), std::string("\0 \0", 3));
  EXPECT_EQ(trim("\x1F\x7F"), "\x1F\x7F");
}

TEST(Settings, EveryKeySetsItsField) {
  const Config config = settings(
      "input_file=in.tagcap\noutput_prefix=out/x\nchannel_a=2\nchannel_b=3\nrange_ps=100\nbin_ps=4\noffset=-160\n"
      "max_tags=9\n");
  EXPECT_EQ(config.input_file, "in.tagcap");
  EXPECT_EQ(config.output_prefix, "out/x");
  EXPECT_EQ(config.channel_a, 2);
  EXPECT_EQ(config.channel_b, 3);
  EXPECT_EQ(config.range_ps, 100);
  EXPECT_EQ(config.bin_ps, 4);
  EXPECT_EQ(config.offset, "-160");
  EXPECT_EQ(config.max_tags, 9u);
}

TEST(Settings, EverySecondNameOfAKeyWorksToo) {
  const Config config = settings("source_file=in.tagcap\nout_prefix=out/x\nch_a=2\nch_b=3");
  EXPECT_EQ(config.input_file, "in.tagcap");
  EXPECT_EQ(config.output_prefix, "out/x");
  EXPECT_EQ(config.channel_a, 2);
  EXPECT_EQ(config.channel_b, 3);
}

TEST(Settings, KeyCaseBlanksAndCommentsDoNotMatter) {
  EXPECT_EQ(settings("Range_PS = 250 # wide").range_ps, 250);
  EXPECT_EQ(settings("\t CH_B\v=\f3 \r\n").channel_b, 3);
}

TEST(Settings, ACommentStartsInsideAValueToo) {
  EXPECT_EQ(settings("input_file=a#b").input_file, "a");
  EXPECT_EQ(settings("input_file=a # b # c").input_file, "a");
  EXPECT_EQ(settings("range_ps=250#0\nrange_ps=#7").range_ps, 250);
  EXPECT_EQ(settings("# range_ps=7\n#\nrange_ps#=8\nrange_ps # =9\n").range_ps, 5000);
}

TEST(Settings, ValuesKeepTheirCaseTheirBlanksAndTheirEqualsSigns) {
  EXPECT_EQ(settings("input_file = A b=C = d.TagCap ").input_file, "A b=C = d.TagCap");
}

TEST(Settings, LinesWithoutAnEqualsSignAreSkipped) {
  const Config config = settings("[range_ps]\n\nrange_ps 7\nrange_ps: 7\n   \nbin_ps=2");
  EXPECT_EQ(config.range_ps, 5000);
  EXPECT_EQ(config.bin_ps, 2);
}

TEST(Settings, EmptyKeysAndEmptyValuesChangeNothing) {
  const Config config =
      settings("input_file=kept\ninput_file=\ninput_file= \t# x\n=5\n = 6\n  =  \nmax_tags=3\nmax_tags=\n");
  EXPECT_EQ(config.input_file, "kept");
  EXPECT_EQ(config.max_tags, 3u);
}

TEST(Settings, UnknownKeysAreIgnored) {
  const Config config = settings(
      "range=1\nrange ps=2\nrange_ps_=3\n range-ps=4\n[range_ps=5\n\xEF\xBB\xBFrange_ps=6\ncolour=blue\n"
      "max tags=5");
  EXPECT_EQ(config.range_ps, 5000);
  EXPECT_EQ(config.max_tags, 0u);
}

TEST(Settings, TheLastOfSeveralWins) {
  EXPECT_EQ(settings("range_ps=1\nrange_ps=2\n").range_ps, 2);
  EXPECT_EQ(settings("ch_a=1\nchannel_a=2\nch_a=3\n").channel_a, 3);
}

TEST(Settings, LinesMayEndInCarriageReturnAndLineFeed) {
  const Config config = settings("range_ps=77\r\ninput_file=a.tagcap\r\n\r\noffset=AUTO\r\n");
  EXPECT_EQ(config.range_ps, 77);
  EXPECT_EQ(config.input_file, "a.tagcap");
  EXPECT_EQ(config.offset, "auto");
}

TEST(Settings, ACarriageReturnAloneEndsNoLine) {
  const Config config = settings("input_file=a\rrange_ps=77");
  EXPECT_EQ(config.input_file, "a\rrange_ps=77");
  EXPECT_EQ(config.range_ps, 5000);
}

TEST(Settings, NulBytesAreOrdinaryBytes) {
  const std::string nul(1, '\0');
  const Config config = settings(nul + "range_ps=1\nrange_ps" + nul + "=2\nbin_ps=4" + nul + "7\nmax_tags=3\n");
  EXPECT_EQ(config.range_ps, 5000);
  EXPECT_EQ(config.bin_ps, 4);
  EXPECT_EQ(config.max_tags, 3u);
  EXPECT_EQ(failure_of([&] { settings("range_ps=" + nul + "5"); }), "invalid_argument: stoll");
}

TEST(Settings, ALongLineIsOneLine) {
  const Config config =
      settings("bin_ps=4" + std::string(1'000'000, 'x') + "\nrange_ps=" + std::string(100'000, '0') + "250");
  EXPECT_EQ(config.bin_ps, 4);
  EXPECT_EQ(config.range_ps, 250);
}

TEST(Settings, OffsetIsTakenInLowerCaseAndNotJudged) {
  EXPECT_EQ(settings("offset=Auto").offset, "auto");
  EXPECT_EQ(settings("offset = -12 PS").offset, "-12 ps");
  EXPECT_EQ(settings("offset=None").offset, "none");
}

TEST(Settings, NumbersEndWhereTheirDigitsEnd) {
  EXPECT_EQ(settings("range_ps=5000ps").range_ps, 5000);
  EXPECT_EQ(settings("bin_ps=+8.9").bin_ps, 8);
  EXPECT_EQ(settings("channel_a=0x3").channel_a, 0);
  EXPECT_EQ(settings("bin_ps=010").bin_ps, 10);
  EXPECT_EQ(settings("bin_ps=4=5").bin_ps, 4);
  EXPECT_EQ(settings("channel_b=-007").channel_b, -7);
}

TEST(Settings, NumbersReachTheEndsOfTheirType) {
  EXPECT_EQ(settings("range_ps=9223372036854775807").range_ps, INT64_MAX);
  EXPECT_EQ(settings("bin_ps=-9223372036854775808").bin_ps, INT64_MIN);
  EXPECT_EQ(settings("ch_a=2147483647").channel_a, INT32_MAX);
  EXPECT_EQ(settings("max_tags=18446744073709551615").max_tags, UINT64_MAX);
  EXPECT_EQ(settings("max_tags=-1").max_tags, UINT64_MAX);
}

TEST(Settings, TextThatIsNoNumberThrowsTheConversionsName) {
  EXPECT_EQ(failure_of([] { settings("range_ps=abc"); }), "invalid_argument: stoll");
  EXPECT_EQ(failure_of([] { settings("bin_ps=ps8"); }), "invalid_argument: stoll");
  EXPECT_EQ(failure_of([] { settings("channel_a=A"); }), "invalid_argument: stoi");
  EXPECT_EQ(failure_of([] { settings("ch_b=-"); }), "invalid_argument: stoi");
  EXPECT_EQ(failure_of([] { settings("ch_b=.5"); }), "invalid_argument: stoi");
  EXPECT_EQ(failure_of([] { settings("max_tags=all"); }), "invalid_argument: stoull");
  EXPECT_EQ(failure_of([] { settings("max_tags=- 1"); }), "invalid_argument: stoull");
}

TEST(Settings, NumbersOutsideTheirTypeThrowTheConversionsName) {
  EXPECT_EQ(failure_of([] { settings("channel_a=2147483648"); }), "out_of_range: stoi");
  EXPECT_EQ(failure_of([] { settings("ch_a=-2147483649"); }), "out_of_range: stoi");
  EXPECT_EQ(failure_of([] { settings("range_ps=9223372036854775808"); }), "out_of_range: stoll");
  EXPECT_EQ(failure_of([] { settings("bin_ps=-9223372036854775809"); }), "out_of_range: stoll");
  EXPECT_EQ(failure_of([] { settings("max_tags=18446744073709551616"); }), "out_of_range: stoull");
}

TEST(Settings, TheFirstBadNumberIsThrownAndNothingAfterItIsRead) {
  std::istringstream in("bin_ps=2\nrange_ps=abc\nchannel_a=q\nbin_ps=3\n");
  Config config;
  EXPECT_EQ(failure_of([&] { read_settings(in, config); }), "invalid_argument: stoll");
  EXPECT_EQ(config.bin_ps, 2);
}

class SettingsPlaces : public ToolSurroundings {
 protected:
  std::optional<fs::path> load(const std::string& argv0) {
    const char* const argv[] = {argv0.c_str(), nullptr};
    return load_config(config_, argv);
  }
  fs::path source_settings() const { return product_root_of_tests() / "host/cpp/verification" / kName; }

  Config config_;
};

TEST_F(SettingsPlaces, NoFileLeavesTheDefaults) {
  EXPECT_EQ(load("/nowhere/tool"), std::nullopt);
  EXPECT_EQ(config_.range_ps, 5000);
}

TEST_F(SettingsPlaces, BesideTheExecutableThenHereThenInTheSourceRoot) {
  const TempDirectory bin;
  write_file(source_settings(), "range_ps=3");
  EXPECT_EQ(load((bin / "tool").string()), source_settings());
  EXPECT_EQ(config_.range_ps, 3);
  write_file(cwd() / kName, "range_ps=2");
  EXPECT_EQ(load((bin / "tool").string()), cwd() / kName);
  EXPECT_EQ(config_.range_ps, 2);
  write_file(bin / kName, "range_ps=1");
  EXPECT_EQ(load((bin / "tool").string()), bin / kName);
  EXPECT_EQ(config_.range_ps, 1);
}

TEST_F(SettingsPlaces, OnlyTheFirstFileIsRead) {
  write_file(cwd() / kName, "range_ps=2");
  write_file(source_settings(), "range_ps=3\nbin_ps=3");
  EXPECT_EQ(load("/nowhere/tool"), cwd() / kName);
  EXPECT_EQ(config_.bin_ps, 8);
}

TEST_F(SettingsPlaces, ABareNameIsLookedForInTheCurrentDirectory) {
  write_file(cwd() / kName, "range_ps=2");
  EXPECT_EQ(load("tool"), cwd() / kName);
  EXPECT_EQ(load(""), cwd() / kName);
}

TEST_F(SettingsPlaces, ARelativeNameIsNotNormalised) {
  write_file(cwd() / kName, "range_ps=2");
  write_file(cwd() / "sub" / kName, "range_ps=4");
  EXPECT_EQ(load("./tool")->string(), cwd().string() + "/./" + kName);
  EXPECT_EQ(load("sub/tool")->string(), cwd().string() + "/sub/" + kName);
  EXPECT_EQ(config_.range_ps, 4);
}

TEST_F(SettingsPlaces, AnEmptyFileCounts) {
  write_file(cwd() / kName, "");
  write_file(source_settings(), "range_ps=3");
  EXPECT_EQ(load("/nowhere/tool"), cwd() / kName);
  EXPECT_EQ(config_.range_ps, 5000);
}

TEST_F(SettingsPlaces, ADirectoryOfThatNameCountsAsAnEmptyFile) {
  fs::create_directory(cwd() / kName);
  EXPECT_EQ(load("/nowhere/tool"), cwd() / kName);
  EXPECT_EQ(config_.range_ps, 5000);
}

TEST_F(SettingsPlaces, ABadNumberInTheFileIsThrown) {
  write_file(cwd() / kName, "channel_b=x");
  EXPECT_EQ(failure_of([&] { load("/nowhere/tool"); }), "invalid_argument: stoi");
}

}  // namespace
