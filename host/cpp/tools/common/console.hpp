#pragma once
// What the programs share: file-local throughout.
#include <ostream>

namespace {

/// Where a program prints. Passed along instead of std::cout and std::cerr, so that tests can run a program in
/// process.
struct Console {
  std::ostream& out;
  std::ostream& err;
  bool err_is_terminal = false;  ///< only a terminal gets to see the progress of long work
};

}  // namespace
