#pragma once
// Part of vq_simulate_stream_file: file-local throughout.
#include <stdexcept>

namespace {

/// Options that make no simulation. The text names the option.
class UsageError : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

}  // namespace
