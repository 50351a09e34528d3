#include "orvo/timing/detail/delay_binning.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <type_traits>

#include "support/random.hpp"

namespace {

using orvo::timing::XcorrWindow;
using orvo::timing::detail::BinLayout;
using orvo::timing::detail::DelayBinning;
using orvo::timing::detail::Int128;
using orvo::timing::detail::Uint128;

/// Bin by division, halves away from zero, counted from 1.
std::uint64_t slot_by_division(const XcorrWindow& window, std::uint64_t lag) {
  const Int128 difference = Int128{lag} - window.range_ps;
  const Int128 half_bin = window.bin_ps / 2;
  const Int128 bin =
      difference < 0 ? -((half_bin - difference) / window.bin_ps) : (difference + half_bin) / window.bin_ps;
  return static_cast<std::uint64_t>(bin + BinLayout(window).half() + 1);
}

template <class Product>
void expect_divisions(const XcorrWindow& window, std::uint64_t lag, std::uint64_t lags) {
  const DelayBinning<Product> binning(window, BinLayout(window).bins());
  ASSERT_TRUE(binning.is_exact()) << window.range_ps << ' ' << window.bin_ps;
  ASSERT_EQ(binning.max_lag(), 2 * static_cast<std::uint64_t>(window.range_ps));
  for (const std::uint64_t end = lag + lags; lag < end && lag <= binning.max_lag(); ++lag) {
    ASSERT_EQ(binning(lag), slot_by_division(window, lag)) << window.range_ps << ' ' << window.bin_ps << ' ' << lag;
  }
}

/// Both ends, the middle, and edges of bins everywhere.
template <class Product>
void expect_divisions_at_edges(const XcorrWindow& window, orvo::test::Random& random) {
  const auto range = static_cast<std::uint64_t>(window.range_ps);
  const auto bin = static_cast<std::uint64_t>(window.bin_ps);
  expect_divisions<Product>(window, 0, 4);
  expect_divisions<Product>(window, range - 1, 4);
  expect_divisions<Product>(window, 2 * range - 3 % (2 * range), 4);
  const std::uint64_t half = BinLayout(window).half();
  for (int i = 0; i < 20; ++i) {
    const std::uint64_t edge = random.below(half + 1) * bin + (bin + 1) / 2;  // from the middle, outwards
    if (edge <= range) expect_divisions<Product>(window, range - edge, 3);
    if (edge <= range && edge >= 1) expect_divisions<Product>(window, range + edge - 1, 3);
  }
}

template <class Product>
class DelayBinningWith : public testing::Test {};
using Products = testing::Types<std::uint64_t, Uint128>;
TYPED_TEST_SUITE(DelayBinningWith, Products);

TYPED_TEST(DelayBinningWith, AgreesWithTheDivisionForEveryLagOfSmallWindows) {
  for (std::int64_t bin_ps = 1; bin_ps <= 40; ++bin_ps) {
    for (std::int64_t range_ps = 1; range_ps <= 200; ++range_ps) {
      expect_divisions<TypeParam>({range_ps, bin_ps, 0}, 0, UINT64_MAX);
      if (this->HasFatalFailure()) return;
    }
  }
}

TYPED_TEST(DelayBinningWith, AgreesWithTheDivisionAtTheEdgesOfWideBins) {
  orvo::test::Random random(1);
  constexpr unsigned kMostBits = std::is_same_v<TypeParam, std::uint64_t> ? 29 : 59;
  for (int i = 0; i < 20'000; ++i) {
    const auto range_ps =
        static_cast<std::int64_t>(1 + (random.bits() >> 1 >> (63 - kMostBits + random.below(kMostBits))));
    const auto bin_ps =
        static_cast<std::int64_t>(1 + (random.bits() >> 1 >> (63 - kMostBits + random.below(kMostBits))));
    expect_divisions_at_edges<TypeParam>({range_ps, bin_ps, 0}, random);
    if (this->HasFatalFailure()) return;
  }
}

TEST(DelayBinning, ProductsOf64BitsDoForAMillisecondOnly) {
  EXPECT_TRUE(DelayBinning<std::uint64_t>({1'000'000'000, 7, 0}, 285'714'287).is_exact());
  EXPECT_FALSE(DelayBinning<std::uint64_t>({2'200'000'000, 7, 0}, 628'571'429).is_exact());
  EXPECT_TRUE(DelayBinning<Uint128>({2'200'000'000, 7, 0}, 628'571'429).is_exact());
  EXPECT_FALSE(DelayBinning<Uint128>({INT64_MAX, INT64_MAX, 0}, 3).is_exact());
  EXPECT_FALSE(DelayBinning<std::uint64_t>({INT64_MAX, INT64_MAX, 0}, 3).is_exact());
  EXPECT_FALSE(DelayBinning<std::uint64_t>({1, INT64_MAX, 0}, 1).is_exact());
}

}  // namespace
