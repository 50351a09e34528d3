// What vq_inspect_stream_file may cost at most, whatever a capture contains: 64 MiB beside the bytes that wait to be
// decoded, and time in proportion to the capture's size.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "support/hostile_captures.hpp"
#include "support/inspected_capture.hpp"
#include "support/run_program.hpp"
#include "support/sanitizer.hpp"

namespace {

using namespace orvo::test;

constexpr std::int64_t kMiB = 1 << 20;
// Sanitizers have to see these captures; what they take is their own affair.
constexpr std::int64_t kTimedBytes = kUnderAddressSanitizer ? kMiB / 16 : 2 * kMiB;

class InspectCeilings : public InspectedCapture {
 protected:
  /// The test itself must stay small: the kernel counts its memory as that of the program it starts.
  void write_pieces(const std::string& header, const Pieces& pieces, std::int64_t bytes) const {
    write(header, {});
    std::ofstream out(path(), std::ios::binary | std::ios::app);
    while (out.tellp() < bytes) {
      const Bytes part = pieces();
      out.write(reinterpret_cast<const char*>(part.data()), static_cast<std::streamsize>(part.size()));
    }
    out.close();
    std::filesystem::resize_file(path(), static_cast<std::uintmax_t>(bytes));
  }

  ProgramResult inspected() const {
    ProgramResult run = run_program(ORVO_TEST_INSPECTOR, {"c.tagcap", "--json", "r.json", "--html", "r.html"},
                                    directory().path(), 3600);
    EXPECT_EQ(run.exit_status, 0) << run.err;
    return run;
  }

  /// Four times the bytes may take twelve times the time, and half a second for other work on the machine; what grows
  /// with the square takes sixteen times. More bytes take no more memory, but for those that wait to be decoded: so
  /// many for each byte.
  void expect_bounded(const std::vector<HostileCapture>& captures, std::int64_t bytes, std::int64_t waiting) const {
    for (const HostileCapture& hostile : captures) {
      write_pieces(hostile.header, hostile.pieces, bytes);
      const ProgramResult small = inspected();
      if (kUnderAddressSanitizer) continue;
      write_pieces(hostile.header, hostile.pieces, 4 * bytes);
      const ProgramResult large = inspected();
      EXPECT_LE(large.cpu_seconds, 12 * small.cpu_seconds + 0.5) << hostile.name;
      EXPECT_LE(large.peak_bytes, small.peak_bytes + 4 * kMiB + 4 * waiting * bytes) << hostile.name;
    }
  }

  /// The one capture of a list that is called so.
  static HostileCapture named(std::vector<HostileCapture> captures, const std::string& name) {
    const auto found = std::find_if(captures.begin(), captures.end(),
                                    [&name](const HostileCapture& capture) { return capture.name == name; });
    EXPECT_NE(found, captures.end()) << name;
    return *found;
  }
};

TEST_F(InspectCeilings, MemoryDoesNotDependOnTheCapture) {
  if (kUnderAddressSanitizer) GTEST_SKIP() << "the sanitizer's own memory is counted with it";
  for (const HostileCapture& large :
       {named(hostile_raw64(), "raw64 sorted"), named(hostile_delta32(), "delta32 events"),
        named(hostile_packed(1), "packed events d=16")}) {
    write_pieces(large.header, large.pieces, 80 * kMiB);
    EXPECT_LE(inspected().peak_bytes, 64 * kMiB) << large.name;
  }
}

// Records that nobody decodes are not kept.
TEST_F(InspectCeilings, MemoryDoesNotDependOnRecordsThatAreTooWide) {
  if (kUnderAddressSanitizer) GTEST_SKIP() << "the sanitizer's own memory is counted with it";
  write_pieces(made_header("packed_delta", 3, 40), repeated(Bytes(8, 0x55)), 80 * kMiB);
  EXPECT_LE(inspected().peak_bytes, 64 * kMiB);
}

TEST_F(InspectCeilings, MemoryDoesNotDependOnTheHeader) {
  if (kUnderAddressSanitizer) GTEST_SKIP() << "the sanitizer's own memory is counted with it";
  for (const std::string unit : {"[", "{\"a\":", "\"a\":1,", "\\u0041"}) {
    std::string header = "{";
    while (header.size() < 8 * kMiB) header += unit;
    write(header, raw64_payload({{0, 10}}));
    EXPECT_LE(inspected().peak_bytes, 64 * kMiB) << unit;
  }
}

TEST_F(InspectCeilings, TimeGrowsWithTheSizeOfRaw64AndMemoryDoesNot) {
  expect_bounded(hostile_raw64(), kTimedBytes, 0);
}
TEST_F(InspectCeilings, TimeGrowsWithTheSizeOfDelta32AndMemoryDoesNot) {
  expect_bounded(hostile_delta32(), kTimedBytes, 0);
}
TEST_F(InspectCeilings, TimeGrowsWithTheSizeOfPackedDelta) {
  expect_bounded(hostile_packed(1), kTimedBytes / 8, 3);
}

}  // namespace
