// Positional arguments and flags, and how they interact: the positional scan skips what follows a flag, the search
// for a flag looks at every argument.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "support/product_root.hpp"
#include "support/verify_captures.hpp"

namespace {

using namespace orvo::test;

class CommandLine : public ProductRoot {
 protected:
  CommandLine() { write_file(cwd() / "c.tagcap", pairs_capture()); }

  std::string effect(std::vector<std::string> arguments) {
    arguments.push_back("--out-prefix=o");
    return effect_of(verify(std::move(arguments)));
  }

  // A run whose input does not exist: its message shows which one it took.
  std::string taken_input(std::vector<std::string> arguments) {
    arguments.push_back("--out-prefix=o");
    return seen(verify(std::move(arguments)));
  }
  std::string not_there(const std::string& name) const {
    return seen(1, announcement(cwd() / name, cwd() / "o"),
                "StreamFileReader: cannot open " + (cwd() / name).string() + "\n");
  }
  std::string failure(std::vector<std::string> arguments) { return seen(verify(std::move(arguments))); }
};

TEST_F(CommandLine, ThePositionalArgumentsAreInputAndChannels) {
  EXPECT_EQ(effect({"c.tagcap", "2", "0", "--offset=0"}), "2 0 5000 8 0 31 ");
  EXPECT_EQ(effect({"c.tagcap", "2", "--offset=0"}), "2 1 5000 8 0 31 ");
}

TEST_F(CommandLine, FurtherPositionalArgumentsAreIgnored) {
  EXPECT_EQ(effect({"c.tagcap", "2", "0", "x", "-q", "--offset=0"}), "2 0 5000 8 0 31 ");
}

TEST_F(CommandLine, EveryFlagSetsItsFieldInEitherForm) {
  EXPECT_EQ(effect({"c.tagcap", "--range=100", "--bin=4", "--offset=-7", "--max-tags=12"}), "0 1 100 4 -7 12 ");
  EXPECT_EQ(effect({"--range", "100", "--bin", "4", "c.tagcap", "--offset", "-7", "--max-tags", "12"}),
            "0 1 100 4 -7 12 ");
}

TEST_F(CommandLine, OffsetIgnoresCase) {
  EXPECT_EQ(effect({"c.tagcap", "0", "2", "--offset=Auto"}), "0 2 5000 8 1196 31 ");
  EXPECT_EQ(effect({"c.tagcap", "0", "2", "--offset= 350PS"}), "0 2 5000 8 350 31 ");
}

TEST_F(CommandLine, ArgumentsOverrideTheSettingsFile) {
  write_settings(
      "input_file=none.tagcap\nchannel_a=1\nchannel_b=3\nrange_ps=1\nbin_ps=1\noffset=1\nmax_tags=1\noutput_prefix="
      "p\n");
  EXPECT_EQ(effect({"c.tagcap", "2", "0", "--range=100", "--bin=4", "--offset=-7", "--max-tags=12"}),
            "2 0 100 4 -7 12 ");
}

TEST_F(CommandLine, ThereIsNoFlagForInputAndChannels) {
  EXPECT_EQ(
      effect({"c.tagcap", "--input=x", "--input_file=x", "--channel-a=2", "--ch_b=3", "--range_ps=1", "--offset=0"}),
      "0 1 5000 8 0 31 ");
}

TEST_F(CommandLine, AnUnknownFlagSwallowsTheNextArgument) {
  EXPECT_EQ(taken_input({"--foo", "c.tagcap", "x.tagcap"}), not_there("x.tagcap"));
  EXPECT_EQ(taken_input({"--", "c.tagcap", "x.tagcap"}), not_there("x.tagcap"));
  EXPECT_EQ(taken_input({"--foo=bar", "x.tagcap"}), not_there("x.tagcap"));
  EXPECT_EQ(taken_input({"--=", "x.tagcap"}), not_there("x.tagcap"));
}

TEST_F(CommandLine, WithItsOnlyArgumentSwallowedTheInputIsSearchedFor) {
  const ProgramResult result = verify({"--foo", "c.tagcap"});
  EXPECT_THAT(result.out, testing::StartsWith("No stream capture found; generated synthetic verification file:\n"));
  EXPECT_EQ(result.exit_status, 0);
}

TEST_F(CommandLine, OneDashMakesNoFlag) {
  EXPECT_EQ(taken_input({"-"}), not_there("-"));
  EXPECT_EQ(taken_input({"-x"}), not_there("-x"));
  EXPECT_EQ(taken_input({"-range"}), not_there("-range"));
}

TEST_F(CommandLine, AFlagIsFoundEvenWhereThePositionalScanSteppedOverIt) {
  // "--bin" is the value of "--foo" for one scan and a flag for the other, so "4" is both input file and bin width.
  const ProgramResult result = verify({"--foo", "--bin", "4", "--out-prefix=o"});
  EXPECT_EQ(seen(result), not_there("4"));
  write_file(cwd() / "4", pairs_capture());
  EXPECT_EQ(effect({"--foo", "--bin", "4", "--offset=0"}), "0 1 5000 4 0 31 ");
}

TEST_F(CommandLine, TheFirstOfSeveralFlagsDecides) {
  EXPECT_EQ(effect({"c.tagcap", "--bin=4", "--bin=6", "--offset=0"}), "0 1 5000 4 0 31 ");
  EXPECT_EQ(effect({"c.tagcap", "--bin", "4", "--bin=6", "--offset=0"}), "0 1 5000 4 0 31 ");
  EXPECT_EQ(effect({"c.tagcap", "--bin=6", "--bin", "4", "--offset=0"}), "0 1 5000 6 0 31 ");
}

TEST_F(CommandLine, AFlagTakesTheNextArgumentEvenIfItIsAFlag) {
  EXPECT_EQ(failure({"c.tagcap", "--range", "--bin", "5"}), seen(1, "", "stoll\n"));
  EXPECT_EQ(failure({"c.tagcap", "--max-tags", "--bin=5"}), seen(1, "", "stoull\n"));
}

TEST_F(CommandLine, AFlagThatEndsTheLineIsNotSet) {
  const ProgramResult result = verify({"c.tagcap", "--out-prefix=o", "--offset=0", "--range"});
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_THAT(read_file(cwd() / "o.json"), testing::HasSubstr("\"range_ps\":5000,"));
}

TEST_F(CommandLine, FlagsAreMatchedWholeAndInLowerCase) {
  EXPECT_EQ(effect({"c.tagcap", "--ranges=1", "--RANGE=1", "--rang=1", "--max_tags=1", "--offset=0"}),
            "0 1 5000 8 0 31 ");
}

TEST_F(CommandLine, AnEmptyValueReachesTheConversion) {
  for (const char* flag : {"--range=", "--bin="}) EXPECT_EQ(failure({flag}), seen(1, "", "stoll\n")) << flag;
  EXPECT_EQ(failure({"--max-tags="}), seen(1, "", "stoull\n"));
  EXPECT_EQ(failure({"--range", ""}), seen(1, "", "stoll\n"));
}

TEST_F(CommandLine, BadNumbersEndTheRunBeforeAnythingIsPrinted) {
  EXPECT_EQ(failure({"c.tagcap", "x"}), seen(1, "", "stoi\n"));
  EXPECT_EQ(failure({"c.tagcap", "0", ""}), seen(1, "", "stoi\n"));
  EXPECT_EQ(failure({"c.tagcap", "99999999999"}), seen(1, "", "stoi\n"));
  EXPECT_EQ(failure({"--range=9223372036854775808"}), seen(1, "", "stoll\n"));
  EXPECT_EQ(failure({"--bin=x"}), seen(1, "", "stoll\n"));
  EXPECT_EQ(failure({"--max-tags=18446744073709551616"}), seen(1, "", "stoull\n"));
  EXPECT_EQ(names(files()), std::vector<std::string>{"cwd/c.tagcap"});
}

TEST_F(CommandLine, ConversionsRunInAFixedOrder) {
  EXPECT_EQ(failure({"--max-tags=q", "c.tagcap", "q"}), seen(1, "", "stoi\n"));
  EXPECT_EQ(failure({"--max-tags=q", "--bin=q"}), seen(1, "", "stoll\n"));
  write_settings("max_tags=q\n");
  EXPECT_EQ(failure({"c.tagcap", "q"}), seen(1, "", "stoull\n"));
}

TEST_F(CommandLine, ALeadingMinusWrapsTheTagLimit) {
  EXPECT_EQ(effect({"c.tagcap", "--max-tags=-1", "--offset=0"}), "0 1 5000 8 0 31 ");
  EXPECT_EQ(effect({"c.tagcap", "--max-tags=-18446744073709551611", "--offset=0"}), "0 1 5000 8 0 5 ");
}

}  // namespace
