#pragma once
// Seeded random capture files: mostly sound, always with something odd in between.
#include <bit>
#include <cstdint>
#include <string>
#include <vector>

#include "reference/capture_file.hpp"
#include "support/bytes.hpp"
#include "support/delta32_streams.hpp"
#include "support/packed_streams.hpp"
#include "support/random.hpp"
#include "support/streams.hpp"

namespace orvo::test {

inline std::string random_value(Random& random, const std::string& key) {
  const std::vector<std::string> strings = {R"("")",
                                            R"("lab 3")",
                                            R"("a\"b\\c\/\u0041\t\n\r")",
                                            R"("mode")",
                                            R"("quantum_ps")",
                                            R"("\"stream_format\":")",
                                            "null",
                                            "5",
                                            "\"k\xC3\xA4se\"",
                                            "{}",
                                            R"("a:b")"};
  if (key == "stream_format") {
    if (!random.one_in(3))
      return random.word({R"("raw64")", R"("RAW64")", R"("Raw-64")", R"("")", R"("delta-32")", R"("raw64 ")"});
    return random.word({R"("delta32")", R"("Delta32")", R"("packed_delta")", R"("PackedDelta")", "7"});
  }
  if (key == "raw64_tag_format")
    return random.word({R"("ps")", R"("PS")", R"("raw_cf")", R"("RAW_cf")", R"("raw-cf")", R"("")"});
  if (key == "mode")
    return random.word({R"("internal")", R"("INTERNAL")", R"("external")", R"("inter nal")", R"("")", "0"});
  if (key == "stream_transport") {
    return random.word(
        {R"("uart")", R"("usb")", R"("USB")", R"("usb_async")", R"("usb-async")", R"("UsbAsync")", R"("x")", "1"});
  }
  if (key == "channel_mask" || key == "tdl_index" || key == "delta_bits" || key == "quantum_ps") {
    return random.word({"0", "3", "31", "16", "258", "65544", "12.7", "-3", "\"7\"", "007", "18446744073709551619",
                        "true", "", " \t\n\v\f\r 9"});
  }
  return random.word(strings);
}

/// Header text: known and unknown members in any order, spaced at will, sometimes twice, sometimes damaged.
inline std::string random_header(Random& random) {
  std::vector<std::string> keys = {"stream_format", "raw64_tag_format"};
  for (const char* key : {"file_type", "schema_version", "created_utc", "application", "device_product",
                          "device_serial", "device_port", "mode", "stream_transport", "channel_mask", "tdl_index",
                          "delta_bits", "quantum_ps", "packed_delta_config", "Mode", "stream_format"}) {
    if (!random.one_in(3)) keys.push_back(key);
  }
  for (std::size_t i = 0; i < keys.size() && random.one_in(2); ++i) {
    std::swap(keys[i], keys[static_cast<std::size_t>(random.below(keys.size()))]);
  }
  const auto blank = [&] { return random.one_in(4) ? random.word({" ", "\t", "\n  ", "\r\n"}) : ""; };
  std::string text = "{";
  for (const std::string& key : keys) {
    if (text.size() > 1) text += ",";
    text += blank();
    text += "\"" + key + "\"" + blank();
    text += ":" + blank();
    text += random_value(random, key);
  }
  text += random.word({"}", "}\n", "}}", ""});
  if (random.one_in(8)) text.resize(static_cast<std::size_t>(random.below(text.size())));
  for (int damage = 0; random.one_in(6) && damage < 4; ++damage) {
    text.insert(static_cast<std::size_t>(random.below(text.size() + 1)),
                random.word({"\"", "\\", ":", "\x01", "{", " ", "5"}));
  }
  return text;
}

/// One record of an event at unwrapped device time `time_ps`.
inline Bytes random_record(Random& random, bool coarse_fine, unsigned channel, std::uint64_t time_ps) {
  if (coarse_fine) {
    const std::uint64_t coarse = time_ps / 3333 + 1;
    const std::uint64_t fine = random.one_in(10) ? random.below(8192) : 2 * (coarse * 3333 - time_ps) / 37;
    return cf_record(channel, static_cast<std::uint32_t>(coarse), static_cast<unsigned>(fine));
  }
  std::uint64_t wrapped = time_ps % kDevicePeriod;
  if (random.one_in(4) && wrapped + kDevicePeriod < 1ULL << 44)
    wrapped += kDevicePeriod;  // 44 bits hold more than a period
  return ps_record(channel, wrapped);
}

/// Bytes that are no record, or only part of one, or one of the other form.
inline Bytes random_litter(Random& random, bool coarse_fine, std::uint64_t time_ps) {
  const auto channel = static_cast<unsigned>(random.below(4));
  Bytes record = random_record(random, coarse_fine, channel, time_ps);
  switch (random.below(5)) {
    case 0:
      return random_record(random, !coarse_fine, channel, time_ps);
    case 1:
      record.resize(static_cast<std::size_t>(1 + random.below(7)));
      return record;
    case 2:
      record.erase(record.begin(), record.begin() + random.integer(1, 7));
      return record;
    case 3:  // one of the guard bits 63 and 60..44 is wrong
      record[static_cast<std::size_t>(random.below(3))] ^= static_cast<std::uint8_t>(1U << random.below(8));
      return record;
    default: {
      Bytes noise(static_cast<std::size_t>(1 + random.below(12)));
      const bool zeros = random.one_in(3);
      for (std::uint8_t& byte : noise) byte = zeros ? 0 : static_cast<std::uint8_t>(random.bits());
      return noise;
    }
  }
}

