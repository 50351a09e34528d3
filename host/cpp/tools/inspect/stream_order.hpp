#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <span>

#include "orvo/timing/detail/device_time.hpp"
#include "orvo/timing/time_tag.hpp"

namespace {

/// A tag far before the one before it in the stream.
struct TimeJump {
  unsigned channel = 0;       ///< that is out of place
  std::int64_t time_ps = 0;   ///< of the tag after the jump
  std::uint64_t back_ps = 0;  ///< how far
};

/// A channel whose time lost device periods.
struct LostLap {
  TimeJump jump;
  std::uint64_t quiet_ps = 0;  ///< for how long the channel was silent before; 0 at its first tag
};

/// How many tags of a block each channel has, the time of its last one so far, and the step to that.
struct ChannelMarks {
  std::array<std::uint64_t, orvo::timing::kChannels> counts{};
  std::array<std::int64_t, orvo::timing::kChannels> latest_ps{};
  std::array<std::uint64_t, orvo::timing::kChannels> latest_steps_ps{};
};

/// How the tags of all channels follow one another. Their differences, but for long ones, add up to a clock that runs
/// on while a channel is silent and does not fall back when one is a lap late.
class StreamOrder {
 public:
  static constexpr std::int64_t kJumpPs = 1'000'000'000;  // 1 ms

  explicit StreamOrder(bool raw64) : raw64_(raw64) {}

  /// The next tags: a channel, 0 to 3, and a time each.
  void add(std::span<const std::uint8_t> channels, std::span<const std::int64_t> times_ps) {
    if (times_ps.empty()) return;
    if (place_.seen == 0) place_.previous_ps = times_ps[0];
    Place place = place_;  // in registers: a store could change a member, for all the compiler knows
    for (std::size_t i = 0; i < times_ps.size(); ++i) {
      const std::uint64_t step =
          static_cast<std::uint64_t>(times_ps[i]) - static_cast<std::uint64_t>(place.previous_ps);
      if (step + kJumpPs < std::uint64_t{kShortPs} + std::uint64_t{kJumpPs}) {
        place.clock += step;
        place.previous_step = static_cast<std::int64_t>(step);
      } else {
        add_unusual(place, channels[i], times_ps[i]);
      }
      place.seen |= 1u << channels[i];
      place.previous_ps = times_ps[i];
      place.previous_channel = channels[i];
      clock_at_[channels[i]] = place.clock;
    }
    place_ = place;
  }

  /// The same for a block of which that is known: which channels it holds, and the last time of each.
  void add_block(const ChannelMarks& marks, std::span<const std::uint8_t> channels,
                 std::span<const std::int64_t> times_ps) {
    if (place_.seen == 0 || !are_near(times_ps)) {
      add(channels, times_ps);
      return;
    }
    // The differences add up to that of the first and the last time.
    const auto previous = static_cast<std::uint64_t>(place_.previous_ps);
    for (unsigned c = 0; c < orvo::timing::kChannels; ++c) {
      if (marks.counts[c] == 0) continue;
      place_.seen |= 1u << c;
      clock_at_[c] = place_.clock + (static_cast<std::uint64_t>(marks.latest_ps[c]) - previous);
    }
    place_.clock += static_cast<std::uint64_t>(times_ps.back()) - previous;
    place_.previous_step = times_ps.back() - (times_ps.size() == 1 ? place_.previous_ps : times_ps.rbegin()[1]);
    place_.previous_ps = times_ps.back();
    place_.previous_channel = channels.back();
  }

  std::uint64_t jumps() const { return jumps_; }
  /// The first one of a channel that is out of place.
  const std::optional<TimeJump>& first_jump(unsigned channel) const { return first_jumps_[channel]; }
  const std::optional<LostLap>& lost_lap(unsigned channel) const { return lost_laps_[channel]; }

 private:
  static constexpr std::int64_t kPeriodPs = static_cast<std::int64_t>(orvo::timing::detail::kDevicePeriodPs);
  static constexpr std::int64_t kShortPs = kPeriodPs / 8;

  struct Place {
    std::int64_t previous_ps = 0;
    std::int64_t previous_step = 0;
    unsigned previous_channel = 0;
    unsigned seen = 0;        // mask of the channels that had a tag
    std::uint64_t clock = 0;  // modulo 2^64
  };

  /// Whether all differences are well within what is neither long nor a jump: no bit beyond 2^40 ps, 1.1 s, is set
  /// in them after 2^29 ps, 0.5 ms, were added. Cheap, and enough for nearly all tags.
  bool are_near(std::span<const std::int64_t> times_ps) const {
    constexpr std::uint64_t kBackPs = std::uint64_t{1} << 29;
    constexpr unsigned kForwardBits = 40;
    static_assert(kBackPs < kJumpPs && std::int64_t{1} << kForwardBits <= kShortPs);
    std::uint64_t bits = 0;
    auto previous = static_cast<std::uint64_t>(place_.previous_ps);
    bits |= static_cast<std::uint64_t>(times_ps[0]) - previous + kBackPs;
    for (std::size_t i = 1; i < times_ps.size(); ++i) {
      bits |= static_cast<std::uint64_t>(times_ps[i]) - static_cast<std::uint64_t>(times_ps[i - 1]) + kBackPs;
    }
    return bits >> kForwardBits == 0;
  }

  /// A step that is long, or further back than 1 ms.
  void add_unusual(Place& place, unsigned channel, std::int64_t time_ps) {
    const std::int64_t step = difference(time_ps, place.previous_ps);
    if (step > -kShortPs && step < kShortPs) place.clock += static_cast<std::uint64_t>(step);
    if (step < -kJumpPs) add_jump(place, channel, time_ps, step);
    place.previous_step = step;
  }

  /// Saturates: times of damaged captures may lie anywhere.
  static std::int64_t difference(std::int64_t a, std::int64_t b) {
    std::int64_t result = 0;
    if (!__builtin_sub_overflow(a, b, &result)) return result;
    return a < b ? std::numeric_limits<std::int64_t>::min() : std::numeric_limits<std::int64_t>::max();
  }

  void add_jump(const Place& place, unsigned channel, std::int64_t time_ps, std::int64_t step) {
    ++jumps_;
    const std::uint64_t back = 0 - static_cast<std::uint64_t>(step);
    const bool other_was_ahead =
        place.previous_step > 0 && static_cast<std::uint64_t>(place.previous_step) >= back / 2;
    const TimeJump jump{other_was_ahead ? place.previous_channel : channel, time_ps, back};
    if (!first_jumps_[jump.channel]) first_jumps_[jump.channel] = jump;
    if (lost_laps_[channel]) return;
    const std::uint64_t quiet = place.clock - clock_at_[channel];
    if ((place.seen >> channel & 1) == 0) {
      if (!other_was_ahead) lost_laps_[channel] = {jump, 0};
    } else if (raw64_ && step < -kPeriodPs / 2 && quiet >= static_cast<std::uint64_t>(kPeriodPs / 2) &&
               quiet <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
      lost_laps_[channel] = {jump, quiet};
    }
  }

  bool raw64_;
  Place place_;
  std::array<std::uint64_t, orvo::timing::kChannels> clock_at_{};
  std::uint64_t jumps_ = 0;
  std::array<std::optional<TimeJump>, orvo::timing::kChannels> first_jumps_;
  std::array<std::optional<LostLap>, orvo::timing::kChannels> lost_laps_;
};

}  // namespace
