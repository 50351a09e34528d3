// The command that a pair's report tells, typed as it stands, shows the peak.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "inspect/pair_report.hpp"
#include "orvo/timing/stream_file_reader.hpp"
#include "support/simulated_capture.hpp"

namespace {

using namespace orvo::test;

class PairCommands : public SimulatedCapture {
 protected:
  PairFinding found(unsigned a, unsigned b) {
    orvo::timing::StreamFileReader reader;
    reader.open((cwd() / "c.tagcap").string());
    for (auto tags = reader.decode_next_tags(65'536, 1 << 20); !tags.empty();
         tags = reader.decode_next_tags(65'536, 1 << 20)) {
      for (const orvo::timing::TimeTag& tag : tags) times_[tag.channel].push_back(tag.time_ps);
    }
    for (auto& times : times_) std::sort(times.begin(), times.end());
    PairSearch search({times_[0], times_[1], times_[2], times_[3]}, {.reach_ps = {}, .bins = std::size_t{1} << 18});
    return search.find(a, b);
  }

  /// The summary of the command's run.
  Told typed(const std::string& command) {
    std::istringstream words(command);
    std::string program;
    words >> program;
    EXPECT_EQ(program, "vq_verify_stream_file_xcorr");
    std::vector<std::string> arguments;
    for (std::string word; words >> word;) arguments.push_back(word);
    arguments.push_back("--out-prefix=p");
    EXPECT_EQ(verify(arguments).exit_status, 0);
    return Told(read_file(cwd() / "p.summary.txt"));
  }

  /// The command that the program itself tells of a capture, typed to a shell.
  Told shown_by_shell(const std::string& capture, const std::string& pair) {
    const ProgramResult inspected =
        run({.program = ORVO_TEST_INSPECTOR,
             .arguments = {capture, "--quiet", "--no-progress", "--json=i.json", "--pair=" + pair}});
    EXPECT_EQ(inspected.exit_status, 0);
    const auto told = nlohmann::json::parse(read_file(cwd() / "i.json"))["pairs"][0]["verify_command"];
    if (!told.is_string()) throw std::runtime_error("no command");
    const std::string bin = std::filesystem::path(ORVO_TEST_TOOL).parent_path().string();
    const std::string line = "PATH=" + bin + ":$PATH; " + told.get<std::string>() + " --out-prefix=s";
    EXPECT_EQ(run({.program = "/bin/bash", .arguments = {"-c", line}}).exit_status, 0) << line;
    return Told(read_file(cwd() / "s.summary.txt"));
  }

  std::array<std::vector<std::int64_t>, 4> times_;
};

TEST_F(PairCommands, OfAnyFileNameShowThePeak) {
  simulate({"--rate=20000", "--pair-rate=2000", "--delay=-7us", "--jitter=60", "--duration=1s"});
  for (const std::string name : {"two words.tagcap", "it's.tagcap", "a\"b$(x)`y`\\.tagcap", "line\nbreak\t'.tagcap",
                                 "-dash.tagcap", "offset=3", "*?[a].tagcap", "\xC3\xA9t\xC3\xA9.tagcap"}) {
    std::filesystem::copy_file(cwd() / "c.tagcap", cwd() / name);
    const Told summary = shown_by_shell(name[0] == '-' ? "./" + name : name, "0,1");
    EXPECT_NEAR(summary.decimal("coincidences"), 2000, 5 * std::sqrt(2000.0)) << name;
    EXPECT_NEAR(summary.decimal("peak_ps"), 0, 60) << name;
  }
}

TEST_F(PairCommands, OfWidePeaksShowThemWhole) {
  simulate({"--rate=20000", "--pair-rate=2000", "--delay=50ms", "--jitter=20ns", "--duration=2s"});
  const Told summary = shown_by_shell("c.tagcap", "1,0");
  // Five widths of 47.1 ns to either side, in which there are 445 pairs by chance: 22 kHz * 22 kHz * 1.95 s * 471 ns.
  const double pairs = 2000 * 1.95 + 445;
  EXPECT_NEAR(summary.decimal("coincidences"), pairs, 5 * std::sqrt(pairs));
  EXPECT_NEAR(summary.decimal("peak_ps"), 0, 25'000);
}

TEST_F(PairCommands, OfFarPairsShowThem) {
  simulate({"--rate=20000", "--pair-rate=2000", "--delay=-345678901234", "--jitter=80", "--duration=5s"});
  const PairFinding finding = found(0, 1);
  const auto command = verify_command(finding, "c.tagcap");
  ASSERT_TRUE(command);
  const Told summary = typed(*command);
  const double pairs = 2000 * (5 - 0.345678901234);
  EXPECT_NEAR(summary.decimal("coincidences"), pairs, 5 * std::sqrt(pairs));
  EXPECT_NEAR(summary.decimal("peak_ps"), 0, 80);
  EXPECT_NEAR(summary.decimal("rms_ps"), 80, 20);
}

TEST_F(PairCommands, OfAnEmitterShowTheDip) {
  simulate({"--light=emitter", "--pulse-period=12500", "--photons=0.05", "--rate=500", "--duration=100ms",
            "--delay=24ns"});
  const PairFinding finding = found(0, 1);
  ASSERT_EQ(verdict_of(finding), orvo::timing::PairVerdict::dip);
  const auto command = verify_command(finding, "c.tagcap");
  ASSERT_TRUE(command);
  typed(*command);
  std::istringstream csv(read_file(cwd() / "p.csv"));
  double beside = 0;
  double within = 0;
  for (std::string line; std::getline(csv, line);) {
    if (line.empty() || line.find_first_not_of("-0123456789,.") != line.npos) continue;
    const double delay_ps = std::stod(line);
    const double count = std::stod(line.substr(line.rfind(',') + 1));
    if (std::abs(delay_ps) < 1000) within += count;
    if (std::abs(delay_ps - 12'500) < 1000) beside += count;
  }
  EXPECT_GT(beside, 1000);
  EXPECT_LT(within, 0.05 * beside);
}

}  // namespace
