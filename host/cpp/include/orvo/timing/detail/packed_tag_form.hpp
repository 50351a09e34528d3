#pragma once
#include <cstdint>
#include <optional>
#include <string_view>
#include <variant>

#include "orvo/timing/detail/device_time.hpp"
#include "orvo/timing/detail/packed_record_writer.hpp"
#include "orvo/timing/detail/packed_rules.hpp"
#include "orvo/timing/detail/truncated_clock.hpp"
#include "orvo/timing/encoder_settings.hpp"
#include "orvo/timing/time_tag.hpp"

namespace orvo::timing::detail {

/// Quanta since the channel's last tag.
struct PackedDifference {
  std::uint64_t quanta;
};

using PackedTagForm = std::variant<PackedAnchor, PackedDifference>;

/// Says for each tag how packed_delta stores it so that decoders give its time again, or refuses it as `Error`.
class PackedTagForms {
 public:
  PackedTagForms(const PackedRecordWriter& records, unsigned shift, bool internal, bool channel_axes)
      : records_(records), clock_(shift), shift_(shift), internal_(internal), channel_axes_(channel_axes) {}

  bool has_axis() const { return has_axis_; }

  /// The form of a tag at a whole quantum, not before 0; moves its channel's clock on to it.
  PackedTagForm next(const TimeTag& tag, ChannelClock& clock, bool anchor_is_due) {
    if (!clock.has_started()) return first(tag, clock);
    const auto time_ps = static_cast<std::uint64_t>(tag.time_ps);
    const PackedTagForm form = time_ps < clock.last_ps() ? late(tag, clock) : later(tag, clock, anchor_is_due);
    clock.advance(time_ps);
    return form;
  }

 private:
  static constexpr std::uint64_t kMostOverflowRecords = 65'536;
  static constexpr std::uint64_t kMostOverflowRecordsToStart = 1'000;

  PackedAnchor first(const TimeTag& tag, ChannelClock& clock);
  PackedTagForm later(const TimeTag& tag, const ChannelClock& clock, bool anchor_is_due) const;
  PackedTagForm late(const TimeTag& tag, const ChannelClock& clock) const;
  std::optional<std::uint64_t> later_difference(const ChannelClock& clock, std::uint64_t time_ps,
                                                std::uint64_t most_overflow_records) const;
  std::optional<PackedAnchor> later_anchor(const ChannelClock& clock, std::uint64_t time_ps) const;
  std::uint64_t overflow_records(std::uint64_t difference_ps) const {
    return records_.overflow_records(difference_ps >> shift_);
  }
  [[noreturn]] static void refuse(const TimeTag& tag, std::string_view why) {
    refuse_tag("PackedDeltaEncoder", tag, why);
  }

