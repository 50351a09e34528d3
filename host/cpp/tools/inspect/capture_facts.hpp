#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "inspect/channel_facts.hpp"
#include "inspect/loss_records.hpp"
#include "inspect/rate_trace.hpp"
#include "inspect/repeated_pieces.hpp"
#include "inspect/stream_order.hpp"
#include "orvo/timing/payload_account.hpp"
#include "orvo/timing/stream_file_header.hpp"
#include "orvo/timing/time_tag.hpp"

namespace {

/// All that one pass over a capture's tags and losses collects, in constant memory.
struct CaptureFacts {
  explicit CaptureFacts(const orvo::timing::StreamFileHeader& header)
      : order(header.stream_format == orvo::timing::StreamFormat::raw64) {}

  std::uint64_t tags() const {
    std::uint64_t sum = 0;
    for (const ChannelFacts& channel : channels) sum += channel.tags();
    return sum;
  }
  /// Smallest and largest time of all tags; 0 without one.
  std::int64_t first_ps() const {
    return extreme(&ChannelFacts::first_ps, [](auto a, auto b) { return a < b; });
  }
  std::int64_t last_ps() const {
    return extreme(&ChannelFacts::last_ps, [](auto a, auto b) { return a > b; });
  }
  std::uint64_t duration_ps() const {
    return static_cast<std::uint64_t>(last_ps()) - static_cast<std::uint64_t>(first_ps());
  }

  std::array<ChannelFacts, orvo::timing::kChannels> channels;
  RateTrace trace;
  StreamOrder order;
  RepeatedPieces pieces;
  LossRecords losses;

 private:
  template <class Better>
  std::int64_t extreme(std::int64_t (ChannelFacts::*time)() const, Better better) const {
    const ChannelFacts* best = nullptr;
    for (const ChannelFacts& channel : channels) {
      if (channel.tags() == 0) continue;
      if (best == nullptr || better((channel.*time)(), (best->*time)())) best = &channel;
    }
    return best == nullptr ? 0 : (best->*time)();
  }
};

/// The sink that collects them, and the listener that tells it of losses. A discarded chunk takes its facts back.
///
/// Tags are gathered to blocks, which are cheap to look at as a whole; a loss ends a block.
class FactCollector : public orvo::timing::NoLossListener {
 public:
  /// Takes no more than `max_tags` tags, all when that is 0.
  FactCollector(const orvo::timing::StreamFileHeader& header, std::uint64_t max_tags)
      : facts_(std::make_unique<CaptureFacts>(header)),
        may_discard_(header.stream_format == orvo::timing::StreamFormat::packed_delta &&
                     header.mode == orvo::timing::StreamMode::internal && std::popcount(header.channel_mask) != 1),
        left_(max_tags == 0 ? UINT64_MAX : max_tags) {}

  const CaptureFacts& facts() const { return *facts_; }
  bool is_full() const { return left_ <= block_.size; }
  void finish() {
    take_block();
    for (ChannelFacts& channel : facts_->channels) channel.finish();
  }

  // What a sink does.
  void begin_chunk(std::size_t) {
    if (!may_discard_) return;
    take_block();
    if (!before_chunk_) before_chunk_ = std::make_unique<State>(State{*facts_, loss_inside_, left_});
    *before_chunk_ = {*facts_, loss_inside_, left_};
  }
  void add(unsigned channel, std::int64_t time_ps) {
    block_.channels[block_.size] = static_cast<std::uint8_t>(channel);
    block_.times_ps[block_.size] = time_ps;
    if (++block_.size == Block::kMost) take_block();
  }
  void end_chunk() {}
  void discard_chunk() {
    block_.size = 0;
    *facts_ = before_chunk_->facts;
    loss_inside_ = before_chunk_->loss_inside;
    left_ = before_chunk_->left;
  }

  // What an account tells.
  void lost(const orvo::timing::PayloadLoss& loss) {
    take_block();
    facts_->losses.add(loss);
    loss_inside_.fill(true);
  }
  void true_again(unsigned channel) {
    take_block();
    loss_inside_[channel] = true;
  }

 private:
  struct State {
    CaptureFacts facts;
    std::array<bool, orvo::timing::kChannels> loss_inside;
    std::uint64_t left;
  };
  struct Block {
    static constexpr std::size_t kMost = 256;
    std::array<std::uint8_t, kMost> channels;
    std::array<std::int64_t, kMost> times_ps;
    std::array<std::uint64_t, kMost> steps_ps;  // on their channel
    std::size_t size = 0;
  };

  void take_block() {
    const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(block_.size, left_));
    block_.size = 0;
    left_ -= size;
    if (size == 0) return;
    const auto channels = std::span<const std::uint8_t>(block_.channels).first(size);
    const auto times_ps = std::span<const std::int64_t>(block_.times_ps).first(size);
    ChannelMarks marks;
    const bool plain = measure_steps(channels, times_ps, marks);
    if (plain) {
      take_plain_steps(channels, std::span<const std::uint64_t>(block_.steps_ps).first(size), marks);
    } else {
      for (std::size_t i = 0; i < size; ++i) take_step(channels[i], times_ps[i]);
    }
    trace(channels, times_ps, marks);
    facts_->order.add_block(marks, channels, times_ps);
  }

