#pragma once
// Part of vq_verify_stream_file_xcorr: file-local throughout.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <new>
#include <optional>
#include <span>
#include <string>
#include <utility>

#include "orvo/timing/channel_times.hpp"
#include "orvo/timing/offset_estimate.hpp"
#include "orvo/timing/stream_file_header.hpp"
#include "orvo/timing/stream_file_reader.hpp"
#include "orvo/timing/xcorr_histogram.hpp"
#include "orvo/timing/xcorr_stream.hpp"
#include "verify/capture_passes.hpp"
#include "verify/config.hpp"
#include "verify/run_result.hpp"
#include "verify/tag_collection.hpp"

namespace {

/// Up to so many bytes of times are kept to estimate an offset, which takes a single pass over the capture.
constexpr std::uint64_t kMostListedBytes = std::uint64_t{512} << 20;

/// The offset that the setting names: estimated for "auto", else its number. Both lists are in ascending order.
inline std::int64_t resolve_offset_ps(const std::string& setting, std::span<const std::int64_t> a_ps,
                                      std::span<const std::int64_t> b_ps) {
  return setting == "auto" ? orvo::timing::estimate_offset_sorted_ps(a_ps, b_ps) : std::stoll(setting);
}

/// Correlates the two chosen channels from lists of all tags: for any capture, at 8 bytes a tag.
inline void correlate_lists(orvo::timing::StreamFileReader& reader, const Config& config, RunResult& run) {
  orvo::timing::ChannelTimes times = collect_tags(reader, config.max_tags);
  for (std::size_t channel = 0; channel < run.channel_counts.size(); ++channel) {
    run.channel_counts[channel] = times.size(channel);
  }
  run.decoded_tags = times.total();
  const auto a_ps = times[static_cast<std::size_t>(config.channel_a)];
  const auto b_ps = times[static_cast<std::size_t>(config.channel_b)];
  orvo::timing::sort_times(a_ps);
  orvo::timing::sort_times(b_ps);
  run.window = {config.range_ps, config.bin_ps, resolve_offset_ps(config.offset, a_ps, b_ps)};
  run.histogram = orvo::timing::xcorr_histogram_sorted(a_ps, b_ps, run.window);
}

/// Correlates while decoding, at the offset that was given, in constant memory. False when the tags are too
/// disordered.
inline bool correlate_stream(orvo::timing::StreamFileReader& reader, const Config& config, RunResult& run) {
  std::optional<orvo::timing::XcorrStream> stream;
  std::exception_ptr failure;
  try {
    run.window = {config.range_ps, config.bin_ps, std::stoll(config.offset)};
    stream.emplace(pair_of(config, run.window));
  } catch (const std::exception&) {
    // Deliberate: a capture that cannot be read fails before an offset that is none, or bins that are too many.
    failure = std::current_exception();
    stream.emplace(std::span<const orvo::timing::XcorrPair>{});
  }
  if (!decode_in_order(reader, config.max_tags, *stream)) return false;
  if (failure) std::rethrow_exception(failure);
  note_tags(run, *stream);
  run.histogram = (*std::move(stream)).histogram();
  return true;
}

/// Correlates at an estimated offset, in constant memory. False when the tags are too disordered, or the file
/// changed.
inline bool correlate_in_passes(orvo::timing::StreamFileReader& reader, const Config& config, RunResult& run) {
  CapturePasses passes(reader, config, run);
  return passes.survey() && passes.estimate() && passes.count();
}

/// No payload of so many bytes holds more tags.
inline std::uint64_t most_tags(const orvo::timing::StreamFileHeader& header, std::uint64_t payload_bytes) {
  switch (header.stream_format) {
    case orvo::timing::StreamFormat::raw64:
      return payload_bytes / 8;
    case orvo::timing::StreamFormat::delta32:
      return payload_bytes / 4;
    case orvo::timing::StreamFormat::packed_delta:
      return (payload_bytes / (header.delta_bits == 0 ? 16u + 3u : header.delta_bits + 3u) + 1) * 8;
  }
  return 0;
}

/// True when lists of all tags surely take no more than `most_bytes`.
inline bool lists_are_short(const orvo::timing::StreamFileReader& reader, const Config& config,
                            std::uint64_t file_bytes, std::uint64_t most_bytes) {
  const std::uint64_t tags = most_tags(reader.header(), file_bytes);
  return (config.max_tags == 0 ? tags : std::min(tags, config.max_tags)) <= most_bytes / sizeof(std::int64_t);
}

/// Decodes the capture and correlates the two chosen channels, in the way that takes the least: while decoding where
/// the offset is given, from lists where they are short, else in passes. What cannot be read twice, or is too
/// disordered, takes lists of all tags. All ways have the same result.
inline void correlate(orvo::timing::StreamFileReader& reader, const Config& config, std::uint64_t most_listed_bytes,
                      RunResult& run) {
  const FileState state(run.source);
  if (!state.is_regular) return correlate_lists(reader, config, run);
  if (config.offset != "auto") {
    if (correlate_stream(reader, config, run)) return;
  } else if (!lists_are_short(reader, config, state.bytes, most_listed_bytes)) {
    if (correlate_in_passes(reader, config, run)) return;
  } else {
    try {
      return correlate_lists(reader, config, run);
    } catch (const std::bad_alloc&) {  // passes may still do
      reader.rewind();
      if (correlate_in_passes(reader, config, run)) return;
    }
  }
  reader.rewind();
  correlate_lists(reader, config, run);
}

}  // namespace
