#include <iostream>
#include <orvo/timing/timing.hpp>

int main() {
  std::cout << orvo::timing::kVersion << ' ' << ORVO_TIMING_VERSION << '\n';
}
