// The reader on any file: it gives the tags or the failure that the references give, whatever is asked for per call,
// and nothing but the library's own error escapes.
//
//   form | bytes per read (2) | tags per call | the file, or: header text | 0xFF | payload
//   bit 0 of the form: the file; bit 1: the earlier magic; bit 2: chunks, after an opening of its own, and no calls;
//   bits 3 and 4: how long the payload may be; bits 6 and 7: calls for as many tags as there may be
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>

#include "fuzz/support/input.hpp"
#include "fuzz/support/memory_file.hpp"
#include "fuzz/support/require.hpp"
#include "fuzz/support/strict_sink.hpp"
#include "orvo/timing/stream_file_reader.hpp"
#include "reference/capture_file.hpp"
#include "support/as_reference.hpp"
#include "support/bytes.hpp"

namespace {

using orvo::fuzz::require;
using orvo::test::as_reference;
using orvo::test::reference::Tags;
using orvo::timing::StreamFileReader;

/// Enough for every rule of the decoders. The reference's alignment search is slow, and may run once a read.
constexpr std::size_t kMostPayloadBytes[] = {30, 50, 100, 250};
constexpr std::size_t kMostPackedReads = 2;

struct Question {
  bool in_chunks = false;  // not in calls
  bool many_tags = false;  // ask for as many tags as there may be
  std::size_t most_payload_bytes = 0;
  std::uint64_t max_bytes = 0;
  std::uint64_t max_tags = 0;
  orvo::test::Bytes file;
};

Question read_question(orvo::fuzz::Input input) {
  Question question;
  const std::uint8_t form = input.byte();
  question.max_bytes = input.number(2);
  question.max_tags = 1 + input.number(1);
  question.in_chunks = (form & 4) != 0;
  question.many_tags = form >= 192;
  question.most_payload_bytes = kMostPayloadBytes[form >> 3 & 3];
  if ((form & 1) != 0) {
    const auto file = input.rest();
    question.file.assign(file.begin(), file.end());
  } else {
    const std::string header = input.text_until(0xFF);
    const auto payload = input.bytes(question.most_payload_bytes);
    const char* const magic = (form & 2) != 0 ? "VQSTRM1\n" : "TAGCAP1\n";
    question.file = orvo::test::capture_bytes(header, {payload.begin(), payload.end()}, magic);
  }
  return question;
}

Tags tags_in_batches(StreamFileReader& reader, const Question& question) {
  const std::uint64_t limit = question.many_tags ? std::numeric_limits<std::uint64_t>::max() : question.max_tags;
  Tags tags;
  for (;;) {
    require(reader.decode_next_tags(0, question.max_bytes).empty(), "no tags come unasked");
    const Tags batch = as_reference(reader.decode_next_tags(limit, question.max_bytes));
    require(batch.size() <= limit, "no more tags than asked for");
    if (batch.empty()) return tags;
    tags.insert(tags.end(), batch.begin(), batch.end());
  }
}

Tags tags_in_chunks(StreamFileReader& reader, std::uint64_t max_bytes) {
  orvo::fuzz::StrictSink sink;
  while (reader.decode_next_chunk(max_bytes, sink)) {
  }
  return as_reference(sink.tags());
}

void check_tags(StreamFileReader& reader, const std::string& path, const Question& question,
                const orvo::test::reference::Capture& expected) {
  const Tags tags =
      orvo::test::reference::decode(expected.header, expected.payload, std::max<std::size_t>(question.max_bytes, 1));
  if (question.in_chunks) {
    reader.decode_next_tags(1, question.max_bytes);
    reader.open(path);
    require(tags_in_chunks(reader, question.max_bytes) == tags, "opened again, the chunks hold the reference's tags");
    return;
  }
  require(tags_in_batches(reader, question) == tags, "the tags are the reference's");
  require(reader.decode_next_tags(1, question.max_bytes).empty(), "an exhausted payload stays exhausted");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Question question = read_question({data, size});
  const orvo::fuzz::MemoryFile file(question.file);
  const orvo::test::reference::Capture expected = orvo::test::reference::read_capture(file.path(), question.file);
  StreamFileReader reader;
  try {
    reader.open(file.path());
    require(expected.failure.empty(), "a file that is no capture is refused");
  } catch (const orvo::timing::Error& error) {
    require(error.what() == expected.failure && error.code == expected.failure_code, "a failure is the expected one");
    return 0;
  }
  require(reader.header_json() == expected.header_json, "the header's text is kept as it stands");
  require(reader.payload_offset() == expected.payload_offset, "the payload lies after the header");
  if (expected.payload.size() > question.most_payload_bytes) return 0;
  if (reader.header().stream_format == orvo::timing::StreamFormat::packed_delta) {
    question.max_bytes = std::max<std::uint64_t>(question.max_bytes, expected.payload.size() / kMostPackedReads);
  }
  check_tags(reader, file.path(), question, expected);
  return 0;
}
