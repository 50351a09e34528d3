// max_tags limits the tags that are decoded, to the exact tag, whatever the steps of the run.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "support/product_root.hpp"
#include "support/verify_captures.hpp"

namespace {

using namespace orvo::test;

class TagLimit : public ProductRoot {
 protected:
  // 150000 tags in 2.4 MB: several steps of the run, by tags and by bytes.
  TagLimit() { write_file(cwd() / "c.tagcap", periodic_capture(75'000)); }

  void expect_decoded(const std::string& limit, std::uint64_t first, std::uint64_t second) {
    EXPECT_EQ(verify({"c.tagcap", "--offset=160", "--out-prefix=o", "--max-tags=" + limit}).exit_status, 0);
    const std::string json = read_file(cwd() / "o.json");
    EXPECT_THAT(json, testing::HasSubstr("  \"decoded_tags\":" + std::to_string(first + second) +
                                         ",\n  \"channel_counts\":{\"ch0\":" + std::to_string(first) +
                                         ",\"ch1\":" + std::to_string(second) + ",\"ch2\":0,\"ch3\":0},\n"));
    EXPECT_THAT(json, testing::HasSubstr("\"peak_count\":" + std::to_string(second) + ",\n"));
  }
};

TEST_F(TagLimit, OneHundredThousandIsReachedExactly) {
  expect_decoded("100000", 50'000, 50'000);
}

TEST_F(TagLimit, MayCutAPair) {
  expect_decoded("99999", 50'000, 49'999);
}

TEST_F(TagLimit, MayBeOneStepMoreOrLess) {
  expect_decoded("65535", 32'768, 32'767);
  expect_decoded("65536", 32'768, 32'768);
  expect_decoded("65537", 32'769, 32'768);
  expect_decoded("131072", 65'536, 65'536);  // the tags of one read of 1 MiB
  expect_decoded("131073", 65'537, 65'536);
}

TEST_F(TagLimit, MayBeOne) {
  expect_decoded("1", 1, 0);
}

TEST_F(TagLimit, MayExceedTheCapture) {
  expect_decoded("150000", 75'000, 75'000);
  expect_decoded("150001", 75'000, 75'000);
  expect_decoded("18446744073709551615", 75'000, 75'000);
}

TEST_F(TagLimit, ZeroIsNoLimit) {
  expect_decoded("0", 75'000, 75'000);
}

TEST_F(TagLimit, MinusOneIsNoLimitInEffect) {
  expect_decoded("-1", 75'000, 75'000);
}

}  // namespace
