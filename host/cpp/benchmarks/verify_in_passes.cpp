// The tool with a limit of lists so low that every estimate takes passes over the file.
#include <iostream>

#include "verify/run.hpp"

int main(int argc, char** argv) {
  constexpr std::uint64_t kNoLists = 0;
  return run(argc, argv, std::cout, std::cerr, kNoLists);
}
