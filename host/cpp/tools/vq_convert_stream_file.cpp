// Cuts, joins and converts time-tag stream captures: from any encoding to any other, to CSV and to NumPy arrays.
#include <unistd.h>

#include <iostream>
#include <string>
#include <vector>

#include "convert/run.hpp"

int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + (argc > 0 ? 1 : 0), argv + argc);
  return run(arguments, {std::cout, std::cerr, ::isatty(STDERR_FILENO) != 0});
}
