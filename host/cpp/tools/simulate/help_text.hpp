#pragma once
// Part of vq_simulate_stream_file: file-local throughout.
#include <cstddef>
#include <ostream>
#include <string>

#include "simulate/options.hpp"

namespace {

constexpr std::string_view kHelpHead =
    "vq_simulate_stream_file FILE [--option value | --option=value]...\n"
    "\n"
    "Writes a time-tag stream capture as a converter would record it: uncorrelated\n"
    "tags on every channel, and correlated pairs on two of them. The same options\n"
    "and seed give the same file, byte for byte. Tells on standard output what a\n"
    "verification of the capture must find.\n"
    "\n"
    "Times are whole numbers with a unit (ps, ns, us, ms, s) or of picoseconds.\n"
    "Values if nothing is said stand in parentheses.\n"
    "\n";

constexpr std::string_view kHelpTail =
    "\n"
    "A channel clicks at least 100 times per second, pairs included, or never.\n"
    "packed_delta in internal mode is for channels of similar rates: the highest\n"
    "is at most 1.5 times the lowest.\n"
    "Exit status: 0 done, 64 unusable options, 1 any failure; a capture is complete\n"
    "or not there.\n";

/// What an option takes, as "[1 to 31]"; nothing for words and lists of channels.
inline std::string allowed_values(const Option& option) {
  if (option.limits.most == 0) return {};
  const std::string unit = option.is_time() ? " ps" : "";
  return " [" + std::to_string(option.limits.least) + " to " + std::to_string(option.limits.most) + unit + "]";
}

inline void print_help(std::ostream& out) {
  out << kHelpHead;
  for (const Option& option : kOptions) {
    out << "  --" << option.name << ' ' << option.placeholder << allowed_values(option) << "\n      " << option.help
        << '\n';
  }
  out << kHelpTail;
}

}  // namespace
