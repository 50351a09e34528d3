// The whole chain of plain twins: on a capture worked out by hand, and beside the library.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "model/delta32_streams.hpp"
#include "model/packed_streams.hpp"
#include "model/stream_generators.hpp"
#include "orvo/timing/timing.hpp"
#include "plain/verify_plain.hpp"
#include "support/bytes.hpp"
#include "support/temp_directory.hpp"

namespace orvo::test {
namespace {

using model::Random;
using timing::StreamFileHeader;
using timing::StreamFormat;

/// Writes the capture and answers the question about it plainly.
class PlainVerify : public testing::Test {
 protected:
  std::string write(const StreamFileHeader& header, const Bytes& payload) {
    const std::string path = (directory_ / "a.tagcap").string();
    timing::StreamFileWriter writer;
    writer.open(path, header);
    writer.write(payload.data(), payload.size());
    return path;
  }

 private:
  TempDirectory directory_;
};

TEST_F(PlainVerify, AnswersACaptureOfFiveTags) {
  StreamFileHeader header;
  header.stream_format = StreamFormat::raw64;
  const std::string path = write(header, ps_record(2, 10'000) + ps_record(3, 10'160) + ps_record(2, 20'000) +
                                             ps_record(3, 20'168) + ps_record(0, 30'000));
  const plain::Findings found = plain::verify(path, {.channel_a = 2, .channel_b = 3, .range_ps = 20, .bin_ps = 8});
  EXPECT_EQ(found.decoded_tags, 5u);
  EXPECT_EQ(found.channel_counts, (std::array<std::uint64_t, 4>{1, 0, 2, 2}));
  EXPECT_EQ(found.offset_ps, 168);  // of 160 and 168 the upper
  EXPECT_EQ(found.histogram.bin_center_ps, (std::vector<std::int64_t>{-16, -8, 0, 8, 16}));
  EXPECT_EQ(found.histogram.counts, (std::vector<std::int64_t>{0, 1, 1, 0, 0}));
  EXPECT_EQ(found.peak, (timing::XcorrPeak{1, -8}));
  EXPECT_EQ(found.moments.total, 2);
  EXPECT_EQ(found.moments.mean_ps, -4);
  EXPECT_EQ(found.moments.sigma_ps, 4);
}

TEST_F(PlainVerify, TakesAnOffsetThatIsGiven) {
  StreamFileHeader header;
  header.stream_format = StreamFormat::raw64;
  const std::string path = write(header, ps_record(0, 10'000) + ps_record(1, 10'160));
  const plain::Findings found = plain::verify(path, {.range_ps = 20, .bin_ps = 8, .offset_ps = 150});
  EXPECT_EQ(found.offset_ps, 150);
  EXPECT_EQ(found.peak, (timing::XcorrPeak{1, 8}));
}

struct Stream {
  StreamFileHeader header;
  Bytes payload;
};

Stream random_stream(Random& random) {
  Stream stream;
  const std::size_t events = 1 + random.of_any_size(12);
  switch (random.below(3)) {
    case 0:
      stream.header.stream_format = StreamFormat::raw64;
      for (std::uint64_t left = events, time = 0; left > 0; --left) {
        time += random.below(20'000);
        stream.payload += ps_record(random.channel(), time - random.below(time / 20 + 1));
      }
      break;
    case 1:
      stream.header.stream_format = StreamFormat::delta32;
      stream.payload = model::clean_delta32(random, events).bytes;
      break;
    default:
      stream.header = model::random_header(random, 15);
      stream.payload = model::clean_packed(random, model::settings_of(stream.header), events).bytes;
  }
  return stream;
}

TEST_F(PlainVerify, FindsWhatTheLibraryFinds) {
  Random random(7101);
  std::int64_t pairs = 0;
  for (int i = 0; i < 100 && !HasFailure(); ++i) {
    const Stream stream = random_stream(random);
    const std::string path = write(stream.header, stream.payload);
    const auto range = static_cast<std::int64_t>(std::uint64_t{1} << random.between(12, 34));
    plain::Question question{.channel_a = random.channel(), .range_ps = range, .bin_ps = range / 50 + 1};
    question.channel_b = (question.channel_a + 1) % 4;
    if (random.one_in(3)) question.offset_ps = 160;

    timing::StreamFileReader reader;
    reader.open(path);
    timing::ChannelTimes times;
    while (reader.decode_next_chunk(1'048'576, times)) {
    }
    const std::vector<std::int64_t> a(times[question.channel_a].begin(), times[question.channel_a].end());
    const std::vector<std::int64_t> b(times[question.channel_b].begin(), times[question.channel_b].end());
    const std::int64_t offset = question.offset_ps.value_or(timing::estimate_offset_ps(a, b));
    const timing::XcorrHistogram histogram = timing::xcorr_histogram(a, b, range, question.bin_ps, offset);

    const plain::Findings found = plain::verify(path, question);
    EXPECT_EQ(found.decoded_tags, times.total());
    for (std::size_t c = 0; c < 4; ++c) EXPECT_EQ(found.channel_counts[c], times.size(c));
    EXPECT_EQ(found.offset_ps, offset);
    EXPECT_EQ(found.histogram.bin_center_ps, histogram.bin_center_ps);
    EXPECT_EQ(found.histogram.counts, histogram.counts);
    pairs += found.moments.total;
  }
  EXPECT_GT(pairs, 10'000);
}

}  // namespace
}  // namespace orvo::test
