#pragma once
// Part of vq_convert_stream_file: file-local throughout.
#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "common/command_line.hpp"
#include "common/usage_error.hpp"
#include "convert/settings.hpp"
#include "orvo/timing/stream_header_json.hpp"
#include "orvo/timing/time_tag.hpp"

namespace {

/// Channels as in "0,1,3".
inline std::optional<std::vector<unsigned>> channels_from(std::string_view text) {
  std::vector<unsigned> channels;
  for (const std::string& item : split_list(text)) {
    const auto channel = parse_whole_number<unsigned>(item);
    if (!channel || *channel >= orvo::timing::kChannels) return std::nullopt;
    channels.push_back(*channel);
  }
  return channels;
}

/// A shift as in "1=-35ns", or "all=1us".
struct ChannelShift {
  unsigned channels;  ///< bit n: channel n
  std::int64_t shift_ps;
};

inline std::optional<ChannelShift> channel_shift_from(std::string_view text) {
  const auto equals = text.find('=');
  if (equals == text.npos) return std::nullopt;
  const auto time_ps = parse_time_ps(text.substr(equals + 1));
  if (!time_ps) return std::nullopt;
  if (text.substr(0, equals) == "all") return ChannelShift{0xF, *time_ps};
  const auto channel = parse_whole_number<unsigned>(text.substr(0, equals));
  if (!channel || *channel >= orvo::timing::kChannels) return std::nullopt;
  return ChannelShift{1u << *channel, *time_ps};
}

constexpr const char* kConvertDescription =
    "Cuts, joins and converts time-tag stream captures: from any encoding to any\n"
    "other, to CSV and to NumPy arrays. Inputs are captures, read in the order\n"
    "given. OUT is a capture when it ends in .tagcap, a table when it ends in .csv,\n"
    "an array when it ends in .npy; - is standard output, and standard input.\n"
    "\n"
    "A TIME is a whole number with a unit (ps, ns, us, ms, s), or of picoseconds.\n"
    "Brackets hold the allowed range, parentheses the default.\n";

constexpr const char* kConvertFooter =
    "Selections name channels and times as the inputs have them, and are made in\n"
    "the order listed; changes come after them.\n"
    "Exit status: 0 done, 64 unusable options, 1 any other failure. OUT is either\n"
    "complete or not there.";

/// The command line of the converter. `app()` is bound to it, so that it stays where it is.
class Options {
 public:
  Options() {
    app_->footer(kConvertFooter);
    add_file_options();
    add_encoding_options();
    add_selection_options();
    add_change_options();
  }
  Options(const Options&) = delete;
  Options& operator=(const Options&) = delete;

  CLI::App& app() { return *app_; }

  /// What `app()` has parsed. Throws `UsageError` for options that do not go together.
  Settings settings() const {
    Settings settings;
    if (files_.size() < 2) throw UsageError("name at least one input and OUT (--help tells more)");
    settings.inputs.assign(files_.begin(), files_.end() - 1);
    settings.out = files_.back();
    settings.form = form();
    settings.force = force_;
    settings.verify = verify_ == "on";
    if (given("--gap")) settings.gap_ps = gap_ps_;
    set_encoding(settings);
    set_selection(settings.selection);
    set_changes(settings.changes);
    if (std::count(settings.inputs.begin(), settings.inputs.end(), Settings::kPipe) > 1) {
      throw UsageError("IN: standard input (-) can be read only once");
    }
    return settings;
  }

 private:
  static constexpr std::uint64_t kMostPs = std::numeric_limits<std::int64_t>::max();
  static constexpr std::uint64_t kMostTags = 1'000'000'000'000'000;

