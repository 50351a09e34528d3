#pragma once
// Pairs of unrelated tags that a histogram holds by chance.
//
// Two channels of steady rates r_A and r_B that were recorded together for the time O(t) when one is moved by the
// delay t give r_A r_B O(t) pairs for each picosecond of delay. O(t) rises, is level and falls again in straight
// lines:
//
//          ____________         O(t) = max(0, min(end_A, end_B - t) - max(begin_A, begin_B - t))
//         /            \            corners: begin_B - end_A, begin_B - begin_A, end_B - end_A, end_B - begin_A
//   _____/              \____
//
// A bin holds the sum over its whole delays, which is an arithmetic series between two corners.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "orvo/timing/detail/bin_layout.hpp"
#include "orvo/timing/detail/wide_integer.hpp"
#include "orvo/timing/xcorr_window.hpp"

namespace orvo::timing {

/// The tags of a channel and the time for which it was recorded, from an origin that both channels share.
struct ChannelRecording {
  double begin_ps = 0;
  double end_ps = 0;
  double tags = 0;

  double length_ps() const { return end_ps - begin_ps; }
};

struct PairRecording {
  ChannelRecording a;
  ChannelRecording b;
};

namespace detail {

/// The whole differences b - a - offset that one bin of a histogram holds.
struct BinSpan {
  Int128 first;
  Int128 last;
};

inline BinSpan bin_span(const XcorrWindow& window, std::uint64_t bin) {
  const BinLayout layout(window);
  if (!window.is_valid()) return {0, -1};
  const Int128 width = window.bin_ps;
  const Int128 range = window.range_ps;
  const Int128 k = Int128{bin} - Int128{layout.half()};
  if (k == 0) return {-std::min((width - 1) / 2, range), std::min((width - 1) / 2, range)};
  const Int128 distance = k < 0 ? -k : k;
  const Int128 nearest = distance * width - width / 2;
  const Int128 farthest = std::min(nearest + width - 1, range);
  return k > 0 ? BinSpan{nearest, farthest} : BinSpan{-farthest, -nearest};
}

/// Sum of a function over the whole numbers `first` to `last`, where it is a straight line between the ascending
/// corners and beyond the outermost.
template <class Function>
double sum_of_lines(Int128 first, Int128 last, std::span<const double> corners, Function&& line) {
  const auto series = [&](Int128 from, Int128 to) {
    if (to < from) return 0.0;
    return static_cast<double>(to - from + 1) * (line(static_cast<double>(from)) + line(static_cast<double>(to))) / 2;
  };
  double sum = 0;
  for (const double corner : corners) {
    if (corner >= static_cast<double>(last)) break;
    if (corner < static_cast<double>(first)) continue;
    const Int128 to = static_cast<Int128>(std::floor(corner));
    sum += series(first, to);
    first = to + 1;
  }
  return sum + series(first, last);
}

}  // namespace detail

/// The delays, offset removed, in the middle of each bin: (least + greatest whole delay) / 2. Not the bin's centre:
/// with an even width half a picosecond nearer to 0, and outer bins are cut by the range.
inline std::vector<double> bin_middles_ps(const XcorrWindow& window) {
  std::vector<double> middles(detail::BinLayout(window).bins());
  for (std::size_t bin = 0; bin < middles.size(); ++bin) {
    const detail::BinSpan span = detail::bin_span(window, bin);
    middles[bin] = window.is_valid() ? static_cast<double>(span.first + span.last) / 2 : 0;
  }
  return middles;
}

/// For how long both channels were recorded when B is taken as earlier by `delay_ps`.
inline double common_time_ps(const PairRecording& recording, double delay_ps) {
  const double begin = std::max(recording.a.begin_ps, recording.b.begin_ps - delay_ps);
  return std::max(0.0, std::min(recording.a.end_ps, recording.b.end_ps - delay_ps) - begin);
}

/// Pairs expected by chance in each bin of `xcorr_histogram`, for steady rates; exact for known recording times. All
/// 0 for a window that is not valid, or a channel without tags or length.
inline std::vector<double> chance_pairs(const PairRecording& recording, const XcorrWindow& window) {
  const auto& [a, b] = recording;
  std::vector<double> expected(detail::BinLayout(window).bins());
  const double area = a.length_ps() * b.length_ps();
  if (!window.is_valid() || !(area > 0) || !(a.tags > 0) || !(b.tags > 0)) return expected;
  std::array corners{b.begin_ps - a.end_ps, b.begin_ps - a.begin_ps, b.end_ps - a.end_ps, b.end_ps - a.begin_ps};
  std::sort(corners.begin(), corners.end());
  for (std::size_t bin = 0; bin < expected.size(); ++bin) {
    const detail::BinSpan span = detail::bin_span(window, bin);
    const double time = detail::sum_of_lines(span.first + window.offset_ps, span.last + window.offset_ps, corners,
                                             [&](double delay) { return common_time_ps(recording, delay); });
    expected[bin] = a.tags / a.length_ps() * (b.tags / b.length_ps()) * time;
  }
  return expected;
}

namespace detail {

/// Moves the ends of a channel whose tags begin late or end early.
inline void narrow_to_channel(ChannelRecording& channel, double first_ps, double last_ps, double span_ps) {
  constexpr double kFewTags = 20;
  constexpr double kLongSilence = 14;  // mean gaps: by chance once in a million times
  if (channel.tags < kFewTags) return;
  const double gap_ps = (last_ps - first_ps) / (channel.tags - 1);
  if (first_ps > kLongSilence * gap_ps) channel.begin_ps = first_ps - gap_ps;
  if (span_ps - last_ps > kLongSilence * gap_ps) channel.end_ps = last_ps + gap_ps;
}

inline double difference_ps(std::int64_t to, std::int64_t from) {
  return static_cast<double>(Int128{to} - Int128{from});
}

}  // namespace detail

/// Where the tags of a channel begin and end, and how many there are: all that recording times are told from.
struct ChannelExtent {
  std::int64_t first_ps = 0;
  std::int64_t last_ps = 0;
  std::uint64_t tags = 0;

