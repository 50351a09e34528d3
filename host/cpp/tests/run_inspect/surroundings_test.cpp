// vq_inspect_stream_file on a terminal, and on captures that change while it reads them.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <regex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/inspected_capture.hpp"
#include "support/sanitizer.hpp"
#include "support/stopped_amid.hpp"

namespace {

using namespace orvo::test;
using testing::IsEmpty;
namespace fs = std::filesystem;

constexpr std::uintmax_t kGapBytes = (kUnderAddressSanitizer ? 24 : 64) << 20;

/// A terminal of its own: what is written to one end is read at the other.
class PseudoTerminal {
 public:
  PseudoTerminal() : master_(::posix_openpt(O_RDWR | O_NOCTTY)) {
    if (master_ < 0 || ::grantpt(master_) != 0 || ::unlockpt(master_) != 0) throw std::runtime_error("no terminal");
    slave_ = ::open(::ptsname(master_), O_RDWR | O_NOCTTY);
    if (slave_ < 0) throw std::runtime_error("no terminal");
  }
  PseudoTerminal(const PseudoTerminal&) = delete;
  PseudoTerminal& operator=(const PseudoTerminal&) = delete;
  ~PseudoTerminal() {
    if (slave_ >= 0) ::close(slave_);
    ::close(master_);
  }

  int slave() const { return slave_; }
  /// All that was written. Nobody can write any more.
  std::string written() {
    ::close(std::exchange(slave_, -1));
    std::string text;
    char part[4096];
    for (ssize_t count; (count = ::read(master_, part, sizeof part)) > 0;) {
      text.append(part, static_cast<std::size_t>(count));
    }
    return text;
  }

 private:
  int master_;
  int slave_ = -1;
};

class InspectSurroundings : public InspectedCapture {
 protected:
  /// Two tags, a gap without tags that takes no disk space, two tags.
  void write_long_capture() const {
    const Bytes pair = cf_record(0, 1000, 0) + cf_record(1, 1001, 180);
    std::string header = made_header();
    header.replace(header.find("\"ps\""), 4, "\"raw_cf\"");
    write(header, pair);
    fs::resize_file(path(), kGapBytes);
    append(pair);
  }
  void append(const Bytes& bytes) const {
    std::ofstream out(path(), std::ios::binary | std::ios::app);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  }

  /// Inspects the long capture and does something to it while the program is within the gap: to the exit status.
  int inspect_and(std::function<void()> meanwhile, std::vector<std::string> options, int err = -1) const {
    std::vector<std::string> words = {ORVO_TEST_INSPECTOR, "c.tagcap"};
    words.insert(words.end(), options.begin(), options.end());
    return run_stopped_amid({.words = std::move(words),
                             .directory = directory().path(),
                             .file = path(),
                             .from = 1 << 20,
                             .to = kGapBytes - (8 << 20),
                             .prepare = [this] { write_long_capture(); },
                             .meanwhile = std::move(meanwhile),
                             .err = err});
  }
  Json inspected_and(std::function<void()> meanwhile) const {
    EXPECT_EQ(inspect_and(std::move(meanwhile), {"--quiet", "--json", "r.json"}), 0);
    return Json::parse(read_file(directory() / "r.json"));
  }
  static void let_a_second_pass() { std::this_thread::sleep_for(std::chrono::milliseconds(1100)); }
};

// The line tells how far it is, how fast, and how long it takes; it is gone when the report comes.
TEST_F(InspectSurroundings, ATerminalShowsTheProgressOfALongRun) {
  PseudoTerminal terminal;
  EXPECT_EQ(inspect_and(let_a_second_pass, {}, terminal.slave()), 0);
  const std::string shown = terminal.written();
  const std::regex line("(\rinspecting: [0-9]+ %, [0-9.]+ [KMG]iB/s, [0-9.]+ [munp]?s left *)+\r( +)\r");
  EXPECT_TRUE(std::regex_match(shown, line)) << testing::PrintToString(shown);
}

// The second that passes is one of the inspection. What follows shows its own line at once, and leaves none, either.
TEST_F(InspectSurroundings, ATerminalShowsTheProgressOfPairs) {
  PseudoTerminal terminal;
  EXPECT_EQ(inspect_and(let_a_second_pass, {"--pair=0,1"}, terminal.slave()), 0);
  const std::string shown = terminal.written();
  const std::regex lines(
      "(\rinspecting: [^\r]+)+\r +\r(\rcorrelating: (pass [0-9]+, [0-9]+ %|channels 0 and 1) *)+\r +\r");
  EXPECT_TRUE(std::regex_match(shown, lines)) << testing::PrintToString(shown);
}

TEST_F(InspectSurroundings, AShortRunShowsNoProgress) {
  write({{0, 10}, {1, 25}});
  PseudoTerminal terminal;
  const std::string on_terminal =
      "exec " ORVO_TEST_INSPECTOR " c.tagcap 2>" + std::string(::ttyname(terminal.slave()));
  const ProgramResult result = run_program({.program = "/bin/sh",
                                            .arguments = {"-c", on_terminal},
                                            .directory = directory().path(),
                                            .argv0 = {},
                                            .environment = {}});
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_EQ(terminal.written(), "");
}

TEST_F(InspectSurroundings, NoProgressWhereThatIsAsked) {
  PseudoTerminal terminal;
  EXPECT_EQ(inspect_and(let_a_second_pass, {"--no-progress"}, terminal.slave()), 0);
  EXPECT_EQ(terminal.written(), "");
}

TEST_F(InspectSurroundings, NoProgressWhereThereIsNoTerminal) {
  const std::string file = (directory() / "err").string();
  const int err = ::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  EXPECT_EQ(inspect_and(let_a_second_pass, {}, err), 0);
  ::close(err);
  EXPECT_EQ(read_file(file), "");
}

// 12 bytes stand before the header.
TEST_F(InspectSurroundings, ACaptureThatGrowsIsReportedToItsNewEnd) {
  const Json report = inspected_and([this] { append(cf_record(2, 2000, 0)); });
  EXPECT_EQ(report.at("tags"), 5);
  EXPECT_EQ(report.at("file").at("bytes"), kGapBytes + 24);
  const std::uintmax_t payload = kGapBytes + 24 - 12 - header().size();
  EXPECT_EQ(report.at("file").at("payload_bytes"), payload);
  EXPECT_EQ(report.at("payload").at("bytes"), payload);
}

TEST_F(InspectSurroundings, ACaptureThatShrinksIsReportedAsFarAsItWasRead) {
  const Json report = inspected_and([this] { fs::resize_file(path(), 100); });
  EXPECT_EQ(report.at("tags"), 2);
  const std::uintmax_t bytes = report.at("file").at("bytes");
  EXPECT_GT(bytes, 1u << 20);
  EXPECT_LT(bytes, kGapBytes);
  EXPECT_EQ(bytes, std::uintmax_t{report.at("payload").at("bytes")} + 12 + made_header().size() + 4);
  std::uintmax_t sum = 0;
  for (const Json& each : report.at("payload").at("classes")) sum += std::uintmax_t{each.at("bytes")};
  EXPECT_EQ(sum, std::uintmax_t{report.at("payload").at("bytes")});
}

TEST_F(InspectSurroundings, ACaptureThatIsRemovedIsReadToItsEnd) {
  EXPECT_EQ(inspected_and([this] { fs::remove(path()); }).at("tags"), 4);
}

}  // namespace
