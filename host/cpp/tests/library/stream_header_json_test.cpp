#include "orvo/timing/stream_header_json.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <string>
#include <thread>

#include "support/checked_header.hpp"

namespace {

using orvo::test::checked_header;
using orvo::timing::stream_header_to_json;
using orvo::timing::StreamFileHeader;
using orvo::timing::StreamFormat;
using orvo::timing::StreamMode;
using orvo::timing::StreamTransport;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;

StreamFileHeader dated_header() {
  StreamFileHeader header;
  header.created_utc = "2025-03-07T09:05:01.000042Z";
  return header;
}

TEST(StreamHeaderToJson, WritesTheDefaultRecordOnOneLine) {
  EXPECT_EQ(stream_header_to_json(dated_header()),
            R"({"file_type":"orvo_timing_raw_stream_capture","schema_version":1,)"
            R"("created_utc":"2025-03-07T09:05:01.000042Z","application":"","device_product":"","device_serial":"",)"
            R"("device_port":"","stream_format":"packed_delta","mode":"external","stream_transport":"usb",)"
            R"("raw64_tag_format":"ps","channel_mask":15,"tdl_index":0,)"
            R"("packed_delta_config":{"delta_bits":16,"quantum_ps":8}})");
}

TEST(StreamHeaderToJson, WritesEveryField) {
  const StreamFileHeader header{StreamFormat::delta32,
                                StreamMode::internal,
                                StreamTransport::usb_async,
                                5,
                                200,
                                31,
                                65535,
                                "raw_cf",
                                "now",
                                "lab \"A\"",
                                "T\t4",
                                "S\\7",
                                "/dev/ttyUSB0"};
  EXPECT_EQ(
      stream_header_to_json(header),
      R"({"file_type":"orvo_timing_raw_stream_capture","schema_version":1,)"
      R"("created_utc":"now","application":"lab \"A\"","device_product":"T\t4","device_serial":"S\\7",)"
      R"("device_port":"/dev/ttyUSB0","stream_format":"delta32","mode":"internal","stream_transport":"usb_async",)"
      R"("raw64_tag_format":"raw_cf","channel_mask":5,"tdl_index":200,)"
      R"("packed_delta_config":{"delta_bits":31,"quantum_ps":65535}})");
}

TEST(StreamHeaderToJson, SpellsNumbersOutsideTheEnumerationsAsTheirFallback) {
  StreamFileHeader header = dated_header();
  header.stream_format = static_cast<StreamFormat>(7);
  header.mode = static_cast<StreamMode>(2);
  header.stream_transport = static_cast<StreamTransport>(3);
  EXPECT_THAT(stream_header_to_json(header),
              HasSubstr(R"("stream_format":"raw64","mode":"external","stream_transport":"uart")"));
  header.stream_format = static_cast<StreamFormat>(0xFFFFFFFF);
  header.mode = static_cast<StreamMode>(0xFFFFFFFF);
  header.stream_transport = StreamTransport::uart;
  EXPECT_THAT(stream_header_to_json(header),
              HasSubstr(R"("stream_format":"raw64","mode":"external","stream_transport":"uart")"));
}

TEST(StreamHeaderToJson, WritesOnlyTheLowFourBitsOfTheChannelMask) {
  StreamFileHeader header = dated_header();
  header.channel_mask = 0xF3;
  EXPECT_THAT(stream_header_to_json(header), HasSubstr(R"("channel_mask":3,)"));
  header.channel_mask = 0xF0;
  EXPECT_THAT(stream_header_to_json(header), HasSubstr(R"("channel_mask":0,)"));
}

TEST(StreamHeaderToJson, WritesByteFieldsAsNumbers) {
  StreamFileHeader header = dated_header();
  header.tdl_index = 'A';
  header.delta_bits = '"';
  EXPECT_THAT(stream_header_to_json(header),
              EndsWith(R"("tdl_index":65,"packed_delta_config":{"delta_bits":34,"quantum_ps":8}})"));
}

