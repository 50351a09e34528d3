#pragma once
// Part of vq_convert_stream_file: file-local throughout.
// The header of a capture that was made of others.
#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>
#include <string>
#include <vector>

#include "common/usage_error.hpp"
#include "convert/settings.hpp"
#include "orvo/timing/stream_file_header.hpp"
#include "orvo/timing/time_tag.hpp"
#include "orvo/timing/version.hpp"

namespace {

/// The payload bits of packed_delta records that take least space for these tags.
inline unsigned best_delta_bits(std::span<const orvo::timing::TimeTag> tags, unsigned quantum_ps) {
  constexpr unsigned kNarrowest = 4;
  constexpr unsigned kWidest = 31;
  constexpr std::size_t kEnough = 65'536;
  const int shift = std::countr_zero(quantum_ps);
  std::array<std::uint64_t, kWidest + 1> bits{};
  std::array<std::int64_t, orvo::timing::kChannels> last_ps{};
  for (const orvo::timing::TimeTag& tag : tags.first(std::min(tags.size(), kEnough))) {
    const std::int64_t gap_ps = std::max(tag.time_ps, last_ps[tag.channel]) - last_ps[tag.channel];
    const std::uint64_t quanta = static_cast<std::uint64_t>(gap_ps) >> shift;
    last_ps[tag.channel] = tag.time_ps;
    for (unsigned width = kNarrowest; width <= kWidest; ++width) {
      // A gap takes overflow records, but no more than an anchor takes records.
      const std::uint64_t units = quanta >> width;
      const std::uint64_t most = (std::uint64_t{1} << width) - 2;
      const std::uint64_t records =
          std::min<std::uint64_t>(1 + units / most + (units % most != 0), 2 + (width + 40) / width);
      bits[width] += records * (width + 3);
    }
  }
  return static_cast<unsigned>(std::min_element(bits.begin() + kNarrowest, bits.end()) - bits.begin());
}

/// The channels that a capture of these inputs can have. With channels selected it is those, whatever masks say.
inline std::uint8_t converted_mask(const Settings& settings,
                                   std::span<const orvo::timing::StreamFileHeader> headers) {
  unsigned mask = 0;
  for (const orvo::timing::StreamFileHeader& header : headers) {
    mask |= header.channel_mask == 0 ? 0xFu : header.channel_mask;
  }
  if (settings.selection.channels != 0xF) mask = settings.selection.channels;
  unsigned changed = 0;
  for (unsigned c = 0; c < orvo::timing::kChannels; ++c) {
    if ((mask >> c & 1) != 0) changed |= 1u << settings.changes.channel[c];
  }
  return static_cast<std::uint8_t>(changed);
}

/// "vq_convert_stream_file 1.0.0 of a.tagcap, b.tagcap and 3 more; recorded by labview".
inline std::string conversion_note(const std::vector<std::string>& inputs, const std::string& application) {
  constexpr std::size_t kMostNames = 3;
  std::string note = "vq_convert_stream_file " + std::string(orvo::timing::kVersion) + " of ";
  for (std::size_t i = 0; i < std::min(inputs.size(), kMostNames); ++i) {
    const bool is_pipe = inputs[i] == Settings::kPipe;
    note +=
        (i == 0 ? "" : ", ") + (is_pipe ? "standard input" : std::filesystem::path(inputs[i]).filename().string());
  }
  if (inputs.size() > kMostNames) note += " and " + std::to_string(inputs.size() - kMostNames) + " more";
  return application.empty() ? note : note + "; " + application;
}

/// Throws `UsageError` for options that the encoding of OUT has no use for.
inline void check_encoding_options(const EncodingSettings& encoding, orvo::timing::StreamFormat format) {
  using orvo::timing::StreamFormat;
  if (encoding.tag_format && format != StreamFormat::raw64) throw UsageError("--tag-format: only with raw64");
  if ((encoding.delta_bits || encoding.quantum_ps) && format != StreamFormat::packed_delta) {
    throw UsageError("--delta-bits, --quantum-ps: only with packed_delta");
  }
}

/// The first input's header with what changes. `first_tags` are some of those to be written. Unless asked otherwise
/// the encoding is the first input's; another one is as fine as times come.
inline orvo::timing::StreamFileHeader converted_header(const Settings& settings,
                                                       std::span<const orvo::timing::StreamFileHeader> headers,
                                                       std::span<const orvo::timing::TimeTag> first_tags) {
  using orvo::timing::StreamFormat;
  const EncodingSettings& encoding = settings.encoding;
  orvo::timing::StreamFileHeader header = headers.front();
  const StreamFormat before = header.stream_format;
  header.stream_format = encoding.format.value_or(before);
  check_encoding_options(encoding, header.stream_format);
  if (header.stream_format == StreamFormat::raw64) {
    if (before != StreamFormat::raw64) header.raw64_tag_format = "ps";
    if (encoding.tag_format) header.raw64_tag_format = *encoding.tag_format;
  }
  if (header.stream_format == StreamFormat::packed_delta) {
    const bool is_new = before != StreamFormat::packed_delta;
    if (is_new) header.quantum_ps = 1;
    if (encoding.quantum_ps) header.quantum_ps = static_cast<std::uint16_t>(*encoding.quantum_ps);
    if (is_new) header.delta_bits = static_cast<std::uint8_t>(best_delta_bits(first_tags, header.quantum_ps));
    if (encoding.delta_bits) header.delta_bits = static_cast<std::uint8_t>(*encoding.delta_bits);
  }
  header.channel_mask = converted_mask(settings, headers);
  header.application = conversion_note(settings.inputs, header.application);
  return header;
}

}  // namespace
