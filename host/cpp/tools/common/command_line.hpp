#pragma once
// What the programs share: file-local throughout.
// Options by CLI11, whose headers take seconds to compile: they are included here and nowhere else, and this by a
// program's options and run alone.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "common/console.hpp"
#include "common/exit_status.hpp"
#include "common/time_value.hpp"
#include "common/usage_error.hpp"
#include "common/whole_number.hpp"
#include "orvo/timing/version.hpp"

namespace {

/// Smallest and largest value of an option, both allowed.
struct Limits {
  std::int64_t least = 0;
  std::uint64_t most = 0;
};

inline std::string to_text(const Limits& limits) {
  return std::to_string(limits.least) + " to " + std::to_string(limits.most);
}

/// The texts between commas, empty ones included.
inline std::vector<std::string> split_list(std::string_view text) {
  std::vector<std::string> items;
  for (;;) {
    const auto comma = text.find(',');
    items.emplace_back(text.substr(0, comma));
    if (comma == text.npos) return items;
    text.remove_prefix(comma + 1);
  }
}

/// Holds a value to whole numbers within the limits. (CLI11's own numbers may be hexadecimal or octal.)
inline CLI::Validator whole_number(Limits limits) {
  const auto rewrite = [limits](std::string& text) -> std::string {
    const auto value = parse_whole_number<std::uint64_t>(text);
    if (value && *value >= static_cast<std::uint64_t>(limits.least) && *value <= limits.most) {
      text = std::to_string(*value);
      return {};
    }
    return "'" + text + "' is not a whole number from " + to_text(limits);
  };
  return {rewrite, ""};
}

/// Holds a value to numbers up to `most` with at most `decimals` digits after the point.
inline CLI::Validator decimal_number(double most, std::size_t decimals) {
  const auto check = [most, decimals](std::string& text) -> std::string {
    const auto value = parse_decimal(text, decimals);
    if (value && *value <= most) return {};
    return "'" + text + "' is not a number from 0 to " + std::to_string(static_cast<std::uint64_t>(most)) +
           " with at most " + std::to_string(decimals) + " decimals";
  };
  return {check, ""};
}

/// Holds a value to times within the limits, and makes picoseconds of it.
inline CLI::Validator time_ps(Limits limits) {
  const auto rewrite = [limits](std::string& text) -> std::string {
    const auto value = parse_time_ps(text);
    if (value && *value >= limits.least && (*value < 0 || static_cast<std::uint64_t>(*value) <= limits.most)) {
      text = std::to_string(*value);
      return {};
    }
    return "'" + text + "' is not a time from " + std::to_string(limits.least) + " ps to " +
           std::to_string(limits.most) + " ps, as in 250, 250ps, 10ns, 2us, 1ms or 3s";
  };
  return {rewrite, ""};
}

/// Holds each item between commas to `item`.
inline CLI::Validator list_of(CLI::Validator item) {
  const auto rewrite = [item](std::string& text) -> std::string {
    std::string list;
    for (std::string& part : split_list(text)) {
      if (std::string failure = item(part); !failure.empty()) return failure;
      list += (list.empty() ? "" : ",") + part;
    }
    text = list;
    return {};
  };
  return {rewrite, ""};
}

/// Adds an option for a whole number. The help shows its limits and `value` as its default.
template <class Number>
CLI::Option* add_number(CLI::App& app, const std::string& name, Number& value, Limits limits,
                        const std::string& help) {
  return app.add_option(name, value, help)
      ->transform(whole_number(limits))
      ->type_name("N [" + to_text(limits) + "]")
      ->capture_default_str();
}

/// The same for a time, with or without a unit; `value` is in picoseconds.
template <class Number>
CLI::Option* add_time(CLI::App& app, const std::string& name, Number& value_ps, Limits limits,
                      const std::string& help) {
  return app.add_option(name, value_ps, help)
      ->transform(time_ps(limits))
      ->type_name("TIME [" + to_text(limits) + " ps]")
      ->default_str(std::to_string(value_ps) + " ps");
}

/// Adds an option for one of several words.
inline CLI::Option* add_word(CLI::App& app, const std::string& name, std::string& value,
                             const std::vector<std::string>& words, const std::string& help) {
  return app.add_option(name, value, help)
      ->check(CLI::IsMember(words).description(""))
      ->type_name(CLI::detail::join(words, "|"))
      ->capture_default_str();
}

/// Each option on a line of its own, its description on the next, with the default in parentheses.
class HelpFormatter : public CLI::Formatter {
 public:
  HelpFormatter() { column_width(6); }

