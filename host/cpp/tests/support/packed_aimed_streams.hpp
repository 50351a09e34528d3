#pragma once
// Seeded packed_delta streams that walk along the limits of the decoding rules.
#include <algorithm>
#include <array>
#include <cstdint>

#include "support/packed_streams.hpp"
#include "support/streams.hpp"

namespace orvo::test {

/// Records in good order whose differences and times lie at the limits of the decoder's rules. `time` is where the
/// channel would stand if every difference were taken as it is; it only aims the values.
class AimedPacked {
 public:
  AimedPacked(Random& random, const PackedSettings& settings, std::uint64_t aim_every)
      : random_(random),
        settings_(settings),
        out_(settings.delta_bits),
        aim_every_(aim_every),
        sync_every_(random.between(10, 150)) {
    stray_bits(random, out_, 70);
  }

  const PackedWriter& with_events(std::size_t events) {
    for (std::size_t i = 0; i < events; ++i) {
      const std::uint32_t c = active_channel(random_, settings_.channel_mask);
      if (!has_time_[c] || random_.one_in(sync_every_)) {
        anchor(c);
      } else if (random_.one_in(20)) {
        stray_overflow(c);
      } else {
        difference(c);
      }
    }
    return out_;
  }

 private:
  static constexpr std::uint64_t kSmall = 10'000'000'000, kImplausible = 1'000'000'000'000, kBackward = 1'000'000;

  std::uint64_t to_period_end(std::uint32_t c) const { return kDevicePeriod - time_[c] % kDevicePeriod; }
  std::uint64_t small_quanta() { return random_.of_any_size(std::min(settings_.delta_bits + 2, 26u)); }

  void difference(std::uint32_t c) {
    std::uint64_t quanta = small_quanta();
    if (random_.one_in(aim_every_)) {
      const std::uint64_t step = settings_.wrap_step(), m = settings_.modulus();
      const std::uint64_t gap = near_one_of(random_, {m - kBackward, m - kBackward / 2, m / 2, m, step, step + kSmall,
                                                      step + to_period_end(c), kImplausible, step + kImplausible});
      quanta = (gap >> settings_.shift) + random_.below(3) - 1;
      if (random_.one_in(6)) quanta = random_.of_any_size(44);
    }
    if (out_.short_gap(c, quanta)) time_[c] += quanta << settings_.shift;
  }

  void anchor(std::uint32_t c) {
    std::uint64_t time = time_[c] + (small_quanta() << settings_.shift) + 1;
    if (!has_time_[c]) time = start_time(random_);
    if (has_time_[c] && random_.one_in(aim_every_)) {
      const std::uint64_t step = settings_.wrap_step(), zero = 0;
      time = time_[c] +
             near_one_of(random_, {0, zero - kBackward, zero - kBackward / 2, kImplausible, step, step + kSmall,
                                   step + to_period_end(c), settings_.modulus() / 2, kDevicePeriod / 2});
    }
    out_.sync(c, time % kDevicePeriod >> settings_.shift & k41Bits);
    while (random_.one_in(8)) between_sync_and_anchor(c);
    const std::uint64_t rest = random_.one_in(2) ? 0 : random_.below(4);
    out_.short_gap(c, rest);
    time_[c] = time + (rest << settings_.shift);
    has_time_[c] = true;
  }

  void between_sync_and_anchor(std::uint32_t c) {
    const std::uint32_t other = active_channel(random_, settings_.channel_mask);
    if (other != c && random_.one_in(4)) {
      out_.sync(other, random_.bits() & k41Bits);
    } else if (other != c) {
      out_.short_gap(other, small_quanta());
    } else {
      stray_overflow(c);
    }
  }

  void stray_overflow(std::uint32_t c) {
    const std::uint64_t all_ones = (std::uint64_t{1} << settings_.delta_bits) - 1;
    out_.record(c, true, random_.of_any_size(4) % all_ones);
  }

  Random& random_;
  PackedSettings settings_;
  PackedWriter out_;
  std::uint64_t aim_every_;
  std::uint64_t sync_every_;
  std::array<std::uint64_t, 4> time_{};
  std::array<bool, 4> has_time_{};
};

}  // namespace orvo::test
