// Encoders: what they do not refuse decodes again, in reads of 1 MiB, whatever the tags and the blocks they come in.
//
//   form | packed header (4) | anchors | tags: code, step (2 to 9)
#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "fuzz/support/fresh_decoder.hpp"
#include "fuzz/support/input.hpp"
#include "fuzz/support/packed_settings.hpp"
#include "fuzz/support/require.hpp"
#include "orvo/timing/tag_encoder.hpp"

namespace {

using orvo::fuzz::Input;
using orvo::fuzz::require;
using orvo::timing::TimeTag;

constexpr std::size_t kMostTags = 400;
constexpr std::size_t kMostBytes = 50'000;
constexpr std::size_t kReadBytes = std::size_t{1} << 20;

std::string refusal_of(const TimeTag& tag) {
  return "channel " + std::to_string(tag.channel) + " at " + std::to_string(tag.time_ps) + " ps: ";
}

/// The next tag: a step from the last one, or, by bit 7 of the code, a time of its own.
TimeTag next_tag(Input& input, std::uint64_t& time_ps, unsigned shift) {
  const std::uint8_t code = input.byte();
  const auto number = static_cast<std::uint64_t>(input.integer());
  const std::uint64_t grid = (code & 0x40) != 0 ? number : number >> shift << shift;
  time_ps = (code & 0x80) != 0 ? grid : time_ps + grid;
  const unsigned channel = (code & 0x38) == 0x38 ? code & 7u : code & 3u;
  return {static_cast<std::uint8_t>(channel), static_cast<std::int64_t>(time_ps)};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const std::uint8_t form = input.byte();
  auto header = orvo::fuzz::packed_header(input);
  header.stream_format = static_cast<orvo::timing::StreamFormat>(form % 3);
  if ((form & 4) != 0) header.raw64_tag_format = "raw_cf";
  if (header.delta_bits > 31) header.delta_bits = 31;
  const unsigned shift = header.quantum_ps == 0 ? 3 : static_cast<unsigned>(std::countr_zero(header.quantum_ps));
  const std::uint64_t anchor_every = input.byte();

  const orvo::timing::EncoderSettings settings{.anchor_every = anchor_every, .start_bit = form / 32u};
  orvo::timing::TagEncoder encoder(header, settings);
  orvo::timing::ByteQueue payload;
  std::vector<TimeTag> accepted;
  std::vector<TimeTag> tags;
  std::uint64_t time_ps = 0;
  for (std::size_t i = 0; i < kMostTags && !input.empty() && payload.size() < kMostBytes; ++i) {
    const TimeTag tag = next_tag(input, time_ps, shift);
    try {
      encoder.encode({&tag, 1}, payload);
      accepted.push_back(tag);
    } catch (const orvo::timing::Error& error) {
      const std::string text = error.what();
      if (text.starts_with("decoders would not align")) return 0;
      require(text.find(refusal_of(tag)) != std::string::npos, "a refusal names the tag");
    }
  }
  try {
    encoder.finish(payload);
  } catch (const orvo::timing::Error&) {
    return 0;
  }

  // At once, without what was refused: the same bytes.
  orvo::timing::TagEncoder at_once(header, settings);
  orvo::timing::ByteQueue same;
  if (!accepted.empty()) {
    at_once.encode(accepted, same);
    at_once.finish(same);
    require(std::equal(payload.begin(), payload.end(), same.begin(), same.end()), "the payload is that of the tags");
  }

  orvo::timing::StreamDecoder decoder = orvo::fuzz::fresh_decoder(header);
  std::vector<TimeTag> decoded;
  for (std::size_t at = 0; at < payload.size(); at += kReadBytes) {
    const auto read = payload.bytes().subspan(at, std::min(kReadBytes, payload.size() - at));
    const auto more = decoder.feed(read);
    decoded.insert(decoded.end(), more.begin(), more.end());
  }
  for (TimeTag& tag : accepted) tag.time_ps += encoder.axis_ps(tag.channel);
  require(decoded == accepted, "what was not refused decodes again");
  return 0;
}
