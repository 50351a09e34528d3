// What a file of n bytes may cost at most, whatever it contains: processor time and memory grow in proportion to n.
// The files are the most expensive ones known; docs/robustness.md has the figures.
//
// ORVO_CEILING_MIB sets their size (4, and a quarter under sanitizers); with ORVO_CEILING_REPORT set, each figure is
// printed.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "support/hostile_captures.hpp"
#include "support/product_root.hpp"
#include "support/strict_json.hpp"

namespace {

using namespace orvo::test;

constexpr std::int64_t kMiB = 1 << 20;

std::int64_t file_bytes() {
  const char* const mib = std::getenv("ORVO_CEILING_MIB");
  if (mib != nullptr) return std::strtoll(mib, nullptr, 10) * kMiB;
  return kUnderAddressSanitizer ? kMiB / 8 : 4 * kMiB;
}

/// What each byte of a file may cost, on top of what any run may cost.
struct Cost {
  double seconds_per_mib;
  double bytes_per_byte;
};
constexpr Cost kHeader{0.2, 5};
constexpr Cost kRaw64{0.02, 2};
constexpr Cost kDelta32{0.02, 3};
constexpr Cost kPacked{0.4, 20};
constexpr double kSecondsAtAnySize = 0.2;
constexpr double kBytesAtAnySize = 16 * kMiB;
/// Allows for other work on the machine, and for a tool built without optimisation under the sanitizers.
constexpr double kPatience = kUnderAddressSanitizer ? 100 : 5;

class Ceilings : public ProductRoot {
 protected:
  fs::path capture() const { return cwd() / "c.tagcap"; }
  static std::int64_t capture_bytes_wanted() { return file_bytes(); }

  /// The test itself must stay small: the kernel counts its memory as that of the program it starts.
  void write_capture(const std::string& header, const Pieces& pieces) const {
    std::ofstream out(capture(), std::ios::binary);
    const auto append = [&out](const Bytes& part) {
      out.write(reinterpret_cast<const char*>(part.data()), static_cast<std::streamsize>(part.size()));
    };
    append(capture_bytes(header, {}));
    while (out.tellp() < capture_bytes_wanted()) append(pieces());
    out.close();
    fs::resize_file(capture(), static_cast<std::uintmax_t>(capture_bytes_wanted()));
  }

  /// A run with settings that count hardly any pairs.
  void check(const std::string& name, const Cost& ceiling, int exit_status) const {
    const auto tool = [this](const std::vector<std::string>& arguments) {
      return run_program(ORVO_TEST_TOOL, arguments, cwd(), 3600);
    };
    const ProgramResult idle = tool({"--help"});
    const ProgramResult run = tool({"c.tagcap", "0", "1", "--range=1", "--bin=1", "--out-prefix=r"});
    EXPECT_EQ(run.exit_status, exit_status) << name << ": " << run.err;
    const auto size = static_cast<double>(fs::file_size(capture()));
    const double mib = size / static_cast<double>(kMiB);
    const auto bytes = static_cast<double>(run.peak_bytes - idle.peak_bytes);
    EXPECT_LE(run.cpu_seconds, kPatience * (kSecondsAtAnySize + ceiling.seconds_per_mib * mib)) << name;
    if (!kUnderAddressSanitizer) {
      EXPECT_LE(bytes, kBytesAtAnySize + ceiling.bytes_per_byte * size) << name;
    }
    if (std::getenv("ORVO_CEILING_REPORT") == nullptr) return;
    std::printf("%-44s %4.0f MiB %8.1f ms/MiB %8.2f MiB %7.2f bytes/byte\n", name.c_str(), mib,
                1000 * run.cpu_seconds / mib, bytes / static_cast<double>(kMiB), bytes / size);
    std::fflush(stdout);
  }

  double decoded_tags() const {
    const auto json = StrictJson::parse(read_file(cwd() / "r.json"));
    return json ? std::stod(json->at("decoded_tags").text) : 0;
  }

  void check_all(const std::vector<HostileCapture>& captures, const Cost& ceiling) const {
    for (const HostileCapture& hostile : captures) {
      write_capture(hostile.header, hostile.pieces);
      check(hostile.name, ceiling, 0);
      const double fewest_tags = 0.9 * hostile.tags_per_byte * static_cast<double>(capture_bytes_wanted());
      EXPECT_GE(decoded_tags(), fewest_tags) << hostile.name;
    }
  }
};

TEST_F(Ceilings, AHeaderLongerThanItsFile) {
  for (const auto claim : {std::uint32_t{0xFFFF'FFFF}, static_cast<std::uint32_t>(capture_bytes_wanted())}) {
    write_file(capture(), text_bytes("TAGCAP1\n") + little_endian(claim, 4));
    fs::resize_file(capture(), static_cast<std::uintmax_t>(capture_bytes_wanted()));
    check("header of " + std::to_string(claim) + " bytes claimed", kHeader, 1);
  }
}

TEST_F(Ceilings, AHeaderAsLongAsItsFile) {
  for (const auto& [name, unit] :
       std::vector<std::pair<std::string, std::string>>{{"quotes", "\""},
                                                        {"backslashes", "\\"},
                                                        {"almost keys", "\"mod"},
                                                        {"keys without colons", "\"mode\"\"quantum_ps\""},
                                                        {"one value without end", "9"}}) {
    write_capture(R"({"stream_format":"raw64","application":")", repeated(text_bytes(unit)));
    std::fstream file(capture(), std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(8);
    const Bytes length = little_endian(static_cast<std::uint64_t>(capture_bytes_wanted() - 12), 4);
    file.write(reinterpret_cast<const char*>(length.data()), 4).flush();
    check("header of " + name, kHeader, 0);
  }
}

TEST_F(Ceilings, Raw64) {
  check_all(hostile_raw64(), kRaw64);
}
TEST_F(Ceilings, Delta32) {
  check_all(hostile_delta32(), kDelta32);
}
TEST_F(Ceilings, PackedDelta) {
  check_all(hostile_packed(std::max<std::int64_t>(file_bytes() / kMiB, 1)), kPacked);
}

}  // namespace