TEST(StreamHeaderToJson, FillsAnEmptyTagFormatFromTheMode) {
  StreamFileHeader header = dated_header();
  header.raw64_tag_format = "";
  EXPECT_THAT(stream_header_to_json(header), HasSubstr(R"("raw64_tag_format":"ps",)"));
  header.mode = StreamMode::internal;
  EXPECT_THAT(stream_header_to_json(header), HasSubstr(R"("raw64_tag_format":"raw_cf",)"));
  header.raw64_tag_format = "ps";
  EXPECT_THAT(stream_header_to_json(header), HasSubstr(R"("raw64_tag_format":"ps",)"));
}

TEST(StreamHeaderToJson, FillsAnEmptyCreationTimeWithTheCurrentUtcTime) {
  using Clock = std::chrono::system_clock;
  const std::time_t before = Clock::to_time_t(Clock::now());
  const std::string created = checked_header(stream_header_to_json(StreamFileHeader{})).created_utc;
  const std::time_t after = Clock::to_time_t(Clock::now());
  ASSERT_THAT(created, MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{6}Z"));
  std::tm utc{};
  ASSERT_NE(::strptime(created.c_str(), "%Y-%m-%dT%H:%M:%S", &utc), nullptr);
  const std::time_t written = ::timegm(&utc);
  EXPECT_LE(before, written);
  EXPECT_LE(written, after);
}

TEST(StreamHeaderToJson, MicrosecondsAlwaysHaveSixDigits) {
  // Within a second, a tenth of which starts with a zero.
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(3);
  while (std::chrono::steady_clock::now() < end) {
    const std::string created = checked_header(stream_header_to_json(StreamFileHeader{})).created_utc;
    ASSERT_EQ(created.size(), 27u) << created;
    if (created[20] == '0') return;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  FAIL() << "the clock stands still";
}

TEST(StreamHeaderToJson, KeepsAGivenCreationTimeWhateverItSays) {
  StreamFileHeader header;
  header.created_utc = " yesterday\n";
  EXPECT_THAT(stream_header_to_json(header), HasSubstr(R"("created_utc":" yesterday\n",)"));
}

TEST(StreamHeaderJson, LosesControlBytesAndKeepsUtf8) {
  StreamFileHeader header = dated_header();
  header.device_serial = "a\x01z";
  header.device_product = "\xCE\xBCs \xE2\x82\xAC";
  const std::string json = stream_header_to_json(header);
  EXPECT_THAT(json, HasSubstr("\"device_product\":\"\xCE\xBCs \xE2\x82\xAC\",\"device_serial\":\"a?z\""));
  EXPECT_EQ(checked_header(json).device_serial, "a?z");
}

TEST(StreamHeaderJson, WrittenRecordsReadBackTheSame) {
  StreamFileHeader header = dated_header();
  header.application = "quote \" backslash \\ tab \t line \n return \r end";
  header.device_product = R"(\"{}:,)";
  header.device_serial = "\xC3\xA9";
  header.device_port = R"(\\.\COM12)";
  for (const std::string tag_format : {"ps", "raw_cf", "RAW-CF"}) {
    for (unsigned choice = 0; choice < 3 * 2 * 3 * 16; ++choice) {
      header.raw64_tag_format = tag_format;
      header.stream_format = static_cast<StreamFormat>(choice % 3);
      header.mode = static_cast<StreamMode>(choice / 3 % 2);
      header.stream_transport = static_cast<StreamTransport>(choice / 6 % 3);
      header.channel_mask = static_cast<std::uint8_t>(choice / 18);
      header.tdl_index = static_cast<std::uint8_t>(choice);
      header.delta_bits = static_cast<std::uint8_t>(choice / 2);
      header.quantum_ps = static_cast<std::uint16_t>(choice * 227);
      ASSERT_EQ(checked_header(stream_header_to_json(header)), header);
    }
  }
}

}  // namespace
