#include "orvo/timing/detail/fine_counts.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "reference/histogram.hpp"
#include "support/as_reference.hpp"
#include "support/random.hpp"

namespace {

using namespace orvo::timing;
using orvo::test::as_reference;
namespace reference = orvo::test::reference;
using Times = std::vector<std::int64_t>;

TEST(FineCounts, CoverWindowsThatLieWithinTheirs) {
  const XcorrWindow fine{100, 1, 1000};
  EXPECT_TRUE(detail::fine_counts_cover(fine, {100, 8, 1000}));
  EXPECT_TRUE(detail::fine_counts_cover(fine, {60, 8, 1040}));
  EXPECT_TRUE(detail::fine_counts_cover(fine, {60, 8, 960}));
  EXPECT_FALSE(detail::fine_counts_cover(fine, {60, 8, 1041}));
  EXPECT_FALSE(detail::fine_counts_cover(fine, {60, 8, 959}));
  EXPECT_FALSE(detail::fine_counts_cover(fine, {101, 8, 1000}));
  EXPECT_FALSE(detail::fine_counts_cover(fine, {INT64_MAX, 8, INT64_MIN}));
  EXPECT_FALSE(detail::fine_counts_cover(fine, {0, 8, 1000}));
  EXPECT_FALSE(detail::fine_counts_cover({100, 2, 1000}, {50, 8, 1000}));
}

TEST(FineCounts, AddUpToTheCountsOfEveryWindowTheyCover) {
  orvo::test::Random random(1);
  for (int round = 0; round < 200; ++round) {
    Times a;
    Times b;
    for (int i = 0; i < 40; ++i) {
      a.push_back(static_cast<std::int64_t>(random.below(500)));
      b.push_back(static_cast<std::int64_t>(random.below(500)));
    }
    const auto some = [&](std::uint64_t bound) { return static_cast<std::int64_t>(random.below(bound)); };
    const XcorrWindow fine_window{150, 1, some(300) - 150};
    const XcorrWindow window{1 + some(100), 1 + some(30), fine_window.offset_ps + some(100) - 50};
    XcorrHistogram counts = detail::empty_histogram(window);
    if (!detail::fine_counts_cover(fine_window, window)) continue;
    const auto fine = reference::histogram(a, b, as_reference(fine_window));
    detail::add_up_fine_counts({fine.centers, fine.counts}, fine_window, window, counts.counts);
    ASSERT_EQ(counts.counts, reference::histogram(a, b, as_reference(window)).counts) << "round " << round;
  }
}

}  // namespace
