#pragma once
// Part of vq_convert_stream_file: file-local throughout.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "orvo/timing/error.hpp"
#include "orvo/timing/stream_decoder.hpp"
#include "orvo/timing/stream_file_header.hpp"
#include "orvo/timing/time_tag.hpp"

namespace {

/// Decodes a payload while it is written, and compares the tags with those that were to be written.
///
/// Sound payload decodes to the same tags in whatever pieces it comes, so each piece is compared with the tags that
/// it was made of, where they lie. Only packed_delta of internal mode is judged by whole reads.
class PayloadCheck {
 public:
  /// Times may differ by `tolerance_ps`, what rounding may have moved them.
  PayloadCheck(const orvo::timing::StreamFileHeader& header, std::int64_t tolerance_ps)
      : decoder_(header),
        by_reads_(header.stream_format == orvo::timing::StreamFormat::packed_delta &&
                  header.mode == orvo::timing::StreamMode::internal),
        tolerance_ps_(static_cast<std::uint64_t>(tolerance_ps)) {}

  /// The next tags and the payload that they gave; a decoder gives their times plus `axis_ps`. Throws `Error` when it
  /// decodes to something else.
  void add(std::span<const orvo::timing::TimeTag> tags, std::span<const std::uint8_t> payload, std::int64_t axis_ps) {
    axis_ps_ = static_cast<std::uint64_t>(axis_ps);
    if (!by_reads_) {
      decoder_.pending_bytes.append(payload.data(), payload.size());
      return decode(tags);
    }
    waiting_.insert(waiting_.end(), tags.begin(), tags.end());
    while (!payload.empty()) {
      const std::size_t size = std::min(payload.size(), kReadBytes - in_read_);
      decoder_.pending_bytes.append(payload.data(), size);
      in_read_ += size;
      payload = payload.subspan(size);
      if (in_read_ == kReadBytes) decode({});
    }
  }

  /// No more follows. Throws `Error` when a tag is missing.
  void finish() {
    if (in_read_ != 0) decode({});
    if (!waiting_.empty()) fail(waiting_.front());
  }

  std::uint64_t tags() const { return tags_; }

 private:
  static constexpr std::size_t kReadBytes = std::size_t{1} << 20;

  /// A sink that keeps nothing: it walks along the expected tags, first those that have waited.
  struct Comparison {
    std::span<const orvo::timing::TimeTag> left;
    std::span<const orvo::timing::TimeTag> after;
    std::uint64_t axis_ps;
    std::uint64_t tolerance_ps;
    std::size_t at = 0;  // in `left`
    bool differs = false;

    void begin_chunk(std::size_t) {}
    void add(unsigned channel, std::int64_t time_ps) {
      if (at == left.size() && !go_on_after()) return;
      const orvo::timing::TimeTag& tag = left[at];
      const std::uint64_t step_ps =
          static_cast<std::uint64_t>(time_ps) - static_cast<std::uint64_t>(tag.time_ps) - axis_ps + tolerance_ps;
      if (differs || tag.channel != channel || step_ps > 2 * tolerance_ps) {
        differs = true;
      } else {
        ++at;
      }
    }
    void end_chunk() {}
    void discard_chunk() { differs = true; }

    bool go_on_after() {
      if (after.empty()) {
        differs = true;
        return false;
      }
      left = std::exchange(after, {});
      at = 0;
      return true;
    }
  };

  void decode(std::span<const orvo::timing::TimeTag> tags) {
    in_read_ = 0;
    Comparison comparison{waiting_, tags, axis_ps_, tolerance_ps_};
    decoder_.feed({}, comparison);
    const auto rest = comparison.left.subspan(comparison.at);
    if (comparison.differs) fail(rest.empty() ? orvo::timing::TimeTag{} : rest.front());
    tags_ += waiting_.size() + tags.size() - rest.size() - comparison.after.size();
    // Tags of which records are not complete wait for the next piece.
    std::vector<orvo::timing::TimeTag> waiting(rest.begin(), rest.end());
    waiting.insert(waiting.end(), comparison.after.begin(), comparison.after.end());
    waiting_ = std::move(waiting);
  }

  [[noreturn]] static void fail(const orvo::timing::TimeTag& tag) {
    throw orvo::timing::Error("the capture does not decode to what was to be written, from channel " +
                                  std::to_string(tag.channel) + " at " + std::to_string(tag.time_ps) + " ps on",
                              orvo::timing::kInvalidArgument);
  }

  orvo::timing::StreamDecoder decoder_;
  bool by_reads_;
  std::uint64_t tolerance_ps_;
  std::uint64_t axis_ps_ = 0;
  std::size_t in_read_ = 0;                     // bytes of the running read
  std::vector<orvo::timing::TimeTag> waiting_;  // expected, not yet decoded
  std::uint64_t tags_ = 0;
};

}  // namespace
