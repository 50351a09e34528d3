#include "orvo/timing/stream_file_header.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <type_traits>

namespace {

using orvo::timing::StreamFileHeader;
using orvo::timing::StreamFormat;
using orvo::timing::StreamMode;
using orvo::timing::StreamTransport;

static_assert(std::is_same_v<std::underlying_type_t<StreamFormat>, std::uint32_t>);
static_assert(std::is_same_v<std::underlying_type_t<StreamMode>, std::uint32_t>);
static_assert(std::is_same_v<std::underlying_type_t<StreamTransport>, std::uint32_t>);
static_assert(std::is_same_v<decltype(StreamFileHeader::channel_mask), std::uint8_t>);
static_assert(std::is_same_v<decltype(StreamFileHeader::tdl_index), std::uint8_t>);
static_assert(std::is_same_v<decltype(StreamFileHeader::delta_bits), std::uint8_t>);
static_assert(std::is_same_v<decltype(StreamFileHeader::quantum_ps), std::uint16_t>);

TEST(StreamFileHeader, EnumeratorsHaveTheirFixedNumbers) {
  EXPECT_EQ(static_cast<int>(StreamFormat::raw64), 0);
  EXPECT_EQ(static_cast<int>(StreamFormat::delta32), 1);
  EXPECT_EQ(static_cast<int>(StreamFormat::packed_delta), 2);
  EXPECT_EQ(static_cast<int>(StreamMode::internal), 0);
  EXPECT_EQ(static_cast<int>(StreamMode::external), 1);
  EXPECT_EQ(static_cast<int>(StreamTransport::uart), 0);
  EXPECT_EQ(static_cast<int>(StreamTransport::usb), 1);
  EXPECT_EQ(static_cast<int>(StreamTransport::usb_async), 2);
}

TEST(StreamFileHeader, DefaultsAreThoseOfAHeaderThatSaysNothing) {
  const StreamFileHeader header;
  EXPECT_EQ(header.stream_format, StreamFormat::packed_delta);
  EXPECT_EQ(header.mode, StreamMode::external);
  EXPECT_EQ(header.stream_transport, StreamTransport::usb);
  EXPECT_EQ(header.channel_mask, 15);
  EXPECT_EQ(header.tdl_index, 0);
  EXPECT_EQ(header.delta_bits, 16);
  EXPECT_EQ(header.quantum_ps, 8);
  EXPECT_EQ(header.raw64_tag_format, "ps");
  EXPECT_EQ(header.created_utc, "");
  EXPECT_EQ(header.application, "");
  EXPECT_EQ(header.device_product, "");
  EXPECT_EQ(header.device_serial, "");
  EXPECT_EQ(header.device_port, "");
}

TEST(StreamFileHeader, FieldsStandInTheirFixedOrder) {
  const StreamFileHeader header{StreamFormat::raw64,
                                StreamMode::internal,
                                StreamTransport::uart,
                                1,
                                2,
                                3,
                                4,
                                "tag format",
                                "created",
                                "application",
                                "product",
                                "serial",
                                "port"};
  EXPECT_EQ(header.stream_format, StreamFormat::raw64);
  EXPECT_EQ(header.mode, StreamMode::internal);
  EXPECT_EQ(header.stream_transport, StreamTransport::uart);
  EXPECT_EQ(header.channel_mask, 1);
  EXPECT_EQ(header.tdl_index, 2);
  EXPECT_EQ(header.delta_bits, 3);
  EXPECT_EQ(header.quantum_ps, 4);
  EXPECT_EQ(header.raw64_tag_format, "tag format");
  EXPECT_EQ(header.created_utc, "created");
  EXPECT_EQ(header.application, "application");
  EXPECT_EQ(header.device_product, "product");
  EXPECT_EQ(header.device_serial, "serial");
  EXPECT_EQ(header.device_port, "port");
}

template <class Value>
void expect_field_counts(Value StreamFileHeader::*field, Value other) {
  StreamFileHeader changed;
  changed.*field = other;
  EXPECT_NE(changed, StreamFileHeader{});
  EXPECT_EQ(changed, StreamFileHeader(changed));
}

TEST(StreamFileHeader, EqualityLooksAtEveryField) {
  expect_field_counts(&StreamFileHeader::stream_format, StreamFormat::raw64);
  expect_field_counts(&StreamFileHeader::mode, StreamMode::internal);
  expect_field_counts(&StreamFileHeader::stream_transport, StreamTransport::uart);
  expect_field_counts<std::uint8_t>(&StreamFileHeader::channel_mask, 3);
  expect_field_counts<std::uint8_t>(&StreamFileHeader::tdl_index, 1);
  expect_field_counts<std::uint8_t>(&StreamFileHeader::delta_bits, 8);
  expect_field_counts<std::uint16_t>(&StreamFileHeader::quantum_ps, 16);
  expect_field_counts<std::string>(&StreamFileHeader::raw64_tag_format, "raw_cf");
  expect_field_counts<std::string>(&StreamFileHeader::created_utc, "x");
  expect_field_counts<std::string>(&StreamFileHeader::application, "x");
  expect_field_counts<std::string>(&StreamFileHeader::device_product, "x");
  expect_field_counts<std::string>(&StreamFileHeader::device_serial, "x");
  expect_field_counts<std::string>(&StreamFileHeader::device_port, "x");
}

}  // namespace
