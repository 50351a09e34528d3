#include "verify/command_line.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "support/failure.hpp"
#include "support/tool_surroundings.hpp"

namespace {

using orvo::test::failure_of;
using orvo::test::ToolSurroundings;
using Arguments = std::vector<const char*>;

// The value of --bin among these arguments.
std::optional<std::string> bin_flag(Arguments arguments) {
  arguments.insert(arguments.begin(), "tool");
  return get_flag(static_cast<int>(arguments.size()), arguments.data(), "bin");
}

Config configured(Arguments arguments, Config config = {}) {
  arguments.insert(arguments.begin(), "tool");
  apply_command_line(config, static_cast<int>(arguments.size()), arguments.data());
  return config;
}

const std::optional<std::string> kNotSet;

TEST(GetFlag, FindsBothForms) {
  EXPECT_EQ(bin_flag({"--bin=4"}), "4");
  EXPECT_EQ(bin_flag({"--bin", "4"}), "4");
  EXPECT_EQ(bin_flag({"x", "y", "--bin", "4", "z"}), "4");
}

TEST(GetFlag, TheFirstOfEitherFormDecides) {
  EXPECT_EQ(bin_flag({"--bin=4", "--bin=6"}), "4");
  EXPECT_EQ(bin_flag({"--bin", "4", "--bin=6"}), "4");
  EXPECT_EQ(bin_flag({"--bin=4", "--bin", "6"}), "4");
}

TEST(GetFlag, AValueMayBeEmptyOrHoldAnything) {
  EXPECT_EQ(bin_flag({"--bin="}), "");
  EXPECT_EQ(bin_flag({"--bin=a=b"}), "a=b");
  EXPECT_EQ(bin_flag({"--bin", ""}), "");
  EXPECT_EQ(bin_flag({"--bin", "--range"}), "--range");
  EXPECT_EQ(bin_flag({"--bin", "--bin=6"}), "--bin=6");
}

TEST(GetFlag, WithoutAValueBehindItIsNotSet) {
  EXPECT_EQ(bin_flag({"--bin"}), kNotSet);
  EXPECT_EQ(bin_flag({"x", "--bin"}), kNotSet);
}

TEST(GetFlag, LooksAtEveryArgumentEvenAtValuesOfOtherFlags) {
  EXPECT_EQ(bin_flag({"--foo", "--bin", "4"}), "4");
}

TEST(GetFlag, TakesNoOtherWord) {
  EXPECT_EQ(bin_flag({"-bin=4", "bin=4", "--Bin=4", "--bins=4", "--bi", "4", "--bin4", "---bin=4", " --bin=4"}),
            kNotSet);
  EXPECT_EQ(bin_flag({}), kNotSet);
}

TEST(GetFlag, LeavesTheProgramsOwnNameOut) {
  const char* const argv[] = {"--bin=4"};
  EXPECT_EQ(get_flag(1, argv, "bin"), kNotSet);
  EXPECT_EQ(get_flag(0, argv, "bin"), kNotSet);
}

TEST(CommandLine, NoArgumentsChangeNothing) {
  const Config config = configured({});
  EXPECT_FALSE(config.input_file.has_value());
  EXPECT_FALSE(config.output_prefix.has_value());
  EXPECT_EQ(config.offset, "auto");
}

TEST(CommandLine, PositionalArgumentsAreInputAndChannels) {
  const Config config = configured({"run 1.tagcap", "2", "3", "ignored", "9"});
  EXPECT_EQ(config.input_file, "run 1.tagcap");
  EXPECT_EQ(config.channel_a, 2);
  EXPECT_EQ(config.channel_b, 3);
}

TEST(CommandLine, WordsThatDoNotStartWithTwoDashesArePositional) {
  EXPECT_EQ(configured({"-"}).input_file, "-");
  EXPECT_EQ(configured({"-x"}).input_file, "-x");
  EXPECT_EQ(configured({""}).input_file, "");
  EXPECT_EQ(configured({"a", "-1"}).channel_a, -1);
}

TEST(CommandLine, FlagsTakeTheNextArgumentAlong) {
  const Config config = configured({"--range", "100", "x.tagcap"});
  EXPECT_EQ(config.range_ps, 100);
  EXPECT_EQ(config.input_file, "x.tagcap");
}

TEST(CommandLine, UnknownFlagsAndTwoDashesTakeTheNextArgumentAlong) {
  EXPECT_FALSE(configured({"--foo", "x.tagcap"}).input_file.has_value());
  EXPECT_FALSE(configured({"--", "x.tagcap"}).input_file.has_value());
  EXPECT_EQ(configured({"--", "x.tagcap", "y.tagcap"}).input_file, "y.tagcap");
  EXPECT_FALSE(configured({"--foo"}).input_file.has_value());
}

TEST(CommandLine, FlagsWithAnEqualsSignTakeNothingAlong) {
  EXPECT_EQ(configured({"--foo=1", "x.tagcap"}).input_file, "x.tagcap");
  EXPECT_EQ(configured({"--=", "x.tagcap"}).input_file, "x.tagcap");
}

TEST(CommandLine, AFlagTakenAlongAsAValueStillCounts) {
  const Config config = configured({"--foo", "--bin", "4"});
  EXPECT_EQ(config.bin_ps, 4);
  EXPECT_EQ(config.input_file, "4");
}

TEST(CommandLine, EveryFlagSetsItsField) {
  const Config config =
      configured({"--range=100", "--bin", "4", "--offset=-12PS", "--max-tags", "7", "--out-prefix=Out/X"});
  EXPECT_EQ(config.range_ps, 100);
  EXPECT_EQ(config.bin_ps, 4);
  EXPECT_EQ(config.offset, "-12ps");
  EXPECT_EQ(config.max_tags, 7u);
  EXPECT_EQ(config.output_prefix, "Out/X");
}

TEST(CommandLine, OffsetWordIsTakenInLowerCase) {
  EXPECT_EQ(configured({"--offset=Auto"}).offset, "auto");
  EXPECT_EQ(configured({"--offset="}).offset, "");
}

TEST(CommandLine, NoFlagSetsInputOrChannels) {
  const Config config = configured({"--input=a", "--input-file=b", "--channel-a=2", "--channel_a=2", "--ch-b=3"});
  EXPECT_FALSE(config.input_file.has_value());
  EXPECT_EQ(config.channel_a, 0);
  EXPECT_EQ(config.channel_b, 1);
}

TEST(CommandLine, OverridesOnlyWhatItNames) {
  Config from_file;
  from_file.input_file = "file.tagcap";
  from_file.channel_a = 3;
  from_file.range_ps = 9;
  from_file.bin_ps = 9;
  const Config config = configured({"--bin=4", "x.tagcap"}, from_file);
  EXPECT_EQ(config.input_file, "x.tagcap");
  EXPECT_EQ(config.channel_a, 3);
  EXPECT_EQ(config.range_ps, 9);
  EXPECT_EQ(config.bin_ps, 4);
}

TEST(CommandLine, NumbersFollowTheStandardConversions) {
  EXPECT_EQ(configured({"x", " 2nd", "3.9"}).channel_a, 2);
  EXPECT_EQ(configured({"--max-tags=-1"}).max_tags, UINT64_MAX);
  EXPECT_EQ(configured({"--range", " +12ps"}).range_ps, 12);
}

TEST(CommandLine, TextThatIsNoNumberThrowsTheConversionsName) {
  EXPECT_EQ(failure_of([] { configured({"x", "a"}); }), "invalid_argument: stoi");
  EXPECT_EQ(failure_of([] { configured({"x", "1", ""}); }), "invalid_argument: stoi");
  EXPECT_EQ(failure_of([] { configured({"x", "4294967296"}); }), "out_of_range: stoi");
  EXPECT_EQ(failure_of([] { configured({"--range="}); }), "invalid_argument: stoll");
  EXPECT_EQ(failure_of([] { configured({"--bin", "--range"}); }), "invalid_argument: stoll");
  EXPECT_EQ(failure_of([] { configured({"--max-tags=many"}); }), "invalid_argument: stoull");
}

TEST(CommandLine, ConvertsPositionalArgumentsFirstAndFlagsInTheirFixedOrder) {
  EXPECT_EQ(failure_of([] { configured({"--range=x", "a", "b"}); }), "invalid_argument: stoi");
  EXPECT_EQ(failure_of([] { configured({"--max-tags=x", "--bin=99999999999999999999"}); }), "out_of_range: stoll");
  EXPECT_EQ(failure_of([] { configured({"--bin=99999999999999999999", "--range=x"}); }), "invalid_argument: stoll");
}

class ResolvePaths : public ToolSurroundings {
 protected:
  static Config resolved(const std::string& path, const std::filesystem::path& base) {
    Config config;
    config.input_file = path;
    config.output_prefix = path;
    resolve_paths(config, base);
    EXPECT_EQ(config.input_file->string(), config.output_prefix->string());
    return config;
  }
};

TEST_F(ResolvePaths, RelativePathsAreJoinedToTheBaseAsTheyAre) {
  EXPECT_EQ(resolved("data/run.tagcap", "/base").input_file->string(), "/base/data/run.tagcap");
  EXPECT_EQ(resolved("../x/./y", "/base/dir").input_file->string(), "/base/dir/../x/./y");
  EXPECT_EQ(resolved("", "/base").input_file->string(), "/base/");
}

TEST_F(ResolvePaths, ARelativeBaseIsTakenFromTheCurrentDirectory) {
  EXPECT_EQ(resolved("x", "sub").input_file->string(), (cwd() / "sub/x").string());
}

TEST_F(ResolvePaths, RootedPathsAndUnsetPathsAreKept) {
  EXPECT_EQ(resolved("/a/../b", "/base").input_file->string(), "/a/../b");
  Config config;
  resolve_paths(config, "/base");
  EXPECT_FALSE(config.input_file.has_value());
  EXPECT_FALSE(config.output_prefix.has_value());
}

}  // namespace
