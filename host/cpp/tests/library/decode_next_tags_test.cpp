// The decode loop of the reader: bounded calls, bounded reads, and what is kept between them.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "orvo/timing/stream_file_reader.hpp"
#include "support/bytes.hpp"
#include "support/failure.hpp"
#include "support/temp_directory.hpp"

namespace {

using namespace orvo::test;
using orvo::timing::StreamFileHeader;
using orvo::timing::StreamFileReader;
using orvo::timing::StreamFormat;
using orvo::timing::TimeTag;
using testing::ElementsAre;

using testing::IsEmpty;
using Tags = std::vector<TimeTag>;

constexpr const char* kReadFailed = "StreamFileReader: payload read failed (code -2)";

/// Makes reading the open file of this path fail: its descriptor becomes that of a directory.
void break_descriptor_of(const std::string& path) {
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code ignored;
    if (std::filesystem::read_symlink(entry.path(), ignored) != path) continue;
    const int directory = ::open("/", O_RDONLY | O_DIRECTORY);
    ::dup2(directory, std::stoi(entry.path().filename().string()));
    ::close(directory);
    return;
  }
  throw std::runtime_error("not open: " + path);
}

class DecodeNextTags : public testing::Test {
 protected:
  void open(const Bytes& payload, const std::string& json = R"({"stream_format":"raw64"})") {
    write_file(path_, capture_bytes(json, payload));
    reader_.open(path_);
  }
  Tags all_tags(std::uint64_t max_tags, std::uint64_t max_bytes) {
    Tags all;
    for (Tags next; !(next = reader_.decode_next_tags(max_tags, max_bytes)).empty();) {
      EXPECT_LE(next.size(), max_tags);
      all.insert(all.end(), next.begin(), next.end());
    }
    return all;
  }

  TempDirectory directory_;
  std::string path_ = (directory_ / "a.tagcap").string();
  StreamFileReader reader_;
};

