// Random captures through vq_inspect_stream_file, and the numbers of its JSON against those that are found the slow
// and obvious way: classes and losses of a payload that is painted bit by bit, facts of channels from all tags at
// once.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "orvo/timing/payload_loss.hpp"
#include "orvo/timing/stream_header_json.hpp"
#include "reference/capture_facts.hpp"
#include "reference/painted_payload.hpp"
#include "support/as_reference.hpp"
#include "support/inspected_capture.hpp"
#include "support/random_captures.hpp"

namespace {

using namespace orvo::test;
using reference::PaintedPayload;
using reference::SeenTag;

constexpr const char* kClassNames[] = {"records",      "skipped",    "events",         "events_without_time",
                                       "sync_words",   "time_bases", "extensions",     "markers",
                                       "broken_words", "searched",   "data",           "data_without_time",
                                       "overflow",     "sync",       "broken_records", "discarded",
                                       "before_lock",  "trimmed",    "padding",        "pending"};

class InspectReference : public InspectedCapture {
 protected:
  static void expect_classes(const Json& payload, const PaintedPayload& painted, const std::string& unit) {
    std::map<std::string, std::uint64_t> sizes;
    for (const Json& each : payload.at("classes")) sizes[each.at("class")] = each.at(unit);
    const auto expected = painted.sizes();
    for (std::size_t i = 0; i < std::size(kClassNames); ++i) {
      EXPECT_EQ(sizes.count(kClassNames[i]) == 0 ? 0 : sizes[kClassNames[i]], expected[i]) << kClassNames[i];
    }
  }

  static void expect_losses(const Json& payload, const PaintedPayload& painted, const std::string& unit) {
    std::map<std::string, std::pair<std::uint64_t, std::uint64_t>> tallies;
    std::vector<orvo::timing::PayloadLoss> largest = painted.losses;
    for (const orvo::timing::PayloadLoss& loss : largest) {
      auto& tally = tallies[std::string(to_text(loss.reason))];
      ++tally.first;
      tally.second += loss.size;
    }
    EXPECT_EQ(payload.at("losses").size(), tallies.size());
    for (const Json& each : payload.at("losses")) {
      EXPECT_EQ(each.at("count"), tallies[each.at("reason")].first) << each;
      EXPECT_EQ(each.at(unit), tallies[each.at("reason")].second) << each;
    }
    std::stable_sort(largest.begin(), largest.end(), [](const auto& a, const auto& b) { return a.size > b.size; });
    largest.resize(std::min<std::size_t>(largest.size(), 20));
    ASSERT_EQ(payload.at("largest_losses").size(), largest.size());
    for (std::size_t i = 0; i < largest.size(); ++i) {
      const Json& told = payload.at("largest_losses").at(i);
      EXPECT_EQ(told.at("reason"), std::string(to_text(largest[i].reason)));
      EXPECT_EQ(told.at("position"), largest[i].position);
      EXPECT_EQ(told.at("size"), largest[i].size);
    }
  }

  /// The value, or null where there is none.
  template <class Value>
  static Json or_null(bool any, Value value) {
    return any ? Json(value) : Json(nullptr);
  }

  static void expect_channel(const Json& channel, const std::vector<SeenTag>& tags, const Json& intervals) {
    const reference::SlowChannel slow = reference::slow_channel(tags, channel.at("channel"));
    const bool any = slow.tags != 0;
    const bool forward = slow.longest != 0;
    EXPECT_EQ(channel.at("tags"), slow.tags);
    EXPECT_EQ(channel.at("first_ps"), or_null(any, slow.first));
    EXPECT_EQ(channel.at("last_ps"), or_null(any, slow.last));
    EXPECT_EQ(channel.at("backward_steps"), slow.backward);
    EXPECT_EQ(channel.at("largest_backward_step_ps"), or_null(slow.backward != 0, slow.largest_backward));
    EXPECT_EQ(channel.at("equal_times"), slow.equal);
    EXPECT_EQ(channel.at("shortest_interval_ps"), or_null(forward, slow.shortest));
    EXPECT_EQ(channel.at("longest_interval_ps"), or_null(forward, slow.longest));
    EXPECT_EQ(channel.at("longest_interval_start_ps"), or_null(forward, slow.longest_start));
    EXPECT_EQ(channel.at("grid_ps"), slow.grid);
    EXPECT_EQ(intervals, Json(slow.intervals));
  }

  static void expect_tags(const Json& report, const std::vector<SeenTag>& tags) {
    EXPECT_EQ(report.at("tags"), tags.size());
    for (std::size_t c = 0; c < 4; ++c) {
      expect_channel(report.at("channels").at(c), tags, report.at("intervals").at("counts").at(c));
    }
    const reference::SlowTrace trace = reference::slow_trace(tags);
    const Json& rates = report.at("rates");
    EXPECT_EQ(rates.at("counts"), Json(trace.counts));
    if (tags.empty()) return;
    EXPECT_EQ(rates.at("slice_ps"), std::uint64_t{1} << trace.shift);
    EXPECT_EQ(rates.at("start_ps"), trace.first_slice << trace.shift);
    const auto [first, last] = std::minmax_element(
        tags.begin(), tags.end(), [](const SeenTag& a, const SeenTag& b) { return a.time_ps < b.time_ps; });
    EXPECT_EQ(report.at("time").at("first_ps"), first->time_ps);
    EXPECT_EQ(report.at("time").at("last_ps"), last->time_ps);
    EXPECT_EQ(report.at("time").at("duration_ps"), reference::distance(last->time_ps, first->time_ps));
  }
};

TEST_F(InspectReference, RandomCapturesAreWhatTheirPayloadsTell) {
  std::map<std::string, std::uint64_t> tags_of;
  const std::uint64_t captures = std::max<std::uint64_t>(rounds(60), 20);  // fewer may lack an encoding
  for (std::uint64_t seed = 0; seed < captures; ++seed) {
    Random random(seed);
    const std::string text = random_header(random);
    const orvo::timing::StreamFileHeader header = orvo::timing::stream_header_from_json(text);
    if (header.delta_bits > 31) continue;  // is not fed to a decoder
    const Bytes payload = random_payload_of(random, as_reference(header), 2'000);
    ASSERT_LT(payload.size(), std::size_t{1} << 20) << "more than one read";
    write(text, payload);
    PaintedPayload painted(header);
    std::vector<SeenTag> tags;
    for (const reference::Tag& tag : painted.feed(payload)) {
      tags.push_back({static_cast<unsigned>(tag.channel), tag.time_ps, false});
    }
    painted.finish();
    const Json found = report();
    const bool packed = header.stream_format == orvo::timing::StreamFormat::packed_delta;
    expect_classes(found.at("payload"), painted, packed ? "bits" : "bytes");
    expect_losses(found.at("payload"), painted, packed ? "bits" : "bytes");
    expect_tags(found, tags);
    tags_of[found.at("payload").at("encoding")] += tags.size();
    if (HasFailure()) FAIL() << "seed " << seed << "\n" << text;
  }
  for (const char* encoding : {"raw64", "delta32", "packed_delta"})
    EXPECT_GT(tags_of[encoding], rounds(2'000)) << encoding;
}

}  // namespace
