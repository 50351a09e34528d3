#include "orvo/timing/stream_file_reader.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <fstream>
#include <string>
#include <string_view>

#include "reference/capture_file.hpp"
#include "support/bytes.hpp"
#include "support/checked_header.hpp"
#include "support/failure.hpp"
#include "support/temp_directory.hpp"

namespace {

using namespace orvo::test;
using namespace std::string_literals;
using orvo::timing::StreamFileHeader;
using orvo::timing::StreamFileReader;
using orvo::timing::StreamFormat;
using orvo::timing::StreamMode;
using orvo::timing::TimeTag;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kTruncatedMagic = "StreamFileReader: truncated magic (code -2)";
constexpr const char* kNotACapture = "StreamFileReader: not an Orvo timing stream file (code -4)";
constexpr const char* kTruncatedLength = "stream file: truncated header length (code -2)";
constexpr const char* kTruncatedHeader = "StreamFileReader: truncated JSON header (code -2)";

class StreamFileReaderTest : public testing::Test {
 protected:
  /// What opening a file of these bytes throws.
  std::string failure_of_open(const Bytes& content) {
    write_file(path_, content);
    std::string failure = failure_of([&] { StreamFileReader{}.open(path_); });
    const reference::Capture expected = reference::read_capture(path_, content);
    EXPECT_EQ(failure, expected.failure.empty()
                           ? "nothing thrown"
                           : expected.failure + " (code " + std::to_string(expected.failure_code) + ")");
    return failure;
  }
  std::string failure_of_open(std::string_view content) {
    return failure_of_open(Bytes(content.begin(), content.end()));
  }
  /// Opens the file, with the reference beside the reader.
  void open(StreamFileReader& reader) {
    reader.open(path_);
    const std::string content = read_file(path_);
    const reference::Capture expected = reference::read_capture(path_, Bytes(content.begin(), content.end()));
    EXPECT_EQ(expected.failure, "");
    EXPECT_TRUE(reader.header_json() == expected.header_json);
    EXPECT_EQ(reader.payload_offset(), expected.payload_offset);
    expect_as_reference(reader.header(), expected.header);
  }
  void open(StreamFileReader& reader, std::string_view json, const Bytes& payload = {}) {
    write_file(path_, capture_bytes(json, payload));
    open(reader);
  }

  TempDirectory directory_;
  std::string path_ = (directory_ / "a.tagcap").string();
};

TEST_F(StreamFileReaderTest, MissingFileCannotBeOpened) {
  EXPECT_EQ(failure_of([&] { StreamFileReader{}.open(path_); }),
            "StreamFileReader: cannot open " + path_ + " (code -2)");
  EXPECT_EQ(failure_of([&] { StreamFileReader{}.open(""); }), "StreamFileReader: cannot open  (code -2)");
}

TEST_F(StreamFileReaderTest, DirectoryOpensAndHasNoMagic) {
  EXPECT_EQ(failure_of([&] { StreamFileReader{}.open(directory_.path().string()); }), kTruncatedMagic);
}

TEST_F(StreamFileReaderTest, EveryTruncationOfACaptureIsNamedByWhatIsMissing) {
  const Bytes capture = capture_bytes(R"({"stream_format":"raw64"})", {});
  ASSERT_EQ(capture.size(), 12u + 25u);
  for (std::size_t size = 0; size <= capture.size(); ++size) {
    const char* expected = size < 8    ? kTruncatedMagic
                           : size < 12 ? kTruncatedLength
                           : size < 37 ? kTruncatedHeader
                                       : "nothing thrown";
    EXPECT_EQ(failure_of_open(Bytes(capture.begin(), capture.begin() + static_cast<std::ptrdiff_t>(size))), expected)
        << size << " bytes";
  }
}

TEST_F(StreamFileReaderTest, TheMagicIsLookedAtBeforeTheLength) {
  EXPECT_EQ(failure_of_open("NOTACAP\n"), kNotACapture);
  EXPECT_EQ(failure_of_open("NOTACAP"), kTruncatedMagic);
  EXPECT_EQ(failure_of_open("NOTACAP\n\x01"), kNotACapture);
}

TEST_F(StreamFileReaderTest, OnlyTheTwoMagicWordsAreAccepted) {
  const std::string rest(4, '\0');
  for (const std::string& magic : {"TAGCAP1\n"s, "VQSTRM1\n"s}) {
    EXPECT_EQ(failure_of_open(magic + rest), "nothing thrown") << magic;
    for (std::size_t i = 0; i < magic.size(); ++i) {
      for (const int flip : {0x01, 0x20, 0x80}) {
        std::string wrong = magic;
        wrong[i] = static_cast<char>(wrong[i] ^ flip);
        EXPECT_EQ(failure_of_open(wrong + rest), kNotACapture) << wrong;
      }
    }
  }
  EXPECT_EQ(failure_of_open("TAGCAP2\n" + rest), kNotACapture);
  EXPECT_EQ(failure_of_open("TAGCAP1\r" + rest), kNotACapture);
  EXPECT_EQ(failure_of_open("VQSTRM2\n" + rest), kNotACapture);
}

TEST_F(StreamFileReaderTest, EarlierMagicOpensTheSameWay) {
  write_file(path_, capture_bytes(R"({"stream_format":"raw64"})", ps_record(1, 7), "VQSTRM1\n"));
  StreamFileReader reader;
  open(reader);
  EXPECT_EQ(reader.header().stream_format, StreamFormat::raw64);
  EXPECT_EQ(reader.payload_offset(), 37u);
  EXPECT_THAT(reader.decode_next_tags(10, 100), ElementsAre(TimeTag{1, 7}));
}

TEST_F(StreamFileReaderTest, HeaderLengthIsLittleEndian) {
  const std::string json = R"({"device_port":")" + std::string(241, 'p') + R"("})";
  ASSERT_EQ(json.size(), 0x103u);
  write_file(path_, "TAGCAP1\n\x03\x01\x00\x00"s + json);
  StreamFileReader reader;
  open(reader);
  EXPECT_EQ(reader.header().device_port, std::string(241, 'p'));
  EXPECT_EQ(reader.payload_offset(), 12u + 0x103u);
}

TEST_F(StreamFileReaderTest, ALengthBeyondTheFileIsATruncatedHeader) {
  EXPECT_EQ(failure_of_open("TAGCAP1\n\x03\x00\x00\x00{}"s), kTruncatedHeader);
  EXPECT_EQ(failure_of_open("TAGCAP1\n\x00\x00\x00\x01{}"s), kTruncatedHeader);
}

TEST_F(StreamFileReaderTest, AFalseLengthOf4GigabyteDoesNotCostItsMemory) {
  rusage before{};
  rusage after{};
  ::getrusage(RUSAGE_SELF, &before);
  EXPECT_EQ(failure_of_open("TAGCAP1\n\xFF\xFF\xFF\xFF{}"s), kTruncatedHeader);
  ::getrusage(RUSAGE_SELF, &after);
  EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 256 * 1024) << "KiB";
}

