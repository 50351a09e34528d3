// Writes a time-tag stream capture without a converter: deterministic, with a known answer for the verification.
#include <unistd.h>

#include <iostream>
#include <string>
#include <vector>

#include "simulate/run.hpp"

int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + (argc > 0 ? 1 : 0), argv + argc);
  return run(arguments, {std::cout, std::cerr, ::isatty(STDERR_FILENO) != 0});
}
