// Captures of every kind through the whole tool: what the header says, and tags of all three encodings.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "support/product_root.hpp"
#include "support/verify_captures.hpp"

namespace {

using namespace orvo::test;
using testing::HasSubstr;

class CaptureFormats : public ProductRoot {
 protected:
  std::string json_of(const Bytes& capture, std::vector<std::string> arguments = {"c.tagcap"}) {
    write_file(cwd() / "c.tagcap", capture);
    arguments.push_back("--out-prefix=o");
    const ProgramResult result = verify(std::move(arguments));
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.exit_status, 0);
    return read_file(cwd() / "o.json");
  }
  // Lines 3 to 8 of the JSON report: what it says about the header, and how many tags were decoded.
  std::string header_lines(std::string_view header, const Bytes& payload = {}) {
    const std::string json = json_of(capture_bytes(header, payload));
    const auto from = json.find("  \"stream_format\"");
    return json.substr(from, json.find("  \"channel_counts\"") - from);
  }
  static std::string lines(const std::string& format, const std::string& mode, const std::string& transport,
                           const std::string& bits, const std::string& quantum, const std::string& tags) {
    return "  \"stream_format\":\"" + format + "\",\n  \"mode\":\"" + mode + "\",\n  \"transport\":\"" + transport +
           "\",\n  \"packed_delta_bits\":" + bits + ",\n  \"packed_delta_quantum_ps\":" + quantum +
           ",\n  \"decoded_tags\":" + tags + ",\n";
  }
};

TEST_F(CaptureFormats, BothMagicsOpenTheSameCapture) {
  Bytes capture = pairs_capture();
  const Bytes legacy = text_bytes("VQSTRM1\n");
  const std::string json = json_of(capture);
  std::copy(legacy.begin(), legacy.end(), capture.begin());
  EXPECT_EQ(json_of(capture), json);
}

