// Checks a time-tag stream capture: decodes it, correlates two of its channels, and writes histogram, summary and
// plot. The parts are included in the order of a run.
#include <iostream>

#include "verify/run.hpp"

int main(int argc, char** argv) {
  return run(argc, argv, std::cout, std::cerr);
}
