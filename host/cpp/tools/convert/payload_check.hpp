#pragma once
// Part of vq_convert_stream_file: file-local throughout.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "orvo/timing/error.hpp"
#include "orvo/timing/stream_decoder.hpp"
#include "orvo/timing/stream_file_header.hpp"
#include "orvo/timing/time_tag.hpp"

namespace {

/// Decodes a payload while it is written, in the reads in which it will be read, and compares the tags with those
/// that were to be written.
class PayloadCheck {
 public:
  /// Times may differ by `tolerance_ps`, what rounding may have moved them.
  PayloadCheck(const orvo::timing::StreamFileHeader& header, std::int64_t tolerance_ps)
      : decoder_(header), tolerance_ps_(static_cast<std::uint64_t>(tolerance_ps)) {}

  /// Tags of which the payload follows. A decoder gives their times plus `axis_ps`.
  void expect(std::span<const orvo::timing::TimeTag> tags) {
    if (2 * compared_ > expected_.size()) {
      expected_.erase(expected_.begin(), expected_.begin() + static_cast<std::ptrdiff_t>(compared_));
      compared_ = 0;
    }
    expected_.insert(expected_.end(), tags.begin(), tags.end());
  }

  /// The next payload. Throws `Error` when it decodes to something else.
  void add(std::span<const std::uint8_t> payload, std::int64_t axis_ps) {
    axis_ps_ = static_cast<std::uint64_t>(axis_ps);
    while (!payload.empty()) {
      const std::size_t size = std::min(payload.size(), kReadBytes - in_read_);
      decoder_.pending_bytes.append(payload.data(), size);
      in_read_ += size;
      payload = payload.subspan(size);
      if (in_read_ == kReadBytes) decode();
    }
  }

  /// No more follows. Throws `Error` when a tag is missing.
  void finish() {
    if (in_read_ != 0) decode();
    if (compared_ != expected_.size()) fail(expected_[compared_]);
  }

  std::uint64_t tags() const { return tags_; }

 private:
  static constexpr std::size_t kReadBytes = std::size_t{1} << 20;

  /// A sink that keeps nothing: it walks along the expected tags.
  struct Comparison {
    std::span<const orvo::timing::TimeTag> expected;
    std::uint64_t axis_ps;
    std::uint64_t tolerance_ps;
    std::size_t at = 0;
    bool differs = false;

    void begin_chunk(std::size_t) {}
    void add(unsigned channel, std::int64_t time_ps) {
      if (differs) return;
      if (at == expected.size()) {
        differs = true;
        return;
      }
      const orvo::timing::TimeTag& tag = expected[at];
      const std::uint64_t step_ps =
          static_cast<std::uint64_t>(time_ps) - static_cast<std::uint64_t>(tag.time_ps) - axis_ps + tolerance_ps;
      differs = tag.channel != channel || step_ps > 2 * tolerance_ps;
      at += differs ? 0 : 1;
    }
    void end_chunk() {}
    void discard_chunk() { differs = true; }
  };

  void decode() {
    in_read_ = 0;
    Comparison comparison{std::span<const orvo::timing::TimeTag>(expected_).subspan(compared_), axis_ps_,
                          tolerance_ps_};
    decoder_.feed({}, comparison);
    compared_ += comparison.at;
    tags_ += comparison.at;
    if (comparison.differs) fail(compared_ < expected_.size() ? expected_[compared_] : orvo::timing::TimeTag{});
  }

  [[noreturn]] static void fail(const orvo::timing::TimeTag& tag) {
    throw orvo::timing::Error("the capture does not decode to what was to be written, from channel " +
                                  std::to_string(tag.channel) + " at " + std::to_string(tag.time_ps) + " ps on",
                              orvo::timing::kInvalidArgument);
  }

  orvo::timing::StreamDecoder decoder_;
  std::uint64_t tolerance_ps_;
  std::uint64_t axis_ps_ = 0;
  std::size_t in_read_ = 0;  // bytes of the running read
  std::vector<orvo::timing::TimeTag> expected_;
  std::size_t compared_ = 0;  // of them
  std::uint64_t tags_ = 0;
};

}  // namespace
