// What the simulator leaves on disk and says about it: the same file for the same options, or none.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "orvo/timing/version.hpp"
#include "support/simulated_capture.hpp"

namespace {

using namespace orvo::test;
using Arguments = std::vector<std::string>;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

class SimulatedFiles : public SimulatedCapture {
 protected:
  std::string capture(Arguments arguments) {
    simulate(std::move(arguments));
    return read_file(cwd() / "c.tagcap");
  }
  std::vector<std::string> names() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(cwd())) names.push_back(entry.path().filename().string());
    return names;
  }
  /// A failure leaves the exit status, a message and no file.
  void expect_failure(const Arguments& arguments, int exit_status, const std::string& message) {
    EXPECT_EQ(seen(simulator(arguments)), seen(exit_status, "", message + "\n"));
    EXPECT_EQ(names(), std::vector<std::string>{});
  }
  /// Runs a line of shell in cwd(); "$0" is the simulator.
  ProgramResult shell_with_simulator(const std::string& line) {
    return run({.program = "/bin/sh", .arguments = {"-c", line, ORVO_TEST_SIMULATOR}});
  }
};

std::uint64_t fnv1a(const std::string& bytes) {
  std::uint64_t hash = 0xCBF2'9CE4'8422'2325;
  for (const char byte : bytes) hash = (hash ^ static_cast<std::uint8_t>(byte)) * 0x100'0000'01B3;
  return hash;
}

// Sizes and hashes from simulate/derive_captures.py, which simulates this capture by itself.
TEST_F(SimulatedFiles, AreTheSameForEver) {
  struct Expected {
    Arguments encoding;
    std::size_t bytes;
    std::uint64_t hash;
  };
  const Expected all[] = {
      {{"--encoding=raw64"}, 40411, 0xd84ce058f943e052},
      {{"--tag-format=raw_cf"}, 40415, 0x76667b8d620ee121},
      {{"--encoding=delta32", "--anchor-every=100"}, 21025, 0x7ead8d9e0ebf494d},
      {{"--encoding=packed_delta", "--delta-bits=12", "--anchor-every=100"}, 19596, 0xa799dd567e63e5e5}};
  for (const Expected& expected : all) {
    Arguments arguments{"--channels=0,1,2",    "--rate=1000000,500000,200000",
                        "--pair-channels=2,0", "--pair-rate=300000",
                        "--delay=-700",        "--jitter=90",
                        "--dead-time=30ns",    "--start=5us",
                        "--seed=42",           "--tags=5000"};
    arguments.insert(arguments.end(), expected.encoding.begin(), expected.encoding.end());
    const std::string bytes = capture(arguments);
    EXPECT_EQ(bytes.size(), expected.bytes) << expected.encoding[0];
    EXPECT_EQ(fnv1a(bytes), expected.hash) << expected.encoding[0];
  }
}

TEST_F(SimulatedFiles, AreTheSameForTheSameSeedAlone) {
  const Arguments arguments{"--tags=100000", "--encoding=packed_delta", "--flip-every=500", "--front-garbage=20"};
  const std::string bytes = capture(arguments);
  EXPECT_EQ(capture(arguments), bytes);
  Arguments other = arguments;
  other.push_back("--seed=2");
  EXPECT_NE(capture(other), bytes);
}

TEST_F(SimulatedFiles, StandAlone) {
  simulate({"--tags=1000"});
  EXPECT_EQ(names(), std::vector<std::string>{"c.tagcap"});
}

TEST_F(SimulatedFiles, ReplaceAnEarlierOne) {
  write_file(cwd() / "c.tagcap", "earlier");
  EXPECT_THAT(capture({"--tags=1000"}), StartsWith("TAGCAP1\n"));
}

TEST_F(SimulatedFiles, AreNotThereForUnusableOptions) {
  expect_failure({}, 64, "no file given: name the capture to write (--help lists the options)");
  expect_failure({"c.tagcap", "--delta-bits=32", "--encoding=packed_delta"}, 64,
                 "--delta-bits: '32' is not a whole number from 1 to 31");
  expect_failure({"c.tagcap", "--colour=red"}, 64, "unknown option --colour (--help lists the options)");
  expect_failure({"c.tagcap", "--pair-channels=0,2"}, 64, "--pair-channels: channel 2 is not active (--channels)");
}

TEST_F(SimulatedFiles, AreNotThereWhenTheirDirectoryIsNot) {
  expect_failure({"missing/c.tagcap"}, 1, "cannot create missing/c.tagcap");
  expect_failure({"/dev/full"}, 1, "/dev/full is not an ordinary file");
}

