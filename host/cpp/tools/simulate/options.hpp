#pragma once
// Part of vq_simulate_stream_file: file-local throughout.
// The options, and the settings they result in. What an option allows by itself stands where it is added; what
// several must be together is judged by `check_settings`.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/command_line.hpp"
#include "common/usage_error.hpp"
#include "orvo/timing/detail/device_time.hpp"
#include "orvo/timing/stream_header_json.hpp"
#include "orvo/timing/time_tag.hpp"
#include "simulate/settings.hpp"

namespace {

/// A list of different channels, as in "0,1,3"; `nullopt` for anything else.
inline std::optional<std::vector<unsigned>> parse_channels(std::string_view text) {
  std::vector<unsigned> channels;
  for (const std::string& item : split_list(text)) {
    const auto channel = parse_whole_number<unsigned>(item);
    if (!channel || *channel >= orvo::timing::kChannels) return std::nullopt;
    if (std::find(channels.begin(), channels.end(), *channel) != channels.end()) return std::nullopt;
    channels.push_back(*channel);
  }
  return channels;
}

inline CLI::Validator channel_list() {
  const auto check = [](std::string& text) -> std::string {
    if (parse_channels(text)) return {};
    return "'" + text + "' is not a list of different channels from 0 to 3, as in 0,1";
  };
  return {check, ""};
}

inline CLI::Validator channel_pair() {
  const auto check = [](std::string& text) -> std::string {
    const auto channels = parse_channels(text);
    if (channels && channels->size() == 2) return {};
    return "'" + text + "' is not two different channels from 0 to 3, as in 0,1";
  };
  return {check, ""};
}

constexpr const char* kDescription =
    "Writes a time-tag stream capture as a converter would record it: uncorrelated\n"
    "tags on every active channel, and correlated pairs on two of them. The same\n"
    "options and seed give the same file, byte for byte. Prints on standard output\n"
    "what a verification of the capture should find.\n"
    "\n"
    "A TIME is a whole number with a unit (ps, ns, us, ms, s), or of picoseconds.\n"
    "Brackets hold the allowed range, parentheses the default.\n";

constexpr const char* kFooter =
    "Each active channel has to click at least 100 times per second, pairs included,\n"
    "or never. In internal mode packed_delta needs channels of similar rates: the\n"
    "highest at most 1.5 times the lowest.\n"
    "Exit status: 0 done, 64 unusable options, 1 any other failure. The capture is\n"
    "either complete or not there.";

/// The command line of the simulator. `app()` is bound to it, so that it stays where it is.
class Options {
 public:
  Options() {
    app_->footer(kFooter);
    add_capture_options();
    add_encoding_options();
    add_channel_options();
    add_pair_options();
    add_light_options();
    add_damage_options();
  }
  Options(const Options&) = delete;
  Options& operator=(const Options&) = delete;

  CLI::App& app() { return *app_; }

  /// What `app()` has parsed, each setting valid by itself. Throws `UsageError` for an option that the capture's
  /// encoding does not have, and for a list that has not one value for each active channel.
  Settings settings() const {
    using orvo::timing::StreamFormat;
    Settings settings = settings_;
    settings.out = out_;
    settings.encoding = orvo::timing::detail::stream_format_from_text(encoding_);
    settings.mode = orvo::timing::detail::stream_mode_from_text(mode_);
    refuse_unless(settings.encoding == StreamFormat::raw64, {"--tag-format"}, "raw64");
    refuse_unless(settings.is_packed(), {"--delta-bits", "--quantum-ps", "--start-bit"}, "packed_delta");
    refuse_unless(settings.encoding != StreamFormat::raw64, {"--anchor-every"}, "delta32 or packed_delta");
    set_light(settings.light);
    set_channels(settings);
    if (given("--duration")) settings.duration_ps = duration_ps_;
    if (given("--tags") || !given("--duration")) settings.tags = tags_;
    return settings;
  }

 private:
  static constexpr std::uint64_t kMillisecondPs = 1'000'000'000;
  static constexpr std::uint64_t kLongestDelayPs = 10'000'000'000'000;
  static constexpr Limits kRateHz{0, 100'000'000};
  static constexpr std::size_t kRateDecimals = 2;
  static constexpr Limits kDeadTimePs{0, kMillisecondPs};
  static constexpr Limits kBytes{0, 1'000'000'000'000};

