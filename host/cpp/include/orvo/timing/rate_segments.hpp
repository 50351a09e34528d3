#pragma once
// Pairs by chance when the rates of two channels drift: from the tags in short segments of the recording.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "orvo/timing/chance_pairs.hpp"
#include "orvo/timing/detail/bin_layout.hpp"
#include "orvo/timing/xcorr_window.hpp"

namespace orvo::timing {

/// Pairs of one delay that are known not to be by chance.
struct TruePairs {
  double pairs = 0;
  double delay_ps = 0;
};

/// How much more often the two channels are bright together than steady rates would be: 1 for steady or independent
/// rates.
struct CommonDrift {
  double factor = 1;
  double error = 0;

  /// Whether the factor is 1 within four standard deviations.
  bool is_steady() const { return !(std::abs(factor - 1) > 4 * error); }
};

/// Tags of both channels in consecutive segments of one length. Drifts are followed when a segment is at most a
/// fiftieth of their cycle.
struct RateSegments {
  double length_ps = 1;  ///< of a segment
  std::vector<double> a;
  std::vector<double> b;

  /// Sum of a[m] b[m + shift] over all segments; true pairs not taken off.
  double product(double shift) const {
    const auto segments = static_cast<double>(a.size());
    if (!(std::abs(shift) < segments)) return 0;
    const auto by = static_cast<std::ptrdiff_t>(shift);
    const auto from = static_cast<std::size_t>(std::max<std::ptrdiff_t>(-by, 0));
    const auto to = a.size() - static_cast<std::size_t>(std::max<std::ptrdiff_t>(by, 0));
    double sum = 0;
    for (std::size_t m = from; m < to; ++m) sum += a[m] * b[m + static_cast<std::size_t>(by)];
    return sum;
  }

  /// M (sum a[m] b[m] - P) / (N_A N_B - P), its error sqrt((M - 1) / (N_A N_B)), for P true pairs of a delay that is
  /// short against a segment.
  CommonDrift common_drift(double true_pairs) const {
    double tags_a = 0;
    double tags_b = 0;
    for (const double tags : a) tags_a += tags;
    for (const double tags : b) tags_b += tags;
    const auto segments = static_cast<double>(a.size());
    if (!(tags_a * tags_b > true_pairs) || a.size() < 2) return {};
    return {segments * (product(0) - true_pairs) / (tags_a * tags_b - true_pairs),
            std::sqrt((segments - 1) / (tags_a * tags_b))};
  }
};

/// Counts tags into segments of the time that both channels were recorded in, while they go by in any order. There
/// are as many segments as give 1000 tags to each on the rarer channel, 1 to 1024.
class RateSegmentCounter {
 public:
  /// For channels whose first and last times and numbers of tags are known already.
  RateSegmentCounter(const ChannelExtent& a, const ChannelExtent& b)
      : segments_{1, std::vector<double>(number(a, b)), std::vector<double>(number(a, b))} {
    if (a.tags == 0 || b.tags == 0) return;
    const PairRecording recording = recording_of(a, b);
    begin_ps_ = std::min(recording.a.begin_ps, recording.b.begin_ps);
    const double end_ps = std::max(recording.a.end_ps, recording.b.end_ps);
    segments_.length_ps = (end_ps - begin_ps_) / static_cast<double>(segments_.a.size());
    first_ps_ = std::min(a.first_ps, b.first_ps);
    has_both_ = true;
  }

  void add_a(std::span<const std::int64_t> times_ps) { add(times_ps, segments_.a); }
  void add_b(std::span<const std::int64_t> times_ps) { add(times_ps, segments_.b); }
  /// Without a tag as long as a channel has none.
  const RateSegments& segments() const { return segments_; }

 private:
  static std::size_t number(const ChannelExtent& a, const ChannelExtent& b) {
    return static_cast<std::size_t>(std::clamp<std::uint64_t>(std::min(a.tags, b.tags) / 1000, 1, 1024));
  }

  std::size_t segment_of(std::int64_t time_ps) const {
    const double segment = (detail::difference_ps(time_ps, first_ps_) - begin_ps_) / segments_.length_ps;
    return std::min(static_cast<std::size_t>(std::max(segment, 0.0)), segments_.a.size() - 1);
  }

