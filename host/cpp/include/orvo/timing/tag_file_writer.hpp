#pragma once
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "orvo/timing/byte_queue.hpp"
#include "orvo/timing/encoder_settings.hpp"
#include "orvo/timing/error.hpp"
#include "orvo/timing/stream_file_header.hpp"
#include "orvo/timing/stream_file_writer.hpp"
#include "orvo/timing/tag_encoder.hpp"
#include "orvo/timing/time_tag.hpp"

namespace orvo::timing {

/// Writes a capture file tag by tag, in the encoding that its header names: a `StreamFileWriter` and a `TagEncoder`.
///
///     TagFileWriter writer;
///     writer.open("a.tagcap", header);
///     writer.write(tags);
///     writer.close();
class TagFileWriter {
 public:
  /// Creates or truncates the file. Throws `Error` as `StreamFileWriter::open` and `TagEncoder` do.
  void open(const std::string& path, const StreamFileHeader& header, const EncoderSettings& settings = {}) {
    encoder_ = std::make_unique<TagEncoder>(header, settings);
    payload_.clear();
    tags_ = 0;
    writer_.open(path, header);
  }

  /// Appends tags. Throws `Error` when no file is open, when the encoding cannot carry one of them (the file then
  /// ends before it) and when the file cannot be written.
  void write(std::span<const TimeTag> tags) {
    if (!encoder_) throw Error("TagFileWriter: not open", kNotOpen);
    constexpr std::size_t kBlockTags = 65'536;
    while (!tags.empty()) {
      const auto block = tags.first(std::min(tags.size(), kBlockTags));
      encoder_->encode(block, payload_);
      tags_ += block.size();
      write_payload();
      tags = tags.subspan(block.size());
    }
  }

  /// Completes and closes the file; does nothing when none is open. Without it the file is not complete. Throws
  /// `Error` when what was still buffered cannot be written, and for a packed_delta capture so short that it would
  /// not decode.
  void close() {
    if (!encoder_) return;
    encoder_->finish(payload_);
    write_payload();
    writer_.close();
    encoder_.reset();
  }

  /// Tags written since `open`.
  std::uint64_t tags() const { return tags_; }
  /// Decoded less given time of a channel's tags; see `TagEncoder::axis_ps`. To be asked before `close`.
  std::int64_t axis_ps(unsigned channel) const { return encoder_ ? encoder_->axis_ps(channel) : 0; }
  /// The file below.
  const StreamFileWriter& file() const { return writer_; }

 private:
  void write_payload() {
    writer_.write(payload_.data(), payload_.size());
    payload_.clear();
  }

  StreamFileWriter writer_;
  std::unique_ptr<TagEncoder> encoder_;  // none: no file is open
  ByteQueue payload_;
  std::uint64_t tags_ = 0;
};

}  // namespace orvo::timing
