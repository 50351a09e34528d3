#pragma once
// What the programs share: file-local throughout.
#include <stdexcept>

namespace {

/// The command line is wrong: a program that throws it ends with `kExitUsage`. The text names the option, and what
/// the option allows.
class UsageError : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

}  // namespace
