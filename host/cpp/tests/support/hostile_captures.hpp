#pragma once
// Captures made to hurt: of every encoding, and as long as one likes.
#include <cstddef>
#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "support/delta32_payload.hpp"
#include "support/packed_payload.hpp"

namespace orvo::test {

/// Bytes of a payload, piece by piece: whoever writes them to a file never holds them all.
using Pieces = std::function<Bytes()>;

struct HostileCapture {
  std::string name;
  std::string header;
  Pieces pieces;
  double tags_per_byte = 0;  // at least nine tenths of it, or the capture is not what it is called
};

inline std::string raw64_header(const std::string& tags) {
  return R"({"stream_format":"raw64","raw64_tag_format":")" + tags + "\"}";
}

inline std::string packed_header(unsigned delta_bits, const std::string& mode, unsigned mask) {
  return R"({"stream_format":"packed_delta","mode":")" + mode + R"(","channel_mask":)" + std::to_string(mask) +
         R"(,"packed_delta_config":{"delta_bits":)" + std::to_string(delta_bits) + R"(,"quantum_ps":1}})";
}

inline Pieces repeated(Bytes unit) {
  while (unit.size() < 60'000) unit += Bytes(unit);
  return [unit] { return unit; };
}

/// `first` once, then the unit without end.
inline Pieces once_then(const Bytes& first, const Bytes& unit) {
  return [first, rest = repeated(unit), begun = false]() mutable {
    if (begun) return rest();
    begun = true;
    return first;
  };
}

inline Pieces noise() {
  return [engine = std::mt19937_64(1)]() mutable {
    Bytes out;
    while (out.size() < 65'536) out += big_endian(engine(), 8);
    return out;
  };
}

/// Records of channels 0 and 1 in turn at the times that `time_ps` gives for 0, 1, 2, ...
inline Pieces raw64_at(std::function<std::uint64_t(std::uint64_t)> time_ps) {
  return [time_ps, next = std::uint64_t{0}]() mutable {
    Bytes out;
    for (int i = 0; i < 8192; ++i, ++next) out += ps_record(next % 2, time_ps(next));
    return out;
  };
}

/// Channels 0 to 3 in turn, each event with a time base of its own.
inline Pieces delta32_bases() {
  return [time_ps = std::uint64_t{0}]() mutable {
    Bytes out;
    for (std::uint32_t i = 0; i < 4096; ++i) out += d32_base(time_ps += 1000) + d32_event(i % 4, 0);
    return out;
  };
}

/// Eight times what `write` writes, which fills whole bytes.
inline Bytes packed_records(unsigned delta_bits, const std::function<void(PackedWriter&)>& write) {
  PackedWriter out(delta_bits);
  for (int i = 0; i < 8; ++i) write(out);
  return out.bytes();
}

/// Each record is an event of channel 0 or 1.
inline Bytes packed_events(unsigned delta_bits) {
  return packed_records(delta_bits, [](PackedWriter& out) {
    out.data(0, 1);
    out.data(1, 1);
  });
}

/// Anchors of both channels that go back in time: each costs the lock, but the search for it cannot see them.
inline void lose_lock(PackedWriter& out) {
  for (const std::uint64_t quanta : {std::uint64_t{1'000'000'000}, std::uint64_t{5}}) {
    out.anchor(0, quanta);
    out.anchor(1, quanta);
  }
}

/// So many of them that each of `reads` reads loses its lock at once: the next then finds all of the file undecoded,
/// event by event. Channels 0 and 1 are locked after them, and the last byte is filled.
inline Bytes locked_after(unsigned delta_bits, std::int64_t reads) {
  PackedWriter out(delta_bits);
  for (; reads > 0; --reads) lose_lock(out);
  out.anchor(0, 1);
  out.anchor(1, 1);
  while (out.records() * (delta_bits + 3) % 8 != 0) out.data(out.records() % 2, 1);
  return out.bytes();
}

/// In each read two channels at the same rate for as long as the search looks, then one channel alone.
inline Pieces out_of_balance() {
  return [pieces = 0]() mutable {
    PackedWriter out(1);
    const bool balanced = pieces % 16 < 2;
    if (pieces % 16 == 0) out.anchor(0, 1);
    if (pieces % 16 == 0) out.anchor(1, 1);
    while (out.records() < 131'072) out.data(balanced ? out.records() % 2 : 0, 1);  // 64 KiB
    ++pieces;
    return out.bytes();
  };
}

inline std::vector<HostileCapture> hostile_raw64() {
  const auto ascending = [](std::uint64_t n) { return 100 * n; };
  const auto descending = [](std::uint64_t n) { return (std::uint64_t{1} << 43) - 100 * n; };
  const auto scattered = [](std::uint64_t n) { return n * 0x9E37'79B9'7F4A'7C15 >> 20; };
  return {{"raw64 zeros", raw64_header("ps"), repeated(Bytes(8, 0)), 0.125},
          {"raw64 ones", raw64_header("ps"), repeated(Bytes(8, 0xFF))},
          {"raw64 noise", raw64_header("ps"), noise()},
          {"raw64 one byte off", raw64_header("ps"), repeated(bytes({0xFF}) + ps_record(0, 1)), 1.0 / 9},
          {"raw64 sorted", raw64_header("ps"), raw64_at(ascending), 0.125},
          {"raw64 reversed", raw64_header("ps"), raw64_at(descending), 0.125},
          {"raw64 shuffled", raw64_header("ps"), raw64_at(scattered), 0.125},
          {"raw64 cf noise", raw64_header("raw_cf"), noise()},
          {"raw64 cf equal coarse counts", raw64_header("raw_cf"), repeated(cf_record(2, 7, 9)), 0.125}};
}

inline std::vector<HostileCapture> hostile_delta32() {
  Bytes start;
  Bytes events;
  for (std::uint32_t channel = 0; channel < 4; ++channel) {
    start += d32_base(1000) + d32_event(channel, 0);
    events += d32_event(channel, 50'000);
  }
  std::vector<HostileCapture> inputs;
  const auto add = [&inputs](const std::string& name, Pieces pieces, double tags_per_byte = 0) {
    inputs.push_back({"delta32 " + name, R"({"stream_format":"delta32"})", std::move(pieces), tags_per_byte});
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

inline std::vector<HostileCapture> hostile_packed(std::int64_t mib) {
  std::vector<HostileCapture> inputs;
  const auto add = [&inputs](const std::string& name, const std::string& header, Pieces pieces,
                             double tags_per_byte = 0) {
    inputs.push_back({"packed " + name, header, std::move(pieces), tags_per_byte});
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
    const Bytes sequences = packed_records(d, [](PackedWriter& out) { out.sync(0, 0); });
    add("endless sync sequences" + bits, header, repeated(sequences));
    add("events" + bits, header, once_then(locked_after(d, 0), packed_events(d)), 8.0 / (d + 3));
    add("a lock lost in every read" + bits, header, repeated(packed_records(d, lose_lock)));
    add("most left to one read" + bits, header, once_then(locked_after(d, mib - 1), packed_events(d)), 8.0 / (d + 3));
  }
  add("out of balance in every read", packed_header(1, "internal", 3), out_of_balance());
  for (unsigned mask = 0; mask < 16; ++mask) {
    for (const char* const mode : {"internal", "external"}) {
      add("noise mask=" + std::to_string(mask) + " " + mode, packed_header(8, mode, mask), noise());
    }
  }
  return inputs;
}

}  // namespace orvo::test
