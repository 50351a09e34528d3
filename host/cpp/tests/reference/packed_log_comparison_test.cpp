// The diagnostic lines of the packed_delta decoder against those of its reference.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <span>
#include <string>
#include <vector>

#include "orvo/timing/stream_decoder.hpp"
#include "reference/packed_delta.hpp"
#include "support/as_reference.hpp"
#include "support/bytes.hpp"
#include "support/packed_cases.hpp"
#include "support/packed_streams.hpp"
#include "support/streams.hpp"

namespace orvo::test {
namespace {

using timing::StreamDecoder;
using timing::StreamMode;

/// Five bits of payload: a sync sequence on channel 0.
const Bytes kSync = bytes({0x3F, 1, 0, 0, 0, 0, 0, 0, 0, 0});

/// Sets a variable of the environment for the life of the object.
class EnvironmentVariable {
 public:
  EnvironmentVariable(const char* name, const char* value) : name_(name) { ::setenv(name, value, 1); }
  EnvironmentVariable(const EnvironmentVariable&) = delete;
  EnvironmentVariable& operator=(const EnvironmentVariable&) = delete;
  ~EnvironmentVariable() { ::unsetenv(name_); }

 private:
  const char* name_;
};

/// What the decoder writes to standard error over the stream, in chunks of `chunk` bytes.
std::string diagnostics(const PackedStream& stream, std::size_t chunk) {
  StreamDecoder decoder{stream.header};
  testing::internal::CaptureStderr();
  for (std::size_t at = 0; at < stream.bytes.size(); at += chunk) {
    decoder.pending_bytes.append(stream.bytes.data() + at, std::min(chunk, stream.bytes.size() - at));
    decoder.feed_packed_delta();
  }
  return testing::internal::GetCapturedStderr();
}

std::vector<std::string> expected_lines(const PackedStream& stream, std::size_t chunk) {
  reference::PackedDeltaDecoder model{as_reference(stream.header)};
  for (std::size_t at = 0; at < stream.bytes.size(); at += chunk) {
    model.feed(std::span(stream.bytes).subspan(at, std::min(chunk, stream.bytes.size() - at)));
  }
  return model.lines;
}

std::string as_written(const std::vector<std::string>& lines) {
  std::string out;
  for (const std::string& line : lines) out += "packed-decoder: " + line + "\n";
  return out;
}

TEST(PackedLogAgainstReference, DiagnosticLinesAreTheSame) {
  Random random(3306);
  Totals totals;
  for (std::uint64_t i = 0; i < 400 * rounds(); ++i) {
    const PackedStream stream = i < 10 ? lopsided_stream(random) : hostile_packed(random);
    const std::size_t chunk = std::max<std::size_t>(random.between(1, 400), stream.bytes.size() / (i < 10 ? 3 : 12));
    const std::vector<std::string> lines = expected_lines(stream, chunk);
    const EnvironmentVariable on("ORVO_PACKED_DEBUG", random.one_in(2) ? "1" : "");
    ASSERT_EQ(diagnostics(stream, chunk), as_written(lines))
        << stream.name << " stream " << i << ", chunks of " << chunk;
    totals.add_lines(lines);
  }
  expect_often(totals, 2,
               {"locked", "no alignment", "drop inactive", "drop internal", "drop sync", "drop ovf",
                "drop implausible", "drop nonmonotonic", "reject internal"});
}

TEST(PackedLogAgainstReference, DiagnosticLinesEndWithThe200th) {
  const EnvironmentVariable on("ORVO_PACKED_DEBUG", "");
  PackedStream stream{.header = packed_header(StreamMode::external, 1, 5, 1), .bytes = {}, .name = ""};
  for (int i = 0; i < 150; ++i)
    stream.bytes += kSync + bytes({0x01}) + Bytes(11, 0x41);  // a chunk to lock on, one that drops
  const std::vector<std::string> lines = expected_lines(stream, 11);
  ASSERT_EQ(lines.size(), 200u);
  EXPECT_EQ(lines[199], "drop inactive ch=1 active_mask=0x1 record=0 records=11");
  EXPECT_EQ(diagnostics(stream, 11), as_written(lines));
}

TEST(PackedLogAgainstReference, WithoutTheVariableNothingIsWritten) {
  ::unsetenv("ORVO_PACKED_DEBUG");
  PackedStream stream{
      .header = packed_header(StreamMode::external, 1, 5, 1), .bytes = kSync + bytes({1, 0x41}), .name = ""};
  EXPECT_EQ(diagnostics(stream, 12), "");
}

}  // namespace
}  // namespace orvo::test
