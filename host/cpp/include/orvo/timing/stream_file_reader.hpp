#pragma once
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <ios>
#include <memory>
#include <string>
#include <vector>

#include "orvo/timing/detail/byte_order.hpp"
#include "orvo/timing/error.hpp"
#include "orvo/timing/payload_observer.hpp"
#include "orvo/timing/stream_decoder.hpp"
#include "orvo/timing/stream_file_header.hpp"
#include "orvo/timing/stream_file_layout.hpp"
#include "orvo/timing/stream_header_json.hpp"
#include "orvo/timing/tag_sink.hpp"
#include "orvo/timing/time_tag.hpp"

namespace orvo::timing {

/// Opens a capture file and decodes its payload, one bounded piece at a time.
class StreamFileReader {
 public:
  /// Opens the file and reads its header; any decoding of an earlier file is forgotten. The header's text is never
  /// rejected. Throws `Error` when the file cannot be opened, ends before its payload or is no capture; then the
  /// reader must be opened again before it is used.
  void open(const std::string& path);

  const StreamFileHeader& header() const { return header_; }
  /// The header's text as it stands in the file.
  const std::string& header_json() const { return header_json_; }
  /// Position of the first payload byte in the file.
  std::uint64_t payload_offset() const { return payload_offset_; }
  /// What decodes the open file, for `PayloadAccount::finish`; null until its first payload is asked for.
  const StreamDecoder* decoder() const { return decoder_.get(); }

  /// The next tags in stream order, at most `max_tags`; empty when the payload is exhausted. A file that grows after
  /// its end was read goes on being read: the next call gives what has come since. The payload is read
  /// `max_bytes` at a time (0 counts as 1); where a read ends matters to the encodings that search for their framing.
  /// Throws `Error` when no file is open or it cannot be read.
  std::vector<TimeTag> decode_next_tags(std::uint64_t max_tags, std::uint64_t max_bytes);

  /// Decodes one read of at most `max_bytes` into `sink`, which may yield no tag. Returns
  /// false when the payload is exhausted, for as long as the file does not grow. Not to be mixed with
  /// `decode_next_tags` on one file. Throws as that does.
  template <TagSink Sink>
  bool decode_next_chunk(std::uint64_t max_bytes, Sink& sink);
  /// The same with an observer (see payload_observer.hpp), in place of the debug log.
  template <TagSink Sink, PayloadObserver Observer>
  bool decode_next_chunk(std::uint64_t max_bytes, Sink& sink, Observer& observer);

  /// Goes back to the first payload byte: the tags come once more, from the file that was opened, whatever its path
  /// names by now. Debug lines that have been written are not written again. Throws `Error` when no file is open or
  /// it is none that can be read twice, a pipe for example.
  void rewind();

 private:
  bool read_exactly(char* target, std::size_t size);
  bool read_header_text(std::uint64_t length);
  bool read_payload(std::uint64_t max_bytes);
  void hand_out_pending(std::vector<TimeTag>& tags, std::uint64_t max_tags);