  std::string make_option_opts(const CLI::Option* option) const override {
    return option->get_type_name().empty() ? "" : ' ' + option->get_type_name();
  }
  std::string make_option_desc(const CLI::Option* option) const override {
    const std::string& value = option->get_default_str();
    return option->get_description() + (value.empty() ? "" : " (" + value + ")");
  }
  // A blank line before each group, and not two.
  std::string make_usage(const CLI::App* app, std::string name) const override {
    return CLI::Formatter::make_usage(app, name) + '\n';
  }
  std::string make_group(std::string group, bool is_positional,
                         std::vector<const CLI::Option*> options) const override {
    return CLI::Formatter::make_group(group, is_positional, options).substr(1);
  }
  /// Those that have no "--name" besides.
  std::string make_positionals(const CLI::App* app) const override {
    const auto options = app->get_options(
        [](const CLI::Option* option) { return option->get_positional() && !option->nonpositional(); });
    return options.empty() ? "" : make_group("Arguments", true, options) + '\n';
  }
};

/// An app that answers --help and --version as every program does. `name` is the program's.
inline std::unique_ptr<CLI::App> make_app(const std::string& name, const std::string& description) {
  auto app = std::make_unique<CLI::App>(description, name);
  app->formatter(std::make_shared<HelpFormatter>());
  app->set_help_flag("-h,--help", "print this help and exit")->group("Help");
  app->set_version_flag("--version", name + ' ' + std::string(orvo::timing::kVersion), "print the version and exit")
      ->group("Help");
  return app;
}

/// Throws `UsageError` for an option that `app` does not have, and for "--name" and "--name=" without a value. CLI11
/// would take some of them for files, and the next option for the value. Up to "--"; "-" is a file.
inline void check_options(const CLI::App& app, const std::vector<std::string>& arguments) {
  for (std::size_t i = 0; i < arguments.size() && arguments[i] != "--"; ++i) {
    const std::string& argument = arguments[i];
    if (!argument.starts_with('-') || argument == "-") continue;
    const auto equals = argument.find('=');
    const std::string name = argument.substr(0, equals);
    const CLI::Option* const option = app.get_option_no_throw(name);
    if (option == nullptr) throw UsageError("unknown option " + name + " (--help lists the options)");
    if (option->get_items_expected_min() == 0) continue;
    const bool has_value = equals != argument.npos ? equals + 1 < argument.size()
                                                   : ++i < arguments.size() && !arguments[i].starts_with("--");
    if (!has_value) throw UsageError(name + ": no value given");
  }
}

/// What is wrong, in one line that names the option.
inline std::string usage_message(const CLI::App& app, const CLI::ParseError& error) {
  for (const CLI::Option* const option : app.get_options()) {
    if (option->get_items_expected_max() == 1 && option->count() > 1) return option->get_name() + ": given twice";
  }
  return error.what();
}

/// Sets what `app` is bound to. A status when the program has come to its end: with help or the version printed,
/// which comes first whatever else was given. Throws `UsageError`.
inline std::optional<int> parse_arguments(CLI::App& app, const std::vector<std::string>& arguments,
                                          std::ostream& out) {
  const auto has = [&arguments](std::string_view word) {
    return std::find(arguments.begin(), arguments.end(), word) != arguments.end();
  };
  if (has("--help") || has("-h")) {
    out << app.help();
    return kExitDone;
  }
  if (has("--version")) {
    out << app.version() << '\n';
    return kExitDone;
  }
  check_options(app, arguments);
  try {
    app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
  } catch (const CLI::ParseError& error) {
    throw UsageError(usage_message(app, error));
  }
  return std::nullopt;
}

/// A whole program: parses its arguments (without its name), then calls `body()`, and returns the exit status.
/// A failure is one line on `console.err`: a `UsageError` ends with `kExitUsage`, anything else with
/// `kExitFailed`.
template <class Body>
int run_app(CLI::App& app, const std::vector<std::string>& arguments, const Console& console, Body body) {
  try {
    if (const auto status = parse_arguments(app, arguments, console.out)) return *status;
    body();
    return kExitDone;
  } catch (const UsageError& error) {
    console.err << error.what() << '\n';
    return kExitUsage;
  } catch (const std::exception& error) {
    console.err << error.what() << '\n';
    return kExitFailed;
  }
}

}  // namespace
