// Says whether time-tag captures are healthy: what became of every byte, and what their tags show.
#include <unistd.h>

#include <iostream>
#include <string>
#include <vector>

#include "inspect/run.hpp"

int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + (argc > 0 ? 1 : 0), argv + argc);
  return run(arguments, {std::cout, std::cerr, ::isatty(STDERR_FILENO) != 0});
}