  void add_capture_options() {
    app_->option_defaults()->group("Capture");
    app_->add_option("FILE,--out", out_, "the capture to write; the name alone is enough")->type_name("FILE");
    add_word(*app_, "--encoding", encoding_, {"raw64", "delta32", "packed_delta"}, "encoding of the payload");
    add_word(*app_, "--mode", mode_, {"internal", "external"}, "clocking, as noted in the header");
    add_number(*app_, "--tags", tags_, {0, 1'000'000'000'000}, "length of the capture in tags");
    add_time(*app_, "--duration", duration_ps_, {0, static_cast<std::uint64_t>(kLongestPs)},
             "length of the capture in time, instead of --tags")
        ->default_str("");
    add_time(*app_, "--start", settings_.start_ps, {0, orvo::timing::detail::kDevicePeriodPs - 1},
             "device time at the start; it wraps at 14315125997568 ps");
    add_number(*app_, "--seed", settings_.seed, {0, std::numeric_limits<std::uint64_t>::max()},
               "seed of the random numbers");
  }

  void add_encoding_options() {
    app_->option_defaults()->group("Encoding");
    add_word(*app_, "--tag-format", settings_.tag_format, {"ps", "raw_cf"},
             "raw64: words of picoseconds, or of coarse and fine counts");
    add_number(*app_, "--anchor-every", settings_.anchor_every, {1, 1'000'000},
               "delta32, packed_delta: tags of a channel from one time base or anchor to\n"
               "the next");
    add_number(*app_, "--delta-bits", settings_.delta_bits, {1, 31}, "packed_delta: payload bits of a record");
    add_number(*app_, "--quantum-ps", settings_.quantum_ps, {1, 65'535},
               "packed_delta: time quantum, of which the largest power of two that\n"
               "divides it is used");
    add_number(*app_, "--start-bit", settings_.start_bit, {0, 7},
               "packed_delta: bit of the payload's first byte at which records start");
  }

  void add_channel_options() {
    app_->option_defaults()->group("Channels");
    app_->add_option("--channels", channels_, "active channels, from 0 to 3")
        ->transform(channel_list())
        ->type_name("N[,N...]")
        ->capture_default_str();
    app_->add_option("--rate", rates_hz_,
                     "uncorrelated tags per second: one number for all active channels, or one\nfor each, lowest "
                     "channel first")
        ->transform(list_of(rate_hz()))
        ->type_name("N[,N...] [" + to_text(kRateHz) + "]")
        ->capture_default_str();
    app_->add_option("--dark-rate", dark_rates_hz_,
                     "tags per second without light, in addition: one number or one for each\nactive channel")
        ->transform(list_of(rate_hz()))
        ->type_name("N[,N...] [" + to_text(kRateHz) + "]")
        ->capture_default_str();
    app_->add_option("--dead-time", dead_times_ps_,
                     "how long a channel is blind after a tag: one time for all active channels,\nor one for each, "
                     "lowest channel first")
        ->transform(list_of(time_ps(kDeadTimePs)))
        ->type_name("TIME[,TIME...] [" + to_text(kDeadTimePs) + " ps]")
        ->default_str("0 ps");
  }

  void add_pair_options() {
    app_->option_defaults()->group("Pairs");
    app_->add_option("--pair-channels", pair_channels_, "channels A and B of the correlated pairs")
        ->transform(channel_pair())
        ->type_name("A,B")
        ->default_str("the first two active channels");
    app_->add_option("--pair-rate", settings_.pairs.rate_hz, "correlated pairs per second")
        ->transform(rate_hz())
        ->type_name("N [" + to_text(kRateHz) + "]")
        ->default_str("50000, or 0 with one active channel or --light");
    add_time(*app_, "--delay", settings_.pairs.delay_ps,
             {-static_cast<std::int64_t>(kLongestDelayPs), kLongestDelayPs},
             "how much later than A channel B clicks in a pair");
    add_time(*app_, "--jitter", settings_.pairs.jitter_ps, {0, 1'000'000},
             "standard deviation of the delay, which is Gaussian");
    add_time(*app_, "--range", settings_.pairs.range_ps, {1, kMillisecondPs},
             "largest distance from the delay that counts as a coincidence");
  }

  void add_light_options() {
    app_->option_defaults()->group("Light that a beam splitter sends to channels A and B, to B later by the delay");
    LightSettings& light = settings_.light;
    add_word(*app_, "--light", light_, {"none", "pulses", "emitter"},
             "pulses of many photons, or an emitter that never gives two at once");
    add_time(*app_, "--pulse-period", light.pulse_period_ps, {0, kMillisecondPs},
             "time from pulse to pulse; 0: an emitter of continuous light")
        ->default_str("12500 ps of pulses, 0 ps of an emitter");
    add_time(*app_, "--pulse-jitter", light.pulse_jitter_ps, {0, 1'000'000},
             "standard deviation of a photon's time about its pulse");
    app_->add_option("--photons", light.photons, "photons of a pulse that are seen, on the average")
        ->transform(decimal_number(100, 4))
        ->type_name("N [0 to 100]")
        ->capture_default_str();
    app_->add_option("--emission-rate", light.emission_rate_hz, "continuous light: photons per second")
        ->transform(rate_hz())
        ->type_name("N [" + to_text(kRateHz) + "]")
        ->default_str("100000");
    add_time(*app_, "--lifetime", light.lifetime_ps, {1, kMillisecondPs},
             "continuous light: mean time from excitation to photon");
  }

  void add_damage_options() {
    app_->option_defaults()->group("Damage to the encoded payload");
    DamageSettings& damage = settings_.damage;
    add_number(*app_, "--front-garbage", damage.front_garbage_bytes, kBytes, "bytes of garbage before the payload");
    add_number(*app_, "--garbage", damage.garbage_bytes, kBytes, "bytes of garbage inside the payload");
    add_number(*app_, "--garbage-at", damage.garbage_at, kBytes, "payload byte before which that garbage stands");
    add_number(*app_, "--flip-every", damage.flip_every_bytes, kBytes,
               "flips one random bit in every stretch of this many bytes; 0 flips none");
    add_number(*app_, "--cut-tail", damage.cut_tail_bytes, kBytes, "bytes cut off the end of the payload");
  }

  static CLI::Validator rate_hz() { return decimal_number(static_cast<double>(kRateHz.most), kRateDecimals); }

  bool given(const std::string& name) const { return app_->count(name) != 0; }

  void refuse_unless(bool allowed, std::initializer_list<const char*> names, const std::string& encodings) const {
    for (const std::string name : names) {
      if (!allowed && given(name)) throw UsageError(name + ": only with --encoding " + encodings);
    }
  }

  /// The items of a list, or one item `count` times.
  static std::vector<double> one_for_each(const std::string& name, const std::string& list, std::size_t count) {
    std::vector<double> values;
    for (const std::string& item : split_list(list)) values.push_back(parse_decimal(item, kRateDecimals).value_or(0));
    if (values.size() == 1) values.resize(count, values.front());
    if (values.size() == count) return values;
    throw UsageError(name + ": give one value, or one for each of the " + std::to_string(count) +
                     " active channels, not " + std::to_string(values.size()));
  }

  void set_light(LightSettings& light) const {
    constexpr std::int64_t kUsualPeriodPs = 12'500;
    light.kind = light_ == "pulses" ? Light::pulses : light_ == "emitter" ? Light::emitter : Light::none;
    if (light.kind == Light::pulses && !given("--pulse-period")) light.pulse_period_ps = kUsualPeriodPs;
    const bool is_pulsed =
        light.kind == Light::pulses || (light.kind == Light::emitter && light.pulse_period_ps != 0);
    const bool is_continuous = light.kind == Light::emitter && !is_pulsed;
    for (const char* name : {"--pulse-period", "--pulse-jitter", "--photons"}) {
      const bool fits = is_pulsed || (name == std::string_view("--pulse-period") && is_continuous);
      if (!fits && given(name))
        throw UsageError(std::string(name) + ": only with light in pulses (--light, --pulse-period)");
    }
    for (const char* name : {"--emission-rate", "--lifetime"}) {
      if (!is_continuous && given(name))
        throw UsageError(std::string(name) + ": only with an emitter of continuous light");
    }
  }

  void set_channels(Settings& settings) const {
    set_active_channels(settings, *parse_channels(channels_));
    const std::vector<unsigned> active = active_channels_of(settings);
    const std::vector<double> rates_hz = one_for_each("--rate", rates_hz_, active.size());
    const std::vector<double> dark_rates_hz = one_for_each("--dark-rate", dark_rates_hz_, active.size());
    const std::vector<double> dead_times_ps = one_for_each("--dead-time", dead_times_ps_, active.size());
    for (std::size_t i = 0; i < active.size(); ++i) {
      settings.channels[active[i]].rate_hz = rates_hz[i];
      settings.channels[active[i]].dark_hz = dark_rates_hz[i];
      settings.channels[active[i]].dead_time_ps = static_cast<std::int64_t>(dead_times_ps[i]);
    }
    const bool no_pairs = active.size() == 1 || settings.light.kind != Light::none;
    if (no_pairs && !given("--pair-rate")) settings.pairs.rate_hz = 0;
    if (!given("--pair-channels")) return;
    const std::vector<unsigned> pair = *parse_channels(pair_channels_);
    settings.pairs.channel_a = pair[0];
    settings.pairs.channel_b = pair[1];
  }

  std::unique_ptr<CLI::App> app_ = make_app("vq_simulate_stream_file", kDescription);
  Settings settings_;  // what needs no other option to be understood
  std::string out_;
  std::string encoding_ = "raw64";
  std::string mode_ = "external";
  std::uint64_t tags_ = 1'000'000;
  std::int64_t duration_ps_ = 0;
  std::string channels_ = "0,1";
  std::string rates_hz_ = "100000";
  std::string dark_rates_hz_ = "0";
  std::string dead_times_ps_ = "0";
  std::string light_ = "none";
  std::string pair_channels_;
};

}  // namespace
