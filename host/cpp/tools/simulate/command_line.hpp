#pragma once
// Part of vq_simulate_stream_file: file-local throughout.
#include <algorithm>
#include <cstddef>
#include <iterator>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "common/usage_error.hpp"
#include "simulate/options.hpp"
#include "simulate/settings.hpp"

namespace {

/// True when any argument asks for help.
inline bool help_wanted(const std::vector<std::string>& arguments) {
  return std::find(arguments.begin(), arguments.end(), "--help") != arguments.end() ||
         std::find(arguments.begin(), arguments.end(), "-h") != arguments.end();
}

inline bool is_option_name(std::string_view name) {
  return std::any_of(std::begin(kOptions), std::end(kOptions),
                     [&](const Option& option) { return option.name == name; });
}

using GivenOptions = std::map<std::string, std::string>;

inline void give(GivenOptions& given, const std::string& name, const std::string& value) {
  if (given.emplace(name, value).second) return;
  throw UsageError("--" + name + ": given twice, the second time as '" + value + "'");
}

/// What was given, by option name: "--name=value" or "--name value". A value may start with one "-" but not with two.
/// Throws `UsageError` for what is no option, comes twice or lacks its value.
inline GivenOptions given_options(const std::vector<std::string>& arguments) {
  GivenOptions given;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& argument = arguments[i];
    if (!argument.starts_with('-')) {
      give(given, "out", argument);
      continue;
    }
    const auto equals = argument.find('=');
    const std::string word = argument.substr(0, equals);
    const std::string name = word.starts_with("--") ? word.substr(2) : "";
    if (!is_option_name(name)) throw UsageError("unknown option " + word + " (--help lists them)");
    if (equals != argument.npos) {
      give(given, name, argument.substr(equals + 1));
    } else if (i + 1 < arguments.size() && !arguments[i + 1].starts_with("--")) {
      give(given, name, arguments[++i]);
    } else {
      throw UsageError(word + ": no value given");
    }
  }
  return given;
}

/// Throws `UsageError` for an option that the capture's encoding has no use for.
inline void check_scope(const Option& option, const Settings& settings) {
  using orvo::timing::StreamFormat;
  const std::string name(option.name);
  if (option.scope == OptionScope::raw64 && settings.encoding != StreamFormat::raw64) {
    throw UsageError("--" + name + ": only with --encoding raw64");
  }
  if (option.scope == OptionScope::packed && !settings.is_packed()) {
    throw UsageError("--" + name + ": only with --encoding packed_delta");
  }
  if (option.scope == OptionScope::anchored && settings.encoding == StreamFormat::raw64) {
    throw UsageError("--" + name + ": only with --encoding delta32 or packed_delta");
  }
}

/// Settings from the arguments behind the program's name, each valid by itself; `check_settings` judges them
/// together.
inline Settings settings_from(const std::vector<std::string>& arguments) {
  const GivenOptions given = given_options(arguments);
  Settings settings;
  set_active_channels(settings, {0, 1});
  for (const Option& option : kOptions) {
    const auto found = given.find(std::string(option.name));
    if (found == given.end()) continue;
    check_scope(option, settings);
    option.apply(settings, OptionValue(option.name, found->second, option.limits));
  }
  if (!settings.tags && !settings.duration_ps) settings.tags = Settings::kUsualTags;
  return settings;
}

}  // namespace
