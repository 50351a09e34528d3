#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "common/progress.hpp"
#include "inspect/capture_facts.hpp"
#include "inspect/capture_input.hpp"
#include "orvo/timing/payload_account.hpp"
#include "orvo/timing/stream_decoder.hpp"
#include "orvo/timing/stream_file_header.hpp"
#include "orvo/timing/stream_header_json.hpp"

namespace {

/// One pass over a capture: all that reports and findings are made of.
class Inspection {
 public:
  /// Bytes of the payload that are kept, to see whether they are of another encoding.
  static constexpr std::size_t kHeadBytes = 65'536;

  /// Reads the capture to its end, or until it gave `max_tags` tags when that is not 0. What is read is written to
  /// the descriptor `copy`, too, if there is one. Throws `Error`.
  Inspection(std::string path, std::uint64_t max_tags, Progress& progress, int copy = -1)
      : path_(std::move(path)),
        input_(path_, copy),
        header_(orvo::timing::stream_header_from_json(input_.header_text())),
        decoder_(header_),
        collector_(std::make_unique<FactCollector>(decoder_.header, max_tags)),
        account_(decoder_.header, *collector_) {
    read_payload(progress);
    collector_->finish();
    if (!stopped_early_) account_.finish(decoder_);
  }

  const std::string& path() const { return path_; }
  const CaptureInput& input() const { return input_; }
  /// As read from the file. What decoding makes of it: `delta_bits` and `quantum_ps` of 0 count as 16 and 8.
  const orvo::timing::StreamFileHeader& header() const { return header_; }
  const orvo::timing::StreamFileHeader& decoded_header() const { return decoder_.header; }
  const orvo::timing::PayloadAccount<FactCollector>& account() const { return account_; }
  const CaptureFacts& facts() const { return collector_->facts(); }
  const std::vector<std::uint8_t>& head() const { return head_; }
  /// The wanted number of tags came before the end of the payload.
  bool stopped_early() const { return stopped_early_; }

  /// As long as the file was when it was opened if reading stopped early, else what was read.
  std::uint64_t file_bytes() const { return stopped_early_ ? input_.file_bytes() : input_.bytes_read(); }

  bool is_packed() const { return header_.stream_format == orvo::timing::StreamFormat::packed_delta; }
  std::uint64_t units_per_byte() const { return is_packed() ? 8 : 1; }
  /// Read, in the payload's unit.
  std::uint64_t payload_units() const { return units_per_byte() * input_.payload_bytes_read(); }
  /// Held by the decoder, or never given to it.
  std::uint64_t pending() const { return feeds() ? account_.pending(decoder_) : payload_units(); }

 private:
  /// Packed records wider than any decoder reads are counted, and kept nowhere.
  bool feeds() const { return !is_packed() || decoder_.header.delta_bits <= 31; }

  void read_payload(Progress& progress) {
    orvo::timing::detail::PackedDebugLog log(decoder_);
    orvo::timing::ObserverPair observers(log, account_);
    for (;;) {
      const std::size_t count = input_.read(decoder_.pending_bytes);
      if (count == 0) return;
      if (head_.size() < kHeadBytes) keep_head(count);
      if (feeds()) {
        orvo::timing::detail::decode_pending(decoder_, *collector_, observers);
      } else {
        decoder_.pending_bytes.clear();
      }
      progress.tell_bytes(input_.bytes_read(), input_.expected_bytes());
      stopped_early_ = collector_->is_full();
      if (stopped_early_) return;
    }
  }

  void keep_head(std::size_t count) {
    const std::uint8_t* const read = decoder_.pending_bytes.end() - count;
    head_.insert(head_.end(), read, read + std::min(count, kHeadBytes - head_.size()));
  }

  std::string path_;
  CaptureInput input_;
  orvo::timing::StreamFileHeader header_;
  orvo::timing::StreamDecoder decoder_;
  std::unique_ptr<FactCollector> collector_;
  orvo::timing::PayloadAccount<FactCollector> account_;
  std::vector<std::uint8_t> head_;
  bool stopped_early_ = false;
};

}  // namespace
