#pragma once
// Part of vq_simulate_stream_file: file-local throughout.
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "orvo/timing/byte_queue.hpp"
#include "orvo/timing/error.hpp"
#include "orvo/timing/tag_encoder.hpp"
#include "orvo/timing/time_tag.hpp"
#include "simulate/coincidences.hpp"
#include "simulate/detectors.hpp"
#include "simulate/event_source.hpp"
#include "simulate/read_ahead.hpp"
#include "simulate/settings.hpp"

namespace {

/// What was stored of one channel.
struct StoredChannel {
  std::uint64_t tags = 0;
  std::int64_t first_ps = 0;  ///< simulated
  std::int64_t axis_ps = 0;   ///< decoded less simulated time
};

/// All that was stored.
struct StoredCapture {
  std::array<StoredChannel, orvo::timing::kChannels> channels{};
  std::uint64_t tags = 0;
  orvo::timing::TimeTag first;  ///< simulated
  std::int64_t last_ps = 0;
  CoincidenceSums coincidences;

  void add(std::span<const orvo::timing::TimeTag> stored) {
    if (stored.empty()) return;
    if (tags == 0) first = stored.front();
    for (const orvo::timing::TimeTag& tag : stored) {
      StoredChannel& channel = channels[tag.channel];
      if (channel.tags++ == 0) channel.first_ps = tag.time_ps;
    }
    tags += stored.size();
    last_ps = stored.back().time_ps;
  }
};

/// From the settings to encoded payload, in blocks of bounded size. A second thread draws and detects events; the
/// caller's thread counts and encodes them.
template <class Grid>
class Simulation {
 public:
  Simulation(const Settings& settings, Grid grid, const orvo::timing::TagEncoder& encoder)
      : settings_(settings),
        end_ps_(settings.start_ps + settings.duration_ps.value_or(kLongestPs)),
        coincidences_(settings.pairs),
        encoder_(encoder),
        tag_blocks_([source = EventSource(settings, end_ps_),
                     detectors = Detectors<Grid>(settings, grid)](std::vector<orvo::timing::TimeTag>& block) mutable {
          source.fill(block, kBlockTags);
          const bool more = block.size() == kBlockTags;
          detectors.detect(block);
          return more;
        }) {}

  /// The next piece of payload, valid until the next call; empty at the end.
  std::span<const std::uint8_t> next() {
    while (!ended_) {
      ended_ = !tag_blocks_.next(tags_);
      if (ended_) tags_.clear();
      stop_at_last_tag();
      stored_.add(tags_);
      coincidences_.add(tags_);
      payload_.clear();
      encoder_.encode(tags_, payload_);
      if (ended_) encoder_.finish(payload_);
      if (!payload_.empty()) return payload_.bytes();
    }
    return {};
  }

  /// Complete once `next` has returned an empty piece.
  StoredCapture stored() {
    coincidences_.finish();
    stored_.coincidences = coincidences_.sums();
    for (unsigned c = 0; c < orvo::timing::kChannels; ++c) stored_.channels[c].axis_ps = encoder_.axis_ps(c);
    return stored_;
  }

  /// The part that is done, from 0 to 1.
  double progress() const {
    if (settings_.tags) return static_cast<double>(stored_.tags) / static_cast<double>(*settings_.tags);
    return static_cast<double>(stored_.last_ps - settings_.start_ps) /
           static_cast<double>(end_ps_ - settings_.start_ps);
  }

 private:
  static constexpr std::size_t kBlockTags = 32'768;

  void stop_at_last_tag() {
    if (!settings_.tags) return;
    const std::uint64_t left = *settings_.tags - stored_.tags;
    if (tags_.size() >= left) {
      tags_.resize(static_cast<std::size_t>(left));
      ended_ = true;
    } else if (ended_) {
      throw orvo::timing::Error("only " + std::to_string(stored_.tags) + " tags in 1000000 s",
                                orvo::timing::kInvalidArgument);
    }
  }

  Settings settings_;
  std::int64_t end_ps_;
  CoincidenceCounter coincidences_;
  orvo::timing::TagEncoder encoder_;
  orvo::timing::ByteQueue payload_;
  std::vector<orvo::timing::TimeTag> tags_;
  StoredCapture stored_;
  bool ended_ = false;
  ReadAhead tag_blocks_;
};

}  // namespace
