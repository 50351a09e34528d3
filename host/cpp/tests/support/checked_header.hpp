#pragma once
// Capture headers read with the reference beside.
#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "orvo/timing/stream_file_header.hpp"
#include "orvo/timing/stream_header_json.hpp"
#include "reference/header.hpp"
#include "support/as_reference.hpp"

namespace orvo::test {

inline void expect_as_reference(const timing::StreamFileHeader& header, const reference::Header& expected) {
  EXPECT_TRUE(as_reference(header) == expected) << describe(as_reference(header)) << "and\n" << describe(expected);
}

/// What `stream_header_from_json` reads. Fails the test where the reference reads something else.
inline timing::StreamFileHeader checked_header(std::string_view json) {
  timing::StreamFileHeader header = timing::stream_header_from_json(json);
  expect_as_reference(header, reference::read_header(std::string(json)));
  return header;
}

}  // namespace orvo::test