inline std::uint64_t random_step(Random& random) {
  constexpr std::uint64_t kHalf = kDevicePeriod / 2;
  if (!random.one_in(40)) return random.below(random.one_in(2) ? 3000 : 40'000);
  const std::uint64_t near = random.below(5) - 2;  // -2..2, modulo 2^64
  return random.pick<std::uint64_t>(
      {kHalf + near, kDevicePeriod - 3333 + near, kHalf / 3, 5'000'000'000, random.below(kDevicePeriod)});
}

/// raw64 payload with about `events` events, each seen by one or two of `channels`, delayed per channel.
inline Bytes random_payload(Random& random, bool coarse_fine, std::uint64_t events,
                            const std::vector<unsigned>& channels) {
  std::vector<std::uint64_t> delay_ps(4);
  for (std::uint64_t& delay : delay_ps) delay = random.below(random.one_in(8) ? 30'000'000 : 4000);
  const std::uint64_t jitter_ps = random.pick<std::uint64_t>({1, 10, 500});
  std::uint64_t time_ps = random.pick<std::uint64_t>(
      {0, 100'000, kDevicePeriod / 2, kDevicePeriod - 900'000, random.below(kDevicePeriod)});

  std::vector<Bytes> pieces;
  for (std::uint64_t event = 0; event < events; ++event) {
    time_ps += random_step(random);
    for (std::uint64_t copies = random.below(3) + 1; copies > 0; --copies) {
      const unsigned channel = random.pick(channels);
      pieces.push_back(
          random_record(random, coarse_fine, channel, time_ps + delay_ps[channel] + random.below(jitter_ps)));
    }
    if (random.one_in(20)) pieces.push_back(pieces.back());
    if (random.one_in(15)) pieces.push_back(random_litter(random, coarse_fine, time_ps));
    if (random.one_in(10)) std::swap(pieces.back(), pieces[static_cast<std::size_t>(random.below(pieces.size()))]);
  }
  Bytes payload;
  for (const Bytes& piece : pieces) payload += piece;
  if (random.one_in(4) && !payload.empty())
    payload.resize(payload.size() -
                   static_cast<std::size_t>(random.below(std::min<std::uint64_t>(payload.size(), 9))));
  return payload;
}

inline std::vector<unsigned> random_channels(Random& random) {
  if (random.one_in(2)) return {0, 1};
  return random.pick<std::vector<unsigned>>({{0, 1, 2, 3}, {0, 1, 2, 3}, {2, 3}, {0, 0, 0, 1}, {1}, {3, 0, 2}});
}

/// Some way to spoil a capture file: cut, foreign magic, wrong header length.
inline void spoil(Random& random, Bytes& file) {
  switch (random.below(4)) {
    case 0:
      file.resize(static_cast<std::size_t>(random.below(file.size())));
      break;
    case 1:
      file.resize(static_cast<std::size_t>(random.below(13)));
      break;
    case 2:
      file[static_cast<std::size_t>(random.below(8))] ^= static_cast<std::uint8_t>(1U << random.below(8));
      break;
    default:
      file[static_cast<std::size_t>(8 + random.below(4))] = static_cast<std::uint8_t>(random.bits());
      break;
  }
}

/// Payload of `events` events, in the encoding that the header names.
inline Bytes random_payload_of(Random& random, const reference::Header& header, std::uint64_t events) {
  Bytes payload;
  switch (header.stream_format) {
    case reference::Encoding::raw64:
      return random_payload(random, reference::lower_case(header.raw64_tag_format) == "raw_cf", events,
                            random_channels(random));
    case reference::Encoding::delta32:
      payload = random.one_in(3) ? aimed_delta32(random, events) : clean_delta32(random, events).bytes;
      break;
    case reference::Encoding::packed_delta: {
      PackedSettings settings;
      if (header.delta_bits != 0 && header.delta_bits <= 31)
        settings.delta_bits = static_cast<unsigned>(header.delta_bits);
      if (header.quantum_ps != 0) settings.shift = static_cast<unsigned>(std::countr_zero(header.quantum_ps));
      settings.channel_mask = static_cast<std::uint8_t>(header.channel_mask);
      payload = clean_packed(random, settings, events + 1).bytes;
      break;
    }
  }
  if (random.one_in(3)) damage(random, payload, random.between(1, 4));
  return payload;
}

/// The bytes of a capture file of up to `most_events` events.
inline Bytes random_capture(Random& random, std::uint64_t most_events) {
  const std::string header = random.one_in(40) ? "" : random_header(random);
  const std::uint64_t events = random.below(most_events + 1);
  const Bytes payload = random_payload_of(random, reference::read_header(header), events);
  Bytes file = capture_bytes(header, payload, random.one_in(3) ? "VQSTRM1\n" : "TAGCAP1\n");
  if (random.one_in(16)) spoil(random, file);
  return file;
}

}  // namespace orvo::test
