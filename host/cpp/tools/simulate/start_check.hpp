#pragma once
// Part of vq_simulate_stream_file: file-local throughout.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "orvo/timing/error.hpp"
#include "orvo/timing/stream_decoder.hpp"
#include "orvo/timing/time_tag.hpp"

namespace {

/// Makes sure that decoders find the first tag in the first read of the sound payload. Packed records they may fail
/// to align: when too few channels click at the start, or, in internal mode, when those that do are too uneven there.
class StartCheck {
 public:
  explicit StartCheck(const orvo::timing::StreamFileHeader& header) : decoder_(header) {}

  /// The next piece of the payload. Throws `Error` when it completes a read that does not start with `first`.
  void add(std::span<const std::uint8_t> payload, const orvo::timing::TimeTag& first) {
    if (done_) return;
    const std::size_t missing = kReadBytes - decoder_.pending_bytes.size();
    decoder_.pending_bytes.append(payload.data(), std::min(payload.size(), missing));
    if (payload.size() >= missing) finish(first);
  }

  /// No payload follows.
  void finish(const orvo::timing::TimeTag& first) {
    if (done_) return;
    done_ = true;
    const std::vector<orvo::timing::TimeTag> tags = decoder_.feed({});
    if (!tags.empty() && tags.front() == first) return;
    throw orvo::timing::Error(
        "decoders would not align this capture's first records: it takes at least two active "
        "channels that click within the first 64 KiB, in internal mode all of them and about "
        "equally often",
        orvo::timing::kInvalidArgument);
  }

 private:
  static constexpr std::size_t kReadBytes = std::size_t{1} << 20;

  orvo::timing::StreamDecoder decoder_;
  bool done_ = false;
};

}  // namespace