TEST_F(StreamFileReaderTest, HeaderTextOfSeveralMebibytesIsReadWhole) {
  const std::string json = R"({"device_port":")" + std::string(5'000'000, 'p') + R"(","mode":"internal"})";
  StreamFileReader reader;
  open(reader, json, ps_record(0, 1));
  EXPECT_TRUE(reader.header_json() == json);
  EXPECT_EQ(reader.header().mode, StreamMode::internal);
  EXPECT_EQ(reader.payload_offset(), 12 + json.size());
}

TEST_F(StreamFileReaderTest, NoHeaderTextIsTheDefaultHeader) {
  StreamFileReader reader;
  open(reader, "");
  EXPECT_EQ(reader.header(), StreamFileHeader{});
  EXPECT_EQ(reader.header().stream_format, StreamFormat::packed_delta);
  EXPECT_EQ(reader.header_json(), "");
  EXPECT_EQ(reader.payload_offset(), 12u);
  EXPECT_THAT(reader.decode_next_tags(10, 100), IsEmpty());
}

TEST_F(StreamFileReaderTest, HeaderTextIsKeptExactlyAsRead) {
  const std::string json = " {\"mode\" : \"INTERNAL\"}\r\n\0\xFF tail"s;
  StreamFileReader reader;
  open(reader, json, ps_record(0, 1));
  EXPECT_EQ(reader.header_json(), json);
  EXPECT_EQ(reader.header().mode, StreamMode::internal);
}

TEST_F(StreamFileReaderTest, HeaderWithoutAFormatIsPackedAndAnUnknownFormatIsRaw64) {
  StreamFileReader reader;
  open(reader, R"({"mode":"external"})");
  EXPECT_EQ(reader.header().stream_format, StreamFormat::packed_delta);
  open(reader, R"({"stream_format":"raw65"})");
  EXPECT_EQ(reader.header().stream_format, StreamFormat::raw64);
}

TEST_F(StreamFileReaderTest, OtherFileTypesAndSchemaVersionsAreRead) {
  StreamFileReader reader;
  open(reader, R"({"file_type":"other","schema_version":2,"stream_format":"raw64"})", ps_record(2, 9));
  EXPECT_THAT(reader.decode_next_tags(10, 100), ElementsAre(TimeTag{2, 9}));
}

TEST_F(StreamFileReaderTest, FileOfPrefixAndHeaderAloneHasAnEmptyPayload) {
  StreamFileReader reader;
  open(reader, R"({"stream_format":"raw64"})");
  EXPECT_THAT(reader.decode_next_tags(10, 100), IsEmpty());
  EXPECT_THAT(reader.decode_next_tags(10, 100), IsEmpty());
}

TEST_F(StreamFileReaderTest, OpeningAgainForgetsTagsNotHandedOut) {
  StreamFileReader reader;
  open(reader, R"({"stream_format":"raw64"})", ps_record(0, 1) + ps_record(1, 2));
  EXPECT_THAT(reader.decode_next_tags(1, 100), ElementsAre(TimeTag{0, 1}));
  open(reader, R"({"stream_format":"raw64","mode":"internal"})", ps_record(3, 9));
  EXPECT_EQ(reader.header().mode, StreamMode::internal);
  EXPECT_THAT(reader.decode_next_tags(10, 100), ElementsAre(TimeTag{3, 9}));
}

