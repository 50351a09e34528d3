// A search in passes over a capture comes to what a search in lists of its tags comes to.
#include "inspect/pass_source.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "inspect/pair_report.hpp"
#include "orvo/timing/time_tag.hpp"
#include "support/sanitizer.hpp"

namespace {

using orvo::timing::TimeTag;
using Tags = std::vector<TimeTag>;

/// Tags that can be gone through any number of times, in pieces, some of which are begun and discarded first.
struct Stream {
  Tags tags;
  std::size_t piece = 1000;
  std::array<orvo::timing::ChannelExtent, orvo::timing::kChannels> extents;
  int passes = 0;

  explicit Stream(Tags all) : tags(std::move(all)) {
    for (const TimeTag& tag : tags) extents[tag.channel].add(tag.time_ps);
  }
  orvo::timing::ChannelExtent extent(unsigned channel) const { return extents[channel]; }
  template <class Sink>
  void run(Sink& sink) {
    ++passes;
    for (std::size_t first = 0; first < tags.size(); first += piece) {
      const std::size_t end = std::min(first + piece, tags.size());
      if (first % 3 == 0) {
        sink.begin_chunk(1);
        sink.add(0, 77);
        sink.discard_chunk();
      }
      sink.begin_chunk(end - first);
      for (std::size_t i = first; i < end; ++i) sink.add(tags[i].channel, tags[i].time_ps);
      sink.end_chunk();
    }
  }
};

PairSearchSettings quick(std::int64_t reach_ps) {
  return {.reach_ps = reach_ps, .bins = std::size_t{1} << 14};
}

std::vector<ChannelPair> all_pairs() {
  return {{0, 1}, {0, 2}, {0, 3}, {1, 2}, {1, 3}, {2, 3}, {3, 0}};
}

std::vector<PairFinding> found_in_lists(const Tags& tags, const PairSearchSettings& settings) {
  std::array<std::vector<std::int64_t>, orvo::timing::kChannels> times;
  for (const TimeTag& tag : tags) times[tag.channel].push_back(tag.time_ps);
  for (auto& list : times) std::sort(list.begin(), list.end());
  const ChannelLists lists{times[0], times[1], times[2], times[3]};
  return find_in_lists(lists, all_pairs(), settings);
}

void expect_same(const std::vector<PairFinding>& passes, const std::vector<PairFinding>& lists) {
  ASSERT_EQ(passes.size(), lists.size());
  for (std::size_t i = 0; i < passes.size(); ++i) {
    EXPECT_EQ(json_of_pair(passes[i], "c").dump(), json_of_pair(lists[i], "c").dump());
    EXPECT_EQ(passes[i].statistics.bins.counts, lists[i].statistics.bins.counts);
    EXPECT_EQ(passes[i].statistics.bins.expected, lists[i].statistics.bins.expected);
    EXPECT_EQ(passes[i].statistics.drifting, lists[i].statistics.drifting);
    EXPECT_EQ(passes[i].overview.sigmas, lists[i].overview.sigmas);
  }
}

/// Four channels at random rates, some of them empty, drifting, pulsed or correlated, in an order that is not quite
/// that of time.
Tags random_tags(std::mt19937_64& random) {
  std::uniform_real_distribution<double> uniform(0, 1);
  const double length_ps = std::pow(10, 9 + 3 * uniform(random));
  const double period_ps = uniform(random) < 0.3 ? 12'500 : 1;
  const bool drifts = uniform(random) < 0.3;
  const auto time = [&] {
    const double at = drifts ? std::sqrt(uniform(random)) : uniform(random);
    return std::floor(at * length_ps / period_ps) * period_ps;
  };
  std::normal_distribution<double> jitter(0, 100);
  Tags tags;
  for (unsigned c = 0; c < orvo::timing::kChannels; ++c) {
    for (int i = static_cast<int>(std::pow(10, 4.3 * uniform(random))) - 2; i > 0; --i)
      tags.emplace_back(c, std::llround(time() + jitter(random)));
  }
  const double delay_ps = (uniform(random) - 0.5) * length_ps / 2;
  for (int i = static_cast<int>(4000 * uniform(random)) - 1000; i > 0; --i) {
    const double at = time();
    tags.emplace_back(1, std::llround(at + jitter(random)));
    tags.emplace_back(2, std::llround(at + delay_ps + jitter(random)));
  }
  // As instruments store them: any time, a power of two, or the steps of an interpolator in a clock's period.
  const std::int64_t grid_ps = std::array<std::int64_t, 4>{1, 1, 256, 3333}[random() % 4];
  for (TimeTag& tag : tags) {
    if (grid_ps == 256) tag.time_ps -= tag.time_ps % 256;
    if (grid_ps == 3333) tag.time_ps -= tag.time_ps % 3333 % 18;
  }
  std::vector<std::pair<double, TimeTag>> order;
  for (const TimeTag& tag : tags) order.emplace_back(static_cast<double>(tag.time_ps) + 2e7 * uniform(random), tag);
  std::sort(order.begin(), order.end(), [](const auto& x, const auto& y) { return x.first < y.first; });
  std::transform(order.begin(), order.end(), tags.begin(), [](const auto& each) { return each.second; });
  return tags;
}

TEST(PassSource, ComesToWhatListsComeTo) {
  constexpr int kSeeds = orvo::test::kUnderAddressSanitizer ? 6 : 16;
  int significant = 0;
  for (std::uint64_t seed = 1; seed <= kSeeds; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937_64 random(seed);
    Stream stream(random_tags(random));
    stream.piece = 1 + random() % 20'000;
    const PairSearchSettings settings = quick(static_cast<std::int64_t>(random() % 1'000'000'000'000));
    const std::vector<PairFinding> findings = find_in_passes(stream, all_pairs(), settings);
    expect_same(findings, found_in_lists(stream.tags, settings));
    for (const PairFinding& finding : findings) significant += finding.statistics.judgement.significant;
    EXPECT_LE(stream.passes, 14);
  }
  EXPECT_GT(significant, kSeeds * 10 / 16);
}

TEST(PassSource, OfNothingOrOneTagOrEqualTimesComesToWhatListsComeTo) {
  for (const Tags& tags : {Tags{}, Tags{{0, 5}}, Tags(3000, TimeTag(2, -7)), Tags{{0, 5}, {1, 5}, {2, INT64_MAX}},
                           Tags{{0, INT64_MIN}, {0, INT64_MAX}, {3, INT64_MIN}, {3, INT64_MAX}}}) {
    Stream stream(tags);
    expect_same(find_in_passes(stream, all_pairs(), quick(1'000'000'000)),
                found_in_lists(tags, quick(1'000'000'000)));
  }
}

TEST(PassSource, SaysSoWhenTagsAreTooFarOutOfOrder) {
  Tags tags;
  for (int i = 0; i < 100'000; ++i) tags.emplace_back(i % 2, std::int64_t{1'000'000} * i);
  for (int i = 0; i < 10; ++i) tags.emplace_back(i % 2, std::int64_t{50'000'000} * i);
  Stream stream(tags);
  EXPECT_THROW(find_in_passes(stream, {{0, 1}}, quick(1'000'000'000)), TooDisordered);
}

}  // namespace
