#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
// Time differences in bins of an eighth of a decade, from 1 ps up: bin i holds x with 10^i <= x^8 < 10^(i + 1).
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace {

inline constexpr std::size_t kIntervalBins = 155;  // up to 2^64

/// The smallest whole number of each bin; bins that hold none (only bin 1) start where the next one does.
constexpr std::array<std::uint64_t, kIntervalBins> interval_bin_lows() {
  // 10^(j/8), the decimal point after the first digit. All but the first are irrational: rounded up, one digit too
  // many.
  constexpr std::array<std::string_view, 8> kRoots = {
      "10000000000000000000", "13335214321633240256", "17782794100389228012", "23713737056616552616",
      "31622776601683793319", "42169650342858224856", "56234132519034908039", "74989420933245582730"};
  std::array<std::uint64_t, kIntervalBins> lows{};
  for (std::size_t i = 0; i < kIntervalBins; ++i) {
    std::uint64_t low = 0;
    for (std::size_t digit = 0; digit <= i / 8; ++digit) {
      low = 10 * low + static_cast<std::uint64_t>(kRoots[i % 8][digit] - '0');
    }
    lows[i] = i % 8 == 0 ? low : low + 1;
  }
  return lows;
}

inline constexpr std::array<std::uint64_t, kIntervalBins> kIntervalBinLows = interval_bin_lows();
static_assert(kIntervalBinLows[0] == 1 && kIntervalBinLows[1] == 2 && kIntervalBinLows[2] == 2 &&
              kIntervalBinLows[3] == 3 && kIntervalBinLows[4] == 4 && kIntervalBinLows[8] == 10);
static_assert(kIntervalBinLows[154] == 17'782'794'100'389'228'013u);

/// The bin of each number by its length in bits and its four bits after the first. At most one bin begins within such
/// numbers: bins are far longer than a sixteenth of what they start with.
constexpr std::array<std::uint8_t, 64 * 16> bins_by_leading_bits() {
  std::array<std::uint8_t, 64 * 16> bins{};
  std::size_t bin = 0;
  for (std::size_t i = 0; i < bins.size(); ++i) {
    const std::uint64_t least = (std::uint64_t{16} + i % 16) << 59 >> (63 - i / 16);
    while (bin + 1 < kIntervalBins && kIntervalBinLows[bin + 1] <= least) ++bin;
    bins[i] = static_cast<std::uint8_t>(bin);
  }
  return bins;
}

/// The largest number of each bin.
constexpr std::array<std::uint64_t, kIntervalBins> interval_bin_lasts() {
  std::array<std::uint64_t, kIntervalBins> lasts{};
  for (std::size_t i = 0; i + 1 < kIntervalBins; ++i) lasts[i] = kIntervalBinLows[i + 1] - 1;
  lasts[kIntervalBins - 1] = ~std::uint64_t{0};
  return lasts;
}

inline constexpr std::array<std::uint8_t, 64 * 16> kBinsByLeadingBits = bins_by_leading_bits();
inline constexpr std::array<std::uint64_t, kIntervalBins> kIntervalBinLasts = interval_bin_lasts();

/// The bin of a difference of at least 1 ps.
inline std::size_t interval_bin(std::uint64_t step_ps) {
  const auto zeros = static_cast<unsigned>(std::countl_zero(step_ps));
  const std::size_t bin = kBinsByLeadingBits[16 * (63 - zeros) + (step_ps << zeros >> 59 & 15)];
  return bin + (step_ps > kIntervalBinLasts[bin] ? 1 : 0);
}
/// The same for less than 2^53 ps: a double holds these exactly, and starts with the bits that are looked at.
inline std::size_t short_interval_bin(std::uint64_t step_ps) {
  constexpr std::uint64_t kBias = std::uint64_t{1023} << 4;
  const auto bits = std::bit_cast<std::uint64_t>(static_cast<double>(static_cast<std::int64_t>(step_ps)));
  const std::size_t bin = kBinsByLeadingBits[(bits >> 48) - kBias];
  return bin + (step_ps > kIntervalBinLasts[bin] ? 1 : 0);
}

using IntervalCounts = std::array<std::uint64_t, kIntervalBins>;

}  // namespace
