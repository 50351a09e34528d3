#include "common/command_line.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using Arguments = std::vector<std::string>;

constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();
constexpr std::int64_t kLeastTime = std::numeric_limits<std::int64_t>::min();
constexpr std::uint64_t kMostTime = std::numeric_limits<std::int64_t>::max();

/// What a program with one option of each kind ends with, and prints.
struct Ending {
  int status = -1;
  std::string out;
  std::string err;
};

class CommandLine : public testing::Test {
 protected:
  CommandLine() {
    add_number(*app_, "--number", number_, {3, 7}, "a number");
    add_number(*app_, "--any", any_, {0, kMost}, "any number");
    add_time(*app_, "--time", time_ps_, {-5, 1'000}, "a time");
    add_time(*app_, "--any-time", any_time_ps_, {kLeastTime, kMostTime}, "any time");
    add_word(*app_, "--word", word_, {"red", "green"}, "a colour");
    app_->add_option("file,--out", file_, "a file")->type_name("FILE");
    app_->add_option("--list", list_, "a list")->transform(list_of(whole_number({0, 9})))->type_name("N[,N...]");
    app_->add_option("other", other_, "another file")->type_name("FILE");
  }

  Ending ending(const Arguments& arguments) {
    std::ostringstream out;
    std::ostringstream err;
    const int status = run_app(*app_, arguments, {out, err}, [this] { body_(); });
    return {status, out.str(), err.str()};
  }
  /// The one line that a bad command line gets.
  std::string failure(const Arguments& arguments) {
    const Ending end = ending(arguments);
    EXPECT_EQ(end.status, 64);
    EXPECT_EQ(end.out, "");
    EXPECT_FALSE(ran_);
    return end.err;
  }
  void take(const Arguments& arguments) {
    EXPECT_EQ(ending(arguments).err, "");
    EXPECT_TRUE(ran_);
  }

  std::unique_ptr<CLI::App> app_ = make_app("vq_test", "Tests options.");
  unsigned number_ = 5;
  std::uint64_t any_ = 0;
  std::int64_t time_ps_ = 7;
  std::int64_t any_time_ps_ = 0;
  std::string word_ = "red";
  std::string file_;
  std::string list_;
  std::string other_;
  bool ran_ = false;
  std::function<void()> body_ = [this] { ran_ = true; };
};

TEST_F(CommandLine, LeavesWhatIsNotGivenAsItIs) {
  take({});
  EXPECT_EQ(number_, 5u);
  EXPECT_EQ(time_ps_, 7);
  EXPECT_EQ(word_, "red");
  EXPECT_EQ(file_, "");
}

TEST_F(CommandLine, TakesAValueAfterAnEqualsSignOrASpace) {
  take({"a", "--number=3", "--time", "-5", "--word", "green", "b"});
  EXPECT_EQ(file_, "a");
  EXPECT_EQ(other_, "b");
  EXPECT_EQ(number_, 3u);
  EXPECT_EQ(time_ps_, -5);
  EXPECT_EQ(word_, "green");
}

TEST_F(CommandLine, TakesAnOddFileNameAfterAnEqualsSign) {
  take({"--out=--odd=name"});
  EXPECT_EQ(file_, "--odd=name");
}

TEST_F(CommandLine, TakesArgumentsAfterTwoDashesForFiles) {
  take({"--number", "4", "--", "--odd", "--number"});
  EXPECT_EQ(file_, "--odd");
  EXPECT_EQ(other_, "--number");
  EXPECT_EQ(number_, 4u);
}

TEST_F(CommandLine, HoldsNumbersToTheirLimits) {
  take({"--number=7", "--any=18446744073709551615"});
  EXPECT_EQ(number_, 7u);
  EXPECT_EQ(any_, kMost);
  take({"--number=003"});
  EXPECT_EQ(number_, 3u) << "decimal, not octal";
}

TEST_F(CommandLine, RefusesNumbersOutsideTheirLimits) {
  EXPECT_EQ(failure({"--number=2"}), "--number: '2' is not a whole number from 3 to 7\n");
  EXPECT_EQ(failure({"--number=8"}), "--number: '8' is not a whole number from 3 to 7\n");
}

TEST_F(CommandLine, RefusesWhatIsNoNumber) {
  for (const char* text : {" 5", "5 ", "+5", "-5", "5.0", "0x5", "1e1", "five", "18446744073709551616"}) {
    EXPECT_EQ(failure({"--any", text}),
              "--any: '" + std::string(text) + "' is not a whole number from 0 to 18446744073709551615\n");
  }
}

TEST_F(CommandLine, HoldsTimesToTheirLimits) {
  take({"--time=1ns"});
  EXPECT_EQ(time_ps_, 1'000);
  take({"--time=-5ps", "--any-time=-9223372036854775807"});
  EXPECT_EQ(time_ps_, -5);
  EXPECT_EQ(any_time_ps_, -std::numeric_limits<std::int64_t>::max());
}

TEST_F(CommandLine, RefusesTimesOutsideTheirLimits) {
  for (const char* text : {"-6", "1001ps", "2ns", "1.5ns", "1 ns", "1NS", "s"}) {
    EXPECT_EQ(failure({"--time", text}),
              "--time: '" + std::string(text) +
                  "' is not a time from -5 ps to 1000 ps, as in 250, 250ps, 10ns, 2us, 1ms or 3s\n");
  }
}

TEST_F(CommandLine, RefusesOtherWords) {
  EXPECT_EQ(failure({"--word=Red"}), "--word: Red not in {red,green}\n");
}

TEST_F(CommandLine, HoldsEachItemOfAListToItsLimits) {
  take({"--list=5,09,0"});
  EXPECT_EQ(list_, "5,9,0");
  EXPECT_THAT(split_list(list_), ElementsAre("5", "9", "0"));
}

TEST_F(CommandLine, RefusesListsWithAnItemThatIsNone) {
  EXPECT_EQ(failure({"--list=5,10,0"}), "--list: '10' is not a whole number from 0 to 9\n");
  for (const char* text : {",5", "5,", "5,,0"}) {
    EXPECT_EQ(failure({"--list", text}), "--list: '' is not a whole number from 0 to 9\n");
  }
}

TEST_F(CommandLine, RefusesOptionsWithoutAValue) {
  for (const Arguments& arguments : {Arguments{"--number"}, Arguments{"--number", "--any", "5"},
                                     Arguments{"--number", "--"}, Arguments{"--number=", "5"}}) {
    EXPECT_EQ(failure(arguments), "--number: no value given\n");
  }
  EXPECT_EQ(failure({"--out", "--number=3"}), "--out: no value given\n");
}

TEST_F(CommandLine, RefusesOptionsGivenTwice) {
  EXPECT_EQ(failure({"--number=3", "--any=1", "--number", "4"}), "--number: given twice\n");
  EXPECT_EQ(failure({"a", "--out=b"}), "--out: given twice\n");
}

TEST_F(CommandLine, RefusesUnknownOptions) {
  const std::string hint = " (--help lists the options)\n";
  EXPECT_EQ(failure({"--nunber=7"}), "unknown option --nunber" + hint);
  EXPECT_EQ(failure({"--nunber", "7"}), "unknown option --nunber" + hint);
  EXPECT_EQ(failure({"--Number=7"}), "unknown option --Number" + hint);
  EXPECT_EQ(failure({"-number=7"}), "unknown option -number" + hint);
  EXPECT_EQ(failure({"---number=7"}), "unknown option ---number" + hint);
  EXPECT_EQ(failure({"--=7"}), "unknown option --" + hint);
  EXPECT_EQ(failure({"--number=x", "-5"}), "unknown option -5" + hint);
  EXPECT_EQ(failure({"a", "-n", "b"}), "unknown option -n" + hint);
}

TEST_F(CommandLine, RefusesMoreFilesThanItTakes) {
  EXPECT_EQ(failure({"a", "b", "c"}), "The following argument was not expected: c\n");
}

TEST_F(CommandLine, TakesASingleDashForAFile) {
  take({"-", "-"});
  EXPECT_EQ(file_, "-");
  EXPECT_EQ(other_, "-");
}

TEST_F(CommandLine, AnswersARequestForHelpWhateverElseIsGiven) {
  for (const Arguments& arguments : {Arguments{"--help"}, Arguments{"-h"}, Arguments{"--number", "x", "--help"},
                                     Arguments{"--number", "--help"}, Arguments{"--nunber", "--version", "-h"}}) {
    const Ending end = ending(arguments);
    EXPECT_EQ(end.status, 0);
    EXPECT_EQ(end.err, "");
    EXPECT_THAT(end.out, HasSubstr("Usage: vq_test [OPTIONS]"));
  }
  EXPECT_FALSE(ran_);
}

TEST_F(CommandLine, ShowsLimitsAndDefaultsInTheHelp) {
  const std::string help = ending({"--help"}).out;
  EXPECT_THAT(help, HasSubstr("Tests options.\n"));
  EXPECT_THAT(help, HasSubstr("\n  --number N [3 to 7]\n      a number (5)\n"));
  EXPECT_THAT(help, HasSubstr("\n  --time TIME [-5 to 1000 ps]\n      a time (7 ps)\n"));
  EXPECT_THAT(help, HasSubstr("\n  --word red|green\n      a colour (red)\n"));
  EXPECT_THAT(help, HasSubstr("\n  --list N[,N...]\n      a list\n"));
  EXPECT_THAT(help, HasSubstr("\n  --out FILE\n      a file\n"));
  EXPECT_THAT(help, HasSubstr("\nArguments:\n  other FILE\n      another file\n"));
  EXPECT_THAT(help, HasSubstr("\n  -h,--help\n      print this help and exit\n"));
  EXPECT_THAT(help, HasSubstr("\n  --version\n      print the version and exit\n"));
}

TEST_F(CommandLine, AnswersARequestForTheVersion) {
  const Ending end = ending({"--number", "x", "--version"});
  EXPECT_EQ(end.status, 0);
  EXPECT_EQ(end.out, "vq_test " + std::string(orvo::timing::kVersion) + "\n");
  EXPECT_EQ(end.err, "");
  EXPECT_FALSE(ran_);
}

TEST_F(CommandLine, EndsByWhatThePartThatRunsThrows) {
  body_ = [] { throw UsageError("--number, --any: give only one of them"); };
  EXPECT_EQ(ending({}).status, 64);
  EXPECT_EQ(ending({}).err, "--number, --any: give only one of them\n");
  body_ = [] { throw std::runtime_error("no room"); };
  EXPECT_EQ(ending({}).status, 1);
  EXPECT_EQ(ending({}).err, "no room\n");
}

}  // namespace