// Three tags are too few for a decoder to align packed records of four channels.
TEST_F(SimulatedFiles, AreNotThereWhenDecodersWouldNotFindTheirStart) {
  expect_failure({"c.tagcap", "--channels=0,1,2,3", "--encoding=packed_delta", "--mode=internal", "--tags=3"}, 1,
                 "decoders would not align this capture's first records: it takes at least two active channels that "
                 "click within the first 64 KiB, in internal mode all of them and about equally often");
}

// A file may grow to 100 blocks of 512 bytes only, so the first write fails, or the last one of a short capture.
TEST_F(SimulatedFiles, AreNotThereWhenTheDiskIsFull) {
  for (const char* tags : {"2000000", "10000"}) {
    const ProgramResult result =
        shell_with_simulator("ulimit -f 100; exec \"$0\" c.tagcap --tags=" + std::string(tags));
    EXPECT_EQ(seen(result), seen(1, "", "cannot write all of c.tagcap\n"));
    EXPECT_EQ(names(), std::vector<std::string>{});
  }
}

TEST_F(SimulatedFiles, KeepAnEarlierOneWhenTheDiskIsFull) {
  write_file(cwd() / "c.tagcap", "earlier");
  EXPECT_EQ(shell_with_simulator("ulimit -f 100; exec \"$0\" c.tagcap --tags=2000000").exit_status, 1);
  EXPECT_EQ(read_file(cwd() / "c.tagcap"), "earlier");
  EXPECT_EQ(names(), std::vector<std::string>{"c.tagcap"});
}

TEST_F(SimulatedFiles, AreNotThereWhenTheProgramIsStopped) {
  for (const int number : {SIGINT, SIGTERM}) {
    const pid_t child = ::fork();
    if (child == 0) {
      const int nowhere = ::open("/dev/null", O_WRONLY);
      ::dup2(nowhere, 1);
      if (::chdir(cwd().c_str()) != 0) ::_exit(126);
      ::execl(ORVO_TEST_SIMULATOR, ORVO_TEST_SIMULATOR, "c.tagcap", "--tags=1000000000", nullptr);
      ::_exit(127);
    }
    while (names().empty()) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_THAT(names().at(0), StartsWith("c.tagcap.partial-"));
    ::kill(child, number);
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == number);
    EXPECT_EQ(names(), std::vector<std::string>{});
  }
}

TEST_F(SimulatedFiles, AreCompleteEvenIfTheAnswerCannotBeTold) {
  const ProgramResult result = shell_with_simulator("\"$0\" c.tagcap --tags=1000 > /dev/full");
  EXPECT_EQ(seen(result), seen(1, "", "cannot write to standard output\n"));
  EXPECT_EQ(names(), std::vector<std::string>{"c.tagcap"});
}

TEST_F(SimulatedFiles, SayWhatTheyAre) {
  const std::string bytes =
      capture({"--tags=10", "--seed=7", "--channels=1,3", "--encoding=delta32", "--mode=internal"});
  EXPECT_THAT(bytes, AllOf(HasSubstr(R"("application":"vq_simulate_stream_file","device_product":"simulation",)"),
                           HasSubstr(R"("device_serial":"seed 7",)"), HasSubstr(R"("stream_format":"delta32",)"),
                           HasSubstr(R"("mode":"internal",)"), HasSubstr(R"("channel_mask":10,)")));
}

TEST_F(SimulatedFiles, ComeWithAnAnswerThatAsksForTheirVerification) {
  const ProgramResult result = simulator({"c.tagcap", "--tags=1000", "--delay=77", "--range=3ns"});
  EXPECT_THAT(result.out, StartsWith("capture=c.tagcap\ntags=1000\nch0="));
  EXPECT_THAT(result.out, HasSubstr("\nverify=vq_verify_stream_file_xcorr c.tagcap 0 1 --offset=77 --range=3000\n"));
}

TEST_F(SimulatedFiles, NeedNoneForHelpOrTheVersion) {
  const ProgramResult help = simulator({"--seed=x", "--help"});
  EXPECT_EQ(help.exit_status, 0);
  EXPECT_EQ(help.err, "");
  EXPECT_THAT(help.out, HasSubstr("\nUsage: vq_simulate_stream_file [OPTIONS] [FILE]\n"));
  const ProgramResult version = simulator({"--seed=x", "--version"});
  EXPECT_EQ(seen(version), seen(0, "vq_simulate_stream_file " + std::string(orvo::timing::kVersion) + "\n", ""));
  EXPECT_EQ(names(), std::vector<std::string>{});
}

}  // namespace