// Seven tags among stray bytes, and a record that is cut off.
const Bytes kMixedPayload = bytes({0xDE, 0xAD, 0xBE}) + ps_record(0, 10'000) + ps_record(1, 10'160) +
                            bytes({0xFF, 0xFF, 0xFF, 0xFF, 0xFF}) + ps_record(2, 14'315'125'997'000) +
                            ps_record(2, 9) + bytes({0x9F}) + ps_record(3, 77) + ps_record(0, 9'999) +
                            ps_record(0, 20'000) + bytes({0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x27});
const Tags kMixedTags{{0, 10'000}, {1, 10'160}, {2, 14'315'125'997'000}, {2, 14'315'125'997'577}, {3, 77},
                      {0, 9'999},  {0, 20'000}};

TEST_F(DecodeNextTags, NeverOpenedReaderIsNotOpen) {
  EXPECT_EQ(failure_of([&] { reader_.decode_next_tags(1, 1); }), "StreamFileReader: not open (code -6)");
  EXPECT_EQ(failure_of([&] { reader_.decode_next_tags(1, 1); }), "StreamFileReader: not open (code -6)");
  open(ps_record(0, 1));
  EXPECT_THAT(reader_.decode_next_tags(1, 1), ElementsAre(TimeTag{0, 1}));
}

TEST_F(DecodeNextTags, NoTagsAskedForIsNothingRead) {
  EXPECT_THAT(reader_.decode_next_tags(0, 1), IsEmpty());
  open(kMixedPayload);
  EXPECT_THAT(reader_.decode_next_tags(0, 1'000), IsEmpty());
  EXPECT_EQ(all_tags(100, 1'000), kMixedTags);
}

TEST_F(DecodeNextTags, SameTagsForEveryReadSizeAndEveryTagLimit) {
  for (std::uint64_t max_bytes = 0; max_bytes <= kMixedPayload.size() + 1; ++max_bytes) {
    for (std::uint64_t max_tags = 1; max_tags <= kMixedTags.size() + 1; ++max_tags) {
      open(kMixedPayload);
      ASSERT_EQ(all_tags(max_tags, max_bytes), kMixedTags) << max_tags << " tags, " << max_bytes << " bytes";
    }
  }
}

TEST_F(DecodeNextTags, EveryTruncationYieldsTheRecordsThatAreWhole) {
  const std::vector<std::size_t> record_ends{11, 19, 32, 40, 49, 57, 65};
  for (std::size_t size = 0; size <= kMixedPayload.size(); ++size) {
    open(Bytes(kMixedPayload.begin(), kMixedPayload.begin() + static_cast<std::ptrdiff_t>(size)));
    const auto whole =
        std::count_if(record_ends.begin(), record_ends.end(), [&](std::size_t end) { return end <= size; });
    ASSERT_EQ(all_tags(100, 16), Tags(kMixedTags.begin(), kMixedTags.begin() + whole)) << size << " bytes";
  }
}

TEST_F(DecodeNextTags, ReadsOnUntilTheAskedNumberIsReached) {
  open(kMixedPayload);
  EXPECT_EQ(reader_.decode_next_tags(5, 1), Tags(kMixedTags.begin(), kMixedTags.begin() + 5));
  EXPECT_EQ(reader_.decode_next_tags(5, 1), Tags(kMixedTags.begin() + 5, kMixedTags.end()));
  EXPECT_THAT(reader_.decode_next_tags(5, 1), IsEmpty());
}

TEST_F(DecodeNextTags, ZeroBytesCountAsOne) {
  open(ps_record(0, 5) + ps_record(1, 6));
  EXPECT_THAT(reader_.decode_next_tags(10, 0), ElementsAre(TimeTag{0, 5}, TimeTag{1, 6}));
}

TEST_F(DecodeNextTags, SurplusComesFirstAndInOrder) {
  open(ps_record(0, 1) + ps_record(0, 2) + ps_record(0, 3) + ps_record(0, 4) + ps_record(0, 5));
  EXPECT_THAT(reader_.decode_next_tags(1, 24), ElementsAre(TimeTag{0, 1}));
  EXPECT_THAT(reader_.decode_next_tags(3, 24), ElementsAre(TimeTag{0, 2}, TimeTag{0, 3}, TimeTag{0, 4}));
  EXPECT_THAT(reader_.decode_next_tags(3, 24), ElementsAre(TimeTag{0, 5}));
  EXPECT_THAT(reader_.decode_next_tags(3, 24), IsEmpty());
}

TEST_F(DecodeNextTags, SurplusOfOneReadLastsForSeveralCalls) {
  Bytes payload;
  Tags expected;
  for (int i = 0; i < 1'000; ++i) {
    payload += ps_record(static_cast<unsigned>(i % 4), static_cast<std::uint64_t>(i));
    expected.push_back({static_cast<std::uint8_t>(i % 4), i});
  }
  open(payload);
  EXPECT_EQ(all_tags(1, 8'000), expected);
}

TEST_F(DecodeNextTags, ResultHasRoomForTheTagsAskedFor) {
  open(ps_record(0, 1));
  EXPECT_GE(reader_.decode_next_tags(65'536, 1'048'576).capacity(), 65'536u);
}

TEST_F(DecodeNextTags, AFormatOutsideTheEnumerationDecodesNothing) {
  open(kMixedPayload);
  // No header text reads as such a number, so it is set directly.
  const_cast<StreamFileHeader&>(reader_.header()).stream_format = static_cast<StreamFormat>(7);
  EXPECT_THAT(reader_.decode_next_tags(10, 16), IsEmpty());
  EXPECT_THAT(reader_.decode_next_tags(10, 16), IsEmpty());
}

TEST_F(DecodeNextTags, FormatsReachTheirDecoder) {
  const Bytes sync = big_endian(0xEB5A55AA, 4);
  const Bytes base =
      big_endian(0x80000000 | 1u << 29 | 5u << 25 | 1'000, 4) + big_endian(0x80000000 | 2u << 29 | 5u << 25, 4);
  const Bytes event = big_endian(2u << 29 | 10u << 25 | 16, 4);
  open(sync + base + event, R"({"stream_format":"delta32"})");
  EXPECT_THAT(reader_.decode_next_tags(10, 100), ElementsAre(TimeTag{2, 1'016}));
  open(sync + base + event, R"({"stream_format":"packed_delta"})");
  EXPECT_THAT(reader_.decode_next_tags(10, 100), IsEmpty());
}

// 2 MiB and one record: more than any stream buffers ahead.
const Bytes& long_payload() {
  static const Bytes payload = [] {
    Bytes records(262'145 * 8);
    for (std::size_t t = 0; t < 262'145; ++t) {
      const Bytes record = ps_record(1, t);
      std::copy(record.begin(), record.end(), records.begin() + static_cast<std::ptrdiff_t>(8 * t));
    }
    return records;
  }();
  return payload;
}

TEST_F(DecodeNextTags, CallsOfTheToolsSizeCutAtTheTagLimit) {
  open(long_payload());
  for (std::int64_t call = 0; call < 4; ++call) {
    const Tags tags = reader_.decode_next_tags(65'536, 1'048'576);
    ASSERT_EQ(tags.size(), 65'536u);
    EXPECT_EQ(tags.front(), (TimeTag{1, call * 65'536}));
    EXPECT_EQ(tags.back(), (TimeTag{1, call * 65'536 + 65'535}));
  }
  EXPECT_THAT(reader_.decode_next_tags(65'536, 1'048'576), ElementsAre(TimeTag{1, 262'144}));
  EXPECT_THAT(reader_.decode_next_tags(65'536, 1'048'576), IsEmpty());
}

TEST_F(DecodeNextTags, AHardReadErrorIsAFailure) {
  open(long_payload());
  break_descriptor_of(path_);
  EXPECT_EQ(failure_of([&] { all_tags(65'536, 1'048'576); }), kReadFailed);
}

TEST_F(DecodeNextTags, SurplusIsHandedOutBeforeAnyFurtherRead) {
  open(long_payload());
  EXPECT_EQ(reader_.decode_next_tags(65'536, 1'048'576).size(), 65'536u);
  break_descriptor_of(path_);
  EXPECT_EQ(reader_.decode_next_tags(30'000, 1'048'576).back(), (TimeTag{1, 95'535}));
  EXPECT_EQ(reader_.decode_next_tags(35'536, 1'048'576).back(), (TimeTag{1, 131'071}));
  EXPECT_EQ(failure_of([&] { reader_.decode_next_tags(65'536, 1'048'576); }), kReadFailed);
}

TEST_F(DecodeNextTags, AnErrorInALaterReadLosesTheTagsOfThatCall) {
  open(long_payload());
  EXPECT_EQ(reader_.decode_next_tags(131'071, 1'048'576).size(), 131'071u);
  break_descriptor_of(path_);
  EXPECT_EQ(failure_of([&] { reader_.decode_next_tags(2, 1'048'576); }), kReadFailed);
}

}  // namespace
