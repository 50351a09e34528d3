#include "verify/correlation.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "support/bytes.hpp"
#include "support/failure.hpp"
#include "support/packed_debug_output.hpp"
#include "support/packed_payload.hpp"
#include "support/random.hpp"
#include "support/sanitizer.hpp"
#include "support/tool_surroundings.hpp"

namespace {

using namespace orvo::test;
namespace fs = std::filesystem;
using orvo::timing::StreamFileReader;
using orvo::timing::TimeTag;
using Tags = std::vector<TimeTag>;

constexpr std::uint64_t kNoLists = 8;  // one tag

class Correlation : public ToolSurroundings {
 protected:
  Correlation() {
    run_.source = cwd() / "in.tagcap";
    config_.range_ps = 500;
  }
  void write(const Tags& tags) const {
    Bytes payload(8 * tags.size());
    for (std::size_t i = 0; i < tags.size(); ++i) {
      const Bytes record = ps_record(tags[i].channel, static_cast<std::uint64_t>(tags[i].time_ps));
      std::copy(record.begin(), record.end(), payload.begin() + static_cast<std::ptrdiff_t>(8 * i));
    }
    write_file(run_.source, capture_bytes(R"({"stream_format":"raw64"})", payload));
  }
  void open() {
    reader_.open(run_.source.string());
    run_.header = reader_.header();
  }
  RunResult result(std::uint64_t most_listed_bytes) {
    open();
    RunResult run = run_;
    correlate(reader_, config_, most_listed_bytes, run);
    return run;
  }
  /// Both forms of the offset, with and without limits of tags, give what lists give.
  void expect_as_from_lists() {
    for (const std::uint64_t max_tags : {0u, 1u, 65'536u, 150'000u}) {
      for (const char* offset : {"auto", "0", "-40"}) {
        config_.max_tags = max_tags;
        config_.offset = offset;
        open();
        RunResult lists = run_;
        correlate_lists(reader_, config_, lists);
        const RunResult way = result(kNoLists);
        EXPECT_EQ(way.histogram.counts, lists.histogram.counts) << offset << " " << max_tags;
        EXPECT_EQ(way.histogram.bin_center_ps, lists.histogram.bin_center_ps);
        EXPECT_EQ(way.window.offset_ps, lists.window.offset_ps) << offset << " " << max_tags;
        EXPECT_EQ(way.channel_counts, lists.channel_counts);
        EXPECT_EQ(way.decoded_tags, lists.decoded_tags);
      }
    }
    config_.max_tags = 0;
  }
  bool streams() {
    open();
    config_.offset = "0";
    RunResult run = run_;
    return correlate_stream(reader_, config_, run);
  }
  bool passes() {
    open();
    RunResult run = run_;
    return correlate_in_passes(reader_, config_, run);
  }