TEST_F(CaptureFormats, AnEmptyOrForeignHeaderIsThatOfPackedDelta) {
  const std::string defaults = lines("packed_delta", "external", "usb", "16", "8", "0");
  EXPECT_EQ(header_lines(""), defaults);
  EXPECT_EQ(header_lines("{}"), defaults);
  EXPECT_EQ(header_lines("this is no JSON"), defaults);
  EXPECT_EQ(header_lines(std::string(100'000, '{')), defaults);
}

TEST_F(CaptureFormats, FormatWordsIgnoreCaseAndUnknownOnesAreRaw64) {
  const Bytes record = ps_record(0, 1);
  for (const char* word : {"raw64", "RAW64", "delta-32", "", "packed-delta", "x"}) {
    EXPECT_EQ(header_lines(std::string(R"({"stream_format":")") + word + "\"}", record),
              lines("raw64", "external", "usb", "16", "8", "1"))
        << word;
  }
  for (const char* word : {"packed_delta", "PackedDelta", "PACKEDDELTA"}) {
    EXPECT_EQ(header_lines(std::string(R"({"stream_format":")") + word + "\"}", record),
              lines("packed_delta", "external", "usb", "16", "8", "0"))
        << word;
  }
  EXPECT_EQ(header_lines(R"({"stream_format":"Delta32"})", record),
            lines("delta32", "external", "usb", "16", "8", "0"));
}

TEST_F(CaptureFormats, AFormatThatIsANumberReadsAsTheNextQuotedText) {
  EXPECT_EQ(header_lines(R"({"stream_format":2,"mode":"internal"})", ps_record(0, 1)),
            lines("raw64", "internal", "usb", "16", "8", "1"));
  EXPECT_EQ(header_lines(R"({"stream_format":2})"), lines("packed_delta", "external", "usb", "16", "8", "0"));
}

TEST_F(CaptureFormats, ModeAndTransportHaveTheirSpellings) {
  const auto header = [](const std::string& mode, const std::string& transport) {
    return R"({"stream_format":"raw64","mode":")" + mode + R"(","stream_transport":")" + transport + "\"}";
  };
  EXPECT_EQ(header_lines(header("INTERNAL", "USB")), lines("raw64", "internal", "usb", "16", "8", "0"));
  EXPECT_EQ(header_lines(header("inside", "USB-Async")), lines("raw64", "external", "usb_async", "16", "8", "0"));
  EXPECT_EQ(header_lines(header("external", "usbasync")), lines("raw64", "external", "usb_async", "16", "8", "0"));
  EXPECT_EQ(header_lines(header("", "usb3")), lines("raw64", "external", "uart", "16", "8", "0"));
}

TEST_F(CaptureFormats, TheReportShowsTheHeadersNumbersAsStored) {
  EXPECT_EQ(header_lines(R"({"delta_bits": 0,"quantum_ps": 0})"),
            lines("packed_delta", "external", "usb", "0", "0", "0"));
  EXPECT_EQ(header_lines(R"({"packed_delta_config":{"delta_bits":268,"quantum_ps":65548.9}})"),
            lines("packed_delta", "external", "usb", "12", "12", "0"));
  EXPECT_EQ(header_lines(R"({"delta_bits":"9","quantum_ps":-9})"),
            lines("packed_delta", "external", "usb", "16", "8", "0"));
}

TEST_F(CaptureFormats, Raw64SkipsWhatIsNoRecordByteByByte) {
  const Bytes payload = bytes({0xDE, 0xAD, 0xBE}) + ps_record(0, 10'000) + Bytes(8, 0xFF) + ps_record(1, 10'160) +
                        bytes({0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00});
  EXPECT_THAT(json_of(raw64_capture(payload)),
              HasSubstr("\"decoded_tags\":2,\n  \"channel_counts\":{\"ch0\":1,\"ch1\":1,\"ch2\":0,\"ch3\":0},"));
  EXPECT_THAT(read_file(cwd() / "o.json"), HasSubstr("\"offset_ps\":160,\n"));
}

TEST_F(CaptureFormats, Raw64UnwrapsDeviceTime) {
  // Channel 0 passes the end of the device period between its two tags: 1000 ps before, 500 ps after. The one tag of
  // channel 1, 840 ps before the end, is near both.
  constexpr std::uint64_t kPeriod = 14'315'125'997'568;
  const Bytes payload = ps_record(0, kPeriod - 1000) + ps_record(1, kPeriod - 840) + ps_record(0, 500);
  EXPECT_THAT(json_of(raw64_capture(payload), {"c.tagcap", "--offset=0"}), HasSubstr("\"total_coincidences\":2,"));
  // The largest time of 44 bits is folded into one period: 2^44 - 1 - period.
  const Bytes folded = ps_record(0, (std::uint64_t{1} << 44) - 1) + ps_record(1, 3'277'060'046'847 + 160);
  EXPECT_THAT(json_of(raw64_capture(folded)), HasSubstr("\"offset_ps\":160,"));
}

TEST_F(CaptureFormats, RawCfTakesTheFineTimeOff) {
  const Bytes payload = cf_record(0, 1000, 0) + cf_record(1, 1000, 2);  // fine code 2 is 37 ps
  for (const char* header : {R"({"stream_format":"raw64","raw64_tag_format":"raw_cf"})",
                             R"({"stream_format":"raw64","raw64_tag_format":"RAW_CF"})",
                             R"({"stream_format":"raw64","mode":"internal","raw64_tag_format":""})"}) {
    EXPECT_THAT(json_of(capture_bytes(header, payload)), HasSubstr("\"ch0\":1,\"ch1\":1,\"ch2\":0,\"ch3\":0},"));
    EXPECT_THAT(read_file(cwd() / "o.json"), HasSubstr("\"offset_ps\":-37,")) << header;
    EXPECT_THAT(json_of(capture_bytes(header, ps_record(2, 5))), HasSubstr("\"decoded_tags\":0,")) << header;
  }
}

TEST_F(CaptureFormats, EveryOtherTagFormatIsPicoseconds) {
  for (const char* header : {R"({"stream_format":"raw64"})", R"({"stream_format":"raw64","mode":"internal"})",
                             R"({"stream_format":"raw64","raw64_tag_format":"raw-cf"})",
                             R"({"stream_format":"raw64","raw64_tag_format":""})"}) {
    EXPECT_THAT(json_of(capture_bytes(header, ps_record(2, 5))), HasSubstr("\"ch2\":1,")) << header;
    EXPECT_THAT(json_of(capture_bytes(header, cf_record(2, 1000, 0))), HasSubstr("\"decoded_tags\":0,")) << header;
  }
}

TEST_F(CaptureFormats, Delta32IsDecoded) {
  const auto word = [](std::uint32_t bits) { return big_endian(bits, 4); };
  const auto based = [&](std::uint32_t base) {
    return word(0xEB5A'55AA) + word(0xAA00'0000 | base) + word(0xCA00'0000);
  };
  const auto event = [&](std::uint32_t channel, std::uint32_t delta) {
    return word(channel << 29 | 0x1400'0000 | delta);
  };
  const Bytes payload = based(9000) + event(0, 1000) + based(10'160) + event(1, 0) + event(0, 20'000) +
                        event(1, 20'000) + event(2, 5) + event(1, 20'000) +
                        event(0, 20'000);  // channel 2 has no base
  const std::string json = json_of(capture_bytes(R"({"stream_format":"delta32"})", payload));
  EXPECT_THAT(json,
              HasSubstr("\"decoded_tags\":6,\n  \"channel_counts\":{\"ch0\":3,\"ch1\":3,\"ch2\":0,\"ch3\":0},"));
  EXPECT_THAT(
      json,
      HasSubstr("\"offset_ps\":160,\n    \"total_coincidences\":3,\n    \"peak_count\":3,\n    \"peak_ps\":0,"));
}

// Records of 19 bits, channel, flag and 16 bits of payload, most significant bit first.
class PackedBits {
 public:
  PackedBits& record(unsigned channel, unsigned flag, unsigned payload) {
    for (const std::uint32_t bits = channel << 17 | flag << 16 | payload; const int bit : kBits) {
      if (used_++ % 8 == 0) bytes_.push_back(0);
      bytes_.back() = static_cast<std::uint8_t>(bytes_.back() | (bits >> bit & 1) << (7 - (used_ - 1) % 8));
    }
    return *this;
  }
  // A sync sequence: all ones, then the absolute time in quanta of 8 ps, least significant 16 bits first.
  PackedBits& sync(unsigned channel, unsigned quanta) {
    record(channel, 1, 0xFFFF);
    return record(channel, 0, quanta & 0xFFFF).record(channel, 0, quanta >> 16).record(channel, 0, 0);
  }
  const Bytes& bytes() const { return bytes_; }

 private:
  static constexpr int kBits[] = {18, 17, 16, 15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0};
  Bytes bytes_;
  unsigned used_ = 0;
};

TEST_F(CaptureFormats, PackedDeltaIsDecodedAndItsLogIsOnlyWrittenWhenAskedFor) {
  PackedBits stream;
  stream.sync(0, 100'000).record(0, 0, 25).sync(1, 100'000).record(1, 0, 45);
  for (int k = 0; k < 4; ++k) stream.record(0, 0, 2500).record(1, 0, 2500);
  const std::string json = json_of(capture_bytes("{}", stream.bytes()));
  EXPECT_THAT(json,
              HasSubstr("\"decoded_tags\":10,\n  \"channel_counts\":{\"ch0\":5,\"ch1\":5,\"ch2\":0,\"ch3\":0},"));
  EXPECT_THAT(
      json,
      HasSubstr("\"offset_ps\":160,\n    \"total_coincidences\":5,\n    \"peak_count\":5,\n    \"peak_ps\":0,"));

  const ProgramResult logged =
      run({.arguments = {"c.tagcap", "--out-prefix=o"}, .environment = {{"ORVO_PACKED_DEBUG", ""}}});
  EXPECT_EQ(logged.exit_status, 0);
  EXPECT_EQ(logged.err, "packed-decoder: locked bits=16 drop_bytes=0 bit_offset=0 raw_bytes=43\n");
  EXPECT_EQ(read_file(cwd() / "o.json"), json);
}

}  // namespace
