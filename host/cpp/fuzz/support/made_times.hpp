#pragma once
// Lists of up to thousands of times from a few bytes of a fuzz input: dense or sparse, even or in bursts, and in any
// degree of order.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

#include "fuzz/support/input.hpp"

namespace orvo::fuzz {

/// Leaves the times as they are, or puts them out of order: neighbours here and there, runs, or all of them.
///
///   order | seed (1)
inline void put_out_of_order(Input& input, std::vector<std::int64_t>& times) {
  const std::uint8_t order = input.byte();
  std::minstd_rand random(1 + input.byte());
  const std::size_t reach = 1 + order / 8 % 8;
  switch (order % 8) {
    case 0:
    case 1:
      break;
    case 2:
      std::reverse(times.begin(), times.end());
      break;
    case 3:
      std::shuffle(times.begin(), times.end(), random);
      break;
    case 4:  // two runs, as of two streams that were joined
      std::rotate(times.begin(), times.begin() + static_cast<std::ptrdiff_t>(times.size() / (1 + reach)),
                  times.end());
      break;
    case 5:  // a single time far from its place
      if (!times.empty()) std::swap(times[random() % times.size()], times[random() % times.size()]);
      break;
    default:  // many of them, a few places off
      for (std::size_t i = 0; i + reach < times.size(); ++i) {
        if (random() % 8 == 0) std::swap(times[i], times[i + 1 + random() % reach]);
      }
  }
}

/// At most `most` times, whose steps are random up to a longest one.
///
///   count (2) | first | longest step | length of a burst of equal times, mostly none | seed (1) | order (2)
inline std::vector<std::int64_t> made_times(Input& input, std::size_t most) {
  std::vector<std::int64_t> times(input.number(2) % (most + 1));
  auto at = static_cast<std::uint64_t>(input.integer());
  const auto longest_step = static_cast<std::uint64_t>(input.integer());
  const std::uint8_t form = input.byte();
  const std::size_t burst = form < 192 ? 1 : form % 64 + 1;
  std::minstd_rand random(1 + input.byte());
  for (std::size_t i = 0; i < times.size(); ++i) {
    if (i % burst == 0) at += longest_step == 0 ? 0 : random() * std::uint64_t{0x9E37'79B9} % longest_step;
    times[i] = static_cast<std::int64_t>(at);
  }
  put_out_of_order(input, times);
  return times;
}

/// For most of the times one that comes some delay later, give or take, as of a second detector.
///
///   jitter (2) | losses (1) | seed (1) | order (2)
inline std::vector<std::int64_t> answering_times(Input& input, const std::vector<std::int64_t>& times,
                                                 std::int64_t delay_ps) {
  const auto jitter_ps = std::uint64_t{input.byte()} << (input.byte() % 48);
  const std::uint8_t losses = input.byte();
  std::minstd_rand random(1 + input.byte());
  std::vector<std::int64_t> answers;
  for (const std::int64_t time_ps : times) {
    if (random() % 256 < losses) continue;
    const std::uint64_t beside_ps = jitter_ps == 0 ? 0 : random() % (2 * jitter_ps) - jitter_ps;
    answers.push_back(static_cast<std::int64_t>(static_cast<std::uint64_t>(time_ps) +
                                                static_cast<std::uint64_t>(delay_ps) + beside_ps));
  }
  put_out_of_order(input, answers);
  return answers;
}

}  // namespace orvo::fuzz
