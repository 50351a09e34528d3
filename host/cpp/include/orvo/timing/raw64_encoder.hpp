#pragma once
// raw64: one big-endian 64-bit word per tag, in one of two tag formats.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "orvo/timing/byte_queue.hpp"
#include "orvo/timing/detail/ascii_lower.hpp"
#include "orvo/timing/detail/byte_order.hpp"
#include "orvo/timing/detail/coarse_fine_time.hpp"
#include "orvo/timing/detail/device_time.hpp"
#include "orvo/timing/encoder_settings.hpp"
#include "orvo/timing/stream_file_header.hpp"
#include "orvo/timing/time_tag.hpp"

namespace orvo::timing {

namespace detail {

/// Picosecond word:  63 zero | 62..61 channel | 60..44 zero | 43..0 device time, ps
struct PicosecondForm {
  static constexpr std::uint64_t kPeriod = kDevicePeriodPs;  // of the count, which is in ps
  static constexpr std::uint64_t kCountPs = 1;
  static constexpr std::int64_t kEarliestPs = 0;

  std::uint64_t count;  // not yet wrapped

  static constexpr PicosecondForm of(std::int64_t time_ps) { return {static_cast<std::uint64_t>(time_ps)}; }
  constexpr bool says(std::int64_t) const { return true; }
  constexpr std::uint64_t word(unsigned channel, std::uint64_t wrapped_count) const {
    return std::uint64_t{channel} << 61 | wrapped_count;
  }
};
static_assert(PicosecondForm::of(0).word(1, 10'160) == 0x2000'0000'0000'27B0);

/// Coarse/fine word:  63 zero | 62..61 channel | 60..45 marker 0xA5C3 | 44..13 coarse count | 12..0 fine code
struct CoarseFineForm {
  static constexpr std::uint64_t kPeriod = kCoarseCounts;
  static constexpr std::uint64_t kCountPs = kCoarsePeriodPs;
  static constexpr std::int64_t kEarliestPs = -std::int64_t{CoarseFineTime::kLongestFinePs};

  std::uint64_t count;
  std::uint64_t fine;

  static constexpr CoarseFineForm of(std::int64_t time_ps) {
    const CoarseFineTime time = CoarseFineTime::exact_or_nearest(time_ps);
    return {time.coarse, time.fine};
  }
  constexpr bool says(std::int64_t time_ps) const { return CoarseFineTime{count, fine}.time_ps() == time_ps; }
  constexpr std::uint64_t word(unsigned channel, std::uint64_t wrapped_count) const {
    return std::uint64_t{channel} << 61 | std::uint64_t{0xA5C3} << 45 | wrapped_count << 13 | fine;
  }
};
static_assert(CoarseFineForm::of(3333 - 19).word(1, 1) == 0x34B8'6000'0000'2001);

}  // namespace detail

/// Tags to raw64 payload. What decodes again is each tag as it was, plus `axis_ps`, a multiple of the device period:
/// decoders count from the lap of the first tag. Refused, as `Error` with the tag's channel and time, are a channel
/// that is quiet for so long that decoders miss a wrap (half a device period with a wrap in it), one that falls back
/// across a wrap, one that starts on another lap than the first tag, and in "raw_cf" a time between two fine codes.
class Raw64Encoder {
 public:
  explicit Raw64Encoder(const StreamFileHeader& header, const EncoderSettings& settings = {})
      : coarse_fine_(detail::ascii_lower(header.raw64_tag_format) == "raw_cf"), settings_(settings) {}

  /// Appends the words of the tags to `payload`. Of tags that end in an error those before it are appended.
  void encode(std::span<const TimeTag> tags, ByteQueue& payload) {
    if (!coarse_fine_) return encode_as<detail::PicosecondForm>(tags, payload);
    encode_as<detail::CoarseFineForm>(settings_.round ? rounded(tags) : tags, payload);
  }
  /// Nothing is left over at the end.
  void finish(ByteQueue&) {}

  /// Decoded less given time of a channel's tags; 0 as long as it has none.
  std::int64_t axis_ps(unsigned channel) const {
    return -static_cast<std::int64_t>(channels_[channel].first_lap_begin *
                                      (coarse_fine_ ? detail::CoarseFineForm::kCountPs : 1));
  }
  const Rounding& rounding() const { return rounding_; }

 private:
  struct Channel {
    static constexpr std::uint64_t kNone = std::uint64_t{1}
                                           << 62;  // to all counts a step back of more than half a lap
    std::uint64_t previous = kNone;                // count, wrapped
    std::uint64_t lap_begin = 0;                   // count at which the lap that decoders are on began
    std::uint64_t first_lap_begin = 0;             // the same at the first tag
  };

  template <class Form>
  void encode_as(std::span<const TimeTag> tags, ByteQueue& payload) {
    constexpr std::size_t kBlock = 4096;
    while (!tags.empty()) {
      const std::size_t count = std::min(tags.size(), kBlock);
      std::uint8_t* const begin = payload.prepare(8 * count);
      const std::size_t done = encode_plain<Form>(tags.first(count), begin);
      payload.commit(8 * done);
      tags = tags.subspan(done);
      if (done == count) continue;
      enter_lap<Form>(tags.front());
    }
  }

  /// The tags up to the first that does not simply go on on its channel's lap. Returns how many.
  template <class Form>
  std::size_t encode_plain(std::span<const TimeTag> tags, std::uint8_t* out) {
    std::array<Channel, kChannels> channels = channels_;  // a copy that stores to `out` cannot change
    std::size_t done = 0;
    for (; done < tags.size(); ++done) {
      const TimeTag& tag = tags[done];
      const Form form = Form::of(tag.time_ps);
      if (tag.channel >= kChannels || tag.time_ps < Form::kEarliestPs) break;
      Channel& channel = channels[tag.channel];
      const std::uint64_t count = form.count - channel.lap_begin;
      if (count >= Form::kPeriod || detail::wrapped(channel.previous, count, Form::kPeriod) ||
          !form.says(tag.time_ps)) {
        break;
      }
      channel.previous = count;
      out = detail::store_be64(out, form.word(tag.channel, count));
    }
    channels_ = channels;
    return done;
  }

  /// Moves the channel of a tag to the lap that decoders will be on there, so that it goes on plainly.
  template <class Form>
  void enter_lap(const TimeTag& tag) {
    const auto refuse = [&tag](std::string_view why) { detail::refuse_tag("Raw64Encoder", tag, why); };
    if (tag.channel >= kChannels) refuse("there are channels 0 to 3");
    if (tag.time_ps < Form::kEarliestPs) refuse("the time lies before the axis, which starts at 0");
    const Form form = Form::of(tag.time_ps);
    if (!form.says(tag.time_ps)) refuse("no fine code stands for this time; the nearest is up to 9 ps away");
    const std::uint64_t lap_begin = form.count / Form::kPeriod * Form::kPeriod;
    Channel& channel = channels_[tag.channel];
    if (channel.previous == Channel::kNone) {
      if (!has_first_lap_ || settings_.channel_axes) first_lap_begin_ = lap_begin;
      has_first_lap_ = true;
      if (lap_begin != first_lap_begin_) {
        refuse("the channel's first tag lies on another lap of the device time than the capture's");
      }
      channel.previous = 0;
      channel.first_lap_begin = lap_begin;
    } else {
      const std::uint64_t count = form.count - lap_begin;
      const bool wraps = detail::wrapped(channel.previous, count, Form::kPeriod);
      if (lap_begin != channel.lap_begin + (wraps ? Form::kPeriod : 0)) {
        refuse(
            "decoders would misplace it: the channel was quiet for more than half a device period of 14.3 s, or "
            "falls back across its end");
      }
      channel.previous = count;
    }
    channel.lap_begin = lap_begin;
  }

  std::span<const TimeTag> rounded(std::span<const TimeTag> tags) {
    rounded_.assign(tags.begin(), tags.end());
    for (TimeTag& tag : rounded_) {
      if (tag.time_ps < detail::CoarseFineForm::kEarliestPs) continue;
      const detail::CoarseFineTime time = detail::CoarseFineTime::exact_or_nearest(tag.time_ps);
      rounding_.add(tag.time_ps, time.time_ps());
      tag.time_ps = time.time_ps();
    }
    return rounded_;
  }

  bool coarse_fine_;
  EncoderSettings settings_;
  bool has_first_lap_ = false;
  std::uint64_t first_lap_begin_ = 0;
  std::array<Channel, kChannels> channels_{};
  std::vector<TimeTag> rounded_;
  Rounding rounding_;
};

}  // namespace orvo::timing
