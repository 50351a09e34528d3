// The models of header, capture file and raw64, held to bytes and numbers worked out by hand.
#include "model/raw64_model.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "support/bytes.hpp"

namespace orvo::test::model {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

Header raw64(const std::string& tag_format) {
  Header header;
  header.stream_format = 0;
  header.raw64_tag_format = tag_format;
  return header;
}

TEST(HeaderModel, EmptyTextGivesTheDefaults) {
  EXPECT_EQ(describe(read_header("")), describe(Header{}));
  EXPECT_EQ(describe(read_header("{}")),
            "stream_format 2\nmode 1\nstream_transport 1\nchannel_mask 15\ntdl_index 0\ndelta_bits 16\nquantum_ps 8\n"
            "raw64_tag_format [ps]\ncreated_utc []\napplication []\ndevice_product []\ndevice_serial []\n"
            "device_port []\n");
}

TEST(HeaderModel, ReadsEveryField) {
  const Header header = read_header(
      R"({"created_utc":"a\tb","application":"x\"y\\","device_product":"\u0041","device_serial":"","device_port":"/p",)"
      R"("stream_format":"RAW64","mode":"Internal","stream_transport":"USB-Async","raw64_tag_format":"",)"
      R"("channel_mask": 31,"tdl_index":258,"packed_delta_config":{"delta_bits":12.7,"quantum_ps":65540}})");
  EXPECT_EQ(describe(header),
            "stream_format 0\nmode 0\nstream_transport 2\nchannel_mask 15\ntdl_index 2\ndelta_bits 12\nquantum_ps 4\n"
            "raw64_tag_format [raw_cf]\ncreated_utc [a\tb]\napplication [x\"y\\]\ndevice_product [u0041]\n"
            "device_serial []\ndevice_port [/p]\n");
}

TEST(HeaderModel, SearchesTextNotStructure) {
  EXPECT_EQ(read_header(R"({"application":"stream_format","device_product":"delta32"})").stream_format, 1);
  EXPECT_EQ(read_header(R"({"stream_format":5,"mode":"internal"})").stream_format, 0);
  EXPECT_EQ(read_header(R"({"device_port":5,"x":"y"})").device_port, "x");
  EXPECT_EQ(read_header(R"({"stream_format":5})").stream_format, 2);
  EXPECT_EQ(read_header(R"({"channel_mask":"3","tdl_index":-3,"delta_bits":)").channel_mask, 15U);
  EXPECT_EQ(find_string(R"("k":"open)", "k"), std::nullopt);
  EXPECT_EQ(find_string(R"("k":"open\)", "k"), std::nullopt);
  EXPECT_EQ(find_string(R"("k":)", "k"), std::nullopt);
  EXPECT_EQ(find_number("\"k\":\v 18446744073709551617,", "k"), 1U);
}

TEST(HeaderModel, EscapesForJson) {
  EXPECT_EQ(json_escape("\x01\t\n\r\"\\/\x7F\xC3"), "?\\t\\n\\r\\\"\\\\/\x7F\xC3");
}

TEST(CaptureModel, ChecksThePrefixInItsOrder) {
  const auto failure = [](const Bytes& file) { return read_capture("/x", file).failure; };
  EXPECT_EQ(read_capture("/x", std::nullopt).failure, "StreamFileReader: cannot open /x");
  EXPECT_EQ(failure(text_bytes("TAGCAP1")), "StreamFileReader: truncated magic");
  EXPECT_EQ(failure(text_bytes("TAGCAP2\n")), "StreamFileReader: not an Orvo timing stream file");
  EXPECT_EQ(failure(text_bytes("TAGCAP1\n") + bytes({1, 0, 0})), "stream file: truncated header length");
  EXPECT_EQ(failure(text_bytes("TAGCAP1\n") + bytes({1, 0, 0, 0})), "StreamFileReader: truncated JSON header");
  const Capture capture = read_capture("/x", text_bytes("VQSTRM1\n") + bytes({2, 0, 0, 0, '{', '}', 7}));
  EXPECT_EQ(capture.failure, "");
  EXPECT_EQ(capture.header_json, "{}");
  EXPECT_EQ(capture.payload_offset, 14U);
  EXPECT_THAT(capture.payload, ElementsAre(7));
}

TEST(Raw64Model, DecodesPicosecondRecordsBetweenForeignBytes) {
  const Bytes payload = bytes({0xDE, 0xAD, 0xBE}) + bytes({0x00, 0, 0, 0, 0, 0, 0x27, 0x10}) +
                        bytes({0x20, 0, 0, 0, 0, 0, 0x27, 0xB0}) + bytes({0x60, 0, 0, 0, 0, 0, 0});
  EXPECT_THAT(decode_raw64(raw64("raw-cf"), payload), ElementsAre(Tag{0, 10'000}, Tag{1, 10'160}));
  EXPECT_THAT(decode_raw64(raw64("ps"), bytes({0x80, 0, 0, 0, 0, 0, 0, 1})), IsEmpty());
  EXPECT_THAT(decode_raw64(raw64("ps"), bytes({0x00, 0, 0x10, 0, 0, 0, 0, 1})), IsEmpty());
}

TEST(Raw64Model, UnwrapsPicosecondsBeyondHalfAPeriod) {
  // Half a period is 0x6828'0000000: a step back by exactly that is no wrap, one picosecond more is.
  const Bytes late = bytes({0x00, 0, 0x06, 0x82, 0x80, 0, 0, 5});
  EXPECT_THAT(decode_raw64(raw64("ps"), late + bytes({0, 0, 0, 0, 0, 0, 0, 5})),
              ElementsAre(Tag{0, 7'157'562'998'789}, Tag{0, 5}));
  EXPECT_THAT(decode_raw64(raw64("ps"), late + bytes({0, 0, 0, 0, 0, 0, 0, 4}) + bytes({0x20, 0, 0, 0, 0, 0, 0, 4})),
              ElementsAre(Tag{0, 7'157'562'998'789}, Tag{0, 14'315'125'997'572}, Tag{1, 4}));
  EXPECT_THAT(decode_raw64(raw64(""), bytes({0x40, 0, 0x0F, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF})),
              ElementsAre(Tag{2, 3'277'060'046'847}));
}

TEST(Raw64Model, DecodesCoarseAndFine) {
  // Channel 2: coarse 0xFFFFFFF0 with fine 5, then coarse 0x10 after the wrap; channel 0: coarse 0x10, fine 8191.
  const Bytes payload = bytes({0x54, 0xB8, 0x7F, 0xFF, 0xFF, 0xFE, 0x00, 0x05}) +
                        bytes({0x54, 0xB8, 0x60, 0x00, 0x00, 0x02, 0x00, 0x00}) + bytes({0x55}) +
                        bytes({0x14, 0xB8, 0x60, 0x00, 0x00, 0x02, 0x1F, 0xFF});
  EXPECT_THAT(decode_raw64(raw64("RAW_cf"), payload),
              ElementsAre(Tag{2, 14'315'125'944'147}, Tag{2, 14'315'126'050'896}, Tag{0, 49'996}));
  EXPECT_THAT(decode_raw64(raw64("raw_cf"), bytes({0x94, 0xB8, 0x60, 0, 0, 2, 0, 0})), IsEmpty());
  EXPECT_EQ(fine_ps(1), 19);
  EXPECT_EQ(fine_ps(180), 3330);
  EXPECT_EQ(fine_ps(181), 3332);
}

}  // namespace
}  // namespace orvo::test::model
