#pragma once
// Part of vq_simulate_stream_file: file-local throughout.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "orvo/timing/error.hpp"
#include "orvo/timing/time_tag.hpp"
#include "simulate/settings.hpp"

namespace {

/// From events to stored tags: rounds times to the encoding's grid, and drops tags within the dead time of the
/// channel's last one, or at the same time.
template <class Grid>
class Detectors {
 public:
  /// A longer gap could be mistaken for a wrap of the device time.
  static constexpr std::int64_t kLongestGapPs = 1'000'000'000'000;

  Detectors(const Settings& settings, Grid grid) : grid_(grid) {
    for (unsigned c = 0; c < orvo::timing::kChannels; ++c) {
      shortest_gap_ps_[c] = std::max<std::int64_t>(settings.channels[c].dead_time_ps, 1);
      last_ps_[c] = settings.start_ps - shortest_gap_ps_[c] - kCoarsestStepPs;
    }
  }

  /// Turns events into tags, in place. Throws `Error` when a tag comes more than a second after the last one of its
  /// channel, or after the start.
  void detect(std::vector<orvo::timing::TimeTag>& events) {
    orvo::timing::TimeTag* kept = events.data();
    for (const orvo::timing::TimeTag& event : events) {
      const unsigned c = event.channel;
      const std::int64_t time_ps = grid_.stored(event.time_ps);
      const std::int64_t gap_ps = time_ps - last_ps_[c];
      if (gap_ps < shortest_gap_ps_[c]) continue;
      if (gap_ps > kLongestGapPs) throw silence(c, gap_ps);
      *kept++ = {event.channel, time_ps};
      last_ps_[c] = time_ps;
    }
    events.resize(static_cast<std::size_t>(kept - events.data()));
  }

 private:
  static constexpr std::int64_t kCoarsestStepPs = 32'768;

  static orvo::timing::Error silence(unsigned channel, std::int64_t gap_ps) {
    return {"channel " + std::to_string(channel) + " is silent for " + std::to_string(gap_ps) +
                " ps, more than a second: no encoding holds such a gap safely",
            orvo::timing::kInvalidArgument};
  }

  Grid grid_;
  std::array<std::int64_t, orvo::timing::kChannels> shortest_gap_ps_{};
  std::array<std::int64_t, orvo::timing::kChannels> last_ps_{};
};

}  // namespace
