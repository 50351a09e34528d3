#include "simulate/start_check.hpp"

#include <gtest/gtest.h>

#include <span>

#include "support/packed_payload.hpp"
#include "support/stream_feeding.hpp"

namespace {

using namespace orvo::test;

orvo::timing::StreamFileHeader packed_header() {
  orvo::timing::StreamFileHeader header;
  header.quantum_ps = 1;
  header.channel_mask = 0b0011;
  return header;
}

TEST(StartCheck, AcceptsACaptureThatDecodesFromItsFirstTag) {
  StartCheck check(packed_header());
  check.add(PackedWriter(16).anchor(0, 1000).anchor(1, 1010).data(0, 5).bytes(), tag(0, 1000));
  EXPECT_NO_THROW(check.finish(tag(0, 1000)));
}

TEST(StartCheck, RefusesACaptureThatDecodersWouldNotAlign) {
  StartCheck check(packed_header());
  check.add(PackedWriter(16).anchor(0, 1000).data(0, 5).data(0, 5).bytes(), tag(0, 1000));
  EXPECT_THROW(check.finish(tag(0, 1000)), orvo::timing::Error) << "channel 1 never clicks";
}

TEST(StartCheck, RefusesACaptureThatDecodesFromALaterTag) {
  StartCheck check(packed_header());
  check.add(PackedWriter(16).data(0, 3).anchor(0, 1000).anchor(1, 1010).bytes(), tag(0, 3));
  EXPECT_THROW(check.finish(tag(0, 3)), orvo::timing::Error);
}

TEST(StartCheck, LooksAtTheFirstReadAlone) {
  orvo::timing::StreamFileHeader header;
  header.stream_format = orvo::timing::StreamFormat::raw64;
  const Bytes nothing(std::size_t{1} << 19, 0xFF);
  StartCheck check(header);
  check.add(nothing, tag(0, 1));
  EXPECT_THROW(check.add(nothing, tag(0, 1)), orvo::timing::Error);
  check.add(nothing, tag(0, 1));
  check.finish(tag(0, 1));
}

}  // namespace
