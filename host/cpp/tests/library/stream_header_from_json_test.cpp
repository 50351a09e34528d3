// A capture header read back from JSON: accepted spellings, defaults, and the reach of its plain text search.
#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "orvo/timing/stream_header_json.hpp"
#include "support/checked_header.hpp"

namespace {

using orvo::test::checked_header;
using orvo::timing::stream_header_to_json;
using orvo::timing::StreamFileHeader;
using orvo::timing::StreamFormat;
using orvo::timing::StreamMode;
using orvo::timing::StreamTransport;

StreamFileHeader dated_header() {
  StreamFileHeader header;
  header.created_utc = "2025-03-07T09:05:01.000042Z";
  return header;
}

TEST(StreamHeaderFromJson, EmptyTextsAndForeignTextsGiveTheDefaultRecord) {
  for (const std::string_view json : {"", "{}", "\n", "not json at all", "[1,2,3]", "{\"other\":\"value\"}"}) {
    EXPECT_EQ(checked_header(json), StreamFileHeader{}) << json;
  }
}

StreamFormat format_of(const std::string& word) {
  return checked_header(R"({"stream_format":")" + word + R"("})").stream_format;
}

TEST(StreamHeaderFromJson, ReadsEverySpellingOfAStreamFormatInAnyLetterCase) {
  for (const char* word : {"delta32", "DELTA32", "Delta32"})
    EXPECT_EQ(format_of(word), StreamFormat::delta32) << word;
  for (const char* word : {"packed_delta", "packeddelta", "PackedDelta", "PACKED_DELTA"}) {
    EXPECT_EQ(format_of(word), StreamFormat::packed_delta) << word;
  }
  for (const char* word :
       {"raw64", "RAW64", "delta-32", "delta32 ", " delta32", "packed-delta", "packed delta", "x", ""}) {
    EXPECT_EQ(format_of(word), StreamFormat::raw64) << word;
  }
}

StreamMode mode_of(const std::string& word) {
  return checked_header(R"({"mode":")" + word + R"("})").mode;
}

TEST(StreamHeaderFromJson, ReadsEverythingButInternalAsExternal) {
  for (const char* word : {"internal", "INTERNAL", "Internal"})
    EXPECT_EQ(mode_of(word), StreamMode::internal) << word;
  for (const char* word : {"external", "internal ", "intern", "0", ""})
    EXPECT_EQ(mode_of(word), StreamMode::external) << word;
}

StreamTransport transport_of(const std::string& word) {
  return checked_header(R"({"stream_transport":")" + word + R"("})").stream_transport;
}

TEST(StreamHeaderFromJson, ReadsEverySpellingOfATransportInAnyLetterCase) {
  for (const char* word : {"usb", "USB", "Usb"}) EXPECT_EQ(transport_of(word), StreamTransport::usb) << word;
  for (const char* word : {"usb_async", "usb-async", "usbasync", "USB_Async", "USB-ASYNC", "UsbAsync"}) {
    EXPECT_EQ(transport_of(word), StreamTransport::usb_async) << word;
  }
  for (const char* word : {"uart", "UART", "usb async", "usb3", "ethernet", ""}) {
    EXPECT_EQ(transport_of(word), StreamTransport::uart) << word;
  }
}

TEST(StreamHeaderFromJson, KeepsTheLetterCaseOfTexts) {
  const auto header =
      checked_header(R"({"raw64_tag_format":"Raw_CF","created_utc":"Then","application":"App","device_product":"P",)"
                     R"("device_serial":"S","device_port":"COM3"})");
  EXPECT_EQ(header.raw64_tag_format, "Raw_CF");
  EXPECT_EQ(header.created_utc, "Then");
  EXPECT_EQ(header.application, "App");
  EXPECT_EQ(header.device_product, "P");
  EXPECT_EQ(header.device_serial, "S");
  EXPECT_EQ(header.device_port, "COM3");
}

TEST(StreamHeaderFromJson, CutsNumbersToTheWidthOfTheirField) {
  const auto header = checked_header(
      R"({"channel_mask":31,"tdl_index":258,"packed_delta_config":{"delta_bits":272,"quantum_ps":65552}})");
  EXPECT_EQ(header.channel_mask, 15);
  EXPECT_EQ(header.tdl_index, 2);
  EXPECT_EQ(header.delta_bits, 16);
  EXPECT_EQ(header.quantum_ps, 16);
  EXPECT_EQ(checked_header(R"({"channel_mask":16})").channel_mask, 0);
  EXPECT_EQ(checked_header(R"({"tdl_index":18446744073709551617})").tdl_index, 1);
}

TEST(StreamHeaderFromJson, FindsThePackedSettingsWhereverTheyStand) {
  const auto header = checked_header(R"({"quantum_ps":12,"delta_bits":0})");
  EXPECT_EQ(header.delta_bits, 0);
  EXPECT_EQ(header.quantum_ps, 12);
}

TEST(StreamHeaderFromJson, NumbersAllowWhiteSpaceButNoQuotes) {
  EXPECT_EQ(checked_header(R"({"channel_mask": 3})").channel_mask, 3);
  EXPECT_EQ(checked_header(R"({"channel_mask":"3"})").channel_mask, 15);
  EXPECT_EQ(checked_header(R"({"quantum_ps":-1})").quantum_ps, 8);
  EXPECT_EQ(checked_header(R"({"tdl_index":12.7})").tdl_index, 12);
}

TEST(StreamHeaderFromJson, ABareNumberAsFormatTakesTheNextQuotedTextAndReadsRaw64) {
  EXPECT_EQ(checked_header(R"({"stream_format":2,"mode":"internal"})").stream_format, StreamFormat::raw64);
  EXPECT_EQ(checked_header(R"({"stream_format":2})").stream_format, StreamFormat::packed_delta);
  EXPECT_EQ(checked_header(R"({"device_port":5,"x":"y"})").device_port, "x");
}

TEST(StreamHeaderFromJson, AValueThatEqualsAKeyIsMatchedFirst) {
  StreamFileHeader header = dated_header();
  header.application = "stream_format";
  header.device_product = "delta32";
  EXPECT_EQ(checked_header(stream_header_to_json(header)).stream_format, StreamFormat::delta32);
}

TEST(StreamHeaderFromJson, QuotesInsideAValueHideTheKeyNamesBetweenThem) {
  StreamFileHeader header = dated_header();
  header.application = R"("stream_format":"raw64","channel_mask":1)";
  EXPECT_EQ(checked_header(stream_header_to_json(header)), header);
}

TEST(StreamHeaderFromJson, FillsAnEmptyTagFormatFromTheMode) {
  EXPECT_EQ(checked_header(R"({"raw64_tag_format":"","mode":"internal"})").raw64_tag_format, "raw_cf");
  EXPECT_EQ(checked_header(R"({"raw64_tag_format":"","mode":"external"})").raw64_tag_format, "ps");
  EXPECT_EQ(checked_header(R"({"raw64_tag_format":""})").raw64_tag_format, "ps");
  EXPECT_EQ(checked_header(R"({"mode":"internal"})").raw64_tag_format, "ps");
}

TEST(StreamHeaderFromJson, FileTypeAndSchemaVersionAreNotLookedAt) {
  EXPECT_EQ(checked_header(R"({"file_type":"something else","schema_version":99})"), StreamFileHeader{});
}

}  // namespace