  StreamFileReader reader_;
  Config config_;
  RunResult run_;
};

/// `count` tags of channels 0 and 1 in turn, 1 ns apart; those of channel 1 come `delay_ps` after their partner.
Tags pairs(std::size_t count, std::int64_t delay_ps) {
  Tags tags;
  for (std::size_t i = 0; i < count; ++i) {
    const auto time_ps = 1'000'000 + static_cast<std::int64_t>(i / 2) * 2000;
    tags.push_back(i % 2 == 0 ? TimeTag{0, time_ps} : TimeTag{1, time_ps + delay_ps});
  }
  return tags;
}

/// Three reads and a little, of all channels at random.
Tags long_stream(std::uint64_t seed) {
  Random random(seed);
  Tags tags;
  std::int64_t time_ps = 5'000'000;
  while (tags.size() < 400'000) {
    time_ps += static_cast<std::int64_t>(random.below(4000));
    tags.push_back({static_cast<std::uint8_t>(random.below(3)), time_ps});
    if (random.below(2) == 0) tags.push_back({1, time_ps + 130 + static_cast<std::int64_t>(random.below(50))});
  }
  return tags;
}

TEST_F(Correlation, OfALongCaptureInOrderIsThatOfLists) {
  write(long_stream(1));
  EXPECT_TRUE(streams());
  EXPECT_TRUE(passes());
  expect_as_from_lists();
  config_.range_ps = 30'000;  // too wide for bins of 1 ps: a third pass
  config_.bin_ps = 70;
  expect_as_from_lists();
}

TEST_F(Correlation, OfASlightlyDisorderedCaptureIsThatOfLists) {
  Random random(2);
  Tags tags = long_stream(2);
  for (TimeTag& tag : tags) tag.time_ps -= static_cast<std::int64_t>(random.below(1'000'000));
  write(tags);
  EXPECT_TRUE(streams());
  EXPECT_TRUE(passes());
  expect_as_from_lists();
}

TEST_F(Correlation, OfATooDisorderedCaptureFallsBackToLists) {
  Tags tags = long_stream(3);
  std::rotate(tags.begin(), tags.begin() + 250'000, tags.end());
  write(tags);
  EXPECT_FALSE(streams());
  EXPECT_FALSE(passes());
  expect_as_from_lists();
  std::reverse(tags.begin(), tags.end());
  write(tags);
  EXPECT_FALSE(streams());
  EXPECT_FALSE(passes());
  expect_as_from_lists();
}

TEST_F(Correlation, OfAChannelWhoseOnlyTagComesAtTheEndIsThatOfLists) {
  Tags tags = pairs(500'000, 0);
  for (TimeTag& tag : tags) tag.channel = 0;
  tags.push_back({1, tags.back().time_ps - 300});
  write(tags);
  EXPECT_TRUE(streams());
  EXPECT_TRUE(passes());
  expect_as_from_lists();
  tags.back().time_ps = 2'000'300;  // long forgotten
  write(tags);
  EXPECT_FALSE(streams());
  EXPECT_FALSE(passes());
  expect_as_from_lists();
}

TEST_F(Correlation, OfChannelsADayApartIsThatOfLists) {
  // Times as the format has them wrap: a quarter of a wrap is as far as a raw64 stream can hold them apart.
  Tags tags = pairs(400'000, 0);
  for (TimeTag& tag : tags) tag.time_ps += tag.channel == 1 ? 3'578'781'499'392 : 0;
  write(tags);
  EXPECT_TRUE(streams());
  EXPECT_TRUE(passes());
  expect_as_from_lists();
}

TEST_F(Correlation, OfAnEmptyChannelIsThatOfLists) {
  Tags tags = pairs(300'000, 50);
  for (TimeTag& tag : tags) tag.channel = static_cast<std::uint8_t>(2 * tag.channel);
  write(tags);
  EXPECT_TRUE(streams());
  EXPECT_TRUE(passes());
  expect_as_from_lists();
  write({});
  expect_as_from_lists();
}

// The guess comes from the first read; from there on B is 3 us later.
TEST_F(Correlation, AGuessThatWasWrongCostsAPassAndNoCount) {
  Tags tags = pairs(131'072, 7);
  Tags later = pairs(400'000, 900);
  for (TimeTag& tag : later) tag.time_ps += 300'000'000;
  tags.insert(tags.end(), later.begin(), later.end());
  write(tags);
  config_.range_ps = 20;
  EXPECT_EQ(result(kNoLists).window.offset_ps, 900);
  expect_as_from_lists();
}

// Worked out by hand: every A has its B 123 ps after it.
TEST_F(Correlation, InPassesFindsTheDelayOfEveryPair) {
  write(pairs(400'000, 123));
  config_.range_ps = 16;
  const RunResult run = result(kNoLists);
  EXPECT_EQ(run.window.offset_ps, 123);
  EXPECT_THAT(run.histogram.counts, testing::ElementsAre(0, 0, 200'000, 0, 0));
  EXPECT_EQ(run.decoded_tags, 400'000u);
}

TEST_F(Correlation, AnOffsetThatIsNoNumberFailsAfterDecoding) {
  for (const Tags& tags : {pairs(300'000, 5), Tags{}}) {
    write(tags);
    for (const char* offset : {"none", "", "x12"}) {
      config_.offset = offset;
      EXPECT_EQ(failure_of([&] { result(kMostListedBytes); }), "invalid_argument: stoll");
      EXPECT_FALSE(reader_.decode_next_tags(1, 1 << 20).size()) << "all was decoded";
    }
    config_.offset = "9223372036854775808";
    EXPECT_EQ(failure_of([&] { result(kMostListedBytes); }), "out_of_range: stoll");
  }
}

TEST_F(Correlation, TooManyBinsFailAfterDecoding) {
  write(pairs(300'000, 5));
  config_.range_ps = INT64_MAX;
  config_.bin_ps = 1;
  for (const char* offset : {"0", "auto"}) {
    for (const std::uint64_t most_listed_bytes : {kNoLists, kMostListedBytes}) {
      config_.offset = offset;
      EXPECT_EQ(failure_of([&] { result(most_listed_bytes); }), "length_error: vector::reserve");
    }
  }
}

TEST_F(Correlation, APipeIsReadOnceIntoLists) {
  const Bytes capture = [&] {
    write(long_stream(4));
    const std::string text = read_file(run_.source);
    return Bytes(text.begin(), text.end());
  }();
  for (const char* offset : {"auto", "130"}) {
    config_.offset = offset;
    const RunResult from_file = result(kNoLists);
    fs::remove(run_.source);
    ASSERT_EQ(::mkfifo(run_.source.c_str(), 0600), 0);
    std::thread writer([&] { write_file(run_.source, capture); });
    const RunResult from_pipe = result(kNoLists);
    writer.join();
    EXPECT_EQ(from_pipe.histogram.counts, from_file.histogram.counts);
    EXPECT_EQ(from_pipe.window.offset_ps, from_file.window.offset_ps);
    EXPECT_EQ(from_pipe.decoded_tags, from_file.decoded_tags);
    fs::remove(run_.source);
    write_file(run_.source, capture);
  }
}

class ChangesBetweenPasses : public Correlation {
 protected:
  ChangesBetweenPasses() {
    write(long_stream(5));
    open();
  }
  void extend() const {
    const Bytes more = ps_record(0, 3'000'000'000);
    std::ofstream out(run_.source, std::ios::binary | std::ios::app);
    out.write(reinterpret_cast<const char*>(more.data()), 8);
  }
  void truncate() const { fs::resize_file(run_.source, fs::file_size(run_.source) / 2); }
  void replace() const {
    const std::string text = read_file(run_.source);
    write_file(cwd() / "other", Bytes(text.begin(), text.end()));
    fs::rename(cwd() / "other", run_.source);
  }
  void touch() const { set_age(run_.source, std::chrono::hours(5)); }
};

TEST_F(ChangesBetweenPasses, AreNoticedByTheNextStep) {
  const std::vector<std::function<void()>> changes{[this] { extend(); }, [this] { truncate(); },
                                                   [this] { replace(); }, [this] { touch(); }};
  for (const auto& change : changes) {
    open();
    CapturePasses after_survey(reader_, config_, run_);
    EXPECT_TRUE(after_survey.survey());
    change();
    EXPECT_FALSE(after_survey.estimate());

    config_.range_ps = 30'000;  // for a third pass
    open();
    CapturePasses after_estimate(reader_, config_, run_);
    EXPECT_TRUE(after_estimate.survey());
    EXPECT_TRUE(after_estimate.estimate());
    change();
    EXPECT_FALSE(after_estimate.count());
  }
}

TEST_F(ChangesBetweenPasses, OtherTagsOfTheSameSizeAndDateAreNoticed) {
  CapturePasses passes(reader_, config_, run_);
  EXPECT_TRUE(passes.survey());
  const auto written = fs::last_write_time(run_.source);
  const Bytes other = ps_record(3, 3'000'000'000);
  std::fstream file(run_.source, std::ios::binary | std::ios::in | std::ios::out);
  file.seekp(-8, std::ios::end);
  file.write(reinterpret_cast<const char*>(other.data()), 8);
  file.close();
  fs::last_write_time(run_.source, written);
  EXPECT_FALSE(passes.estimate());
}

TEST_F(ChangesBetweenPasses, ADateThatIsANanosecondLaterIsNoticed) {
  CapturePasses passes(reader_, config_, run_);
  EXPECT_TRUE(passes.survey());
  fs::last_write_time(run_.source, fs::last_write_time(run_.source) + std::chrono::nanoseconds(1));
  EXPECT_FALSE(passes.estimate());
}

TEST_F(ChangesBetweenPasses, AnotherFileOfTheSameSizeAndDateIsNoticed) {
  CapturePasses passes(reader_, config_, run_);
  EXPECT_TRUE(passes.survey());
  const auto written = fs::last_write_time(run_.source);
  replace();
  fs::last_write_time(run_.source, written);
  EXPECT_FALSE(passes.estimate());
}

TEST_F(ChangesBetweenPasses, AChangeDuringTheFirstPassIsNoticedAtItsEnd) {
  CapturePasses passes(reader_, config_, run_);
  touch();
  EXPECT_FALSE(passes.survey());
}

TEST_F(ChangesBetweenPasses, AReplacedCaptureIsStillTheOneThatWasOpened) {
  const RunResult expected = result(kMostListedBytes);
  open();
  write_file(cwd() / "other", capture_bytes(R"({"stream_format":"raw64"})", ps_record(0, 5) + ps_record(1, 6)));
  fs::rename(cwd() / "other", run_.source);
  RunResult run = run_;
  correlate(reader_, config_, kNoLists, run);
  EXPECT_EQ(run.decoded_tags, expected.decoded_tags);
  EXPECT_EQ(run.histogram.counts, expected.histogram.counts);
}

// Reads that end amid records, and drops: each line once, in whatever way the capture is gone through.
TEST_F(Correlation, DebugLinesAreWrittenOnce) {
  PackedWriter payload(8);
  for (int i = 0; i < 300'000; ++i) {
    if (i % 1000 == 0)
      payload.anchor(0, 1000u + 100u * static_cast<unsigned>(i)).anchor(1, 1000u + 100u * static_cast<unsigned>(i));
    payload.data(0, 100).data(1, 100);
  }
  Bytes bytes = payload.bytes();
  for (std::size_t at = 400'000; at < bytes.size(); at += 300'000)
    bytes[at] = static_cast<std::uint8_t>(bytes[at] ^ 0xFF);
  write_file(
      run_.source,
      capture_bytes(
          R"({"stream_format":"packed_delta","mode":"internal","channel_mask":3,"packed_delta_config":{"delta_bits":8,"quantum_ps":8}})",
          bytes));
  open();
  const std::string once = debug_output_of([&] { collect_tags(reader_, 0); });
  EXPECT_GE(std::count(once.begin(), once.end(), '\n'), 2) << once;
  for (const char* offset : {"auto", "0", "none"}) {
    for (const std::uint64_t most_listed_bytes : {kNoLists, kMostListedBytes}) {
      config_.offset = offset;
      EXPECT_EQ(debug_output_of([&] { failure_of([&] { result(most_listed_bytes); }); }), once) << offset;
    }
  }
}

// 8 million tags, whose lists would take 64 MiB, with 48 MiB of memory for everything.
TEST_F(Correlation, OfACaptureOfAnySizeTakesLittleMemory) {
  if (kUnderAddressSanitizer) GTEST_SKIP() << "the sanitizer itself needs more address space";
  write(pairs(8'000'000, 123));
  config_.range_ps = 16;
  for (const char* offset : {"123", "auto"}) {
    config_.offset = offset;
    const pid_t child = ::fork();
    if (child == 0) {
      long pages = 0;
      std::ifstream("/proc/self/statm") >> pages;
      const auto most = static_cast<rlim_t>(pages * ::sysconf(_SC_PAGESIZE) + (48 << 20));
      const rlimit limit{most, most};
      if (::setrlimit(RLIMIT_AS, &limit) != 0) ::_exit(2);
      try {
        ::_exit(result(kMostListedBytes).histogram.counts[2] == 4'000'000 ? 0 : 3);  // lists do not fit: passes do
      } catch (const std::exception&) {
        ::_exit(4);
      }
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0) << offset;
  }
}

}  // namespace
