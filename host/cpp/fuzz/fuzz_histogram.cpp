// The histogram of any times with any settings is the plain one, from sorted and from unsorted lists; peak and
// moments are those of the model.
//
//   form | range, or with bit 0 of the form, half bins (2) and a rest | bin | offset | list A | list B | pairs to
//   add: an A event (1), a number of half bins (2), a rest (1)
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <vector>

#include "fuzz/support/input.hpp"
#include "fuzz/support/require.hpp"
#include "fuzz/support/time_lists.hpp"
#include "model/histogram_model.hpp"
#include "orvo/timing/xcorr_histogram.hpp"
#include "plain/xcorr_histogram_plain.hpp"

namespace {

using orvo::fuzz::require;
using orvo::timing::XcorrHistogram;
using orvo::timing::XcorrWindow;
namespace model = orvo::test::model;
using Times = std::vector<std::int64_t>;

constexpr std::int64_t kMostBins = 2'500;
constexpr std::size_t kMostTimes = 150;

/// Ranges of some half bins and a rest, so that fuzzing meets windows whose ends and bins' ends nearly agree.
XcorrWindow read_window(orvo::fuzz::Input& input) {
  const bool in_half_bins = input.flag();
  const std::uint64_t half_bins = in_half_bins ? input.number(2) % (2 * kMostBins) : 0;
  const std::int64_t rest = in_half_bins ? static_cast<std::int8_t>(input.byte()) : input.integer();
  const std::int64_t bin_ps = input.integer();
  const auto range_ps = half_bins * (static_cast<std::uint64_t>(bin_ps) / 2) + static_cast<std::uint64_t>(rest);
  return {static_cast<std::int64_t>(range_ps), bin_ps, input.integer()};
}

/// B events some half bins away from where an A event expects its partner, give or take: where rounding is decided.
void add_pairs(orvo::fuzz::Input& input, const XcorrWindow& window, const Times& a, Times& b) {
  while (!input.empty() && !a.empty() && b.size() < kMostTimes) {
    const auto partner =
        static_cast<std::uint64_t>(a[input.byte() % a.size()]) + static_cast<std::uint64_t>(window.offset_ps);
    const auto half_bins = static_cast<std::uint64_t>(static_cast<std::int16_t>(input.number(2)));
    const auto rest = static_cast<std::uint64_t>(static_cast<std::int8_t>(input.byte()));
    b.push_back(
        static_cast<std::int64_t>(partner + half_bins * (static_cast<std::uint64_t>(window.bin_ps) / 2) + rest));
  }
}

bool same(const XcorrHistogram& a, const XcorrHistogram& b) {
  return a.bin_center_ps == b.bin_center_ps && a.counts == b.counts;
}

/// The plain histogram. The outermost centres of the widest settings are no 64-bit numbers: there they wrap.
XcorrHistogram plain_histogram(const Times& a, const Times& b, const XcorrWindow& window) {
  const auto bins = static_cast<std::uint64_t>(model::number_of_bins(window.range_ps, window.bin_ps));
  const auto bin_ps = static_cast<std::uint64_t>(window.bin_ps);
  if (window.bin_ps < 1 || model::fits_64_bits(model::Wide{bins / 2} * window.bin_ps)) {
    return orvo::test::plain::xcorr_histogram(a, b, window);
  }
  XcorrHistogram histogram;
  for (std::uint64_t i = 0; i < bins; ++i)
    histogram.bin_center_ps.push_back(static_cast<std::int64_t>((i - bins / 2) * bin_ps));
  histogram.counts.resize(bins);
  orvo::test::plain::count_pairs(a, b, window, histogram);
  return histogram;
}

void check_statistics(const XcorrHistogram& histogram) {
  const model::Statistics expected = model::statistics({histogram.bin_center_ps, histogram.counts});
  require(histogram.peak().count == expected.peak_count && histogram.peak().center_ps == expected.peak_ps,
          "the peak is the first highest bin");
  const orvo::timing::XcorrMoments moments = orvo::timing::xcorr_moments(histogram);
  require(moments.total == expected.total && moments.mean_ps == expected.mean_ps &&
              moments.sigma_ps == expected.rms_ps && moments.fwhm_ps == expected.fwhm_ps,
          "the moments are the model's");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  orvo::fuzz::Input input(data, size);
  const XcorrWindow window = read_window(input);
  const model::Wide bins = model::number_of_bins(window.range_ps, window.bin_ps);
  if (bins > kMostBins) return 0;
  Times a = orvo::fuzz::time_list(input, kMostTimes);
  Times b = orvo::fuzz::time_list(input, kMostTimes);
  add_pairs(input, window, a, b);

  const XcorrHistogram expected = plain_histogram(a, b, window);
  const Times a_before = a;
  const Times b_before = b;
  const XcorrHistogram histogram =
      orvo::timing::xcorr_histogram(a, b, window.range_ps, window.bin_ps, window.offset_ps);
  require(same(histogram, expected), "the histogram is the plain one");
  require(a == a_before && b == b_before, "the lists are left alone");
  std::sort(a.begin(), a.end());
  std::sort(b.begin(), b.end());
  require(same(orvo::timing::xcorr_histogram_sorted(a, b, window), expected), "sorted lists give the same");
  check_statistics(histogram);
  return 0;
}
