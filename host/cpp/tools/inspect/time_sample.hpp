#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "orvo/timing/chance_pairs.hpp"
#include "orvo/timing/detail/wide_integer.hpp"

namespace {

/// A sample of a channel's tags, spread over all of its recording: one of so many stretches of time. Which one
/// differs from group to group, so that no rhythm of the light keeps in step.
class TimeSample {
 public:
  using Int128 = orvo::timing::detail::Int128;

  struct Stretch {
    Int128 begin_ps = 0;
    Int128 end_ps = 0;  ///< after it
  };

  /// Of tags that are between the first and the last of `extent`. One of one is all of them.
  TimeSample(const orvo::timing::ChannelExtent& extent, std::uint64_t one_of) : begin_ps_(extent.first_ps) {
    if (one_of <= 1 || extent.tags == 0) return;
    constexpr std::uint64_t kTagsOfStretch = 4096;  // fewer take more time each
    one_of_ = one_of;
    groups_ = std::clamp<std::uint64_t>(extent.tags / one_of / kTagsOfStretch, 256, 1024);
    const auto span_ps = static_cast<std::uint64_t>(extent.last_ps) - static_cast<std::uint64_t>(extent.first_ps);
    length_ps_ = span_ps / (groups_ * one_of_) + 1;
  }

  bool is_all() const { return one_of_ == 1; }

  /// The first stretch that ends after `from_ps`; none after the last one, and none of everything.
  std::optional<Stretch> stretch_after(Int128 from_ps) const {
    if (is_all()) return std::nullopt;
    const Int128 group_ps = Int128{length_ps_} * one_of_;
    const Int128 since_ps = std::clamp<Int128>(from_ps - begin_ps_, 0, group_ps * groups_);
    for (auto group = static_cast<std::uint64_t>(since_ps / group_ps); group < groups_; ++group) {
      const Int128 first_ps = begin_ps_ + group * group_ps + Int128{length_ps_} * place_in(group);
      if (first_ps + length_ps_ > from_ps) return Stretch{first_ps, first_ps + length_ps_};
    }
    return std::nullopt;
  }

 private:
  std::uint64_t place_in(std::uint64_t group) const {
    constexpr std::uint64_t kGoldenRatio = 0x9E37'79B9'7F4A'7C15;  // whose multiples spread evenly, without a rhythm
    return ((group + 1) * kGoldenRatio >> 32) % one_of_;
  }

  Int128 begin_ps_ = 0;
  std::uint64_t length_ps_ = 1;
  std::uint64_t one_of_ = 1;
  std::uint64_t groups_ = 1;
};

/// Those of sorted times that are in a stretch.
inline std::span<const std::int64_t> times_in(std::span<const std::int64_t> times_ps,
                                              const TimeSample::Stretch& stretch) {
  const auto first = std::lower_bound(times_ps.begin(), times_ps.end(), stretch.begin_ps);
  return {first, std::lower_bound(first, times_ps.end(), stretch.end_ps)};
}

}  // namespace