  void add(std::int64_t time_ps) {
    first_ps = tags == 0 ? time_ps : std::min(first_ps, time_ps);
    last_ps = tags == 0 ? time_ps : std::max(last_ps, time_ps);
    ++tags;
  }
};

/// The recording times as the tags tell them. Times count from the first tag of either. What N tags that span S lack
/// at either end is a mean gap, S / (N - 2), which is added there. A channel of at least 20 tags that is silent at an
/// end for more than 14 of its mean gaps begins or ends there by itself; shorter silences pass unnoticed.
inline PairRecording recording_of(const ChannelExtent& a, const ChannelExtent& b) {
  PairRecording recording{{0, 1, static_cast<double>(a.tags)}, {0, 1, static_cast<double>(b.tags)}};
  if (a.tags == 0 && b.tags == 0) return recording;
  const std::int64_t first = std::min(a.tags == 0 ? b.first_ps : a.first_ps, b.tags == 0 ? a.first_ps : b.first_ps);
  const std::int64_t last = std::max(a.tags == 0 ? b.last_ps : a.last_ps, b.tags == 0 ? a.last_ps : b.last_ps);
  const double span_ps = detail::difference_ps(last, first);
  const double tags = recording.a.tags + recording.b.tags;
  const double margin_ps = tags < 3 || span_ps <= 0 ? 0 : span_ps / (tags - 2);
  for (ChannelRecording* channel : {&recording.a, &recording.b}) {
    const ChannelExtent& extent = channel == &recording.a ? a : b;
    channel->begin_ps = -margin_ps;
    channel->end_ps = std::max(span_ps, 1.0) + margin_ps;
    if (extent.tags == 0) continue;
    detail::narrow_to_channel(*channel, detail::difference_ps(extent.first_ps, first),
                              detail::difference_ps(extent.last_ps, first), span_ps);
  }
  return recording;
}

/// Of a list in ascending order.
inline ChannelExtent extent_of(std::span<const std::int64_t> times_ps) {
  return times_ps.empty() ? ChannelExtent{} : ChannelExtent{times_ps.front(), times_ps.back(), times_ps.size()};
}

/// The recording times of two lists in ascending order.
inline PairRecording recording_of(std::span<const std::int64_t> a_ps, std::span<const std::int64_t> b_ps) {
  return recording_of(extent_of(a_ps), extent_of(b_ps));
}

}  // namespace orvo::timing