  void trace(std::span<const std::uint8_t> channels, std::span<const std::int64_t> times_ps,
             const ChannelMarks& marks) {
    RateTrace& trace = facts_->trace;
    if (trace.is_one_slice(times_ps)) {
      for (unsigned c = 0; c < orvo::timing::kChannels; ++c) trace.add_to_slice(c, times_ps[0], marks.counts[c]);
    } else {
      for (std::size_t i = 0; i < times_ps.size(); ++i) trace.add(channels[i], times_ps[i]);
    }
  }

  void take_step(std::uint8_t channel, std::int64_t time_ps) {
    ChannelFacts& own = facts_->channels[channel];
    const std::uint64_t step = static_cast<std::uint64_t>(time_ps) - static_cast<std::uint64_t>(own.latest_ps());
    if (own.tags() != 0) facts_->pieces.add({&channel, 1}, {&step, 1});
    own.add(time_ps, loss_inside_[channel]);
    loss_inside_[channel] = false;
  }

  /// Fills the block's steps and marks: to whether all steps are plain, without a loss inside.
  bool measure_steps(std::span<const std::uint8_t> channels, std::span<const std::int64_t> times_ps,
                     ChannelMarks& marks) {
    std::array<std::uint64_t, orvo::timing::kChannels> least_ps;
    std::array<std::uint64_t, orvo::timing::kChannels> most_ps;
    std::array<std::uint64_t, orvo::timing::kChannels> masks;
    std::array<Multiples, orvo::timing::kChannels> grids;
    bool all_have_masks = true;
    for (unsigned c = 0; c < orvo::timing::kChannels; ++c) {
      marks.latest_ps[c] = facts_->channels[c].latest_ps();
      const PlainSteps plain = loss_inside_[c] ? PlainSteps() : facts_->channels[c].plain_steps();
      least_ps[c] = plain.least_ps;
      most_ps[c] = plain.most_ps;
      grids[c] = plain.grid;
      masks[c] = plain.grid.has_mask() ? plain.grid.mask() : 0;
      all_have_masks = all_have_masks && plain.grid.has_mask();
    }
    // A step that is too short or too long is one whose distance from the limit is negative; a negative step is too
    // long. All signs together tell whether there is one.
    std::uint64_t signs = 0;
    std::uint64_t off_grid = 0;
    static constexpr std::array<std::uint64_t, orvo::timing::kChannels> kOne = {1, 1 << 16, 1ull << 32, 1ull << 48};
    std::uint64_t counts = 0;  // 16 bits for each channel
    for (std::size_t i = 0; i < times_ps.size(); ++i) {
      const std::size_t c = channels[i];
      const std::uint64_t step =
          static_cast<std::uint64_t>(times_ps[i]) - static_cast<std::uint64_t>(marks.latest_ps[c]);
      signs |= step | (step - least_ps[c]) | (most_ps[c] - step);
      off_grid |= step & masks[c];
      marks.latest_ps[c] = times_ps[i];
      marks.latest_steps_ps[c] = step;
      block_.steps_ps[i] = step;
      counts += kOne[c];
    }
    for (unsigned c = 0; c < orvo::timing::kChannels; ++c) marks.counts[c] = counts >> 16 * c & 0xFFFF;
    for (std::size_t i = 0; i < times_ps.size() && !all_have_masks; ++i) {
      off_grid |= grids[channels[i]].contain(block_.steps_ps[i]) ? 0 : 1;
    }
    return signs >> 63 == 0 && off_grid == 0;
  }

  void take_plain_steps(std::span<const std::uint8_t> channels, std::span<const std::uint64_t> steps_ps,
                        const ChannelMarks& marks) {
    std::array<std::uint64_t*, orvo::timing::kChannels> intervals;
    for (unsigned c = 0; c < orvo::timing::kChannels; ++c) intervals[c] = facts_->channels[c].intervals().data();
    for (std::size_t i = 0; i < steps_ps.size(); ++i) ++intervals[channels[i]][short_interval_bin(steps_ps[i])];
    for (unsigned c = 0; c < orvo::timing::kChannels; ++c) {
      if (marks.counts[c] == 0) continue;
      facts_->channels[c].add_plain(marks.counts[c], marks.latest_ps[c], marks.latest_steps_ps[c]);
    }
    facts_->pieces.add(channels, steps_ps);
  }

  std::unique_ptr<CaptureFacts> facts_;  // large
  std::unique_ptr<State> before_chunk_;
  bool may_discard_;
  std::uint64_t left_;
  std::array<bool, orvo::timing::kChannels> loss_inside_{};
  Block block_;
};

}  // namespace
