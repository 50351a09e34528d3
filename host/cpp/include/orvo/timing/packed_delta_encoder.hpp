#pragma once
// packed_delta: records of `delta_bits` + 3 bits without gaps, most significant bit first.
//
//   | channel (2) | flag (1) | payload (delta_bits) |
//
// The first tag of a channel, and each `anchor_every`th after it, is an anchor: a sync start, the words of the time
// in quanta, and a data record of 0. So is a tag after a gap that would take as many overflow records.
//
// A stream starts with overflow records of 0, which mean nothing. Decoders look for the start in the first 65 bytes
// and prefer the one with most tags in the 64 KiB after it; where anchors are dense that is a late one, which must
// not cost the first tags.
#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <variant>
#include <vector>

#include "orvo/timing/byte_queue.hpp"
#include "orvo/timing/detail/packed_read_check.hpp"
#include "orvo/timing/detail/packed_record.hpp"
#include "orvo/timing/detail/packed_record_writer.hpp"
#include "orvo/timing/detail/packed_rules.hpp"
#include "orvo/timing/detail/packed_tag_form.hpp"
#include "orvo/timing/detail/truncated_clock.hpp"
#include "orvo/timing/encoder_settings.hpp"
#include "orvo/timing/error.hpp"
#include "orvo/timing/stream_decoder.hpp"
#include "orvo/timing/stream_file_header.hpp"
#include "orvo/timing/time_tag.hpp"

namespace orvo::timing {

/// Tags to packed_delta payload. What decodes again, in reads of 1 MiB, is each tag as it was, plus `axis_ps`. That
/// is 0 unless the first tag would take more than 1000 overflow records to place; then it decodes to what the low 41
/// bits of the device time in quanta read. Refused, as `Error` with the tag's channel and time, are a time between
/// two quanta, a channel that the mask does not call active, a step back of more than 1 us (in internal mode also a
/// step ahead of more than a second), a step that takes more than 65536 overflow records, and a channel whose first
/// tag takes more than 1000. Refused are also captures that decoders would not align or not keep: those where fewer
/// than two of several active channels click in the first 64 KiB, and in internal mode those of very uneven channels.
class PackedDeltaEncoder {
 public:
  /// Throws `Error` when `delta_bits` is no width that decoders take (1 to 31; 0 counts as 16).
  explicit PackedDeltaEncoder(const StreamFileHeader& header, const EncoderSettings& settings = {});

  /// Appends the records of the tags to `payload`, as far as they fill bytes; before those of the first call what
  /// starts a stream. Of tags that end in an error those before it are appended.
  void encode(std::span<const TimeTag> tags, ByteQueue& payload);
  /// Fills the last byte; nothing can be encoded after that.
  void finish(ByteQueue& payload);

  /// Decoded less given time of a channel's tags; 0 as long as it has none.
  std::int64_t axis_ps(unsigned channel) const {
    return static_cast<std::int64_t>(channels_[channel].clock.axis_ps());
  }
  const Rounding& rounding() const { return rounding_; }

 private:
  static constexpr std::size_t kLeadInBytes = 65;

  struct Channel {
    detail::ChannelClock clock;
    std::uint64_t until_anchor = 0;  // tags, also 0 before the first one
  };

  void start(ByteQueue& payload);
  void encode_tags(std::span<const TimeTag> tags, ByteQueue& payload);
  void encode_watched(std::span<const TimeTag> tags, ByteQueue& payload);
  std::size_t encode_plain(std::span<const TimeTag> tags, ByteQueue& payload);
  void encode_at_length(const TimeTag& tag, ByteQueue& payload);
  void append(unsigned channel, const detail::PackedTagForm& form, ByteQueue& payload);
  std::span<const TimeTag> rounded(std::span<const TimeTag> tags);
  [[noreturn]] static void refuse(const TimeTag& tag, std::string_view why) {
    detail::refuse_tag("PackedDeltaEncoder", tag, why);
  }

