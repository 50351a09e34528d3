// The writer's buffer of one mebibyte, and what happens to it on a full device.
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>

#include "orvo/timing/stream_file_writer.hpp"
#include "support/failure.hpp"
#include "support/temp_directory.hpp"

namespace {

using namespace orvo::test;
using orvo::timing::StreamFileHeader;
using orvo::timing::StreamFileWriter;

constexpr const char* kNotOpen = "StreamFileWriter: not open (code -6)";
constexpr const char* kWriteFailed = "StreamFileWriter: payload write failed (code -2)";

// Its prefix and text are 379 bytes.
StreamFileHeader dated_header() {
  StreamFileHeader header;
  header.created_utc = "2025-03-07T09:05:01.000042Z";
  return header;
}

class StreamFileWriterBuffer : public testing::Test {
 protected:
  TempDirectory directory_;
  std::string path_ = (directory_ / "a.tagcap").string();
};

TEST_F(StreamFileWriterBuffer, HoldsAlmostAMebibyteBackAndWritesItOnceFull) {
  StreamFileWriter writer;
  writer.open(path_, dated_header());
  const std::string piece(500, 'p');
  for (int i = 0; i < 2000; ++i) writer.write(piece.data(), piece.size());
  EXPECT_EQ(std::filesystem::file_size(path_), 0u);
  for (int i = 0; i < 200; ++i) writer.write(piece.data(), piece.size());
  EXPECT_GE(std::filesystem::file_size(path_), 1'048'575u);
  EXPECT_EQ(writer.payload_bytes(), 1'100'000u);
}

TEST_F(StreamFileWriterBuffer, PayloadLargerThanTheBufferArrivesWhole) {
  std::string payload(3'000'001, ' ');
  for (std::size_t i = 0; i < payload.size(); ++i) payload[i] = static_cast<char>(i * 7 / 3);
  {
    StreamFileWriter writer;
    writer.open(path_, dated_header());
    writer.write(payload.data(), 1);
    writer.write(payload.data() + 1, payload.size() - 1);
    EXPECT_EQ(writer.file_bytes(), 379u + 3'000'001u);
  }
  EXPECT_TRUE(read_file(path_).substr(379) == payload);
}

TEST(StreamFileWriterFullDevice, WriteFailsWhenTheBufferIsFlushed) {
  StreamFileWriter writer;
  writer.open("/dev/full", dated_header());
  const std::string piece(500, 'p');
  std::uint64_t written = 0;
  std::string failure = "nothing thrown";
  while (written < 1'100'000 && failure == "nothing thrown") {
    failure = failure_of([&] { writer.write(piece.data(), piece.size()); });
    if (failure == "nothing thrown") written += 500;
  }
  EXPECT_EQ(failure, kWriteFailed);
  EXPECT_GE(written, 1'000'000u);
  EXPECT_EQ(writer.payload_bytes(), written);
  EXPECT_EQ(writer.file_bytes(), written + 379);
  EXPECT_EQ(failure_of([&] { writer.write("a", 1); }), kNotOpen);
}

TEST(StreamFileWriterFullDevice, ClosingIsSilent) {
  StreamFileWriter writer;
  writer.open("/dev/full", dated_header());
  EXPECT_EQ(failure_of([&] { writer.write("a", 1); }), "nothing thrown");
}

TEST(StreamFileWriterFullDevice, AHeaderLargerThanTheBufferFailsInOpen) {
  StreamFileHeader header = dated_header();
  header.application.assign(3'000'000, 'a');
  StreamFileWriter writer;
  EXPECT_EQ(failure_of([&] { writer.open("/dev/full", header); }),
            "StreamFileWriter: failed to write header (code -2)");
  EXPECT_EQ(failure_of([&] { writer.write("a", 1); }), kNotOpen);
}

TEST_F(StreamFileWriterBuffer, ReopensAfterAFlushThatFailed) {
  StreamFileWriter writer;
  writer.open("/dev/full", dated_header());
  writer.write("a", 1);
  writer.open(path_, dated_header());  // the close of the full device fails first
  EXPECT_EQ(failure_of([&] { writer.write("b", 1); }), "nothing thrown");
  EXPECT_EQ(writer.payload_bytes(), 1u);
}

}  // namespace
