#include "orvo/timing/tag_file_writer.hpp"

#include <gtest/gtest.h>

#include <span>
#include <string>

#include "orvo/timing/stream_file_reader.hpp"
#include "support/encoded.hpp"
#include "support/failure.hpp"
#include "support/temp_directory.hpp"

namespace {

using namespace orvo::test;
using orvo::timing::StreamFormat;
using orvo::timing::TagFileWriter;

Tags read_tags(const std::string& path) {
  orvo::timing::StreamFileReader reader;
  reader.open(path);
  return reader.decode_next_tags(UINT64_MAX, 1 << 20);
}

TEST(TagFileWriter, WritesWhatReadsAgain) {
  const TempDirectory directory;
  const std::string path = (directory / "a.tagcap").string();
  for (const StreamFormat format : {StreamFormat::raw64, StreamFormat::delta32, StreamFormat::packed_delta}) {
    orvo::timing::StreamFileHeader header;
    header.stream_format = format;
    header.device_serial = "7";
    const Tags tags = tags_in_turn(3, 200'000, 0, 10'000, 3);
    TagFileWriter writer;
    writer.open(path, header);
    writer.write(std::span(tags).first(1));
    writer.write(std::span(tags).subspan(1));
    EXPECT_EQ(writer.tags(), 200'000u);
    EXPECT_EQ(writer.axis_ps(0), 0);
    writer.close();
    expect_same(read_tags(path), tags);
    orvo::timing::StreamFileReader reader;
    reader.open(path);
    EXPECT_EQ(reader.header().device_serial, "7");
  }
}

TEST(TagFileWriter, WritesACaptureWithoutTags) {
  const TempDirectory directory;
  TagFileWriter writer;
  writer.open((directory / "a.tagcap").string(), packed_header({}));
  writer.close();
  writer.close();
  EXPECT_EQ(writer.file().payload_bytes(), 0u);
  EXPECT_EQ(read_tags((directory / "a.tagcap").string()), Tags{});
}

TEST(TagFileWriter, StartsAnewWithEveryFile) {
  const TempDirectory directory;
  TagFileWriter writer;
  for (const char* name : {"a.tagcap", "b.tagcap"}) {
    writer.open((directory / name).string(), delta32_header());
    writer.write(Tags{tag(0, 100), tag(1, 50)});
    EXPECT_EQ(writer.tags(), 2u);
    writer.close();
    EXPECT_EQ(read_tags((directory / name).string()), (Tags{tag(0, 100), tag(1, 50)}));
  }
}

TEST(TagFileWriter, TakesNothingAlongFromAFileThatFailed) {
  const TempDirectory directory;
  const std::string path = (directory / "b.tagcap").string();
  TagFileWriter writer;
  writer.open((directory / "a.tagcap").string(), delta32_header());
  EXPECT_NE(failure_of([&] { writer.write(Tags{tag(0, 100), tag(0, 50)}); }), "nothing thrown");
  writer.open(path, delta32_header());
  writer.write(Tags{tag(1, 7)});
  writer.close();
  EXPECT_EQ(read_tags(path), Tags{tag(1, 7)});
}

TEST(TagFileWriter, TellsWhatFails) {
  const TempDirectory directory;
  TagFileWriter writer;
  EXPECT_EQ(failure_of([&] { writer.write(Tags{tag(0, 0)}); }), "TagFileWriter: not open (code -6)");
  EXPECT_EQ(failure_of([&] { writer.open((directory / "no/a.tagcap").string(), delta32_header()); }),
            "StreamFileWriter: cannot open " + (directory / "no/a.tagcap").string() + " (code -2)");
  writer.open((directory / "a.tagcap").string(), delta32_header());
  EXPECT_EQ(failure_of([&] {
              writer.write(Tags{tag(0, 9), tag(0, 8)});
            }),
            "Delta32Encoder: channel 0 at 8 ps: it is earlier than its channel's last tag (code -1)");
}

TEST(TagFileWriter, IsNotOpenOnceItWasClosed) {
  const TempDirectory directory;
  TagFileWriter writer;
  writer.open((directory / "a.tagcap").string(), delta32_header());
  writer.write(Tags{tag(0, 100)});
  writer.close();
  EXPECT_EQ(failure_of([&] { writer.write(Tags{tag(0, 200)}); }), "TagFileWriter: not open (code -6)");
  EXPECT_EQ(read_tags((directory / "a.tagcap").string()), (Tags{tag(0, 100)}));
}

TEST(TagFileWriter, TellsThatTheDiskIsFull) {
  TagFileWriter writer;
  writer.open("/dev/full", raw64_header());
  EXPECT_EQ(failure_of([&] {
              writer.write(Tags{tag(0, 9)});
              writer.close();
            }),
            "StreamFileWriter: close failed (code -2)");
}

}  // namespace
