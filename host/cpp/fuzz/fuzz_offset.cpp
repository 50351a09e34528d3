// The offset estimate of any times is that of the reference, from sorted and from unsorted lists.
//
//   form | list A | list B; with bits 0 to 4 of the form list A may be so long that only every second event is
//   sampled
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "fuzz/support/input.hpp"
#include "fuzz/support/require.hpp"
#include "fuzz/support/time_lists.hpp"
#include "orvo/timing/offset_estimate.hpp"
#include "reference/offset_estimate.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using orvo::fuzz::require;
  orvo::fuzz::Input input(data, size);
  std::vector<std::int64_t> a = orvo::fuzz::time_list(input, (input.byte() & 31) == 31 ? 8'100 : 100);
  std::vector<std::int64_t> b = orvo::fuzz::time_list(input, 100);

  const std::int64_t expected = orvo::test::reference::offset_estimate_ps(a, b);
  require(orvo::timing::estimate_offset_ps(a, b) == expected, "the estimate is the reference's");
  std::sort(a.begin(), a.end());
  std::sort(b.begin(), b.end());
  require(orvo::timing::estimate_offset_sorted_ps(a, b) == expected, "sorted lists give the same");
  return 0;
}
