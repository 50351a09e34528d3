#pragma once
// Header and payload of a packed stream from a fuzz input.
#include <array>
#include <cstddef>
#include <cstdint>

#include "fuzz/support/input.hpp"
#include "orvo/timing/stream_file_header.hpp"
#include "support/packed_streams.hpp"

namespace orvo::fuzz {

/// delta_bits, from 224 on as it is, below modulo 32 | quantum (2) | channel mask and, in bit 7, the mode
inline timing::StreamFileHeader packed_header(Input& input) {
  timing::StreamFileHeader header;
  header.stream_format = timing::StreamFormat::packed_delta;
  const std::uint8_t bits = input.byte();
  header.delta_bits = bits < 224 ? bits % 32 : bits;
  header.quantum_ps = static_cast<std::uint16_t>(input.number(2));
  const std::uint8_t mask_and_mode = input.byte();
  header.channel_mask = mask_and_mode & 0x0F;
  header.mode = mask_and_mode >> 7 == 0 ? timing::StreamMode::internal : timing::StreamMode::external;
  return header;
}

/// Records in an order that the input chooses: chance alone seldom writes a whole sync sequence, and never meets the
/// limits of the rules. `time_` is where a channel would stand if every difference were taken as it is.
class PackedScript {
 public:
  /// `delta_bits` is 1 to 31.
  PackedScript(std::uint32_t delta_bits, unsigned quantum_shift)
      : settings_{.delta_bits = delta_bits, .shift = quantum_shift, .channel_mask = 0}, out_(delta_bits) {}

  test::Bytes run(Input& input, std::size_t most_bytes) {
    while (!input.empty() && out_.bytes().size() < most_bytes) step(input, input.byte(), most_bytes);
    test::Bytes bytes = out_.bytes();
    if (bytes.size() > most_bytes) bytes.resize(most_bytes);
    return bytes;
  }

 private:
  std::uint64_t all_ones() const { return (std::uint64_t{1} << settings_.delta_bits) - 1; }

  void step(Input& input, std::uint8_t code, std::size_t most_bytes) {
    const std::uint32_t channel = code & 3u;
    const unsigned variant = code >> 6;
    switch (code >> 2 & 15) {
      case 0:
        out_.bits(input.byte(), 1 + variant * 2);
        return;
      case 1:
        out_.record(channel, true, all_ones());
        return;
      case 2:
        out_.record(channel, true, input.number(2) & all_ones());
        return;
      case 3:
        out_.record(channel, true, all_ones() - 1);
        return;
      case 4:
        return sync(channel, input.number(6));
      case 5:
        return sync(channel, (time_[channel] + limit(input, channel) * (variant == 0 ? ~std::uint64_t{0} : 1)) >>
                                 settings_.shift);
      case 6:
      case 7:
        sync(channel, input.number(2));
        return data(channel, input.byte() & all_ones());
      case 8:
        return data(channel, (limit(input, channel) >> settings_.shift) + variant);
      case 9:
        return repeat(input, channel, false, most_bytes);
      case 10:
        return repeat(input, channel, true, most_bytes);
      case 11:
        return data(channel, input.number(6));
      default:
        return data(channel, input.number(1 + static_cast<int>(variant & 1)) & all_ones());
    }
  }

  void sync(std::uint32_t channel, std::uint64_t quanta) {
    out_.sync(channel, quanta);
    time_[channel] = quanta << settings_.shift;
  }
  void data(std::uint32_t channel, std::uint64_t quanta) {
    if (out_.short_gap(channel, quanta)) time_[channel] += quanta << settings_.shift;
  }

  /// Data records without a time step: on one channel, or on all in turn.
  void repeat(Input& input, std::uint32_t channel, bool all_channels, std::size_t most_bytes) {
    for (std::uint64_t left = input.number(2) & 0x1FFF; left > 0 && out_.bytes().size() < most_bytes; --left) {
      out_.record(all_channels ? static_cast<std::uint32_t>(left) % 4 : channel, false, 0);
    }
  }

  /// A difference, in picoseconds, at which a rule changes.
  std::uint64_t limit(Input& input, std::uint32_t channel) {
    const std::uint64_t modulus = settings_.modulus();
    const std::uint64_t step = settings_.wrap_step();
    const std::uint64_t period = test::kDevicePeriod;
    const std::uint64_t to_period_end = period - time_[channel] % period;
    const std::uint64_t limits[] = {modulus - 1'000'000,
                                    1'000'000,
                                    1'000'000'000'000,
                                    modulus,
                                    modulus / 2,
                                    step,
                                    to_period_end,
                                    step + to_period_end,
                                    period,
                                    0,
                                    step + 10'000'000'000};
    const std::uint64_t value = limits[input.byte() % std::size(limits)];
    return value + (static_cast<std::uint64_t>(static_cast<std::int8_t>(input.byte())) << settings_.shift);
  }

  test::PackedSettings settings_;
  test::PackedWriter out_;
  std::array<std::uint64_t, 4> time_{};
};

}  // namespace orvo::fuzz
