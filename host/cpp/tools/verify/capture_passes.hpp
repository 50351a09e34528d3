#pragma once
// Part of vq_verify_stream_file_xcorr: file-local throughout.
#include <sys/stat.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <utility>

#include "orvo/timing/detail/fine_counts.hpp"
#include "orvo/timing/offset_stream.hpp"
#include "orvo/timing/stream_file_reader.hpp"
#include "orvo/timing/xcorr_histogram.hpp"
#include "orvo/timing/xcorr_stream.hpp"
#include "verify/config.hpp"
#include "verify/run_result.hpp"
#include "verify/tag_collection.hpp"

namespace {

/// What tells that a file is still the same: where it lies, its size and when it was last written.
struct FileState {
  explicit FileState(const std::filesystem::path& path) {
    struct ::stat status {};
    if (::stat(path.c_str(), &status) != 0) return;
    is_regular = S_ISREG(status.st_mode);
    device = status.st_dev;
    inode = status.st_ino;
    bytes = static_cast<std::uint64_t>(std::max<std::int64_t>(status.st_size, 0));
    written_seconds = status.st_mtim.tv_sec;
    written_ns = status.st_mtim.tv_nsec;
  }
  friend bool operator==(const FileState&, const FileState&) = default;

  bool is_regular = false;
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  std::uint64_t bytes = 0;
  std::int64_t written_seconds = 0;
  std::int64_t written_ns = 0;
};

inline orvo::timing::XcorrPair pair_of(const Config& config, const orvo::timing::XcorrWindow& window) {
  return {static_cast<unsigned>(config.channel_a), static_cast<unsigned>(config.channel_b), window};
}

/// Notes how many tags of each channel there are, or were decoded.
template <class Stream>
void note_tags(RunResult& run, const Stream& stream) {
  for (std::size_t channel = 0; channel < run.channel_counts.size(); ++channel) {
    run.channel_counts[channel] = stream.tags(channel);
  }
  run.decoded_tags = stream.total();
}

/// Decodes the capture into a stream, to its end. False as soon as a tag comes too late for it.
template <class Stream>
bool decode_in_order(orvo::timing::StreamFileReader& reader, std::uint64_t max_tags, Stream& stream) {
  while (decode_piece(reader, max_tags, stream)) {
    if (stream.late_tags() != 0) return false;
  }
  stream.finish();
  return stream.late_tags() == 0;
}

/// The correlation at an estimated offset in constant memory: two passes over the file, or three. Each step is false
/// where the tags are too disordered for that, or the file is not what it was: then only lists of all tags will do.
///
/// The estimate needs to know how many tags channel A has, and the counting needs the estimate. But a guess from the
/// first tags is mostly near it. The first pass counts around the guess in bins of 1 ps, which add up to the bins
/// that were asked for once the offset is known.
class CapturePasses {
 public:
  CapturePasses(orvo::timing::StreamFileReader& reader, const Config& config, RunResult& run)
      : reader_(reader), config_(config), run_(run), state_(run.source) {}

  /// First pass: the tags of each channel, and the counts around the guess.
  bool survey();
  /// Second pass: the offset.
  bool estimate();
  /// The histogram: from the first pass where its counts cover it, else by a third.
  bool count();

 private:
  /// Bins of 1 ps for windows that are this wide stay in the processor's cache.
  static constexpr std::int64_t kWidestFineRangePs = 32'000;

  std::int64_t guess_offset_ps();
  /// Once more from the first tag; false when it is not the same tags again.
  template <class Stream>
  bool pass_again(Stream& stream);

  orvo::timing::StreamFileReader& reader_;
  const Config& config_;
  RunResult& run_;
  FileState state_;
  orvo::timing::XcorrWindow fine_window_{1, 1, 0};
  orvo::timing::XcorrHistogram fine_;
};

/// From the first piece.
inline std::int64_t CapturePasses::guess_offset_ps() {
  const auto [channel_a, channel_b, window] = pair_of(config_, {});
  orvo::timing::OffsetStream start(channel_a, channel_b, 0);
  decode_piece(reader_, config_.max_tags, start);
  start.finish();
  reader_.rewind();
  return start.offset_ps();
}

inline bool CapturePasses::survey() {
  fine_window_.offset_ps = guess_offset_ps();
  // Room for a guess that is off by three ranges and 2 ns; wider windows would cost more than another pass.
  if (config_.range_ps <= kWidestFineRangePs / 2) {
    fine_window_.range_ps = std::min(4 * config_.range_ps + 2'000, kWidestFineRangePs);
  }
  orvo::timing::XcorrStream stream(pair_of(config_, fine_window_));
  if (!decode_in_order(reader_, config_.max_tags, stream)) return false;
  note_tags(run_, stream);
  fine_ = std::move(stream).histogram();
  return FileState(run_.source) == state_;
}

template <class Stream>
bool CapturePasses::pass_again(Stream& stream) {
  reader_.rewind();
  RunResult again;
  if (!decode_in_order(reader_, config_.max_tags, stream)) return false;
  note_tags(again, stream);
  return again.channel_counts == run_.channel_counts && FileState(run_.source) == state_;
}

inline bool CapturePasses::estimate() {
  const auto [channel_a, channel_b, window] = pair_of(config_, {});
  orvo::timing::OffsetStream stream(channel_a, channel_b, run_.channel_counts[channel_a]);
  const bool both = run_.channel_counts[channel_a] != 0 && run_.channel_counts[channel_b] != 0;
  if (both && !pass_again(stream)) return false;
  run_.window = {config_.range_ps, config_.bin_ps, stream.offset_ps()};
  return true;
}

inline bool CapturePasses::count() {
  orvo::timing::XcorrStream stream(pair_of(config_, run_.window));
  if (orvo::timing::detail::fine_counts_cover(fine_window_, run_.window)) {
    run_.histogram = std::move(stream).histogram();
    orvo::timing::detail::add_up_fine_counts(fine_, fine_window_, run_.window, run_.histogram.counts);
    return true;
  }
  if (!pass_again(stream)) return false;
  run_.histogram = std::move(stream).histogram();
  return true;
}

}  // namespace
