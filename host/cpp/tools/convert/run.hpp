#pragma once
// Part of vq_convert_stream_file: file-local throughout.
#include <array>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <ostream>
#include <span>
#include <string>
#include <system_error>
#include <vector>

#include "common/command_line.hpp"
#include "common/console.hpp"
#include "common/progress.hpp"
#include "common/usage_error.hpp"
#include "convert/capture_header.hpp"
#include "convert/capture_output.hpp"
#include "convert/options.hpp"
#include "convert/settings.hpp"
#include "convert/table_outputs.hpp"
#include "convert/tag_block.hpp"
#include "convert/tag_selection.hpp"
#include "convert/tag_sorting.hpp"
#include "convert/tag_source.hpp"
#include "orvo/timing/error.hpp"

namespace {

/// What was written, as told at the end.
struct Written {
  std::uint64_t tags = 0;
  std::array<std::uint64_t, orvo::timing::kChannels> channel_tags{};
  std::int64_t first_ps = 0;
  std::int64_t last_ps = 0;

  void add(std::span<const orvo::timing::TimeTag> more) {
    if (more.empty()) return;
    if (tags == 0) first_ps = more.front().time_ps;
    last_ps = more.back().time_ps;
    tags += more.size();
    std::array<std::uint64_t, orvo::timing::kChannels> counts{};
    for (const orvo::timing::TimeTag& tag : more) ++counts[tag.channel & 3];
    for (unsigned c = 0; c < orvo::timing::kChannels; ++c) channel_tags[c] += counts[c];
  }
};

/// Throws `UsageError` when OUT is an input, or exists and must not be replaced.
inline void check_output_place(const Settings& settings) {
  if (settings.out == Settings::kPipe) return;
  std::error_code error;
  if (!std::filesystem::exists(settings.out, error)) return;
  for (const std::string& input : settings.inputs) {
    if (std::filesystem::equivalent(input, settings.out, error))
      throw UsageError("OUT: is the same file as " + input);
  }
  if (!settings.force) throw UsageError("OUT: " + settings.out + " exists (--force replaces it)");
}

/// The tags that are to be written, read by read: taken, changed and in order.
class TagStream {
 public:
  TagStream(const Settings& settings, std::ostream& notes)
      : source_(settings.inputs, settings.gap_ps, notes), selection_(settings.selection), changes_(settings.changes) {
    if (changes_.sort_reach_ps) sorting_.emplace(*changes_.sort_reach_ps);
  }

  TagSource& source() { return source_; }

  /// The next tags, valid until the next but one call; nothing at the end. There may be none before that.
  std::optional<std::span<const orvo::timing::TimeTag>> next() {
    if (ended_) return std::nullopt;
    turn_ = 1 - turn_;
    TagBlock& block = blocks_[turn_];
    if (!selection_.is_done() && source_.next(block)) {
      const auto taken = selection_.take(block.tags());
      change_tags(changes_, taken);
      return sorting_ ? kept(sorting_->add(taken)) : taken;
    }
    source_.stop();
    ended_ = true;
    if (sorting_) return kept(sorting_->finish());
    return std::nullopt;
  }

 private:
  /// What sorting gives is valid for a shorter time.
  std::span<const orvo::timing::TimeTag> kept(std::span<const orvo::timing::TimeTag> tags) {
    sorted_[turn_].assign(tags.begin(), tags.end());
    return sorted_[turn_];
  }

  TagSource source_;
  TagSelection selection_;
  ChangeSettings changes_;
  std::optional<TagSorting> sorting_;
  std::array<TagBlock, 2> blocks_;  // used in turns
  std::array<std::vector<orvo::timing::TimeTag>, 2> sorted_;
  unsigned turn_ = 0;
  bool ended_ = false;
};

/// All tags from here on to `output`. `tags` are those that were asked for already.
template <class Output>
Written write_all(TagStream& stream, std::optional<std::span<const orvo::timing::TimeTag>> tags, Output& output,
                  const Console& console) {
  Written written;
  Progress progress(console.err, console.err_is_terminal, "converting");
  for (; tags; tags = stream.next()) {
    output.write(*tags);
    written.add(*tags);
    progress.tell_bytes(stream.source().read_bytes(), stream.source().total_bytes());
  }
  output.complete();
  return written;
}

inline void print_written(std::ostream& out, const Settings& settings, const Written& written) {
  out << "out=" << settings.out << '\n' << "tags=" << written.tags << '\n';
  for (unsigned c = 0; c < orvo::timing::kChannels; ++c) out << "ch" << c << '=' << written.channel_tags[c] << '\n';
  if (written.tags != 0) out << "first_ps=" << written.first_ps << '\n' << "last_ps=" << written.last_ps << '\n';
}

inline void print_capture(std::ostream& out, const CaptureOutput& output, const Written& written) {
  if (output.axis_ps() != 0) out << "axis_ps=" << output.axis_ps() << '\n';
  if (output.rounding().tags != 0) {
    out << "rounded_tags=" << output.rounding().tags << '\n'
        << "rounded_by_up_to_ps=" << output.rounding().largest_ps << '\n';
  }
  out << "bytes=" << output.file_bytes() << '\n';
  if (written.tags != 0) {
    out << "bytes_per_tag="
        << three_digits(static_cast<double>(output.file_bytes()) / static_cast<double>(written.tags)) << '\n';
  }
  out << "verified=" << (output.checked_tags() ? "yes" : "no") << '\n';
}

/// Converts and tells, on standard output or, where that is OUT, on standard error. Failures are thrown.
inline void convert(const Settings& settings, const Console& console) {
  check_output_place(settings);
  TagStream stream(settings, console.err);
  std::ostream& report = settings.out == Settings::kPipe ? console.err : console.out;
  auto tags = stream.next();
  while (tags && tags->empty()) tags = stream.next();
  const bool has_tags = tags.has_value();
  if (settings.form == OutForm::capture) {
    const auto first = tags.value_or(std::span<const orvo::timing::TimeTag>{});
    CaptureOutput output(settings, converted_header(settings, stream.source().headers(), first));
    const Written written = write_all(stream, tags, output, console);
    print_written(report, settings, written);
    print_capture(report, output, written);
  } else if (settings.form == OutForm::csv) {
    CsvOutput output(settings.out);
    print_written(report, settings, write_all(stream, tags, output, console));
  } else {
    NpyOutput output(settings.out);
    print_written(report, settings, write_all(stream, tags, output, console));
  }
  if (!has_tags) console.err << "no tag was taken: " << settings.out << " has none\n";
  if (!report.flush()) throw orvo::timing::Error("cannot write to standard output", orvo::timing::kFileFailure);
}

/// The whole program, given its arguments without its name: to the exit status.
inline int run(const std::vector<std::string>& arguments, Console console) {
  Options options;
  return run_app(options.app(), arguments, console, [&] { convert(options.settings(), console); });
}

}  // namespace
