#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
// Whether the start of a payload reads well in another encoding than the header's.
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "orvo/timing/payload_account.hpp"
#include "orvo/timing/stream_decoder.hpp"
#include "orvo/timing/stream_file_header.hpp"
#include "orvo/timing/time_tag.hpp"

namespace {

/// A sink that counts tags, and those later than the one before on their channel.
struct StepCounter {
  void begin_chunk(std::size_t) {}
  void add(unsigned channel, std::int64_t time_ps) {
    if (seen[channel]) {
      ++steps;
      if (time_ps > last_ps[channel]) ++forward;
    }
    seen[channel] = true;
    last_ps[channel] = time_ps;
    ++tags;
  }
  void end_chunk() {}
  void discard_chunk() {}

  std::array<bool, orvo::timing::kChannels> seen{};
  std::array<std::int64_t, orvo::timing::kChannels> last_ps{};
  std::uint64_t tags = 0;
  std::uint64_t steps = 0;
  std::uint64_t forward = 0;
};

inline bool reads_well(const orvo::timing::StreamFileHeader& header, std::span<const std::uint8_t> head) {
  using orvo::timing::PayloadClass;
  orvo::timing::StreamDecoder decoder(header);
  orvo::timing::NoLossListener nobody;
  orvo::timing::PayloadAccount account(decoder.header, nobody);
  StepCounter counter;
  decoder.feed(head, counter, account);
  const std::uint64_t units = account.units_per_byte() * head.size();
  const auto share_at_least = [units](std::uint64_t size, std::uint64_t percent) {
    return 100 * size >= percent * units;
  };
  if (header.stream_format == orvo::timing::StreamFormat::packed_delta) {
    return account.framings_won() != 0 && account.framings_lost() == 0 &&
           10 * account.size(PayloadClass::before_lock) <= units &&
           share_at_least(account.size(PayloadClass::data), 30);
  }
  const std::uint64_t records = account.size(PayloadClass::records) + account.size(PayloadClass::events) +
                                account.size(PayloadClass::events_without_time) +
                                account.size(PayloadClass::sync_words) + account.size(PayloadClass::time_bases) +
                                account.size(PayloadClass::extensions) + account.size(PayloadClass::markers);
  return share_at_least(records, 90) && counter.tags >= 16 && 10 * counter.forward >= 9 * counter.steps;
}

/// The encoding that the first bytes of a payload read well in, when it is not the header's own: "delta32", say.
inline std::optional<std::string> other_encoding(const orvo::timing::StreamFileHeader& header,
                                                 std::span<const std::uint8_t> head) {
  using orvo::timing::StreamFormat;
  orvo::timing::StreamFileHeader probe;
  probe.mode = orvo::timing::StreamMode::external;
  probe.channel_mask = 15;
  probe.quantum_ps = header.quantum_ps;
  const bool raw64 = header.stream_format == StreamFormat::raw64;
  const bool is_cf = raw64 && orvo::timing::detail::ascii_lower(header.raw64_tag_format) == "raw_cf";
  probe.stream_format = StreamFormat::raw64;
  for (const char* format : {"ps", "raw_cf"}) {
    probe.raw64_tag_format = format;
    const bool own = raw64 && is_cf == (probe.raw64_tag_format == "raw_cf");
    if (!own && reads_well(probe, head)) return "raw64 with tag format " + probe.raw64_tag_format;
  }
  probe.stream_format = StreamFormat::delta32;
  if (header.stream_format != StreamFormat::delta32 && reads_well(probe, head)) return "delta32";
  probe.stream_format = StreamFormat::packed_delta;
  for (unsigned bits = 8; bits <= 31; ++bits) {
    probe.delta_bits = static_cast<std::uint8_t>(bits);
    const bool own = header.stream_format == StreamFormat::packed_delta && header.delta_bits == bits;
    if (!own && reads_well(probe, head)) return "packed_delta with delta_bits " + std::to_string(bits);
  }
  return std::nullopt;
}

}  // namespace
