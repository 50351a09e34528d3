#pragma once
// What the simulator makes of a command line.
#include <sstream>
#include <string>
#include <vector>

#include "simulate/options.hpp"

namespace {

/// Throws `UsageError` as the program's start does, up to the rules that settings must keep together.
inline Settings settings_from(const std::vector<std::string>& arguments) {
  Options options;
  std::ostringstream unused;
  parse_arguments(options.app(), arguments, unused);
  return options.settings();
}

}  // namespace
