#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
#include <cstdint>
#include <string_view>
#include <vector>

#include "inspect/inspection.hpp"
#include "orvo/timing/payload_observer.hpp"
#include "orvo/timing/stream_file_header.hpp"

namespace {

/// A class of the payload and its size in the payload's unit.
struct ClassSize {
  std::string_view name;
  std::uint64_t size = 0;
};

/// The classes that the capture's encoding has, in the order in which reports show them. They add up to what was
/// read.
inline std::vector<ClassSize> class_sizes(const Inspection& of) {
  using orvo::timing::PayloadClass;
  const auto size = [&of](std::string_view name, PayloadClass what) {
    return ClassSize{name, of.account().size(what)};
  };
  std::vector<ClassSize> classes;
  switch (of.header().stream_format) {
    case orvo::timing::StreamFormat::raw64:
      classes = {size("records", PayloadClass::records), size("skipped", PayloadClass::skipped)};
      break;
    case orvo::timing::StreamFormat::delta32:
      classes = {size("events", PayloadClass::events),
                 size("events_without_time", PayloadClass::events_without_time),
                 size("sync_words", PayloadClass::sync_words),
                 size("time_bases", PayloadClass::time_bases),
                 size("extensions", PayloadClass::extensions),
                 size("markers", PayloadClass::markers),
                 size("broken_words", PayloadClass::broken_words),
                 size("searched", PayloadClass::searched)};
      break;
    case orvo::timing::StreamFormat::packed_delta:
      classes = {size("data", PayloadClass::data),
                 size("data_without_time", PayloadClass::data_without_time),
                 size("overflow", PayloadClass::overflow),
                 size("sync", PayloadClass::sync),
                 size("broken_records", PayloadClass::broken_records),
                 size("discarded", PayloadClass::discarded),
                 size("before_lock", PayloadClass::before_lock),
                 size("trimmed", PayloadClass::trimmed),
                 size("padding", PayloadClass::padding)};
  }
  classes.push_back({"pending", of.pending()});
  return classes;
}

/// Tags per second over the capture's duration; 0 where that is 0.
inline double rate_hz(const Inspection& of, unsigned channel) {
  const std::uint64_t duration_ps = of.facts().duration_ps();
  if (duration_ps == 0) return 0;
  return static_cast<double>(of.facts().channels[channel].tags()) / (static_cast<double>(duration_ps) * 1e-12);
}

}  // namespace
