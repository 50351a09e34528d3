// The streaming correlator counts what the reference histogram of all tags counts, unless it reports late tags; and
// it reports none while every tag is within reach of those before it.
//
//   range, bin, offset, reach | channels A and B (1) | list A | list B | pieces: channels to take from (1)
//   bits 0 and 1 of a piece: take from A, from B; bits 2 to 6: how many of each; bit 7: read the counts after it
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "fuzz/support/input.hpp"
#include "fuzz/support/require.hpp"
#include "fuzz/support/time_lists.hpp"
#include "orvo/timing/xcorr_stream.hpp"
#include "reference/histogram.hpp"
#include "support/as_reference.hpp"

namespace {

using orvo::fuzz::require;
using orvo::timing::TimeTag;
namespace reference = orvo::test::reference;
using Times = std::vector<std::int64_t>;

constexpr std::int64_t kMostBins = 200;
constexpr std::size_t kMostTimes = 80;

/// Tells whether all tags were within reach of the latest of earlier pieces.
class ReachCheck {
 public:
  explicit ReachCheck(std::int64_t reach_ps) : reach_ps_(std::max<std::int64_t>(reach_ps, 0)) {}

  void take(std::span<const TimeTag> tags) {
    const reference::Wide before = latest_ps_;
    for (const TimeTag& tag : tags) {
      within_reach_ = within_reach_ && tag.time_ps >= before - reach_ps_;
      latest_ps_ = std::max(latest_ps_, reference::Wide{tag.time_ps});
    }
  }
  bool within_reach() const { return within_reach_; }

 private:
  reference::Wide reach_ps_;
  reference::Wide latest_ps_ = -(reference::Wide{1} << 100);
  bool within_reach_ = true;
};

/// Moves up to `most` times of a list to the tags.
void move_times(std::span<const std::int64_t>& from, std::size_t most, unsigned channel, std::vector<TimeTag>& to) {
  const auto taken = from.first(std::min(most, from.size()));
  for (const std::int64_t time_ps : taken) to.push_back({static_cast<std::uint8_t>(channel), time_ps});
  from = from.subspan(taken.size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  orvo::fuzz::Input input(data, size);
  orvo::timing::XcorrPair pair;
  pair.window.range_ps = input.integer();
  pair.window.bin_ps = input.integer();
  pair.window.offset_ps = input.integer();
  const std::int64_t reach_ps = input.integer();
  const std::uint8_t channels = input.byte();
  pair.channel_a = channels % 4;
  pair.channel_b = channels / 4 % 4;
  const reference::Wide bins = reference::number_of_bins(pair.window.range_ps, pair.window.bin_ps);
  if (bins > kMostBins || !reference::fits_64_bits(bins / 2 * pair.window.bin_ps)) return 0;
  const Times a = orvo::fuzz::time_list(input, kMostTimes);
  const Times b = orvo::fuzz::time_list(input, kMostTimes);

  orvo::timing::XcorrStream stream(pair, reach_ps);
  ReachCheck reach(reach_ps);
  std::span<const std::int64_t> a_left = a;
  std::span<const std::int64_t> b_left = b;
  while (!a_left.empty() || !b_left.empty()) {
    const std::uint8_t piece = input.empty() ? 0x7F : input.byte();
    std::vector<TimeTag> tags;
    if ((piece & 1) != 0) move_times(a_left, piece / 4 % 32, pair.channel_a, tags);
    if ((piece & 2) != 0) move_times(b_left, piece / 4 % 32, pair.channel_b, tags);
    stream.take(tags);
    reach.take(tags);
    if ((piece & 0x80) != 0) stream.histogram();
  }
  stream.finish();

  require(stream.total() == a.size() + b.size(), "every tag is counted as one");
  require(stream.waiting() == 0, "after the end nothing waits");
  require(stream.late_tags() == 0 || !reach.within_reach(), "no tag within reach is late");
  if (stream.late_tags() != 0) return 0;
  Times of_a = a;
  Times of_b = b;
  if (pair.channel_a == pair.channel_b) {
    of_a.insert(of_a.end(), b.begin(), b.end());
    of_b = of_a;
  }
  const auto expected = reference::histogram(of_a, of_b, orvo::test::as_reference(pair.window));
  require(stream.histogram().counts == expected.counts && stream.histogram().bin_center_ps == expected.centers,
          "the counts are those of all tags at once");
  return 0;
}