  void add_file_options() {
    app_->option_defaults()->group("Files");
    app_->add_option("FILES", files_, "the captures to read, then the file to write")->type_name("IN... OUT");
    add_word(*app_, "--format", format_, {"tagcap", "csv", "npy"}, "what OUT holds, whatever it ends in");
    app_->add_flag("--force", force_, "replace OUT where it exists");
    add_word(*app_, "--verify", verify_, {"on", "off"}, "decode the capture again while it is written, and compare");
    add_time(*app_, "--gap", gap_ps_, {0, kMostPs},
             "from an input's last tag to the next one's first; without it the device's\n"
             "clock is taken to have run on")
        ->default_str("");
  }

  void add_encoding_options() {
    app_->option_defaults()->group("Encoding of a capture, by default as the first input's");
    add_word(*app_, "--encoding", encoding_, {"raw64", "delta32", "packed_delta"}, "encoding of the payload");
    add_word(*app_, "--tag-format", tag_format_, {"ps", "raw_cf"},
             "raw64: words of picoseconds, or of coarse and fine counts");
    add_number(*app_, "--delta-bits", delta_bits_, {1, 31},
               "packed_delta: payload bits of a record; by default what takes least for\n"
               "the first tags")
        ->default_str("");
    add_number(*app_, "--quantum-ps", quantum_ps_, {1, 65'535},
               "packed_delta: time quantum, of which the largest power of two that\n"
               "divides it is used; by default 1, or the input's")
        ->default_str("");
    add_number(*app_, "--anchor-every", anchor_every_, {1, 1'000'000},
               "delta32, packed_delta: tags of a channel from one time base or anchor to\n"
               "the next");
    app_->add_flag("--round", round_, "move times that the encoding cannot hold to the nearest that it can");
  }

  void add_selection_options() {
    app_->option_defaults()->group("Selection");
    app_->add_option("--channels", channels_, "take these channels")
        ->transform(checked_by(channels_from, "channels from 0 to 3, as in 0,1"))
        ->type_name("LIST");
    add_time(*app_, "--from", from_ps_, {0, kMostPs}, "take tags from this time after the first tag on")
        ->default_str("");
    add_time(*app_, "--to", to_ps_, {0, kMostPs}, "take tags up to this time after the first tag")->default_str("");
    add_time(*app_, "--duration", duration_ps_, {0, kMostPs}, "take this much, instead of an end")->default_str("");
    add_number(*app_, "--skip-tags", skip_tags_, {0, kMostTags}, "leave out so many tags")->default_str("");
    add_number(*app_, "--tags", tags_, {0, kMostTags}, "take at most so many tags")->default_str("");
  }

  void add_change_options() {
    app_->option_defaults()->group("Changes");
    app_->add_option("--shift", shifts_, "move the tags of a channel, or of all; once for each")
        ->check(checked_by(channel_shift_from, "a channel and a time, as in 1=-35ns or all=1us"))
        ->type_name("CHANNEL=TIME")
        ->allow_extra_args(false);
    app_->add_option("--swap", swaps_, "exchange two channels")
        ->check(checked_by(
            [](std::string_view text) {
              auto pair = channels_from(text);
              return pair && pair->size() == 2 ? pair : std::nullopt;
            },
            "two channels from 0 to 3, as in 0,1"))
        ->type_name("CHANNEL,CHANNEL")
        ->allow_extra_args(false);
    add_time(*app_, "--sort", sort_ps_, {0, kMostPs}, "bring into order tags that are late by no more than this")
        ->default_str("");
  }

  template <class Parse>
  static CLI::Validator checked_by(Parse parse, const char* wanted) {
    const auto check = [parse, wanted](std::string& text) -> std::string {
      return parse(text) ? "" : "'" + text + "' is not " + wanted;
    };
    return {check, ""};
  }

  bool given(const char* option) const { return app_->get_option(option)->count() != 0; }

  OutForm form() const {
    const std::string suffix =
        format_.empty() ? std::filesystem::path(files_.back()).extension().string() : "." + format_;
    if (suffix == ".tagcap" || (files_.back() == Settings::kPipe && format_.empty())) return OutForm::capture;
    if (suffix == ".csv") return OutForm::csv;
    if (suffix == ".npy") return OutForm::npy;
    throw UsageError("OUT: '" + files_.back() +
                     "' ends in none of .tagcap, .csv and .npy (--format says what it holds)");
  }

  void set_encoding(Settings& settings) const {
    for (const char* option :
         {"--encoding", "--tag-format", "--delta-bits", "--quantum-ps", "--anchor-every", "--round", "--verify"}) {
      if (settings.form != OutForm::capture && given(option)) {
        throw UsageError(std::string(option) + ": only for a capture");
      }
    }
    EncodingSettings& encoding = settings.encoding;
    if (given("--encoding")) encoding.format = orvo::timing::detail::stream_format_from_text(encoding_);
    if (given("--tag-format")) encoding.tag_format = tag_format_;
    if (given("--delta-bits")) encoding.delta_bits = delta_bits_;
    if (given("--quantum-ps")) encoding.quantum_ps = quantum_ps_;
    encoding.anchor_every = anchor_every_;
    encoding.round = round_;
  }

  void set_selection(SelectionSettings& selection) const {
    if (given("--channels")) {
      selection.channels = 0;
      const auto channels = channels_from(channels_);
      if (channels) {
        for (const unsigned channel : *channels) selection.channels |= 1u << channel;
      }
    }
    if (given("--to") && given("--duration")) throw UsageError("--to, --duration: give only one of them");
    if (given("--from")) selection.from_ps = from_ps_;
    if (given("--to")) selection.to_ps = to_ps_;
    if (given("--duration")) {
      const std::int64_t from_ps = selection.from_ps.value_or(0);
      if (duration_ps_ > std::numeric_limits<std::int64_t>::max() - from_ps) {
        throw UsageError("--duration: ends after the end of all times");
      }
      selection.to_ps = from_ps + duration_ps_;
    }
    selection.skip_tags = skip_tags_;
    if (given("--tags")) selection.most_tags = tags_;
  }

  void set_changes(ChangeSettings& changes) const {
    for (const std::string& text : shifts_) {
      const auto shift = channel_shift_from(text);
      for (unsigned c = 0; shift && c < orvo::timing::kChannels; ++c) {
        if ((shift->channels >> c & 1) == 0) continue;
        if (__builtin_add_overflow(changes.shift_ps[c], shift->shift_ps, &changes.shift_ps[c])) {
          throw UsageError("--shift: more than there are times");
        }
      }
    }
    for (const std::string& text : swaps_) {
      const auto pair = channels_from(text);
      if (!pair || pair->size() != 2) continue;
      for (std::uint8_t& channel : changes.channel) {
        if (channel == (*pair)[0]) {
          channel = static_cast<std::uint8_t>((*pair)[1]);
        } else if (channel == (*pair)[1]) {
          channel = static_cast<std::uint8_t>((*pair)[0]);
        }
      }
    }
    if (given("--sort")) changes.sort_reach_ps = sort_ps_;
  }

  std::unique_ptr<CLI::App> app_ = make_app("vq_convert_stream_file", kConvertDescription);
  std::vector<std::string> files_;
  std::string format_;
  bool force_ = false;
  std::string verify_ = "on";
  std::int64_t gap_ps_ = 0;
  std::string encoding_;
  std::string tag_format_;
  unsigned delta_bits_ = 16;
  unsigned quantum_ps_ = 1;
  std::uint64_t anchor_every_ = 1'000;
  bool round_ = false;
  std::string channels_;
  std::int64_t from_ps_ = 0;
  std::int64_t to_ps_ = 0;
  std::int64_t duration_ps_ = 0;
  std::uint64_t skip_tags_ = 0;
  std::uint64_t tags_ = 0;
  std::vector<std::string> shifts_;
  std::vector<std::string> swaps_;
  std::int64_t sort_ps_ = 0;
};

}  // namespace
