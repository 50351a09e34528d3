// The reference of header and capture file, held to texts and bytes worked out by hand.
#include "reference/capture_file.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "support/bytes.hpp"

namespace orvo::test::reference {
namespace {

using ::testing::ElementsAre;

TEST(ReferenceHeader, EmptyTextGivesTheDefaults) {
  EXPECT_EQ(describe(read_header("")), describe(Header{}));
  EXPECT_EQ(describe(read_header("{}")),
            "stream_format 2\nmode 1\nstream_transport 1\nchannel_mask 15\ntdl_index 0\ndelta_bits 16\nquantum_ps 8\n"
            "raw64_tag_format [ps]\ncreated_utc []\napplication []\ndevice_product []\ndevice_serial []\n"
            "device_port []\n");
}

TEST(ReferenceHeader, ReadsEveryField) {
  const Header header = read_header(
      R"({"created_utc":"a\tb","application":"x\"y\\","device_product":"\u0041","device_serial":"","device_port":"/p",)"
      R"("stream_format":"RAW64","mode":"Internal","stream_transport":"USB-Async","raw64_tag_format":"",)"
      R"("channel_mask": 31,"tdl_index":258,"packed_delta_config":{"delta_bits":12.7,"quantum_ps":65540}})");
  EXPECT_EQ(describe(header),
            "stream_format 0\nmode 0\nstream_transport 2\nchannel_mask 15\ntdl_index 2\ndelta_bits 12\nquantum_ps 4\n"
            "raw64_tag_format [raw_cf]\ncreated_utc [a\tb]\napplication [x\"y\\]\ndevice_product [u0041]\n"
            "device_serial []\ndevice_port [/p]\n");
}

TEST(ReferenceHeader, SearchesTextNotStructure) {
  EXPECT_EQ(read_header(R"({"application":"stream_format","device_product":"delta32"})").stream_format,
            Encoding::delta32);
  EXPECT_EQ(read_header(R"({"stream_format":5,"mode":"internal"})").stream_format, Encoding::raw64);
  EXPECT_EQ(read_header(R"({"device_port":5,"x":"y"})").device_port, "x");
  EXPECT_EQ(read_header(R"({"stream_format":5})").stream_format, Encoding::packed_delta);
  EXPECT_EQ(read_header(R"({"channel_mask":"3","tdl_index":-3,"delta_bits":)").channel_mask, 15U);
  EXPECT_EQ(find_string(R"("k":"open)", "k"), std::nullopt);
  EXPECT_EQ(find_string(R"("k":"open\)", "k"), std::nullopt);
  EXPECT_EQ(find_string(R"("k":)", "k"), std::nullopt);
  EXPECT_EQ(find_number("\"k\":\v 18446744073709551617,", "k"), 1U);
}

TEST(ReferenceHeader, EscapesForJson) {
  EXPECT_EQ(json_escape("\x01\t\n\r\"\\/\x7F\xC3"), "?\\t\\n\\r\\\"\\\\/\x7F\xC3");
}

TEST(ReferenceCaptureFile, ChecksThePrefixInItsOrder) {
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

TEST(ReferenceCaptureFile, DecodesTheEncodingThatTheHeaderNames) {
  Header header;
  header.delta_bits = 5;
  header.quantum_ps = 1;
  header.channel_mask = 1;
  const Bytes packed = bytes({0x3F, 1, 1, 0, 0, 0, 0, 0, 0, 0, 2, 4});
  EXPECT_THAT(decode(header, packed), ElementsAre(Tag{0, 35}, Tag{0, 39}));
  header.stream_format = Encoding::delta32;
  const Bytes delta32 = bytes({0xEB, 0x5A, 0x55, 0xAA, 0xAA, 0, 0, 9, 0xCA, 0, 0, 0, 0x14, 0, 0, 1});
  EXPECT_THAT(decode(header, delta32), ElementsAre(Tag{0, 10}));
  EXPECT_THAT(decode(header, delta32, 3), ElementsAre(Tag{0, 10}));
  header.stream_format = Encoding::raw64;
  EXPECT_THAT(decode(header, bytes({0x20, 0, 0, 0, 0, 0, 0, 7})), ElementsAre(Tag{1, 7}));
}

}  // namespace
}  // namespace orvo::test::reference
