#include "orvo/timing/stream_file_writer.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "support/bytes.hpp"
#include "support/failure.hpp"
#include "support/temp_directory.hpp"

namespace {

using namespace orvo::test;
using orvo::timing::StreamFileHeader;
using orvo::timing::StreamFileWriter;
using orvo::timing::StreamFormat;
using orvo::timing::StreamMode;

constexpr const char* kNotOpen = "StreamFileWriter: not open (code -6)";
constexpr const char* kNullData = "StreamFileWriter: null data (code -1)";
constexpr const char* kCloseFailed = "StreamFileWriter: close failed (code -2)";
constexpr const char* kWriteFailed = "StreamFileWriter: payload write failed (code -2)";

StreamFileHeader dated_header() {
  StreamFileHeader header;
  header.created_utc = "2025-03-07T09:05:01.000042Z";
  return header;
}

// The text of dated_header(): 367 bytes.
const std::string kDatedJson =
    R"({"file_type":"orvo_timing_raw_stream_capture","schema_version":1,)"
    R"("created_utc":"2025-03-07T09:05:01.000042Z","application":"","device_product":"","device_serial":"",)"
    R"("device_port":"","stream_format":"packed_delta","mode":"external","stream_transport":"usb",)"
    R"("raw64_tag_format":"ps","channel_mask":15,"tdl_index":0,)"
    R"("packed_delta_config":{"delta_bits":16,"quantum_ps":8}})";

class StreamFileWriterTest : public testing::Test {
 protected:
  TempDirectory directory_;
  std::string path_ = (directory_ / "a.tagcap").string();
};

using namespace std::string_literals;

TEST_F(StreamFileWriterTest, WritesMagicLittleEndianLengthAndHeaderText) {
  ASSERT_EQ(kDatedJson.size(), 0x16Fu);
  {
    StreamFileWriter writer;
    writer.open(path_, dated_header());
    EXPECT_EQ(writer.file_bytes(), 12u + 367u);
    EXPECT_EQ(writer.payload_bytes(), 0u);
  }
  EXPECT_EQ(read_file(path_), "TAGCAP1\n\x6F\x01\x00\x00"s + kDatedJson);
}

TEST_F(StreamFileWriterTest, AppendsPayloadBytesAsGivenWithoutAGap) {
  {
    StreamFileWriter writer;
    writer.open(path_, dated_header());
    writer.write("\x00\x01\n", 3);
    writer.write("\r\n\xFF\x1A", 4);
    EXPECT_EQ(writer.payload_bytes(), 7u);
    EXPECT_EQ(writer.file_bytes(), 386u);
  }
  EXPECT_EQ(read_file(path_).substr(379), "\x00\x01\n\r\n\xFF\x1A"s);
}

TEST_F(StreamFileWriterTest, HeaderIsKeptAsGiven) {
  StreamFileHeader header;
  header.mode = StreamMode::internal;
  header.raw64_tag_format = "";
  header.channel_mask = 0xFF;
  StreamFileWriter writer;
  writer.open(path_, header);
  EXPECT_EQ(writer.header(), header);
  EXPECT_EQ(writer.header().created_utc, "");
  EXPECT_EQ(writer.header().raw64_tag_format, "");
}

TEST_F(StreamFileWriterTest, FillsCreationTimeAndTagFormatInTheFileOnly) {
  StreamFileHeader header;
  header.mode = StreamMode::internal;
  header.raw64_tag_format = "";
  {
    StreamFileWriter writer;
    writer.open(path_, header);
    EXPECT_EQ(writer.file_bytes(),
              12u + 367u + 4u);  // "raw_cf" is four longer than "ps"; the other words are as long
  }
  const std::string content = read_file(path_);
  EXPECT_EQ(content.find(R"("created_utc":"")"), std::string::npos);
  EXPECT_NE(content.find(R"("raw64_tag_format":"raw_cf")"), std::string::npos);
}

TEST_F(StreamFileWriterTest, TruncatesAnExistingFile) {
  write_file(path_, std::string(100'000, 'x'));
  { StreamFileWriter{}.open(path_, dated_header()); }
  EXPECT_EQ(std::filesystem::file_size(path_), 379u);
}

TEST_F(StreamFileWriterTest, NullDataOfNoSizeDoesNothing) {
  StreamFileWriter writer;
  writer.open(path_, dated_header());
  EXPECT_EQ(failure_of([&] { writer.write(nullptr, 0); }), "nothing thrown");
  EXPECT_EQ(writer.file_bytes(), 379u);
}

TEST_F(StreamFileWriterTest, NullDataOfSomeSizeIsRefusedAndHarmless) {
  StreamFileWriter writer;
  writer.open(path_, dated_header());
  EXPECT_EQ(failure_of([&] { writer.write(nullptr, 4); }), kNullData);
  EXPECT_EQ(writer.payload_bytes(), 0u);
  EXPECT_EQ(failure_of([&] { writer.write("ab", 2); }), "nothing thrown");
  EXPECT_EQ(writer.payload_bytes(), 2u);
}

TEST_F(StreamFileWriterTest, MissingDirectoryCannotBeOpened) {
  const std::string path = (directory_ / "missing" / "a.tagcap").string();
  StreamFileWriter writer;
  EXPECT_EQ(failure_of([&] { writer.open(path, dated_header()); }),
            "StreamFileWriter: cannot open " + path + " (code -2)");
  EXPECT_EQ(writer.header(), dated_header());
}

TEST_F(StreamFileWriterTest, DirectoryAndEmptyPathCannotBeOpened) {
  StreamFileWriter writer;
  const std::string directory = directory_.path().string();
  EXPECT_EQ(failure_of([&] { writer.open(directory, dated_header()); }),
            "StreamFileWriter: cannot open " + directory + " (code -2)");
  EXPECT_EQ(failure_of([&] { writer.open("", dated_header()); }), "StreamFileWriter: cannot open  (code -2)");
}

TEST_F(StreamFileWriterTest, AfterAFailedOpenEveryWriteIsNotOpen) {
  StreamFileWriter writer;
  EXPECT_NE(failure_of([&] { writer.open((directory_ / "missing/a").string(), {}); }), "nothing thrown");
  EXPECT_EQ(failure_of([&] { writer.write("abcd", 4); }), kNotOpen);
  EXPECT_EQ(failure_of([&] { writer.write(nullptr, 4); }), kNotOpen);
  EXPECT_EQ(failure_of([&] { writer.write(nullptr, 0); }), kNotOpen);
}

TEST_F(StreamFileWriterTest, ASuccessfulOpenMendsAFailedOne) {
  {
    StreamFileWriter writer;
    EXPECT_NE(failure_of([&] { writer.open((directory_ / "missing/a").string(), {}); }), "nothing thrown");
    writer.open(path_, dated_header());
    writer.write("abcd", 4);
  }
  EXPECT_EQ(std::filesystem::file_size(path_), 383u);
}

TEST_F(StreamFileWriterTest, NeverOpenedFailsInTheStreamFirstAndIsNotOpenThereafter) {
  StreamFileWriter writer;
  EXPECT_EQ(failure_of([&] { writer.write(nullptr, 0); }), "nothing thrown");
  EXPECT_EQ(failure_of([&] { writer.write(nullptr, 4); }), kNullData);
  EXPECT_EQ(failure_of([&] { writer.write("a", 1); }), kWriteFailed);
  EXPECT_EQ(failure_of([&] { writer.write("a", 1); }), kNotOpen);
  EXPECT_EQ(failure_of([&] { writer.write(nullptr, 0); }), kNotOpen);
  EXPECT_EQ(writer.payload_bytes(), 0u);
  EXPECT_EQ(writer.file_bytes(), 0u);
  writer.open(path_, dated_header());
  EXPECT_EQ(failure_of([&] { writer.write("a", 1); }), "nothing thrown");
}

TEST_F(StreamFileWriterTest, ASecondOpenCompletesTheFirstFileAndStartsAnew) {
  const std::string other = (directory_ / "b.tagcap").string();
  StreamFileWriter writer;
  writer.open(path_, dated_header());
  writer.write("first", 5);
  StreamFileHeader raw64 = dated_header();
  raw64.stream_format = StreamFormat::raw64;  // seven characters fewer than "packed_delta"
  writer.open(other, raw64);
  EXPECT_EQ(read_file(path_).substr(379), "first");
  EXPECT_EQ(writer.header(), raw64);
  EXPECT_EQ(writer.payload_bytes(), 0u);
  EXPECT_EQ(writer.file_bytes(), 372u);
}

TEST_F(StreamFileWriterTest, AFailedSecondOpenStillCompletesTheFirstFile) {
  StreamFileWriter writer;
  writer.open(path_, dated_header());
  writer.write("first", 5);
  EXPECT_NE(failure_of([&] { writer.open((directory_ / "missing/a").string(), {}); }), "nothing thrown");
  EXPECT_EQ(read_file(path_).substr(379), "first");
  EXPECT_EQ(failure_of([&] { writer.write("a", 1); }), kNotOpen);
}

TEST_F(StreamFileWriterTest, CloseCompletesTheFileOnce) {
  StreamFileWriter writer;
  EXPECT_EQ(failure_of([&] { writer.close(); }), "nothing thrown");  // nothing is open
  writer.open(path_, dated_header());
  writer.write("first", 5);
  writer.close();
  EXPECT_EQ(read_file(path_).substr(379), "first");
  EXPECT_EQ(writer.payload_bytes(), 5u);
  EXPECT_EQ(failure_of([&] { writer.close(); }), "nothing thrown");
  writer.open(path_, dated_header());
  writer.close();
  EXPECT_EQ(std::filesystem::file_size(path_), 379u);
}

// Bytes for /dev/full go into the buffer and are refused when the buffer is written out.
TEST_F(StreamFileWriterTest, CloseTellsThatTheDiskIsFullAndTheDestructorDoesNot) {
  StreamFileWriter writer;
  writer.open("/dev/full", dated_header());
  const std::string payload(800'000, 'x');
  EXPECT_EQ(failure_of([&] { writer.write(payload.data(), payload.size()); }), "nothing thrown");
  EXPECT_EQ(failure_of([&] { writer.close(); }), kCloseFailed);
  EXPECT_EQ(failure_of([&] { writer.close(); }), "nothing thrown");
  EXPECT_EQ(failure_of([&] { writer.write("a", 1); }), kNotOpen);
  StreamFileWriter silent;
  silent.open("/dev/full", dated_header());
  silent.write("a", 1);
}

TEST_F(StreamFileWriterTest, ReopeningTheSamePathStartsItAnew) {
  {
    StreamFileWriter writer;
    writer.open(path_, dated_header());
    writer.write("first", 5);
    writer.open(path_, dated_header());
    writer.write("2nd", 3);
  }
  EXPECT_EQ(read_file(path_).substr(379), "2nd");
}

}  // namespace
