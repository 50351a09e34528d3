#pragma once
// Part of vq_convert_stream_file: file-local throughout.
#include <array>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "orvo/timing/stream_file_header.hpp"
#include "orvo/timing/time_tag.hpp"

namespace {

/// What OUT holds.
enum class OutForm { capture, csv, npy };

/// Which tags are taken, by channel and time as the inputs have them. Times count from the first tag.
struct SelectionSettings {
  static constexpr std::uint64_t kAllTags = std::numeric_limits<std::uint64_t>::max();

  unsigned channels = 0xF;                   ///< bit n: channel n
  std::optional<std::int64_t> from_ps = {};  ///< the first time taken
  std::optional<std::int64_t> to_ps = {};    ///< the first no longer taken
  std::uint64_t skip_tags = 0;               ///< of those within the above
  std::uint64_t most_tags = kAllTags;        ///< of those after that
};

/// What becomes of the tags that are taken.
struct ChangeSettings {
  std::array<std::int64_t, orvo::timing::kChannels> shift_ps{};           ///< by channel as the inputs have it
  std::array<std::uint8_t, orvo::timing::kChannels> channel{0, 1, 2, 3};  ///< the new one
  std::optional<std::int64_t> sort_reach_ps;
};

/// How a capture is encoded, where that is not as the first input is.
struct EncodingSettings {
  std::optional<orvo::timing::StreamFormat> format;
  std::optional<std::string> tag_format;
  std::optional<unsigned> delta_bits;
  std::optional<unsigned> quantum_ps;
  std::uint64_t anchor_every = 1'000;
  bool round = false;
};

struct Settings {
  static constexpr const char* kPipe = "-";

  std::vector<std::string> inputs;
  std::string out;
  OutForm form = OutForm::capture;
  bool force = false;
  bool verify = true;
  std::optional<std::int64_t> gap_ps;  ///< from one input's last tag to the next one's first
  SelectionSettings selection;
  ChangeSettings changes;
  EncodingSettings encoding;
};

}  // namespace
