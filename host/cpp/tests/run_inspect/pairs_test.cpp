// vq_inspect_stream_file --pairs from outside: its table, its JSON, and what it refuses.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "support/simulated_capture.hpp"

namespace {

using namespace orvo::test;
using testing::HasSubstr;
using Json = nlohmann::ordered_json;

class InspectPairs : public SimulatedCapture {
 protected:
  ProgramResult inspect(std::vector<std::string> arguments) {
    arguments.push_back("--no-progress");
    return run({.program = ORVO_TEST_INSPECTOR, .arguments = std::move(arguments)});
  }
  Json json_pairs(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"c.tagcap", "--json=r.json"});
    EXPECT_EQ(inspect(arguments).exit_status, 0);
    return Json::parse(read_file(cwd() / "r.json")).at("pairs");
  }
};

TEST_F(InspectPairs, TellWhichChannelsBelongTogether) {
  simulate({"--channels=0,1,3", "--rate=20000", "--pair-channels=3,1", "--pair-rate=2000", "--delay=250ms",
            "--duration=3s"});
  const Json pairs = json_pairs({"--pairs"});
  ASSERT_EQ(pairs.size(), 6U);
  for (const Json& pair : pairs) {
    const bool correlated = pair["channel_a"] == 1 && pair["channel_b"] == 3;
    EXPECT_EQ(pair["verdict"], correlated ? "peak" : "none") << pair;
    EXPECT_EQ(pair["significant"], correlated);
    EXPECT_EQ(pair["delay_ps"].is_null(), !correlated);
    EXPECT_EQ(pair["verify_command"].is_null(), !correlated);
    if (!correlated) continue;
    EXPECT_NEAR(pair["delay_ps"].get<double>(), -250e9, 10);
    EXPECT_NEAR(pair["pairs"].get<double>(), 5500, 5 * std::sqrt(5500.0));
    EXPECT_NEAR(pair["fwhm_ps"].get<double>(), 94.2, 10);
    EXPECT_NEAR(pair["share_a"].get<double>(), 5500.0 / 66'000, 0.01);
  }
}

TEST_F(InspectPairs, OfTwoChannelsInEitherOrder) {
  simulate({"--rate=20000", "--pair-rate=2000", "--delay=3us", "--duration=1s"});
  const Json pairs = json_pairs({"--pair=1,0", "--reach=10us"});
  ASSERT_EQ(pairs.size(), 1U);
  EXPECT_EQ(pairs[0]["channel_a"], 1);
  EXPECT_NEAR(pairs[0]["delay_ps"].get<double>(), -3e6, 10);
  EXPECT_EQ(json_pairs({"--pair=1,0", "--reach=1us"})[0]["verdict"], "none");
}

TEST_F(InspectPairs, PrintATableAndTheCommands) {
  simulate({"--rate=20000", "--pair-rate=2000", "--duration=1s"});
  const ProgramResult result = inspect({"c.tagcap", "--pairs"});
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_THAT(result.out, HasSubstr("\nPairs of channels\n  pair  verdict  sigmas"));
  EXPECT_THAT(result.out, HasSubstr("\n  0, 1     peak "));
  EXPECT_THAT(result.out, HasSubstr("\n  $ vq_verify_stream_file_xcorr c.tagcap 0 1 --offset=1"));
  EXPECT_THAT(inspect({"c.tagcap"}).out, testing::Not(HasSubstr("Pairs of channels")));
}

TEST_F(InspectPairs, OfACaptureWithoutTagsAreNone) {
  simulate({"--tags=0"});
  for (const Json& pair : json_pairs({"--pairs"})) {
    EXPECT_EQ(pair["verdict"], "none");
    EXPECT_TRUE(pair["sigmas"].is_null());
  }
}

TEST_F(InspectPairs, RefuseWhatCannotBe) {
  simulate({"--tags=10"});
  const auto failure = [&](const std::vector<std::string>& arguments) {
    const ProgramResult result = inspect(arguments);
    EXPECT_EQ(result.exit_status, 64);
    return result.err;
  };
  EXPECT_EQ(failure({"c.tagcap", "--reach=1s"}), "--reach: only with --pairs or --pair\n");
  EXPECT_EQ(failure({"c.tagcap", "--pair=1,1"}),
            "--pair: '1,1' is not two different channels from 0 to 3, as in 0,1\n");
  EXPECT_EQ(failure({"c.tagcap", "--pair=1,4"}),
            "--pair: '1,4' is not two different channels from 0 to 3, as in 0,1\n");
}

TEST_F(InspectPairs, OfStandardInputAreThoseOfTheFile) {
  simulate({"--rate=20000", "--pair-rate=2000", "--delay=3us", "--duration=1s"});
  Json expected = json_pairs({"--pair=0,1"});
  ASSERT_EQ(expected[0]["verdict"], "peak");
  expected[0]["verify_command"] = nullptr;  // that program reads no standard input
  for (const std::string from : {"cat c.tagcap |", "<c.tagcap"}) {
    const std::string line = from + " " ORVO_TEST_INSPECTOR " - --quiet --json=p.json --pair=0,1";
    EXPECT_EQ(run({.program = "/bin/sh", .arguments = {"-c", line}}).exit_status, 0);
    EXPECT_EQ(Json::parse(read_file(cwd() / "p.json")).at("pairs"), expected) << from;
  }
}

TEST_F(InspectPairs, OfStandardInputNeedAPlaceForACopy) {
  simulate({"--tags=10"});
  const std::string line = "cat c.tagcap | TMPDIR=/nowhere " ORVO_TEST_INSPECTOR " - --pairs";
  const ProgramResult result = run({.program = "/bin/sh", .arguments = {"-c", line}});
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.err, "cannot keep a copy of standard input in /nowhere: No such file or directory\n");
  EXPECT_EQ(
      run({.program = "/bin/sh", .arguments = {"-c", "TMPDIR=/nowhere " ORVO_TEST_INSPECTOR " c.tagcap --pairs"}})
          .exit_status,
      0);
}

TEST_F(InspectPairs, OfTheFirstTagsOnly) {
  simulate({"--rate=20000", "--pair-rate=2000", "--delay=3us", "--duration=1s"});
  const Json few = json_pairs({"--pair=0,1", "--max-tags=5000"});
  EXPECT_EQ(few[0]["verdict"], "peak");
  EXPECT_NEAR(few[0]["pairs"].get<double>(), 2000.0 * 5000 / 44'000, 5 * std::sqrt(230.0));
}

TEST_F(InspectPairs, OfSeveralCapturesAreToldForEach) {
  simulate({"--rate=20000", "--pair-rate=2000", "--duration=1s"});
  const ProgramResult result = inspect({"c.tagcap", "c.tagcap", "--pair=0,1", "--json=r.json"});
  EXPECT_EQ(result.exit_status, 0);
  const Json both = Json::parse(read_file(cwd() / "r.json"));
  ASSERT_EQ(both.size(), 2U);
  EXPECT_EQ(both[0]["pairs"][0]["verdict"], "peak");
  EXPECT_EQ(both[0]["pairs"], both[1]["pairs"]);
}

}  // namespace