  std::ifstream file_;
  StreamFileHeader header_;
  std::string header_json_;
  std::uint64_t payload_offset_ = 0;
  std::unique_ptr<StreamDecoder> decoder_;
  std::vector<TimeTag> pending_tags_;  // decoded, not yet handed out
  std::uint64_t pending_index_ = 0;    // the first of them
};

inline bool StreamFileReader::read_exactly(char* target, std::size_t size) {
  return static_cast<bool>(file_.read(target, static_cast<std::streamsize>(size)));
}

/// In steps, so that a false length does not cost its memory.
inline bool StreamFileReader::read_header_text(std::uint64_t length) {
  constexpr std::uint64_t kStepBytes = 1 << 20;
  header_json_.clear();
  while (header_json_.size() < length) {
    const std::size_t done = header_json_.size();
    header_json_.resize(done + static_cast<std::size_t>(std::min(length - done, kStepBytes)));
    if (!read_exactly(header_json_.data() + done, header_json_.size() - done)) return false;
  }
  return true;
}

inline void StreamFileReader::open(const std::string& path) {
  if (file_.is_open()) file_.close();
  file_.clear();
  file_.open(path, std::ios::binary);
  if (!file_) throw Error("StreamFileReader: cannot open " + path, kFileFailure);

  std::string magic(kStreamFileMagicBytes, '\0');
  if (!read_exactly(magic.data(), magic.size())) throw Error("StreamFileReader: truncated magic", kFileFailure);
  if (magic != kStreamFileMagic && magic != kEarlierStreamFileMagic) {
    throw Error("StreamFileReader: not an Orvo timing stream file", kNotACapture);
  }
  char length_bytes[4];
  // Deliberate: this one message does not name the class.
  if (!read_exactly(length_bytes, 4)) throw Error("stream file: truncated header length", kFileFailure);
  const std::uint32_t length = detail::load_le32(reinterpret_cast<const std::uint8_t*>(length_bytes));
  if (!read_header_text(length)) throw Error("StreamFileReader: truncated JSON header", kFileFailure);

  header_ = stream_header_from_json(header_json_);
  payload_offset_ = kStreamFilePrefixBytes + length;
  decoder_.reset();
  pending_tags_.clear();
  pending_index_ = 0;
}

/// One read into the decoder's pending bytes. False at the end of the payload, which is no failure.
inline bool StreamFileReader::read_payload(std::uint64_t max_bytes) {
  if (!file_.is_open()) throw Error("StreamFileReader: not open", kNotOpen);
  if (file_.eof()) {
    file_.clear();
    return false;
  }
  const auto size = static_cast<std::size_t>(std::max<std::uint64_t>(max_bytes, 1));
  ByteQueue& bytes = decoder_->pending_bytes;
  file_.read(reinterpret_cast<char*>(bytes.prepare(size)), static_cast<std::streamsize>(size));
  if (file_.bad()) throw Error("StreamFileReader: payload read failed", kFileFailure);
  const auto count = static_cast<std::size_t>(file_.gcount());
  file_.clear();
  bytes.commit(count);
  return count != 0;
}

template <TagSink Sink>
bool StreamFileReader::decode_next_chunk(std::uint64_t max_bytes, Sink& sink) {
  if (!decoder_) decoder_ = std::make_unique<StreamDecoder>(header_);
  if (!read_payload(max_bytes)) return false;
  detail::decode_pending(*decoder_, sink);
  return true;
}

template <TagSink Sink, PayloadObserver Observer>
bool StreamFileReader::decode_next_chunk(std::uint64_t max_bytes, Sink& sink, Observer& observer) {
  if (!decoder_) decoder_ = std::make_unique<StreamDecoder>(header_);
  if (!read_payload(max_bytes)) return false;
  detail::decode_pending(*decoder_, sink, observer);
  return true;
}

inline void StreamFileReader::rewind() {
  if (!file_.is_open()) throw Error("StreamFileReader: not open", kNotOpen);
  file_.clear();
  if (!file_.seekg(static_cast<std::streamoff>(payload_offset_))) {
    throw Error("StreamFileReader: payload cannot be read again", kFileFailure);
  }
  pending_tags_.clear();
  pending_index_ = 0;
  if (!decoder_) return;
  const std::uint64_t told = std::max(decoder_->pk_debug_lines, decoder_->pk_debug_told);
  decoder_ = std::make_unique<StreamDecoder>(header_);
  decoder_->pk_debug_told = told;
}

inline void StreamFileReader::hand_out_pending(std::vector<TimeTag>& tags, std::uint64_t max_tags) {
  const std::uint64_t count = std::min<std::uint64_t>(max_tags - tags.size(), pending_tags_.size() - pending_index_);
  const auto first = pending_tags_.begin() + static_cast<std::ptrdiff_t>(pending_index_);
  tags.insert(tags.end(), first, first + static_cast<std::ptrdiff_t>(count));
  pending_index_ += count;
  if (pending_index_ < pending_tags_.size()) return;
  pending_tags_.clear();
  pending_index_ = 0;
}

inline std::vector<TimeTag> StreamFileReader::decode_next_tags(std::uint64_t max_tags, std::uint64_t max_bytes) {
  constexpr std::uint64_t kMostReserved = 1 << 20;  // "as many as there are" must not cost their memory
  std::vector<TimeTag> tags;
  if (max_tags == 0) return tags;
  tags.reserve(static_cast<std::size_t>(std::min(max_tags, kMostReserved)));
  hand_out_pending(tags, max_tags);
  TagList list(pending_tags_);
  while (tags.size() < max_tags && decode_next_chunk(max_bytes, list)) hand_out_pending(tags, max_tags);
  return tags;
}

}  // namespace orvo::timing
