// delta32: the reference's tags and state under equal chunking, and at most 3 bytes wait.
//
//   form | chunk sizes (8) | payload, or, with bit 0 of the form, a script of words
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "fuzz/support/fresh_decoder.hpp"
#include "fuzz/support/input.hpp"
#include "fuzz/support/require.hpp"
#include "fuzz/support/strict_sink.hpp"
#include "orvo/timing/stream_decoder.hpp"
#include "reference/delta32.hpp"
#include "support/as_reference.hpp"
#include "support/decoder_state.hpp"
#include "support/delta32_payload.hpp"
#include "support/streams.hpp"

namespace {

using orvo::fuzz::Input;
using orvo::fuzz::require;
using namespace orvo::test;
using orvo::test::reference::Delta32Decoder;

/// Words in an order that the input chooses. Two of the steps write a time relative to the channel's last one, which
/// a decoder keeps: chance alone would not meet the limits.
class Script {
 public:
  orvo::test::Bytes run(Input& input) {
    while (!input.empty() && out_.size() < 8192) {
      step(input, input.byte());
      aim_.feed(std::span(out_).subspan(fed_));
      fed_ = out_.size();
    }
    return out_;
  }

 private:
  void step(Input& input, std::uint8_t code) {
    const std::uint32_t channel = code & 3u;
    switch (code >> 2 & 15) {
      case 0:
        return write(d32_sync());
      case 1:
        return write(d32_base_low(input.number(4) & 0x1FF'FFFF));
      case 2:
        return write(d32_base_high(input.number(3) & 0x1'FFFF));
      case 3:
        return write(d32_extension(input.number(3) & 0x1'FFFF));
      case 4:
        return write(d32_word({.control = 1, .channel = 3, .type = 5, .payload = input.number(4) & 0x1FF'FFFF}));
      case 5: {
        const std::uint32_t type = input.byte() & 15u;
        return write(d32_word({.control = std::uint32_t{code} >> 7,
                               .channel = channel,
                               .type = type,
                               .payload = input.number(4) & 0x1FF'FFFF}));
      }
      case 6:
        return out_.push_back(input.byte());
      case 7:
        return write(d32_base(input.number(6)));
      case 8:
      case 9: {
        const auto last = static_cast<std::uint64_t>(aim_.last_time[channel]);
        return write(d32_base(last + limit(input, last) * (code >> 7 == 0 ? 1 : ~std::uint64_t{0})));
      }
      case 10:
      case 11:
        return write(
            d32_gap(channel, limit(input, static_cast<std::uint64_t>(aim_.last_time[channel])) & 0x1FFF'FFFF'FFFF));
      default:
        return write(d32_event(channel, input.number(1 + (code >> 6 & 1) * 2)));
    }
  }

  void write(const orvo::test::Bytes& words) { out_.insert(out_.end(), words.begin(), words.end()); }

  /// A difference at which a rule changes.
  static std::uint64_t limit(Input& input, std::uint64_t last) {
    constexpr std::uint64_t kWrapStep = 0xFB'0000'0000;
    constexpr std::uint64_t kPeriod = orvo::test::kDevicePeriod;
    const std::uint64_t to_period_end = kPeriod - last % kPeriod;
    const std::uint64_t limits[] = {0,
                                    kWrapStep,
                                    kWrapStep + 10'000'000'000,
                                    std::uint64_t{1} << 40,
                                    std::uint64_t{1} << 41,
                                    to_period_end,
                                    kWrapStep + to_period_end,
                                    kPeriod};
    return limits[input.byte() % std::size(limits)] +
           static_cast<std::uint64_t>(static_cast<std::int8_t>(input.byte()));
  }

  orvo::test::Bytes out_;
  Delta32Decoder aim_;
  std::size_t fed_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const bool scripted = input.flag();
  std::array<std::uint8_t, 8> chunk_sizes{};
  for (std::uint8_t& chunk_size : chunk_sizes) chunk_size = input.byte();
  const auto rest = scripted ? std::span<const std::uint8_t>{} : input.rest();
  const orvo::test::Bytes payload = scripted ? Script().run(input) : orvo::test::Bytes(rest.begin(), rest.end());

  orvo::timing::StreamFileHeader header;
  header.stream_format = orvo::timing::StreamFormat::delta32;
  orvo::timing::StreamDecoder decoder = orvo::fuzz::fresh_decoder(header);
  Delta32Decoder expected;
  std::size_t at = 0;
  for (std::size_t i = 0; at < payload.size(); ++i) {
    const std::size_t count = std::min<std::size_t>(1 + chunk_sizes[i % chunk_sizes.size()], payload.size() - at);
    decoder.pending_bytes.append(payload.data() + at, count);
    const auto tags = i % 2 == 0 ? decoder.feed_delta32() : orvo::fuzz::strict_feed(decoder);
    require(as_reference(tags) == expected.feed(std::span(payload).subspan(at, count)),
            "the tags are the reference's");
    at += count;
    require(decoder.pending_bytes.size() <= 3, "at most 3 bytes wait");
    require(difference(decoder, expected).empty(), "the decoder stands where its reference stands");
  }
  return 0;
}
