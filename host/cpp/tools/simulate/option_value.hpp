#pragma once
// Part of vq_simulate_stream_file: file-local throughout.
#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "common/usage_error.hpp"
#include "orvo/timing/time_tag.hpp"

namespace {

/// Smallest and largest value of an option, both allowed.
struct Limits {
  std::int64_t least = 0;
  std::uint64_t most = 0;
};

/// The whole text as a decimal number.
template <class Number>
bool parse_number(std::string_view text, Number& number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc{} && end == text.data() + text.size();
}

/// A whole number of ps, ns, us, ms or s, picoseconds when there is no unit; false for anything else.
inline bool parse_time_ps(std::string_view text, std::int64_t& time_ps) {
  constexpr std::int64_t kMostPs = std::numeric_limits<std::int64_t>::max();
  constexpr std::pair<std::string_view, std::int64_t> kUnits[] = {
      {"ps", 1}, {"ns", 1'000}, {"us", 1'000'000}, {"ms", 1'000'000'000}, {"s", 1'000'000'000'000}, {"", 1}};
  for (const auto& [unit, unit_ps] : kUnits) {
    if (!text.ends_with(unit)) continue;
    std::int64_t units = 0;
    if (!parse_number(text.substr(0, text.size() - unit.size()), units)) return false;
    if (units < -kMostPs / unit_ps || units > kMostPs / unit_ps) return false;
    time_ps = units * unit_ps;
    return true;
  }
  return false;
}

/// What was given for an option, and how to read it. Every reader throws `UsageError` for what it does not like.
class OptionValue {
 public:
  OptionValue(std::string_view name, std::string text, Limits limits)
      : name_(name), text_(std::move(text)), limits_(limits) {}

  const std::string& text() const { return text_; }

  std::uint64_t number() const { return number(text_); }
  std::int64_t time_ps() const { return time_ps(text_); }

  /// The index of the word in `words`.
  std::size_t choice(std::initializer_list<std::string_view> words) const {
    std::string list;
    std::size_t index = 0;
    for (const std::string_view word : words) {
      if (word == text_) return index;
      list += (index++ == 0 ? "" : ", ") + std::string(word);
    }
    throw UsageError("--" + name_ + ": '" + text_ + "' is none of " + list);
  }

  /// Different channels, as in 0,1,3.
  std::vector<unsigned> channels() const {
    std::vector<unsigned> channels;
    unsigned seen = 0;
    for (const std::string_view part : parts()) {
      unsigned channel = 0;
      const bool valid = parse_number(part, channel) && channel < orvo::timing::kChannels;
      if (!valid || (seen >> channel & 1) != 0) {
        throw UsageError("--" + name_ + ": '" + text_ + "' is no list of different channels from 0 to 3, as in 0,1");
      }
      seen |= 1u << channel;
      channels.push_back(channel);
    }
    return channels;
  }

  /// One number for all of `count` places, or a list with one for each.
  std::vector<std::uint64_t> numbers(std::size_t count) const {
    std::vector<std::uint64_t> values;
    for (const std::string_view part : spread(count)) values.push_back(number(part));
    return values;
  }
  std::vector<std::int64_t> times_ps(std::size_t count) const {
    std::vector<std::int64_t> values;
    for (const std::string_view part : spread(count)) values.push_back(time_ps(part));
    return values;
  }

 private:
  std::uint64_t number(std::string_view text) const {
    std::uint64_t value = 0;
    if (parse_number(text, value) && value >= static_cast<std::uint64_t>(limits_.least) && value <= limits_.most) {
      return value;
    }
    throw UsageError("--" + name_ + ": '" + std::string(text) + "' is not a whole number from " +
                     std::to_string(limits_.least) + " to " + std::to_string(limits_.most));
  }

  std::int64_t time_ps(std::string_view text) const {
    std::int64_t value = 0;
    if (parse_time_ps(text, value) && value >= limits_.least && value <= static_cast<std::int64_t>(limits_.most)) {
      return value;
    }
    throw UsageError("--" + name_ + ": '" + std::string(text) + "' is not a time from " +
                     std::to_string(limits_.least) + " ps to " + std::to_string(limits_.most) +
                     " ps, as in 250, 250ps, 10ns, 2us, 1ms or 3s");
  }

  /// The text between commas.
  std::vector<std::string_view> parts() const {
    std::vector<std::string_view> parts;
    for (std::string_view rest = text_;;) {
      const auto comma = rest.find(',');
      parts.push_back(rest.substr(0, comma));
      if (comma == rest.npos) return parts;
      rest.remove_prefix(comma + 1);
    }
  }

  std::vector<std::string_view> spread(std::size_t count) const {
    std::vector<std::string_view> given = parts();
    if (given.size() == 1) given.resize(count, given.front());
    if (given.size() == count) return given;
    throw UsageError("--" + name_ + ": give one value, or one for each of the " + std::to_string(count) +
                     " active channels, not " + std::to_string(given.size()));
  }

  std::string name_;
  std::string text_;
  Limits limits_;
};

}  // namespace
