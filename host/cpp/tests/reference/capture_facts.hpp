#pragma once
// What the tags of a capture tell, the slow and obvious way: from all tags at once, each number on its own.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <numeric>
#include <vector>

namespace orvo::test::reference {

/// A tag of a list in stream order. `loss_before`: something was lost between the channel's last tag and this one.
struct SeenTag {
  unsigned channel = 0;
  std::int64_t time_ps = 0;
  bool loss_before = false;
};

/// A whole number of any size, 32 bits at a time, the lowest first.
using Big = std::vector<std::uint32_t>;

inline Big times(const Big& a, std::uint64_t b) {
  Big product(a.size() + 2);
  for (unsigned half = 0; half < 2; ++half) {
    const std::uint64_t factor = b >> 32 * half & 0xFFFF'FFFF;
    std::uint64_t carry = 0;
    for (std::size_t i = 0; i + half < product.size(); ++i) {
      const std::uint64_t sum = (i < a.size() ? factor * a[i] : 0) + product[i + half] + carry;
      product[i + half] = static_cast<std::uint32_t>(sum);
      carry = sum >> 32;
    }
  }
  while (!product.empty() && product.back() == 0) product.pop_back();
  return product;
}

inline Big power(std::uint64_t base, unsigned exponent) {
  Big result{1};
  for (unsigned i = 0; i < exponent; ++i) result = times(result, base);
  return result;
}

inline bool less(const Big& a, const Big& b) {
  if (a.size() != b.size()) return a.size() < b.size();
  return std::lexicographical_compare(a.rbegin(), a.rend(), b.rbegin(), b.rend());
}

/// The bin of a step: 10^bin <= step^8 < 10^(bin + 1).
inline std::size_t bin_of(std::uint64_t step) {
  static const std::vector<Big> powers_of_ten = [] {
    std::vector<Big> powers{{1}};
    while (powers.size() < 160) powers.push_back(times(powers.back(), 10));
    return powers;
  }();
  const auto beyond = std::upper_bound(powers_of_ten.begin(), powers_of_ten.end(), power(step, 8), less);
  return static_cast<std::size_t>(beyond - powers_of_ten.begin()) - 1;
}

/// How far apart two times are, whichever is later.
inline std::uint64_t distance(std::int64_t a, std::int64_t b) {
  return a > b ? static_cast<std::uint64_t>(a) - static_cast<std::uint64_t>(b)
               : static_cast<std::uint64_t>(b) - static_cast<std::uint64_t>(a);
}

struct SlowChannel {
  std::uint64_t tags = 0, backward = 0, largest_backward = 0, equal = 0, shortest = 0, longest = 0, grid = 0;
  std::int64_t first = 0, last = 0, longest_start = 0;
  std::vector<std::uint64_t> intervals = std::vector<std::uint64_t>(155);
  std::vector<std::uint64_t> ranked;  ///< longest first
};

inline SlowChannel slow_channel(const std::vector<SeenTag>& all, unsigned channel) {
  std::vector<SeenTag> tags;
  std::copy_if(all.begin(), all.end(), std::back_inserter(tags),
               [&](const SeenTag& t) { return t.channel == channel; });
  SlowChannel found;
  found.tags = tags.size();
  if (tags.empty()) return found;
  found.first = found.last = tags[0].time_ps;
  for (const SeenTag& tag : tags) found.first = std::min(found.first, tag.time_ps);
  for (const SeenTag& tag : tags) found.last = std::max(found.last, tag.time_ps);
  for (std::size_t i = 1; i < tags.size(); ++i) {
    const std::uint64_t step = distance(tags[i].time_ps, tags[i - 1].time_ps);
    found.grid = std::gcd(found.grid, step);
    if (tags[i].time_ps == tags[i - 1].time_ps) ++found.equal;
    if (tags[i].time_ps < tags[i - 1].time_ps) {
      ++found.backward;
      found.largest_backward = std::max(found.largest_backward, step);
    }
    if (tags[i].time_ps > tags[i - 1].time_ps) {
      found.shortest = found.shortest == 0 ? step : std::min(found.shortest, step);
      if (step > found.longest) found.longest = step, found.longest_start = tags[i - 1].time_ps;
      ++found.intervals[bin_of(step)];
    }
    const auto onward = [&](std::size_t j) {
      return j < 1 || j >= tags.size() || tags[j].time_ps >= tags[j - 1].time_ps;
    };
    if (onward(i - 1) && onward(i) && onward(i + 1) && !tags[i].loss_before) found.ranked.push_back(step);
  }
  std::sort(found.ranked.rbegin(), found.ranked.rend());
  return found;
}

/// Counts of the smallest slices, of a power of two, of which 2048 hold all tags.
struct SlowTrace {
  unsigned shift = 0;
  std::int64_t first_slice = 0;
  std::vector<std::vector<std::uint64_t>> counts = std::vector<std::vector<std::uint64_t>>(4);
};

inline SlowTrace slow_trace(const std::vector<SeenTag>& tags) {
  SlowTrace trace;
  if (tags.empty()) return trace;
  std::int64_t lowest = tags[0].time_ps;
  std::int64_t highest = tags[0].time_ps;
  for (const SeenTag& tag : tags) lowest = std::min(lowest, tag.time_ps);
  for (const SeenTag& tag : tags) highest = std::max(highest, tag.time_ps);
  while (distance(highest >> trace.shift, lowest >> trace.shift) >= 2048) ++trace.shift;
  trace.first_slice = lowest >> trace.shift;
  for (auto& counts : trace.counts) counts.resize(distance(highest >> trace.shift, trace.first_slice) + 1);
  for (const SeenTag& tag : tags) {
    ++trace.counts[tag.channel][static_cast<std::size_t>((tag.time_ps >> trace.shift) - trace.first_slice)];
  }
  return trace;
}

}  // namespace orvo::test::reference
