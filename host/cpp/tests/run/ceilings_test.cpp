// What a file of n bytes may cost at the most, whatever is in it: processor time and memory grow with n and no
// faster. The inputs are those that hurt most; docs/robustness.md has the figures.
//
// ORVO_CEILING_MIB sets the size of the files (1); with ORVO_CEILING_REPORT set, each figure is printed.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "model/packed_streams.hpp"
#include "support/delta32_payload.hpp"
#include "support/measured_run.hpp"
#include "support/product_root.hpp"
#include "support/strict_json.hpp"

namespace {

using namespace orvo::test;
using model::PackedEncoder;

constexpr std::int64_t kMiB = 1 << 20;

std::int64_t file_mib() {
  const char* const text = std::getenv("ORVO_CEILING_MIB");
  return text == nullptr ? 1 : std::strtoll(text, nullptr, 10);
}

/// Bytes of a payload, piece by piece: the test itself stays small, as the kernel counts it in with the program.
using Pieces = std::function<Bytes()>;

struct Cost {
  double seconds_per_mib;
  double bytes_per_byte;
};

/// Held by each of the encoding's inputs below, on top of what any run costs.
constexpr Cost kContainer{0.2, 3};
constexpr Cost kRaw64{0.5, 12};
constexpr Cost kDelta32{0.5, 12};
constexpr Cost kPacked{2.0, 200};
constexpr double kSecondsAtAnySize = 1;
constexpr double kBytesAtAnySize = 64 * kMiB;
/// Other work on the machine, and a tool built without optimisation under the sanitizers.
constexpr double kPatience = kUnderAddressSanitizer ? 60 : 4;

struct HostileInput {
  std::string name;
  Cost ceiling;
  std::string header;
  Pieces pieces;
  double tags_per_byte = 0;  // at least nine tenths of it, or the input is not what it is called
};

std::string raw64_header(const std::string& tags) {
  return R"({"stream_format":"raw64","raw64_tag_format":")" + tags + "\"}";
}

std::string packed_header(unsigned delta_bits, const std::string& mode, unsigned mask) {
  return R"({"stream_format":"packed_delta","mode":")" + mode + R"(","channel_mask":)" + std::to_string(mask) +
         R"(,"packed_delta_config":{"delta_bits":)" + std::to_string(delta_bits) + R"(,"quantum_ps":1}})";
}