TEST_F(StreamFileReaderTest, OpeningAgainForgetsWrapsAndPartialRecords) {
  const Bytes wrapping = ps_record(0, 14'315'125'997'567) + ps_record(0, 5) + bytes({0, 0, 0});
  StreamFileReader reader;
  open(reader, R"({"stream_format":"raw64"})", wrapping);
  EXPECT_THAT(reader.decode_next_tags(10, 100),
              ElementsAre(TimeTag{0, 14'315'125'997'567}, TimeTag{0, 14'315'125'997'573}));
  open(reader, R"({"stream_format":"raw64"})", ps_record(0, 6));
  EXPECT_THAT(reader.decode_next_tags(10, 100), ElementsAre(TimeTag{0, 6}));
}

TEST_F(StreamFileReaderTest, OpeningAgainFromTheStartAfterTheEndOfAPayload) {
  StreamFileReader reader;
  open(reader, R"({"stream_format":"raw64"})", ps_record(0, 1));
  for (int round = 0; round < 3; ++round) {
    EXPECT_THAT(reader.decode_next_tags(10, 100), ElementsAre(TimeTag{0, 1}));
    EXPECT_THAT(reader.decode_next_tags(10, 100), IsEmpty());
    reader.open(path_);
  }
}

TEST_F(StreamFileReaderTest, RewindingGivesTheSameTagsAgain) {
  const Bytes wrapping = ps_record(0, 14'315'125'997'567) + ps_record(0, 5) + bytes({0, 0, 0});
  StreamFileReader reader;
  open(reader, R"({"stream_format":"raw64"})", wrapping);
  reader.rewind();
  for (const std::uint64_t most : {1u, 2u, 9u}) {
    EXPECT_THAT(reader.decode_next_tags(most, 11).front(), (TimeTag{0, 14'315'125'997'567}));
    reader.rewind();
    EXPECT_THAT(reader.decode_next_tags(10, 100),
                ElementsAre(TimeTag{0, 14'315'125'997'567}, TimeTag{0, 14'315'125'997'573}));
    EXPECT_THAT(reader.decode_next_tags(10, 100), IsEmpty());
    reader.rewind();
  }
}

TEST_F(StreamFileReaderTest, RewindingForgetsTagsNotHandedOut) {
  StreamFileReader reader;
  open(reader, R"({"stream_format":"raw64"})", ps_record(0, 100) + ps_record(1, 200) + ps_record(2, 300));
  EXPECT_THAT(reader.decode_next_tags(1, 100), ElementsAre(TimeTag{0, 100}));
  reader.rewind();
  EXPECT_THAT(reader.decode_next_tags(10, 100), ElementsAre(TimeTag{0, 100}, TimeTag{1, 200}, TimeTag{2, 300}));
}

TEST_F(StreamFileReaderTest, WhatCannotBeReadAgainIsNotRewound) {
  StreamFileReader reader;
  EXPECT_EQ(failure_of([&] { reader.rewind(); }), "StreamFileReader: not open (code -6)");
}

TEST_F(StreamFileReaderTest, AFailedOpenCanBeFollowedByASuccessfulOne) {
  StreamFileReader reader;
  EXPECT_NE(failure_of([&] { reader.open(path_); }), "nothing thrown");
  write_file(path_, "short");
  EXPECT_EQ(failure_of([&] { reader.open(path_); }), kTruncatedMagic);
  write_file(path_, "TAGCAP1\n\xFF\x00\x00\x00{}"s);
  EXPECT_EQ(failure_of([&] { reader.open(path_); }), kTruncatedHeader);
  open(reader, R"({"stream_format":"raw64"})", ps_record(0, 1));
  EXPECT_EQ(reader.header_json(), R"({"stream_format":"raw64"})");
  EXPECT_THAT(reader.decode_next_tags(10, 100), ElementsAre(TimeTag{0, 1}));
}

/// A recording that goes on while it is read.
TEST_F(StreamFileReaderTest, AFileThatGrowsAfterItsEndWasReadGoesOnBeingRead) {
  const auto record = [this](const Bytes& bytes) {
    std::ofstream(path_, std::ios::binary | std::ios::app)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  };
  StreamFileReader reader;
  open(reader, R"({"stream_format":"raw64"})", ps_record(0, 1));
  EXPECT_THAT(reader.decode_next_tags(1, 100), ElementsAre(TimeTag{0, 1}));  // a read that met the end
  record(ps_record(1, 2) + bytes({0x40, 0, 0}));
  EXPECT_THAT(reader.decode_next_tags(1, 100), ElementsAre(TimeTag{1, 2}));
  EXPECT_THAT(reader.decode_next_tags(1, 100), IsEmpty());
  record(bytes({0, 0, 0, 0, 3}));  // the rest of a record
  EXPECT_THAT(reader.decode_next_tags(1, 100), ElementsAre(TimeTag{2, 3}));
  EXPECT_THAT(reader.decode_next_tags(1, 100), IsEmpty());
}

}  // namespace
