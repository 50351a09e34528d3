// Whole conversions in process: from every encoding to every other, selections, changes, joins, headers, failures.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "convert/conversion.hpp"
#include "support/random.hpp"

namespace {

using orvo::timing::StreamFileHeader;
using orvo::timing::StreamFormat;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

constexpr std::int64_t kPeriodPs = 14'315'125'997'568;  // 3333 * 2^32
constexpr std::int64_t kLapPs = 2'199'023'255'552;      // 2^41

std::vector<std::pair<std::string, StreamFileHeader>> all_encodings() {
  return {{"raw64", raw64_header()},
          {"delta32", delta32_header()},
          {"packed_delta", packed_header({.delta_bits = 20, .quantum_ps = 1})}};
}

TEST_F(Conversion, KeepsEveryTagFromAnyEncodingToAny) {
  const Tags tags = tags_in_turn(1, orvo::test::rounds(300'000), 0, 100'000);
  for (const auto& [from, header] : all_encodings()) {
    write_capture("in.tagcap", header, tags);
    for (const std::string to : {"raw64", "delta32", "packed_delta"}) {
      SCOPED_TRACE(from + " to " + to);
      expect_same(converted({"--encoding", to}), tags);
    }
    expect_same(converted({}), tags);
    EXPECT_EQ(header_of("out.tagcap").stream_format, header.stream_format);
  }
}

TEST_F(Conversion, TellsByHowMuchTheAxisIsOff) {
  const Tags tags = tags_in_turn(2, 5'000, kLapPs + 1'000'000, 1'000);
  write_capture("in.tagcap", raw64_header(), tags);
  const Converted result = convert({"--encoding=delta32"}, {"in.tagcap", "out.tagcap"});
  EXPECT_THAT(result.out, HasSubstr("axis_ps=-2199023255552\n"));
  Tags again = tags_of("out.tagcap");
  for (auto& tag : again) tag.time_ps += kLapPs;
  expect_same(again, tags);
}

TEST_F(Conversion, TellsWhatWasWritten) {
  write_capture("in.tagcap", raw64_header(), {tag(0, 100), tag(1, 110), tag(0, 90)});
  const Converted result = convert({}, {"in.tagcap", "out.tagcap"});
  EXPECT_THAT(result.out, HasSubstr("\ntags=3\nch0=2\nch1=1\nch2=0\nch3=0\nfirst_ps=100\nlast_ps=90\nbytes="));
  EXPECT_THAT(result.out, HasSubstr("\nverified=yes\n"));
  EXPECT_EQ(result.err, "");
  EXPECT_THAT(convert({"--force", "--verify=off"}, {"in.tagcap", "out.tagcap"}).out, HasSubstr("\nverified=no\n"));
}

TEST_F(Conversion, CarriesTheHeaderOverFieldByField) {
  StreamFileHeader header = packed_header({.delta_bits = 18, .quantum_ps = 12, .channel_mask = 0b0111});
  header.mode = orvo::timing::StreamMode::internal;
  header.stream_transport = orvo::timing::StreamTransport::usb_async;
  header.tdl_index = 9;
  header.created_utc = "2025-03-07T09:05:01.000042Z";
  header.application = "daq";
  header.device_product = "p";
  header.device_serial = "s";
  header.device_port = "x";
  Tags tags;
  for (int i = 0; i < 300; ++i) tags.push_back(tag(static_cast<unsigned>(i % 3), 8 * i));
  write_capture("in.tagcap", header, tags);
  EXPECT_EQ(converted({}), tags);
  StreamFileHeader expected = header;
  expected.application = header_of("out.tagcap").application;
  EXPECT_EQ(header_of("out.tagcap"), expected);
  EXPECT_THAT(expected.application, AllOf(StartsWith("vq_convert_stream_file "), HasSubstr(" of in.tagcap; daq")));

  converted({"--encoding=raw64", "--tag-format=ps", "--channels=0,2", "--swap=2,3"});
  expected.application = header_of("out.tagcap").application;
  expected.stream_format = StreamFormat::raw64;
  expected.raw64_tag_format = "ps";
  expected.channel_mask = 0b1001;
  EXPECT_EQ(header_of("out.tagcap"), expected);
}

TEST_F(Conversion, ChoosesTheFinestFormWhereTheEncodingChanges) {
  write_capture("in.tagcap", raw64_header(), tags_in_turn(3, 1'000, 0, 10'000));
  converted({"--encoding=packed_delta"});
  EXPECT_EQ(header_of("out.tagcap").quantum_ps, 1);
  converted({"--encoding=packed_delta", "--delta-bits=25", "--quantum-ps=8", "--round"});
  EXPECT_EQ(header_of("out.tagcap").quantum_ps, 8);
  EXPECT_EQ(header_of("out.tagcap").delta_bits, 25);
}

TEST_F(Conversion, RoundsOnRequestAndTellsIt) {
  write_capture("in.tagcap", raw64_header(), {tag(0, 16), tag(1, 19), tag(0, 20), tag(1, 40)});
  const std::vector<std::string> to_quanta{"--encoding=packed_delta", "--quantum-ps=8"};
  const Converted refused = convert(to_quanta, {"in.tagcap", "out.tagcap"});
  EXPECT_EQ(refused.status, 1);
  EXPECT_EQ(refused.err, "PackedDeltaEncoder: channel 1 at 19 ps: the time lies between two quanta\n");
  EXPECT_FALSE(std::filesystem::exists(path("out.tagcap")));
  const Converted rounded =
      convert({"--encoding=packed_delta", "--quantum-ps=8", "--round"}, {"in.tagcap", "out.tagcap"});
  EXPECT_THAT(rounded.out, HasSubstr("\nrounded_tags=2\nrounded_by_up_to_ps=4\n"));
  EXPECT_EQ(tags_of("out.tagcap"), (Tags{tag(0, 16), tag(1, 16), tag(0, 24), tag(1, 40)}));
  convert({"--tag-format=raw_cf", "--round", "--force"}, {"in.tagcap", "out.tagcap"});
  EXPECT_EQ(tags_of("out.tagcap"), (Tags{tag(0, 21), tag(1, 21), tag(0, 21), tag(1, 40)}));
}

TEST_F(Conversion, CutsByTimeFromTheFirstTag) {
  const Tags tags = tags_in_turn(4, 300'000, 5'000'000'000, 1'000'000);
  write_capture("in.tagcap", raw64_header(), tags);
  Tags expected;
  for (const auto& tag : tags) {
    const std::int64_t at_ps = tag.time_ps - tags.front().time_ps;
    if (at_ps >= 2'000'000'000 && at_ps < 3'000'000'000) expected.push_back(tag);
  }
  ASSERT_GT(expected.size(), 1'000u);
  expect_same(converted({"--from=2ms", "--duration=1ms"}), expected);
  expect_same(converted({"--from=2ms", "--to=3ms", "--encoding=delta32"}), expected);
}

TEST_F(Conversion, SelectsAndChanges) {
  write_capture("in.tagcap", raw64_header(), {tag(0, 100), tag(1, 140), tag(2, 150), tag(1, 160), tag(0, 170)});
  EXPECT_EQ(converted({"--channels=0,1", "--skip-tags=1", "--tags=2"}), (Tags{tag(1, 140), tag(1, 160)}));
  EXPECT_EQ(converted({"--shift=1=-35ps", "--swap=1,2"}),
            (Tags{tag(0, 100), tag(2, 105), tag(1, 150), tag(2, 125), tag(0, 170)}));
  EXPECT_EQ(converted({"--shift=1=-35ps", "--sort=40ps"}),
            (Tags{tag(0, 100), tag(1, 105), tag(1, 125), tag(2, 150), tag(0, 170)}));
}

TEST_F(Conversion, GivesACaptureWithoutTagsForARangeThatHoldsNone) {
  write_capture("in.tagcap", raw64_header(), {tag(0, 100)});
  for (const char* encoding : {"raw64", "delta32", "packed_delta"}) {
    const Converted result = convert({"--from=1s", "--force", "--encoding", encoding}, {"in.tagcap", "out.tagcap"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "no tag was taken: " + path("out.tagcap") + " has none\n");
    EXPECT_EQ(tags_of("out.tagcap"), Tags{});
  }
}

TEST_F(Conversion, JoinsWhatItHasCut) {
  const Tags tags = tags_in_turn(5, 20'000, kPeriodPs - 1'000'000'000'000, 240'000'000);
  write_capture("in.tagcap", raw64_header(), tags);
  for (const std::string encoding : {"raw64", "packed_delta"}) {
    EXPECT_EQ(convert({"--tags=7000", "--force", "--encoding", encoding}, {"in.tagcap", "a.tagcap"}).status, 0);
    EXPECT_EQ(
        convert({"--skip-tags=7000", "--tags=6000", "--force", "--encoding", encoding}, {"in.tagcap", "b.tagcap"})
            .status,
        0);
    EXPECT_EQ(convert({"--skip-tags=13000", "--force", "--encoding", encoding}, {"in.tagcap", "c.tagcap"}).status, 0);
    expect_same(converted({}, {"a.tagcap", "b.tagcap", "c.tagcap"}), tags);
  }
}

TEST_F(Conversion, JoinsWithAGap) {
  write_capture("a.tagcap", raw64_header(), {tag(0, 100), tag(1, 500), tag(0, 400)});
  write_capture("b.tagcap", delta32_header(), {tag(2, 70), tag(2, 90)});
  EXPECT_EQ(
      converted({"--gap=10ns"}, {"a.tagcap", "b.tagcap", "b.tagcap"}),
      (Tags{tag(0, 100), tag(1, 500), tag(0, 400), tag(2, 10'500), tag(2, 10'520), tag(2, 20'520), tag(2, 20'540)}));
  EXPECT_EQ(header_of("out.tagcap").channel_mask, 15);
}

TEST_F(Conversion, ReplacesNothingUnasked) {
  write_capture("in.tagcap", raw64_header(), {tag(0, 100)});
  write_file(path("out.tagcap"), "mine");
  const Converted refused = convert({}, {"in.tagcap", "out.tagcap"});
  EXPECT_EQ(refused.status, 64);
  EXPECT_EQ(refused.err, "OUT: " + path("out.tagcap") + " exists (--force replaces it)\n");
  EXPECT_EQ(read_file(path("out.tagcap")), "mine");
  EXPECT_EQ(convert({"--force"}, {"in.tagcap", "out.tagcap"}).status, 0);
  EXPECT_EQ(tags_of("out.tagcap"), Tags{tag(0, 100)});
}

TEST_F(Conversion, NeverWritesToAnInput) {
  write_capture("in.tagcap", raw64_header(), {tag(0, 100)});
  const std::string before = read_file(path("in.tagcap"));
  std::filesystem::create_symlink(path("in.tagcap"), path("link.tagcap"));
  std::filesystem::create_hard_link(path("in.tagcap"), path("hard.tagcap"));
  for (const char* out : {"in.tagcap", "link.tagcap", "hard.tagcap"}) {
    const Converted refused = convert({"--force"}, {"in.tagcap", out});
    EXPECT_EQ(refused.status, 64);
    EXPECT_EQ(refused.err, "OUT: is the same file as " + path("in.tagcap") + "\n");
  }
  EXPECT_EQ(read_file(path("in.tagcap")), before);
}

TEST_F(Conversion, LeavesNothingBehindWhenItFails) {
  write_capture("in.tagcap", raw64_header(), {tag(0, 100), tag(0, 50)});
  const Converted late = convert({"--encoding=delta32"}, {"in.tagcap", "out.tagcap"});
  EXPECT_EQ(late.status, 1);
  EXPECT_EQ(late.err, "Delta32Encoder: channel 0 at 50 ps: it is earlier than its channel's last tag\n");
  EXPECT_EQ(convert({}, {"nowhere.tagcap", "out.tagcap"}).err,
            "StreamFileReader: cannot open " + path("nowhere.tagcap") + "\n");
  EXPECT_EQ(convert({}, {"in.tagcap", "nowhere/out.tagcap"}).err,
            "cannot create " + path("nowhere/out.tagcap") + "\n");
  EXPECT_EQ(convert({}, {"in.tagcap", "nowhere/out.csv"}).err, "cannot create " + path("nowhere/out.csv") + "\n");
  EXPECT_EQ(convert({"--delta-bits=9"}, {"in.tagcap", "out.tagcap"}).status, 64);
  std::vector<std::string> left;
  for (const auto& entry : std::filesystem::directory_iterator(directory())) left.push_back(entry.path().filename());
  EXPECT_THAT(left, testing::ElementsAre("in.tagcap"));
}

TEST_F(Conversion, WhatLiesBeforeThePackedLockIsNoLoss) {
  const auto header = packed_header({});
  Bytes payload = encoded(header, tags_in_turn(6, 5'000, 0, 10'000), {.anchor_every = 100});
  payload.insert(payload.begin(), 100, 0xFF);  // a sync start inside its own sequence
  write_file(path("in.tagcap"), capture_bytes(orvo::timing::stream_header_to_json(header), payload));
  const Converted result = convert({}, {"in.tagcap", "out.tagcap"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_THAT(result.out, HasSubstr("\ntags="));
}

TEST_F(Conversion, KeepsWhatDecodesOfDamageAndTellsTheLoss) {
  const Tags tags = tags_in_turn(6, 100, 0, 1'000);
  Bytes payload = encoded(raw64_header(), tags);
  payload.insert(payload.begin() + 80, {0xFF, 0xFF, 0xFF});
  payload.resize(payload.size() - 5);
  write_file(path("in.tagcap"), capture_bytes(orvo::timing::stream_header_to_json(raw64_header()), payload));
  const Converted result = convert({}, {"in.tagcap", "out.tagcap"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, path("in.tagcap") + ": 2 losses: 6 bytes gave no tags\n");
  expect_same(tags_of("out.tagcap"), Tags(tags.begin(), tags.end() - 1));
}

TEST_F(Conversion, WritesATable) {
  write_capture("in.tagcap", raw64_header("raw_cf"),
                {tag(0, 0), tag(3, 6'666), tag(2, -3'332), tag(1, 3'333'000'000'000)});
  EXPECT_EQ(convert({}, {"in.tagcap", "out.csv"}).status, 0);
  EXPECT_EQ(read_file(path("out.csv")), "channel,time_ps\n0,0\n3,6666\n2,-3332\n1,3333000000000\n");
  EXPECT_EQ(convert({"--from=5s"}, {"in.tagcap", "empty.csv"}).status, 0);
  EXPECT_EQ(read_file(path("empty.csv")), "channel,time_ps\n");
}

TEST_F(Conversion, WritesAnArray) {
  write_capture("in.tagcap", raw64_header(), {tag(3, 0x0102030405), tag(0, 7)});
  EXPECT_EQ(convert({}, {"in.tagcap", "out.npy"}).status, 0);
  const std::string array = read_file(path("out.npy"));
  std::string expected("\x93NUMPY\x01\x00\x76\x00", 10);
  expected += "{'descr': [('channel', '|u1'), ('time_ps', '<i8')], 'fortran_order': False, 'shape': (2,), }";
  expected += std::string(127 - expected.size(), ' ') + "\n";
  expected += std::string("\x03\x05\x04\x03\x02\x01\x00\x00\x00\x00\x07\x00\x00\x00\x00\x00\x00\x00", 18);
  EXPECT_EQ(array, expected);
}

}  // namespace
