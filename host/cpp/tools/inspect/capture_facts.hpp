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
    before_chunk_ = std::make_unique<State>(State{*facts_, loss_inside_, left_});
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
    const auto channels = std::span<const std::uint8_t>(block_.channels).first(size);
    const auto times_ps = std::span<const std::int64_t>(block_.times_ps).first(size);
    if (!take_plain_steps(channels, times_ps)) {
      for (std::size_t i = 0; i < size; ++i) take_step(channels[i], times_ps[i]);
    }
    trace(channels, times_ps);
    facts_->order.add(channels, times_ps);
  }

  void trace(std::span<const std::uint8_t> channels, std::span<const std::int64_t> times_ps) {
    if (times_ps.empty()) return;
    RateTrace& trace = facts_->trace;
    std::int64_t first_ps = times_ps[0];
    std::int64_t last_ps = times_ps[0];
    std::uint64_t counts = 0;  // 16 bits for each channel
    for (std::size_t i = 0; i < times_ps.size(); ++i) {
      first_ps = std::min(first_ps, times_ps[i]);
      last_ps = std::max(last_ps, times_ps[i]);
      counts += std::uint64_t{1} << 16 * channels[i];
    }
    if (trace.is_one_slice(first_ps, last_ps)) {
      for (unsigned c = 0; c < orvo::timing::kChannels; ++c)
        trace.add_to_slice(c, first_ps, counts >> 16 * c & 0xFFFF);
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

  /// The steps of a block whose tags all come later than the one before on their channel, without a loss inside.
  /// False, and nothing done, when it is another one.
  bool take_plain_steps(std::span<const std::uint8_t> channels, std::span<const std::int64_t> times_ps) {
    std::array<std::array<std::uint64_t, Block::kMost>, orvo::timing::kChannels> steps_ps;
    std::array<std::size_t, orvo::timing::kChannels> counts{};
    std::array<std::int64_t, orvo::timing::kChannels> latest_ps;
    for (unsigned c = 0; c < orvo::timing::kChannels; ++c) {
      latest_ps[c] = facts_->channels[c].latest_ps();
      if (loss_inside_[c]) return false;
    }
    bool plain = true;
    for (std::size_t i = 0; i < times_ps.size(); ++i) {
      const unsigned c = channels[i];
      const std::uint64_t step = static_cast<std::uint64_t>(times_ps[i]) - static_cast<std::uint64_t>(latest_ps[c]);
      plain = plain & (times_ps[i] > latest_ps[c]);
      latest_ps[c] = times_ps[i];
      block_.steps_ps[i] = step;
      steps_ps[c][counts[c]++] = step;
    }
    for (unsigned c = 0; c < orvo::timing::kChannels; ++c) {
      if (counts[c] != 0 && facts_->channels[c].tags() == 0) plain = false;
    }
    if (!plain) return false;
    facts_->pieces.add(channels, std::span<const std::uint64_t>(block_.steps_ps).first(times_ps.size()));
    for (unsigned c = 0; c < orvo::timing::kChannels; ++c) {
      facts_->channels[c].add_forward(std::span<const std::uint64_t>(steps_ps[c]).first(counts[c]));
    }
    return true;
  }

  std::unique_ptr<CaptureFacts> facts_;  // large
  std::unique_ptr<State> before_chunk_;
  bool may_discard_;
  std::uint64_t left_;
  std::array<bool, orvo::timing::kChannels> loss_inside_{};
  Block block_;
};

}  // namespace
