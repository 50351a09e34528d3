#include "convert/options.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

Settings settings_from(std::vector<std::string> arguments) {
  arguments.insert(arguments.end(), {"in.tagcap", "out.tagcap"});
  Options options;
  std::ostringstream unused;
  parse_arguments(options.app(), arguments, unused);
  return options.settings();
}

std::string complaint(const std::vector<std::string>& arguments) {
  try {
    Options options;
    std::ostringstream unused;
    parse_arguments(options.app(), arguments, unused);
    options.settings();
  } catch (const UsageError& error) {
    return error.what();
  }
  return "none";
}

TEST(ConvertOptions, TakesTheLastFileForOut) {
  Options options;
  std::ostringstream unused;
  parse_arguments(options.app(), {"a.tagcap", "-", "b.csv"}, unused);
  const Settings settings = options.settings();
  EXPECT_THAT(settings.inputs, ElementsAre("a.tagcap", "-"));
  EXPECT_EQ(settings.out, "b.csv");
  EXPECT_EQ(settings.form, OutForm::csv);
}

TEST(ConvertOptions, LosesNothingUnlessAsked) {
  const Settings settings = settings_from({});
  EXPECT_TRUE(settings.verify);
  EXPECT_FALSE(settings.force || settings.encoding.round || settings.encoding.format || settings.gap_ps);
  EXPECT_EQ(settings.selection.channels, 15u);
  EXPECT_EQ(settings.selection.most_tags, UINT64_MAX);
  EXPECT_THAT(settings.changes.channel, ElementsAre(0, 1, 2, 3));
}

TEST(ConvertOptions, TakesTimesWithUnits) {
  const Settings settings = settings_from({"--from=2us", "--duration", "3ns", "--gap", "7", "--sort=1ms"});
  EXPECT_EQ(settings.selection.from_ps, 2'000'000);
  EXPECT_EQ(settings.selection.to_ps, 2'003'000);
  EXPECT_EQ(settings.gap_ps, 7);
  EXPECT_EQ(settings.changes.sort_reach_ps, 1'000'000'000);
  EXPECT_EQ(settings_from({"--to", "4ns"}).selection.to_ps, 4'000);
}

TEST(ConvertOptions, AddsUpShifts) {
  const Settings settings = settings_from({"--shift", "1=-35ns", "--shift=all=1ns", "--shift=1=1"});
  EXPECT_THAT(settings.changes.shift_ps, ElementsAre(1'000, -33'999, 1'000, 1'000));
}

TEST(ConvertOptions, SwapsOneAfterTheOther) {
  EXPECT_THAT(settings_from({"--swap", "0,1"}).changes.channel, ElementsAre(1, 0, 2, 3));
  EXPECT_THAT(settings_from({"--swap", "0,1", "--swap", "1,2"}).changes.channel, ElementsAre(2, 0, 1, 3));
  EXPECT_THAT(settings_from({"--swap", "3,3"}).changes.channel, ElementsAre(0, 1, 2, 3));
}

TEST(ConvertOptions, NamesWhatItCannotUse) {
  EXPECT_THAT(complaint({}), HasSubstr("name at least one input and OUT"));
  EXPECT_THAT(complaint({"a.tagcap"}), HasSubstr("name at least one input and OUT"));
  EXPECT_THAT(complaint({"a.tagcap", "b.txt"}), HasSubstr("OUT: 'b.txt' ends in none of .tagcap, .csv and .npy"));
  EXPECT_THAT(complaint({"-", "-", "b.csv"}), HasSubstr("standard input (-) can be read only once"));
  EXPECT_THAT(complaint({"a", "b.csv", "--encoding", "raw64"}), HasSubstr("--encoding: only for a capture"));
  EXPECT_THAT(complaint({"a", "b.npy", "--round"}), HasSubstr("--round: only for a capture"));
  EXPECT_THAT(complaint({"a", "b.csv", "--to=1s", "--duration=1s"}), HasSubstr("--to, --duration: give only one"));
  EXPECT_THAT(complaint({"a", "b.csv", "--from=9223372036854775807", "--duration=1"}), HasSubstr("--duration: ends"));
  EXPECT_THAT(complaint({"a", "b.csv", "--shift=4=1ns"}), HasSubstr("'4=1ns' is not a channel and a time"));
  EXPECT_THAT(complaint({"a", "b.csv", "--shift=1ns"}), HasSubstr("'1ns' is not a channel and a time"));
  EXPECT_THAT(complaint({"a", "b.csv", "--swap=0"}), HasSubstr("'0' is not two channels"));
  EXPECT_THAT(complaint({"a", "b.csv", "--channels=0,x"}), HasSubstr("'0,x' is not channels from 0 to 3"));
  EXPECT_THAT(complaint({"a", "b.csv", "--from=1.5s"}), HasSubstr("'1.5s' is not a time"));
  EXPECT_THAT(complaint({"a", "b.csv", "--shift=0=9223372036854775807", "--shift=0=1"}),
              HasSubstr("--shift: more than"));
  EXPECT_THAT(complaint({"a", "b.csv", "--nonsense"}), HasSubstr("--nonsense"));
}

TEST(ConvertOptions, PipesHoldCapturesUnlessTheFormatIsGiven) {
  Options options;
  std::ostringstream unused;
  parse_arguments(options.app(), {"a", "-"}, unused);
  EXPECT_EQ(options.settings().form, OutForm::capture);
  Options with_format;
  parse_arguments(with_format.app(), {"a", "-", "--format=npy"}, unused);
  EXPECT_EQ(with_format.settings().form, OutForm::npy);
}

}  // namespace