  PackedRecordWriter records_;  // asked for its counts alone
  TruncatedClock clock_;
  unsigned shift_;
  bool internal_;
  bool channel_axes_;
  bool has_axis_ = false;
  std::uint64_t axis_ps_ = 0;  // of the channel that started last
};

/// A first anchor has no time to be near to: the laps come as the anchor's own difference.
inline PackedAnchor PackedTagForms::first(const TimeTag& tag, ChannelClock& clock) {
  const auto time_ps = static_cast<std::uint64_t>(tag.time_ps);
  const std::uint64_t reading_ps = clock_.reading_ps(time_ps);
  const auto laps_in_reach = [this](std::uint64_t laps_ps) {
    return overflow_records(laps_ps) <= kMostOverflowRecordsToStart;
  };
  if (!has_axis_ || channel_axes_) {
    const bool exact = laps_in_reach(time_ps - reading_ps) && !channel_axes_;
    axis_ps_ = exact ? 0 : reading_ps - time_ps;
    has_axis_ = true;
  }
  const std::uint64_t decoded_ps = time_ps + axis_ps_;
  const std::uint64_t base_ps = axis_ps_ == 0 ? reading_ps : decoded_ps % clock_.lap_ps();
  if (static_cast<std::int64_t>(decoded_ps) < 0 || !laps_in_reach(decoded_ps - base_ps)) {
    refuse(tag, "the channel's first tag lies on another lap of the anchors, 2^41 quanta, than the capture's");
  }
  clock.start(time_ps, axis_ps_);
  return {base_ps >> shift_, (decoded_ps - base_ps) >> shift_};
}

/// A tag at or after its channel's last one.
inline PackedTagForm PackedTagForms::later(const TimeTag& tag, const ChannelClock& clock, bool anchor_is_due) const {
  const auto time_ps = static_cast<std::uint64_t>(tag.time_ps);
  const std::uint64_t gap_ps = time_ps - clock.last_ps();
  if (internal_ && gap_ps > kImplausiblePs) {
    refuse(tag, "the channel was quiet for more than a second, which decoders of internal mode take for lost data");
  }
  const bool may_be_anchor = gap_ps != 0;  // decoders drop an anchor at the last time itself
  anchor_is_due = anchor_is_due && may_be_anchor;
  const std::uint64_t as_many = anchor_is_due ? 0 : records_.anchor_records() - 1;
  std::optional<std::uint64_t> difference_ps = later_difference(clock, time_ps, UINT64_MAX);
  if (may_be_anchor && (anchor_is_due || !difference_ps || overflow_records(*difference_ps) > as_many)) {
    const auto anchor = later_anchor(clock, time_ps);
    if (anchor && records_.overflow_records(anchor->more) <= as_many) return *anchor;
    difference_ps = later_difference(clock, time_ps, kMostOverflowRecords);
    if (!difference_ps && anchor) return *anchor;
  }
  if (!difference_ps) refuse(tag, "the gap takes more than 65536 overflow records, or decoders would misplace it");
  return PackedDifference{*difference_ps >> shift_};
}

inline std::optional<std::uint64_t> PackedTagForms::later_difference(const ChannelClock& clock, std::uint64_t time_ps,
                                                                     std::uint64_t most_overflow_records) const {
  return clock.difference_ps(clock_, time_ps, [&](std::uint64_t stored_ps) {
    const std::uint64_t modulus_ps = clock_.modulus_ps();
    const bool reads_as_step_back = stored_ps <= modulus_ps && modulus_ps - stored_ps <= kBackwardTolerancePs;
    return !reads_as_step_back && overflow_records(stored_ps) <= most_overflow_records;
  });
}

/// An anchor at the tag itself, or one at the last tag that comes with the gap.
inline std::optional<PackedAnchor> PackedTagForms::later_anchor(const ChannelClock& clock,
                                                                std::uint64_t time_ps) const {
  if (const auto base_ps = clock.base_ps(clock_, time_ps)) return PackedAnchor{*base_ps >> shift_};
  const auto base_ps = clock.base_ps(clock_, clock.last_ps());
  const std::uint64_t gap_ps = time_ps - clock.last_ps();
  if (!base_ps || overflow_records(gap_ps) > kMostOverflowRecords) return std::nullopt;
  return PackedAnchor{*base_ps >> shift_, gap_ps >> shift_};
}

/// A tag before its channel's last one: a difference just short of the modulus, or in external mode an anchor.
inline PackedTagForm PackedTagForms::late(const TimeTag& tag, const ChannelClock& clock) const {
  const auto time_ps = static_cast<std::uint64_t>(tag.time_ps);
  const std::uint64_t back_ps = clock.last_ps() - time_ps;
  if (back_ps > kBackwardTolerancePs) refuse(tag, "it is more than 1 us earlier than its channel's last tag");
  const std::uint64_t difference_ps = clock_.modulus_ps() - back_ps;
  const std::uint64_t records = overflow_records(difference_ps);
  const auto base_ps = clock.base_ps(clock_, time_ps);
  if (!internal_ && base_ps && records >= records_.anchor_records()) return PackedAnchor{*base_ps >> shift_};
  if (records > kMostOverflowRecords) refuse(tag, "to step back takes more than 65536 overflow records");
  return PackedDifference{difference_ps >> shift_};
}

}  // namespace orvo::timing::detail
