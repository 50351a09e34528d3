#pragma once
// Part of vq_convert_stream_file: file-local throughout.
#include <array>
#include <cstdint>
#include <future>
#include <optional>
#include <span>

#include "convert/byte_output.hpp"
#include "convert/payload_check.hpp"
#include "convert/settings.hpp"
#include "orvo/timing/byte_queue.hpp"
#include "orvo/timing/stream_file_header.hpp"
#include "orvo/timing/stream_file_writer.hpp"
#include "orvo/timing/tag_encoder.hpp"
#include "orvo/timing/time_tag.hpp"

namespace {

/// Tags as a capture, checked while it is written if that is asked for.
class CaptureOutput {
 public:
  /// Throws `Error` when the file cannot be created or nothing can be encoded with this header.
  CaptureOutput(const Settings& settings, const orvo::timing::StreamFileHeader& header)
      : encoder_(header, {.anchor_every = settings.encoding.anchor_every, .round = settings.encoding.round}),
        output_(settings.out) {
    if (settings.verify) check_.emplace(header, settings.encoding.round ? most_rounding_ps(header) : 0);
    write_bytes(orvo::timing::stream_file_start(header));
  }

  /// The tags have to stay as they are until the next call has ended.
  void write(std::span<const orvo::timing::TimeTag> tags) {
    if (tags.empty()) return await_check();
    first_channel_ = first_channel_.value_or(tags.front().channel);
    encoder_.encode(tags, payload());
    write_payload(tags);
  }

  void complete() {
    encoder_.finish(payload());
    write_payload({});
    await_check();
    if (check_) check_->finish();
    output_.complete();
  }

  /// Decoded less converted time, of all tags.
  std::int64_t axis_ps() const { return first_channel_ ? encoder_.axis_ps(*first_channel_) : 0; }
  orvo::timing::Rounding rounding() const { return encoder_.rounding(); }
  std::uint64_t file_bytes() const { return file_bytes_; }
  /// Tags that were decoded again; none without the check.
  std::optional<std::uint64_t> checked_tags() const { return check_ ? std::optional(check_->tags()) : std::nullopt; }

 private:
  /// Half the distance of two fine codes; a quantum, half of which it is but for the end of all times.
  static std::int64_t most_rounding_ps(const orvo::timing::StreamFileHeader& header) {
    if (header.stream_format == orvo::timing::StreamFormat::raw64) return 9;
    return std::int64_t{1} << orvo::timing::StreamDecoder(header).quantum_shift;
  }

  orvo::timing::ByteQueue& payload() { return payloads_[turn_]; }

  template <class Bytes>
  void write_bytes(const Bytes& bytes) {
    output_.write(bytes.data(), bytes.size());
    file_bytes_ += bytes.size();
  }
  /// Writes the payload of the tags while a second thread checks it.
  void write_payload(std::span<const orvo::timing::TimeTag> tags) {
    await_check();
    if (check_) {
      running_check_ = std::async(std::launch::async, [this, tags, bytes = payload().bytes(), axis = axis_ps()] {
        check_->add(tags, bytes, axis);
      });
    }
    write_bytes(payload().bytes());
    turn_ = 1 - turn_;
    payload().clear();
  }
  /// Throws what the check throws.
  void await_check() {
    if (running_check_.valid()) running_check_.get();
  }

  orvo::timing::TagEncoder encoder_;
  ByteOutput output_;
  std::uint64_t file_bytes_ = 0;
  std::optional<PayloadCheck> check_;
  std::array<orvo::timing::ByteQueue, 2> payloads_;  // one is filled while the other is checked
  unsigned turn_ = 0;
  std::optional<std::uint8_t> first_channel_;
  std::future<void> running_check_;  // last: it uses the others until it has ended
};

}  // namespace
