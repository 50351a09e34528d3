#pragma once
// Part of vq_convert_stream_file: file-local throughout.
#include <algorithm>
#include <cstdint>
#include <limits>
#include <optional>

#include "orvo/timing/detail/device_time.hpp"
#include "orvo/timing/detail/truncated_clock.hpp"
#include "orvo/timing/error.hpp"
#include "orvo/timing/stream_decoder_state.hpp"
#include "orvo/timing/stream_file_header.hpp"

namespace {

/// Where the times of an input lie that continues another one.
///
/// Without a gap the device's clock is taken to have run on. A capture says when it started only up to laps of its
/// clock, so of the times that its first tag can stand for the earliest is taken that does not lie before the end of
/// the input before; up to a millisecond before counts as a late tag.
class JoinedAxis {
 public:
  explicit JoinedAxis(std::optional<std::int64_t> gap_ps) : gap_ps_(gap_ps) {}

  /// What to add to the times of an input whose first tag is `first_ps` and that follows on times up to `latest_ps`.
  /// Throws `Error` when it would end after the end of all times.
  std::int64_t shift_ps(const orvo::timing::StreamFileHeader& header, std::int64_t first_ps,
                        std::int64_t latest_ps) const {
    std::int64_t shift = 0;
    const std::int64_t start_ps = gap_ps_ ? sum_ps(latest_ps, *gap_ps_) : continued_ps(header, first_ps, latest_ps);
    if (__builtin_sub_overflow(start_ps, first_ps, &shift)) fail();
    return shift;
  }

 private:
  static constexpr std::int64_t kLatePs = 1'000'000'000;

  static std::int64_t continued_ps(const orvo::timing::StreamFileHeader& header, std::int64_t first_ps,
                                   std::int64_t latest_ps) {
    using orvo::timing::detail::kDevicePeriodPs;
    if (first_ps >= latest_ps - kLatePs) return first_ps;
    const std::uint64_t lap_ps = lap_of(header);
    const std::uint64_t reading_ps = static_cast<std::uint64_t>(std::max<std::int64_t>(first_ps, 0)) % lap_ps;
    const std::uint64_t least_ps = static_cast<std::uint64_t>(std::max(latest_ps - kLatePs, std::int64_t{0}));
    // Laps start anew with each device period.
    std::uint64_t period_ps = least_ps / kDevicePeriodPs * kDevicePeriodPs;
    const std::uint64_t into_ps = least_ps - period_ps;
    const std::uint64_t laps = into_ps <= reading_ps ? 0 : (into_ps - reading_ps + lap_ps - 1) / lap_ps;
    std::uint64_t start_ps = period_ps + laps * lap_ps + reading_ps;
    if (start_ps >= period_ps + kDevicePeriodPs) start_ps = period_ps + kDevicePeriodPs + reading_ps;
    if (start_ps > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) fail();
    return static_cast<std::int64_t>(start_ps);
  }

  /// After this the clock of a capture starts anew.
  static std::uint64_t lap_of(const orvo::timing::StreamFileHeader& header) {
    using orvo::timing::detail::TruncatedClock;
    switch (header.stream_format) {
      case orvo::timing::StreamFormat::delta32:
        return TruncatedClock(0).lap_ps();
      case orvo::timing::StreamFormat::packed_delta:
        return TruncatedClock(orvo::timing::StreamDecoder(header).quantum_shift).lap_ps();
      case orvo::timing::StreamFormat::raw64:
        break;
    }
    return orvo::timing::detail::kDevicePeriodPs;
  }

  static std::int64_t sum_ps(std::int64_t a_ps, std::int64_t b_ps) {
    std::int64_t sum = 0;
    if (__builtin_add_overflow(a_ps, b_ps, &sum)) fail();
    return sum;
  }
  [[noreturn]] static void fail() {
    throw orvo::timing::Error("joined inputs end after the end of all times", orvo::timing::kInvalidArgument);
  }

  std::optional<std::int64_t> gap_ps_;
};

}  // namespace
