#pragma once
// The reference ring: each rule of the format once more, written from its description alone and as plainly as it can
// be. Tests, fuzz targets and benchmarks hold the product to it. Its oracles share no code with the product
// and include none of it; support/as_reference.hpp translates. (painted_payload.hpp borrows the names of what it
// paints.)
#include <cstdint>
#include <vector>

namespace orvo::test::reference {

/// One decoded event.
struct Tag {
  int channel = 0;
  std::int64_t time_ps = 0;
  bool operator==(const Tag&) const = default;
};

using Tags = std::vector<Tag>;
using Times = std::vector<std::int64_t>;

}  // namespace orvo::test::reference
