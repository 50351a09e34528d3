#include "common/whole_number.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <optional>

namespace {

TEST(WholeNumber, ReachesTheEndsOfItsType) {
  EXPECT_EQ(parse_whole_number<std::uint64_t>("18446744073709551615"), std::numeric_limits<std::uint64_t>::max());
  EXPECT_EQ(parse_whole_number<std::uint64_t>("18446744073709551616"), std::nullopt);
  EXPECT_EQ(parse_whole_number<std::int64_t>("-9223372036854775808"), std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(parse_whole_number<std::int64_t>("-9223372036854775809"), std::nullopt);
  EXPECT_EQ(parse_whole_number<unsigned>("4294967295"), 4'294'967'295u);
  EXPECT_EQ(parse_whole_number<unsigned>("4294967296"), std::nullopt);
}

TEST(WholeNumber, IsDecimal) {
  EXPECT_EQ(parse_whole_number<unsigned>("010"), 10u);
  for (const char* text : {"", " 5", "5 ", "+5", "-5", "5.0", "0x5", "1e1", "five"}) {
    EXPECT_EQ(parse_whole_number<unsigned>(text), std::nullopt) << text;
  }
}

TEST(Decimal, HasUpToSoManyDigitsAfterThePoint) {
  EXPECT_EQ(parse_decimal("250", 2), 250.0);
  EXPECT_EQ(parse_decimal("0.5", 2), 0.5);
  EXPECT_EQ(parse_decimal("0.25", 2), 0.25);
  EXPECT_EQ(parse_decimal("0.250", 2), std::nullopt);
  EXPECT_EQ(parse_decimal("0.0625", 4), 0.0625);
}

TEST(Decimal, HasUpTo15DigitsBeforeThePoint) {
  EXPECT_EQ(parse_decimal("100000000000000", 2), 1e14);
  EXPECT_EQ(parse_decimal("1000000000000000", 2), std::nullopt);
}

TEST(Decimal, HasDigitsOnBothSidesOfThePointAndNothingElse) {
  for (const char* text :
       {"", ".", "5.", ".5", "-5", "+5", " 5", "5 ", "5.-1", "1e1", "1.2.3", "0x5", "inf", "nan"}) {
    EXPECT_EQ(parse_decimal(text, 2), std::nullopt) << text;
  }
}

}  // namespace
