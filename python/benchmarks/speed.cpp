// The C++ calls that compare.py measures the package against: best time of ten, seconds.
//
//     speed decode CAPTURE            open and decode the times of all channels
//     speed histogram CAPTURE         correlate channels 0 and 1, range 5000, bins of 8
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <iostream>
#include <limits>
#include <string>

#include "orvo/timing/timing.hpp"

namespace {

namespace ot = orvo::timing;

ot::ChannelTimes decoded(const std::string& path) {
  ot::StreamFileReader reader;
  reader.open(path);
  ot::ChannelTimes times;
  while (reader.decode_next_chunk(std::uint64_t{1} << 20, times)) {
  }
  return times;
}

template <class Work>
double best_of_ten(Work&& work) {
  double best = std::numeric_limits<double>::infinity();
  for (int round = 0; round < 10; ++round) {
    const auto begin = std::chrono::steady_clock::now();
    work();
    best = std::min(best, std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
  }
  return best;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 64;
  const std::string path = argv[2];
  std::int64_t seen = 0;
  if (std::string(argv[1]) == "decode") {
    std::cout << best_of_ten([&] { seen += static_cast<std::int64_t>(decoded(path).total()); }) << '\n';
  } else {
    const ot::ChannelTimes times = decoded(path);
    std::cout << best_of_ten([&] { seen += ot::xcorr_histogram(times[0], times[1], 5000, 8, 0).counts[0]; }) << '\n';
  }
  return seen < 0 ? 1 : 0;
}
