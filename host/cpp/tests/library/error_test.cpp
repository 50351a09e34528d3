#include "orvo/timing/error.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>
#include <type_traits>

namespace {

using orvo::timing::Error;

struct RuntimeErrorAndOneNumber : std::runtime_error {
  std::int32_t number;
};

static_assert(std::is_base_of_v<std::runtime_error, Error>);
static_assert(std::is_convertible_v<const Error*, const std::runtime_error*>, "the base is public and single");
static_assert(std::is_same_v<decltype(Error::code), std::int32_t>);
static_assert(sizeof(Error) == sizeof(RuntimeErrorAndOneNumber), "nothing but the code is added");
static_assert(std::has_virtual_destructor_v<Error>);

TEST(Error, CarriesTheMessageAndTheCode) {
  const Error error("StreamFileWriter: not open", -6);
  EXPECT_STREQ(error.what(), "StreamFileWriter: not open");
  EXPECT_EQ(error.code, -6);
}

TEST(Error, CodeTakesTheWholeRangeOf32Bits) {
  EXPECT_EQ(Error("", INT32_MIN).code, INT32_MIN);
  EXPECT_EQ(Error("", INT32_MAX).code, INT32_MAX);
}

TEST(Error, IsCaughtAsAnyStandardException) {
  try {
    throw Error("could not open CSV output", -2);
  } catch (const std::exception& error) {
    EXPECT_STREQ(error.what(), "could not open CSV output");
    EXPECT_NE(dynamic_cast<const Error*>(&error), nullptr);
  }
}

TEST(Error, CopyKeepsMessageAndCode) {
  const Error error("StreamFileReader: truncated magic", -2);
  Error copy = error;
  EXPECT_STREQ(copy.what(), "StreamFileReader: truncated magic");
  EXPECT_EQ(copy.code, -2);
  copy = Error("StreamFileReader: not an Orvo timing stream file", -4);
  EXPECT_STREQ(copy.what(), "StreamFileReader: not an Orvo timing stream file");
  EXPECT_EQ(copy.code, -4);
}

}  // namespace