  /// Blocks that lie within one segment, as most do, are counted at once.
  void add(std::span<const std::int64_t> times_ps, std::vector<double>& tags) const {
    constexpr std::size_t kBlock = 256;
    if (!has_both_) return;
    while (!times_ps.empty()) {
      const auto block = times_ps.first(std::min(kBlock, times_ps.size()));
      times_ps = times_ps.subspan(block.size());
      const auto [least, most] = std::minmax_element(block.begin(), block.end());
      const std::size_t segment = segment_of(*least);
      if (segment == segment_of(*most)) {
        tags[segment] += static_cast<double>(block.size());
      } else {
        for (const std::int64_t time_ps : block) tags[segment_of(time_ps)] += 1;
      }
    }
  }

  RateSegments segments_;
  double begin_ps_ = 0;
  std::int64_t first_ps_ = 0;
  bool has_both_ = false;
};

/// The segments of two lists in ascending order.
inline RateSegments rate_segments(std::span<const std::int64_t> a_ps, std::span<const std::int64_t> b_ps) {
  RateSegmentCounter counter(extent_of(a_ps), extent_of(b_ps));
  counter.add_a(a_ps);
  counter.add_b(b_ps);
  return counter.segments();
}

namespace detail {

/// Pairs by chance for each picosecond of delay.
class ChanceDensity {
 public:
  ChanceDensity(const RateSegments& rates, const TruePairs& true_pairs)
      : rates_(rates),
        true_pairs_(true_pairs.pairs),
        true_shift_(std::floor(true_pairs.delay_ps / rates.length_ps)),
        true_rest_(true_pairs.delay_ps / rates.length_ps - true_shift_) {}

  double at(double delay_ps) {
    const double shift = std::floor(delay_ps / rates_.length_ps);
    if (shift != shift_) {
      shift_ = shift;
      left_ = chance_product(shift);
      right_ = chance_product(shift + 1);
    }
    const double rest = delay_ps / rates_.length_ps - shift;
    return (left_ * (1 - rest) + right_ * rest) / rates_.length_ps;
  }

 private:
  double chance_product(double shift) const {
    double taken_off = 0;
    if (shift == true_shift_) taken_off = true_pairs_ * (1 - true_rest_);
    if (shift == true_shift_ + 1) taken_off = true_pairs_ * true_rest_;
    return std::max(rates_.product(shift) - taken_off, 0.0);
  }

  const RateSegments& rates_;
  double true_pairs_;
  double true_shift_;
  double true_rest_;
  double shift_ = std::nan("");  // of the two products
  double left_ = 0;
  double right_ = 0;
};

}  // namespace detail

/// As `chance_pairs`, for rates that drift. A delay t = q H + r, H being the length of a segment, 0 <= r < H, has the
/// density (S(q) (H - r) + S(q + 1) r) / H^2 with S(q) = sum of a[m] b[m + q], the true pairs taken off.
inline std::vector<double> chance_pairs(const RateSegments& rates, const XcorrWindow& window,
                                        const TruePairs& true_pairs = {}) {
  std::vector<double> expected(detail::BinLayout(window).bins());
  if (!window.is_valid() || !(rates.length_ps > 0)) return expected;
  detail::ChanceDensity density(rates, true_pairs);
  const auto segments = static_cast<double>(rates.a.size());
  std::vector<double> corners;
  for (std::size_t bin = 0; bin < expected.size(); ++bin) {
    const detail::BinSpan span = detail::bin_span(window, bin);
    const detail::Int128 first = span.first + window.offset_ps;
    const detail::Int128 last = span.last + window.offset_ps;
    corners.clear();
    double shift = std::max(std::floor(static_cast<double>(first) / rates.length_ps), -segments);
    for (; shift <= segments && shift * rates.length_ps < static_cast<double>(last); ++shift)
      corners.push_back(shift * rates.length_ps);
    expected[bin] = detail::sum_of_lines(first, last, corners, [&](double delay_ps) { return density.at(delay_ps); });
  }
  return expected;
}

}  // namespace orvo::timing
