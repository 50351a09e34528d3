// The converter from outside: pipes, full disks, interrupts, memory.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "convert/conversion.hpp"
#include "support/run_program.hpp"
#include "support/sanitizer.hpp"

namespace {

using testing::HasSubstr;

class Converter : public Conversion {
 protected:
  /// $0 is the converter.
  ProgramResult shell(const std::string& line) const {
    return run_program({.program = "/bin/bash",
                        .arguments = {"-c", "set -o pipefail; " + line, ORVO_TEST_CONVERTER},
                        .directory = directory(),
                        .argv0 = {},
                        .environment = {}});
  }
  std::size_t files() const {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(directory()), {}));
  }
};

TEST_F(Converter, AnswersHelpAndVersion) {
  EXPECT_THAT(shell("\"$0\" --help").out, HasSubstr("Usage: vq_convert_stream_file [OPTIONS]"));
  EXPECT_EQ(shell("\"$0\" --version").out, "vq_convert_stream_file " + std::string(orvo::timing::kVersion) + "\n");
  const ProgramResult nothing = shell("\"$0\"");
  EXPECT_EQ(nothing.exit_status, 64);
  EXPECT_THAT(nothing.err, HasSubstr("name at least one input and OUT"));
}

TEST_F(Converter, ReadsAndWritesPipes) {
  const Tags tags = tags_in_turn(1, 200'000, 0, 100'000);
  write_capture("in.tagcap", raw64_header(), tags);
  const ProgramResult piped =
      shell("cat in.tagcap | \"$0\" --encoding packed_delta - - | cat | \"$0\" --encoding raw64 - out.tagcap");
  EXPECT_EQ(piped.exit_status, 0) << piped.err;
  EXPECT_THAT(piped.err, HasSubstr("out=-\ntags=200000\n")) << "standard output is OUT";
  expect_same(tags_of("out.tagcap"), tags);
  EXPECT_EQ(shell("\"$0\" in.tagcap a.npy && \"$0\" in.tagcap - --format npy 2> told | cmp - a.npy").exit_status, 0);
  EXPECT_EQ(shell("\"$0\" in.tagcap a.csv && \"$0\" in.tagcap - --format csv 2> told | cmp - a.csv").exit_status, 0);
}

TEST_F(Converter, AppendsToStandardOutput) {
  write_capture("in.tagcap", raw64_header(), tags_in_turn(1, 1000, 0, 100'000));
  for (const std::string format : {"tagcap", "csv", "npy"}) {
    const std::string convert = "\"$0\" in.tagcap - --format " + format;
    EXPECT_EQ(shell("printf before > appended; " + convert + " >> appended; " + convert +
                    " | cat <(printf before) - | cmp - appended")
                  .exit_status,
              0)
        << format;
  }
}

// Files may grow to 512 bytes, as on a full disk.
TEST_F(Converter, LeavesNoOutOnAFullDisk) {
  write_capture("in.tagcap", raw64_header(), tags_in_turn(1, 50'000, 0, 100'000));
  for (const std::string out : {"out.tagcap", "out.csv", "out.npy"}) {
    const ProgramResult full = shell("ulimit -f 1; exec \"$0\" in.tagcap " + out);
    EXPECT_EQ(full.exit_status, 1) << out;
    EXPECT_EQ(full.err, "cannot write all of " + out + "\n");
    EXPECT_EQ(files(), 1u) << out;
  }
  EXPECT_EQ(shell("\"$0\" in.tagcap - > /dev/full").exit_status, 1);
  EXPECT_EQ(shell("\"$0\" in.tagcap - --format csv > /dev/full").exit_status, 1);
  EXPECT_EQ(shell("\"$0\" in.tagcap out.tagcap > /dev/full").exit_status, 1) << "not told";
}

TEST_F(Converter, LeavesNoOutWhenInterrupted) {
  write_capture("in.tagcap", raw64_header(), tags_in_turn(1, 400'000, 0, 100'000));
  const ProgramResult stopped = shell(
      "mkfifo pipe; (cat in.tagcap; sleep 10) > pipe & feeder=$!\n"
      "\"$0\" pipe out.csv & converter=$!\n"
      "for i in {1..500}; do ls out.csv.partial-* > /dev/null 2>&1 && break; sleep 0.01; done\n"
      "kill -TERM $converter; wait $converter; status=$?; kill $feeder; exit $status");
  EXPECT_EQ(stopped.exit_status, 128 + 15);
  EXPECT_EQ(files(), 2u) << "the capture and the pipe";
}

// 8 million tags of 16 bytes would not fit.
TEST_F(Converter, NeedsNoMoreMemoryForMoreTags) {
  if (orvo::test::kUnderAddressSanitizer) GTEST_SKIP() << "the sanitizer's shadow is larger";
  orvo::timing::TagFileWriter writer;
  writer.open(path("in.tagcap"), raw64_header());
  for (int i = 0; i < 80; ++i) writer.write(tags_in_turn(1, 100'000, 1 + i * 50'000'000'000LL, 100'000));
  writer.close();
  const ProgramResult result = shell("ulimit -v 110000; exec \"$0\" in.tagcap out.tagcap --encoding delta32");
  EXPECT_EQ(result.exit_status, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("tags=8000000\n"));
}

TEST_F(Converter, GivesArraysThatNumpyLoads) {
  if (shell("/usr/bin/python3 -c 'import numpy'").exit_status != 0) GTEST_SKIP() << "there is no NumPy here";
  write_capture("in.tagcap", raw64_header(), {tag(3, 1'234'567'890'123), tag(0, 7), tag(1, 8)});
  EXPECT_EQ(shell("\"$0\" in.tagcap out.npy").exit_status, 0);
  const ProgramResult loaded = shell(
      "/usr/bin/python3 -c \"import numpy\n"
      "for mode in None, 'r':\n"
      "  a = numpy.load('out.npy', allow_pickle=False, mmap_mode=mode)\n"
      "  print(a.dtype.names, a.shape, a['channel'].tolist(), a['time_ps'].tolist(), a['time_ps'].dtype)\"");
  const std::string line = "('channel', 'time_ps') (3,) [3, 0, 1] [1234567890123, 7, 8] int64\n";
  EXPECT_EQ(loaded.out, line + line) << loaded.err;
}

}  // namespace
