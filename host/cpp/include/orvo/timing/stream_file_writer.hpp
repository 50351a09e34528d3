#pragma once
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <ios>
#include <limits>
#include <string>
#include <vector>

#include "orvo/timing/detail/byte_order.hpp"
#include "orvo/timing/error.hpp"
#include "orvo/timing/stream_file_header.hpp"
#include "orvo/timing/stream_file_layout.hpp"
#include "orvo/timing/stream_header_json.hpp"

namespace orvo::timing {

/// A capture up to its payload: magic word, length and text of the header. An empty `created_utc` or
/// `raw64_tag_format` is filled in. Throws `Error` when the text is longer than 32 bits can say.
inline std::string stream_file_start(const StreamFileHeader& header) {
  const std::string json = stream_header_to_json(header);
  if (json.size() > std::numeric_limits<std::uint32_t>::max()) {
    throw Error("StreamFileWriter: header is too large", kInvalidArgument);
  }
  const auto length = detail::le32_bytes(static_cast<std::uint32_t>(json.size()));
  std::string start(kStreamFileMagic);
  start.append(length.begin(), length.end());
  return start + json;
}

/// Writes a capture file: `open` writes everything up to the payload, `write` appends payload bytes as they are,
/// `close` completes the file. Payload reaches the file in blocks of 1 MiB, so that a full disk may show as late as
/// in `close`: whoever leaves closing to the destructor is never told.
class StreamFileWriter {
 public:
  /// Creates or truncates the file. An empty `created_utc` or `raw64_tag_format` is filled in in the file's header
  /// only. Throws `Error` when the file cannot be opened or its header not be written.
  void open(const std::string& path, const StreamFileHeader& header);

  /// Appends payload. Throws `Error` when an earlier `open` or `write` failed, when `data` is null though `size` is
  /// not 0, and when the file cannot be written.
  void write(const void* data, std::size_t size);

  /// Completes and closes the file; does nothing when none is open. Throws `Error` when an earlier `write` failed or
  /// what was still buffered cannot be written; the file is closed all the same.
  void close();

  /// As given to `open`.
  const StreamFileHeader& header() const { return header_; }
  /// Payload bytes written since `open`.
  std::uint64_t payload_bytes() const { return payload_bytes_; }
  /// All bytes written since `open`.
  std::uint64_t file_bytes() const { return file_bytes_; }

 private:
  static constexpr std::size_t kBufferBytes = std::size_t{1} << 20;
  // A stream writes pieces from 1 KiB on past its buffer.
  static constexpr std::size_t kPieceBytes = 512;

  std::vector<char> buffer_;  // declared before the stream, which writes it out when it is destroyed
  std::ofstream file_;
  StreamFileHeader header_;
  std::uint64_t payload_bytes_ = 0;
  std::uint64_t file_bytes_ = 0;
};

inline void StreamFileWriter::open(const std::string& path, const StreamFileHeader& header) {
  if (file_.is_open()) file_.close();
  header_ = header;
  buffer_.assign(kBufferBytes, '\0');
  file_.rdbuf()->pubsetbuf(buffer_.data(), static_cast<std::streamsize>(buffer_.size()));
  file_.open(path, std::ios::binary | std::ios::trunc);
  if (!file_) throw Error("StreamFileWriter: cannot open " + path, kFileFailure);

  const std::string start = stream_file_start(header_);
  file_.write(start.data(), static_cast<std::streamsize>(start.size()));
  if (!file_) throw Error("StreamFileWriter: failed to write header", kFileFailure);
  payload_bytes_ = 0;
  file_bytes_ = start.size();
}

inline void StreamFileWriter::write(const void* data, std::size_t size) {
  if (!file_) throw Error("StreamFileWriter: not open", kNotOpen);
  if (size == 0) return;
  if (data == nullptr) throw Error("StreamFileWriter: null data", kInvalidArgument);
  const char* const bytes = static_cast<const char*>(data);
  for (std::size_t done = 0; done < size && file_; done += kPieceBytes) {
    file_.write(bytes + done, static_cast<std::streamsize>(std::min(kPieceBytes, size - done)));
  }
  if (!file_) throw Error("StreamFileWriter: payload write failed", kFileFailure);
  payload_bytes_ += size;
  file_bytes_ += size;
}

inline void StreamFileWriter::close() {
  if (!file_.is_open()) return;
  file_.close();
  if (!file_) throw Error("StreamFileWriter: close failed", kFileFailure);
}

}  // namespace orvo::timing