  detail::PackedLayout layout_;
  unsigned shift_;
  unsigned active_;
  EncoderSettings settings_;
  detail::PackedRecordWriter records_;
  detail::PackedTagForms forms_;
  std::uint64_t most_plain_quanta_ = 0;
  bool has_started_ = false;
  std::array<Channel, kChannels> channels_{};
  std::uint64_t bytes_ = 0;  // of the payload so far
  std::int64_t last_ps_ = 0;
  detail::PackedReadCheck check_;
  std::vector<TimeTag> rounded_;
  Rounding rounding_;
};

inline PackedDeltaEncoder::PackedDeltaEncoder(const StreamFileHeader& header, const EncoderSettings& settings)
    : layout_{header.delta_bits == 0 ? 16u : header.delta_bits},
      shift_(header.quantum_ps == 0 ? 3 : static_cast<unsigned>(std::countr_zero(header.quantum_ps))),
      active_(detail::active_channels(header)),
      settings_(settings),
      records_(layout_),
      forms_(records_, shift_, header.mode == StreamMode::internal, settings.channel_axes),
      check_(header) {
  if (layout_.delta_bits > 31) throw Error("PackedDeltaEncoder: delta_bits is 1 to 31", kInvalidArgument);
  settings_.anchor_every = std::max<std::uint64_t>(settings_.anchor_every, 1);
  settings_.start_bit %= 8;
  // A shorter difference is no step back, has no wrap step in it and is not implausible.
  const detail::TruncatedClock clock(shift_);
  const std::uint64_t no_rule_ps = std::min({clock.modulus_ps() / 2, clock.wrap_step_ps(), detail::kImplausiblePs});
  most_plain_quanta_ = std::min(records_.most_plain_quanta(), (no_rule_ps >> shift_) - 1);
}

inline void PackedDeltaEncoder::start(ByteQueue& payload) {
  has_started_ = true;
  const auto channel = static_cast<unsigned>(std::countr_zero(active_));
  const std::size_t before = payload.size();
  records_.append_lead_in(channel, settings_.start_bit, kLeadInBytes, payload);
  check_.begin(settings_.start_bit, 8 * (payload.size() - before) + records_.waiting_bits());
}

inline void PackedDeltaEncoder::encode(std::span<const TimeTag> tags, ByteQueue& payload) {
  const std::size_t before = payload.size();
  if (!has_started_) start(payload);
  if (settings_.round) tags = rounded(tags);
  try {
    if (check_.watches_balance()) {
      bytes_ += payload.size() - before;
      encode_watched(tags, payload);
    } else {
      encode_tags(tags, payload);
    }
  } catch (const Error&) {
    check_.add_bytes(payload.bytes().subspan(before));  // of the tags before the refused one
    throw;
  }
  if (!tags.empty()) last_ps_ = tags.back().time_ps;
  check_.add_bytes(payload.bytes().subspan(before));
}

inline void PackedDeltaEncoder::finish(ByteQueue& payload) {
  const std::size_t before = payload.size();
  records_.fill_byte(static_cast<unsigned>(std::countr_zero(active_)), payload);
  check_.add_bytes(payload.bytes().subspan(before));
  check_.finish(forms_.has_axis(), last_ps_);
}

/// Tells the check where each tag ends, to the bit. Away from the end of a read that is not asked.
inline void PackedDeltaEncoder::encode_watched(std::span<const TimeTag> tags, ByteQueue& payload) {
  while (!tags.empty()) {
    const std::size_t before = payload.size();
    const auto left = static_cast<std::size_t>(check_.left_in_read(bytes_) / detail::PackedRecordWriter::kPlainBytes);
    std::size_t done = left < 2 ? 0 : encode_plain(tags.first(std::min(tags.size(), left - 1)), payload);
    if (done == 0) {
      done = 1;
      encode_tags(tags.first(1), payload);
    }
    bytes_ += payload.size() - before;
    for (const TimeTag& tag : tags.first(done)) check_.add_tag(tag, 8 * bytes_ + records_.waiting_bits());
    tags = tags.subspan(done);
  }
}

inline void PackedDeltaEncoder::encode_tags(std::span<const TimeTag> tags, ByteQueue& payload) {
  while (!tags.empty()) {
    constexpr std::size_t kBlock = 4096;
    const std::size_t done = encode_plain(tags.first(std::min(tags.size(), kBlock)), payload);
    tags = tags.subspan(done);
    if (tags.empty() || done == kBlock) continue;
    encode_at_length(tags.front(), payload);
    tags = tags.subspan(1);
  }
}

/// The tags up to the first that takes an anchor, more than one overflow record, or a refusal. Returns how many.
inline std::size_t PackedDeltaEncoder::encode_plain(std::span<const TimeTag> tags, ByteQueue& payload) {
  std::uint8_t* const begin = payload.prepare(detail::PackedRecordWriter::kPlainBytes * tags.size());
  detail::PackedRecordWriter records = records_;  // copies that stores to the payload cannot change
  std::array<Channel, kChannels> channels = channels_;
  records.move_to(begin);
  const unsigned shift = shift_;
  const std::uint64_t most_quanta = most_plain_quanta_;
  std::size_t done = 0;
  for (; done < tags.size(); ++done) {
    const TimeTag& tag = tags[done];
    if (tag.channel >= kChannels) break;
    Channel& channel = channels[tag.channel];
    const auto time_ps = static_cast<std::uint64_t>(tag.time_ps);
    // Turned right, a step back and a part of a quantum are huge.
    const std::uint64_t quanta = std::rotr(time_ps - channel.clock.last_ps(), static_cast<int>(shift));
    if (channel.until_anchor == 0 || time_ps >= channel.clock.wrap_ps() || quanta > most_quanta) break;
    channel.clock.advance_within_period(time_ps);
    records.put_plain(tag.channel, quanta);
    --channel.until_anchor;
  }
  records_ = records;
  channels_ = channels;
  payload.commit(static_cast<std::size_t>(records.at() - begin));
  return done;
}

inline void PackedDeltaEncoder::encode_at_length(const TimeTag& tag, ByteQueue& payload) {
  if (tag.channel >= kChannels) refuse(tag, "there are channels 0 to 3");
  if (!detail::is_active(active_, tag.channel)) refuse(tag, "the header's channel mask does not call it active");
  if (tag.time_ps < 0) refuse(tag, "the time lies before the axis, which starts at 0");
  const auto time_ps = static_cast<std::uint64_t>(tag.time_ps);
  if (time_ps >> shift_ << shift_ != time_ps) refuse(tag, "the time lies between two quanta");
  Channel& channel = channels_[tag.channel];
  append(tag.channel, forms_.next(tag, channel.clock, channel.until_anchor == 0), payload);
  --channel.until_anchor;
}

inline void PackedDeltaEncoder::append(unsigned channel, const detail::PackedTagForm& form, ByteQueue& payload) {
  std::uint64_t& until_anchor = channels_[channel].until_anchor;
  if (const auto* const anchor = std::get_if<detail::PackedAnchor>(&form)) {
    records_.append_anchor(channel, *anchor, payload);
    until_anchor = settings_.anchor_every;
  } else {
    records_.append_difference(channel, std::get<detail::PackedDifference>(form).quanta, payload);
    until_anchor = std::max<std::uint64_t>(until_anchor, 1);  // one that was due here comes with the next tag
  }
}

/// At the nearest quantum, halves later.
inline std::span<const TimeTag> PackedDeltaEncoder::rounded(std::span<const TimeTag> tags) {
  rounded_.assign(tags.begin(), tags.end());
  const std::int64_t quantum_ps = std::int64_t{1} << shift_;
  for (TimeTag& tag : rounded_) {
    const std::int64_t above_ps = tag.time_ps & (quantum_ps - 1);
    const bool up = 2 * above_ps >= quantum_ps && tag.time_ps <= INT64_MAX - quantum_ps;
    const std::int64_t nearest_ps = tag.time_ps - above_ps + (up && above_ps != 0 ? quantum_ps : 0);
    rounding_.add(tag.time_ps, nearest_ps);
    tag.time_ps = nearest_ps;
  }
  return rounded_;
}

}  // namespace orvo::timing
