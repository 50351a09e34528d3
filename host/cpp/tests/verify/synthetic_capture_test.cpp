#include "verify/synthetic_capture.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "orvo/timing/offset_estimate.hpp"
#include "orvo/timing/stream_file_reader.hpp"
#include "support/bytes.hpp"
#include "support/failure.hpp"
#include "support/tool_surroundings.hpp"

namespace {

using namespace orvo::test;
namespace fs = std::filesystem;
using orvo::timing::StreamFileHeader;
using orvo::timing::StreamFileReader;
using orvo::timing::StreamFormat;
using orvo::timing::TimeTag;

class SyntheticCapture : public ToolSurroundings {
 protected:
  fs::path expected_path() const {
    return cwd() / "VRN-B/logs/stream_file_verify/verification/synthetic_raw64_xcorr.tagcap";
  }

  // All records, directly from their definition.
  static Bytes expected_payload() {
    Bytes payload;
    for (std::uint64_t k = 0; k < 2000; ++k)
      payload += ps_record(0, 10'000 + 20'000 * k) + ps_record(1, 10'160 + 20'000 * k);
    return payload;
  }
};

TEST_F(SyntheticCapture, LiesWhereCapturesAreLookedForBelowTheCurrentDirectory) {
  EXPECT_EQ(make_synthetic_capture(), expected_path());
  EXPECT_TRUE(fs::is_regular_file(expected_path()));
}

TEST_F(SyntheticCapture, HeaderNamesTwoChannelsOfPicosecondRecords) {
  StreamFileReader reader;
  reader.open(make_synthetic_capture().string());
  StreamFileHeader expected;
  expected.stream_format = StreamFormat::raw64;
  expected.channel_mask = 3;
  expected.created_utc = reader.header().created_utc;
  EXPECT_EQ(reader.header(), expected);
  EXPECT_EQ(reader.header().created_utc.size(), 27u);
  const std::string json = reader.header_json();
  const std::size_t date = json.find(expected.created_utc);
  EXPECT_EQ(json.substr(0, date),
            R"({"file_type":"orvo_timing_raw_stream_capture","schema_version":1,"created_utc":")");
  EXPECT_EQ(json.substr(date + 27),
            R"(","application":"","device_product":"","device_serial":"","device_port":"","stream_format":"raw64",)"
            R"("mode":"external","stream_transport":"usb","raw64_tag_format":"ps","channel_mask":3,"tdl_index":0,)"
            R"("packed_delta_config":{"delta_bits":16,"quantum_ps":8}})");
}

TEST_F(SyntheticCapture, FileIsPrefixHeaderAnd32000Bytes) {
  const std::string content = read_file(make_synthetic_capture());
  StreamFileReader reader;
  reader.open(expected_path().string());
  ASSERT_EQ(content.size(), 12 + reader.header_json().size() + 32'000);
  EXPECT_EQ(content.substr(0, 8), "TAGCAP1\n");
  const std::string payload = content.substr(content.size() - 32'000);
  EXPECT_EQ(Bytes(payload.begin(), payload.begin() + 8), bytes({0, 0, 0, 0, 0, 0, 0x27, 0x10}));
  EXPECT_EQ(Bytes(payload.begin() + 8, payload.begin() + 16), bytes({0x20, 0, 0, 0, 0, 0, 0x27, 0xB0}));
  EXPECT_EQ(Bytes(payload.end() - 8, payload.end()), bytes({0x20, 0, 0, 0, 0x02, 0x62, 0x33, 0x90}));
  EXPECT_TRUE(Bytes(payload.begin(), payload.end()) == expected_payload());
}

TEST_F(SyntheticCapture, DecodesToTwoThousandPairs160PicosecondsApart) {
  StreamFileReader reader;
  reader.open(make_synthetic_capture().string());
  const std::vector<TimeTag> tags = reader.decode_next_tags(65'536, 1'048'576);
  ASSERT_EQ(tags.size(), 4000u);
  for (std::int64_t k = 0; k < 2000; ++k) {
    ASSERT_EQ(tags[static_cast<std::size_t>(2 * k)], (TimeTag{0, 10'000 + 20'000 * k}));
    ASSERT_EQ(tags[static_cast<std::size_t>(2 * k + 1)], (TimeTag{1, 10'160 + 20'000 * k}));
  }
  EXPECT_EQ(tags.back(), (TimeTag{1, 39'990'160}));
}

TEST_F(SyntheticCapture, OffsetIsEstimatedExactly) {
  StreamFileReader reader;
  reader.open(make_synthetic_capture().string());
  std::vector<std::int64_t> times[2];
  for (const TimeTag& tag : reader.decode_next_tags(65'536, 1'048'576)) times[tag.channel].push_back(tag.time_ps);
  EXPECT_EQ(orvo::timing::estimate_offset_ps(times[0], times[1]), 160);
  EXPECT_EQ(orvo::timing::estimate_offset_ps(times[1], times[0]), -160);
}

TEST_F(SyntheticCapture, ReplacesAnOlderOneAndDiffersOnlyInItsDate) {
  write_file(expected_path(), std::string(100'000, 'x'));
  const std::string first = read_file(make_synthetic_capture());
  std::string second = read_file(make_synthetic_capture());
  ASSERT_EQ(first.size(), second.size());
  const std::size_t date = first.find("\"created_utc\":\"") + 15;
  second.replace(date, 27, first, date, 27);
  EXPECT_TRUE(first == second);
}

TEST_F(SyntheticCapture, ADirectoryThatCannotBeCreatedIsThrown) {
  write_file(cwd() / "VRN-B", "a file where the directory should be");
  EXPECT_EQ(failure_of([] { make_synthetic_capture(); }), "filesystem_error");
}

TEST_F(SyntheticCapture, AFileThatCannotBeWrittenIsThrown) {
  fs::create_directories(expected_path());
  EXPECT_EQ(failure_of([] { make_synthetic_capture(); }),
            "StreamFileWriter: cannot open " + expected_path().string() + " (code -2)");
}

}  // namespace
