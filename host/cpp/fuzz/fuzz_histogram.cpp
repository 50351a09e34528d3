// The histogram of any times with any settings is that of the reference, from sorted and from unsorted lists; peak
// and moments are its own.
//
//   form | range, or with bit 0 of the form, half bins (2) and a rest | bin | offset | list A | list B | pairs to
//   add: an A event (1), a number of half bins (2), a rest (1)
//   bit 1 of the form: the lists are made from a few parameters; bits 2 to 4: there may be many times and bins
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "fuzz/support/input.hpp"
#include "fuzz/support/made_times.hpp"
#include "fuzz/support/require.hpp"
#include "fuzz/support/time_lists.hpp"
#include "orvo/timing/xcorr_histogram.hpp"
#include "reference/histogram.hpp"
#include "support/as_reference.hpp"

namespace {

using orvo::fuzz::require;
using orvo::timing::XcorrHistogram;
using orvo::timing::XcorrWindow;
namespace reference = orvo::test::reference;
using Times = std::vector<std::int64_t>;

/// Most inputs stay small, or there would be few of them.
struct Limits {
  std::int64_t bins;
  std::size_t times;
  std::size_t made_times;
  std::size_t pairs;
};
constexpr Limits kFew{200, 60, 160, 2'000};
constexpr Limits kMany{2'500, 150, 3'000, 30'000};

/// Ranges of some half bins and a rest, so that fuzzing meets windows whose ends and bins' ends nearly agree.
XcorrWindow read_window(orvo::fuzz::Input& input, bool in_half_bins, const Limits& limits) {
  const std::uint64_t half_bins = in_half_bins ? input.number(2) % (2 * static_cast<std::uint64_t>(limits.bins)) : 0;
  const std::int64_t rest = in_half_bins ? static_cast<std::int8_t>(input.byte()) : input.integer();
  const std::int64_t bin_ps = input.integer();
  const auto range_ps = half_bins * (static_cast<std::uint64_t>(bin_ps) / 2) + static_cast<std::uint64_t>(rest);
  return {static_cast<std::int64_t>(range_ps), bin_ps, input.integer()};
}

/// B events some half bins away from where an A event expects its partner, give or take: where rounding is decided.
void add_pairs(orvo::fuzz::Input& input, const XcorrWindow& window, const Times& a, Times& b, std::size_t most) {
  while (!input.empty() && !a.empty() && b.size() < most) {
    const auto partner =
        static_cast<std::uint64_t>(a[input.byte() % a.size()]) + static_cast<std::uint64_t>(window.offset_ps);
    const auto half_bins = static_cast<std::uint64_t>(static_cast<std::int16_t>(input.number(2)));
    const auto rest = static_cast<std::uint64_t>(static_cast<std::int8_t>(input.byte()));
    b.push_back(
        static_cast<std::int64_t>(partner + half_bins * (static_cast<std::uint64_t>(window.bin_ps) / 2) + rest));
  }
}

/// True when there are no more pairs than `most`: lists of a few parameters may have millions.
bool has_few_pairs(Times a, Times b, const XcorrWindow& window, std::size_t most) {
  std::sort(a.begin(), a.end());
  std::sort(b.begin(), b.end());
  std::size_t first = 0, last = 0, pairs = 0;
  for (const std::int64_t time_ps : a) {
    const reference::Wide center = reference::Wide{time_ps} + window.offset_ps;
    while (first < b.size() && b[first] < center - window.range_ps) ++first;
    while (last < b.size() && b[last] <= center + window.range_ps) ++last;
    pairs += last - std::min(first, last);
    if (pairs > most) return false;
  }
  return true;
}

bool same(const XcorrHistogram& a, const reference::Histogram& b) {
  return a.bin_center_ps == b.centers && a.counts == b.counts;
}

void check_statistics(const XcorrHistogram& histogram) {
  const reference::Statistics expected = reference::statistics({histogram.bin_center_ps, histogram.counts});
  require(histogram.peak().count == expected.peak_count && histogram.peak().center_ps == expected.peak_ps,
          "the peak is the first highest bin");
  const orvo::timing::XcorrMoments moments = orvo::timing::xcorr_moments(histogram);
  require(moments.total == expected.total && moments.mean_ps == expected.mean_ps &&
              moments.sigma_ps == expected.rms_ps && moments.fwhm_ps == expected.fwhm_ps,
          "the moments are the reference's");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  orvo::fuzz::Input input(data, size);
  const std::uint8_t form = input.byte();
  const Limits& limits = (form & 0x1C) == 0x1C ? kMany : kFew;
  const XcorrWindow window = read_window(input, (form & 1) != 0, limits);
  const reference::Wide bins = reference::number_of_bins(window.range_ps, window.bin_ps);
  if (bins > limits.bins) return 0;
  Times a, b;
  if ((form & 2) == 0) {
    a = orvo::fuzz::time_list(input, limits.times);
    b = orvo::fuzz::time_list(input, limits.times);
    add_pairs(input, window, a, b, limits.times);
  } else {
    a = orvo::fuzz::made_times(input, limits.made_times);
    b = input.flag() ? orvo::fuzz::made_times(input, limits.made_times)
                     : orvo::fuzz::answering_times(input, a, window.offset_ps);
    if (!has_few_pairs(a, b, window, limits.pairs)) return 0;
  }

  const reference::Histogram expected = reference::histogram(a, b, orvo::test::as_reference(window));
  const Times a_before = a;
  const Times b_before = b;
  const XcorrHistogram histogram =
      orvo::timing::xcorr_histogram(a, b, window.range_ps, window.bin_ps, window.offset_ps);
  require(same(histogram, expected), "the histogram is the reference's");
  require(a == a_before && b == b_before, "the lists are left alone");
  std::sort(a.begin(), a.end());
  std::sort(b.begin(), b.end());
  require(same(orvo::timing::xcorr_histogram_sorted(a, b, window), expected), "sorted lists give the same");
  check_statistics(histogram);
  return 0;
}