Pieces repeated(Bytes unit) {
  while (unit.size() < 60'000) unit += Bytes(unit);
  return [unit] { return unit; };
}

/// `first` once, then the unit without end.
Pieces once_then(const Bytes& first, const Bytes& unit) {
  return [first, rest = repeated(unit), begun = false]() mutable {
    if (begun) return rest();
    begun = true;
    return first;
  };
}

Pieces noise() {
  return [engine = std::mt19937_64(1)]() mutable {
    Bytes out;
    while (out.size() < 65'536) out += big_endian(engine(), 8);
    return out;
  };
}

/// Records of channels 0 and 1 in turn at the times that `time_ps` gives for 0, 1, 2, ...
Pieces raw64_at(std::function<std::uint64_t(std::uint64_t)> time_ps) {
  return [time_ps, next = std::uint64_t{0}]() mutable {
    Bytes out;
    for (int i = 0; i < 8192; ++i, ++next) out += ps_record(next % 2, time_ps(next));
    return out;
  };
}

/// Channels 0 to 3 in turn, each event with a time base of its own.
Pieces delta32_bases() {
  return [time_ps = std::uint64_t{0}]() mutable {
    Bytes out;
    for (std::uint32_t i = 0; i < 4096; ++i) out += d32_base(time_ps += 1000) + d32_event(i % 4, 0);
    return out;
  };
}

/// Eight times what `write` writes, which fills whole bytes.
Bytes packed_records(unsigned delta_bits, const std::function<void(PackedEncoder&)>& write) {
  PackedEncoder out(delta_bits);
  for (int i = 0; i < 8; ++i) write(out);
  return out.bytes;
}

void anchor(PackedEncoder& out, std::uint32_t channel, std::uint64_t quanta) {
  out.sync(channel, quanta);
  out.record(channel, false, 0);
}

/// Channels 0 and 1 locked at `quanta`, and the records that fill the last byte.
Bytes packed_lock(unsigned delta_bits, std::uint64_t quanta) {
  PackedEncoder out(delta_bits);
  anchor(out, 0, quanta);
  anchor(out, 1, quanta);
  while (out.records * (delta_bits + 3) % 8 != 0) out.record(out.records % 2, false, 1);
  return out.bytes;
}

/// Each record is an event of channel 0 or 1.
Bytes packed_events(unsigned delta_bits) {
  return packed_records(delta_bits, [](PackedEncoder& out) {
    out.record(0, false, 1);
    out.record(1, false, 1);
  });
}

/// Anchors of both channels that go back in time: each costs the lock, but the search for it cannot see them.
Bytes lost_locks(unsigned delta_bits) {
  return packed_records(delta_bits, [](PackedEncoder& out) {
    for (const std::uint64_t quanta : {1'000'000'000, 5}) {
      anchor(out, 0, quanta);
      anchor(out, 1, quanta);
    }
  });
}

/// So many of them that most reads lose their lock at once: one of the last then finds most of the file undecoded,
/// event by event. A lost lock costs the 64 bytes that the search may skip and little more.
Bytes lost_locks_for(unsigned delta_bits, std::int64_t reads) {
  Bytes out;
  while (static_cast<std::int64_t>(out.size()) < 64 * reads) out += lost_locks(delta_bits);
  return out + packed_lock(delta_bits, 1);
}

/// In each read two channels at the same rate for as long as the search looks, then one channel alone.
Pieces out_of_balance() {
  return [pieces = 0]() mutable {
    PackedEncoder out(1);
    const bool balanced = pieces % 16 < 2;
    if (pieces % 16 == 0) anchor(out, 0, 1);
    if (pieces % 16 == 0) anchor(out, 1, 1);
    while (out.records < 131'072) out.record(balanced ? out.records % 2 : 0, false, 1);  // 64 KiB
    ++pieces;
    return out.bytes;
  };
}

std::vector<HostileInput> raw64_inputs() {
  const auto ascending = [](std::uint64_t n) { return 100 * n; };
  const auto descending = [](std::uint64_t n) { return (std::uint64_t{1} << 43) - 100 * n; };
  const auto scattered = [](std::uint64_t n) { return n * 0x9E37'79B9'7F4A'7C15 >> 20; };
  return {{"raw64 zeros", kRaw64, raw64_header("ps"), repeated(Bytes(8, 0)), 0.125},
          {"raw64 ones", kRaw64, raw64_header("ps"), repeated(Bytes(8, 0xFF))},
          {"raw64 noise", kRaw64, raw64_header("ps"), noise()},
          {"raw64 one byte off", kRaw64, raw64_header("ps"), repeated(bytes({0xFF}) + ps_record(0, 1)), 1.0 / 9},
          {"raw64 sorted", kRaw64, raw64_header("ps"), raw64_at(ascending), 0.125},
          {"raw64 reversed", kRaw64, raw64_header("ps"), raw64_at(descending), 0.125},
          {"raw64 shuffled", kRaw64, raw64_header("ps"), raw64_at(scattered), 0.125},
          {"raw64 cf noise", kRaw64, raw64_header("raw_cf"), noise()},
          {"raw64 cf equal coarse counts", kRaw64, raw64_header("raw_cf"), repeated(cf_record(2, 7, 9)), 0.125}};
}

std::vector<HostileInput> delta32_inputs() {
  Bytes start;
  Bytes events;
  for (std::uint32_t channel = 0; channel < 4; ++channel) {
    start += d32_base(1000) + d32_event(channel, 0);
    events += d32_event(channel, 50'000);
  }
  std::vector<HostileInput> inputs;
  const auto add = [&inputs](const std::string& name, Pieces pieces, double tags_per_byte = 0) {
    inputs.push_back({"delta32 " + name, kDelta32, R"({"stream_format":"delta32"})", std::move(pieces), tags_per_byte});
  };
  add("zeros", repeated(Bytes(8, 0)));
  add("ones", repeated(Bytes(8, 0xFF)));
  add("noise", noise());
  add("endless sync words", repeated(d32_sync()));
  add("almost sync words", repeated(bytes({0xEB, 0x5A, 0x55, 0xEB, 0x5A})));
  add("sync lost at every word", repeated(d32_sync() + d32_event(0, 0)));
  add("endless extensions", once_then(start, d32_extension(65'535)));
  add("a base for every event", delta32_bases(), 1.0 / 16);
  add("events", once_then(start, events), 0.25);
  return inputs;
}

std::vector<HostileInput> packed_inputs() {
  std::vector<HostileInput> inputs;
  const auto add = [&inputs](const std::string& name, const std::string& header, Pieces pieces,
                             double tags_per_byte = 0) {
    inputs.push_back({"packed " + name, kPacked, header, std::move(pieces), tags_per_byte});
  };
  for (const unsigned d : {1u, 16u, 31u}) {
    const std::string bits = " d=" + std::to_string(d);
    for (const char* const mode : {"internal", "external"}) {
      const std::string header = packed_header(d, mode, 15);
      add("zeros" + bits + " " + mode, header, repeated(Bytes(8, 0)));
      add("ones" + bits + " " + mode, header, repeated(Bytes(8, 0xFF)));
      add("noise" + bits + " " + mode, header, noise());
    }
    const std::string header = packed_header(d, "external", 3);
    const Bytes sequences = packed_records(d, [](PackedEncoder& out) { out.sync(0, 0); });
    add("endless sync sequences" + bits, header, repeated(sequences));
    add("events" + bits, header, once_then(packed_lock(d, 1), packed_events(d)), 8.0 / (d + 3));
    add("a lock lost in every read" + bits, header, repeated(lost_locks(d)));
    add("most left to one read" + bits, header, once_then(lost_locks_for(d, file_mib() - 1), packed_events(d)),
        8.0 / (d + 3));
  }
  add("out of balance in every read", packed_header(1, "internal", 3), out_of_balance());
  for (unsigned mask = 0; mask < 16; ++mask) {
    for (const char* const mode : {"internal", "external"}) {
      add("noise mask=" + std::to_string(mask) + " " + mode, packed_header(8, mode, mask), noise());
    }
  }
  return inputs;
}

class Ceilings : public ProductRoot {
 protected:
  static void write_capture(const fs::path& path, const HostileInput& input, std::int64_t size) {
    std::ofstream out(path, std::ios::binary);
    const auto append = [&out](const Bytes& part) {
      out.write(reinterpret_cast<const char*>(part.data()), static_cast<std::streamsize>(part.size()));
    };
    append(capture_bytes(input.header, {}));
    while (out.tellp() < size) append(input.pieces());
    out.close();
    fs::resize_file(path, static_cast<std::uintmax_t>(size));
  }

  /// A run on c.tagcap with settings that count next to no pairs.
  MeasuredRun correlate() {
    constexpr auto kMostSeconds = static_cast<unsigned>(900 * kPatience);
    return measured_run(ORVO_TEST_TOOL, {"c.tagcap", "0", "1", "--range=1", "--bin=1", "--out-prefix=r"}, cwd(), kMostSeconds);
  }

  void check(const std::string& name, const Cost& ceiling, int exit_status) {
    const double base_bytes = static_cast<double>(measured_run(ORVO_TEST_TOOL, {"--help"}, cwd(), 60).peak_bytes);
    const MeasuredRun run = correlate();
    EXPECT_EQ(run.result.exit_status, exit_status) << name << ": " << run.result.err;
    const auto size = static_cast<double>(fs::file_size(cwd() / "c.tagcap"));
    const double bytes = static_cast<double>(run.peak_bytes) - base_bytes;
    const double mib = size / static_cast<double>(kMiB);
    EXPECT_LE(run.cpu_seconds, kPatience * (kSecondsAtAnySize + ceiling.seconds_per_mib * mib)) << name;
    if (!kUnderAddressSanitizer) {
      EXPECT_LE(bytes, kBytesAtAnySize + ceiling.bytes_per_byte * size) << name;
    }
    if (std::getenv("ORVO_CEILING_REPORT") != nullptr) {
      std::printf("%-44s %6.0f MiB %8.3f s/MiB %8.2f MiB %7.2f B/B\n", name.c_str(), mib, run.cpu_seconds / mib,
                  bytes / static_cast<double>(kMiB), bytes / size);
      std::fflush(stdout);
    }
  }

  double decoded_tags() const {
    const auto json = StrictJson::parse(read_file(cwd() / "r.json"));
    return json ? std::stod(json->at("decoded_tags").text) : 0;
  }

  void check_all(const std::vector<HostileInput>& inputs) {
    for (const HostileInput& input : inputs) {
      write_capture(cwd() / "c.tagcap", input, file_mib() * kMiB);
      check(input.name, input.ceiling, 0);
      EXPECT_GE(decoded_tags(), 0.9 * input.tags_per_byte * static_cast<double>(file_mib() * kMiB)) << input.name;
    }
  }
};

TEST_F(Ceilings, AHeaderLongerThanItsFile) {
  for (const std::uint32_t claim : {std::uint32_t{0xFFFF'FFFF}, static_cast<std::uint32_t>(file_mib() * kMiB)}) {
    write_file(cwd() / "c.tagcap", text_bytes("TAGCAP1\n") + little_endian(claim, 4));
    fs::resize_file(cwd() / "c.tagcap", static_cast<std::uintmax_t>(file_mib() * kMiB));
    check("header claims " + std::to_string(claim) + " bytes", kContainer, 1);
  }
}

TEST_F(Ceilings, AHeaderAsLongAsItsFile) {
  const struct {
    const char* name;
    Bytes unit;
  } cases[] = {{"of quotes", text_bytes("\"")},
               {"of backslashes in a value", text_bytes("\\")},
               {"of almost keys", text_bytes("\"mod")},
               {"of keys without colons", text_bytes("\"mode\"\"quantum_ps\"")},
               {"of digits", text_bytes("9")}};
  for (const auto& [name, unit] : cases) {
    const std::int64_t size = file_mib() * kMiB;
    const HostileInput input{name, kContainer, R"({"stream_format":"raw64","application":")", repeated(unit)};
    write_capture(cwd() / "c.tagcap", input, size);
    std::fstream file(cwd() / "c.tagcap", std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(8);
    const Bytes length = little_endian(static_cast<std::uint64_t>(size - 12), 4);
    file.write(reinterpret_cast<const char*>(length.data()), 4);
    file.close();
    check(std::string("header ") + name, kContainer, 0);
  }
}

TEST_F(Ceilings, Raw64) { check_all(raw64_inputs()); }
TEST_F(Ceilings, Delta32) { check_all(delta32_inputs()); }
TEST_F(Ceilings, PackedDelta) { check_all(packed_inputs()); }

}  // namespace
