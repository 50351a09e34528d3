// channel_rates FILE: how many tags each channel of a capture has, and how many per second. For the capture that
// write_capture makes it prints
//
//   ch0: 2500 tags, 250000 per second
//   ch1: 10000 tags, 1000000 per second
//   ch2: 0 tags
//   ch3: 0 tags
#include <cstdint>
#include <exception>
#include <iomanip>
#include <iostream>
#include <orvo/timing/timing.hpp>
#include <span>

/// Tags per second from the first to the last of at least two different times.
static double rate_hz(std::span<const std::int64_t> times_ps) {
  const auto intervals = static_cast<double>(times_ps.size() - 1);
  return intervals / (static_cast<double>(times_ps.back() - times_ps.front()) * 1e-12);
}

int main(int argc, char** argv) try {
  if (argc != 2) {
    std::cerr << "usage: channel_rates FILE\n";
    return 64;
  }
  orvo::timing::StreamFileReader reader;
  reader.open(argv[1]);
  orvo::timing::ChannelTimes times;
  while (reader.decode_next_chunk(1 << 20, times)) {
  }

  for (unsigned channel = 0; channel < orvo::timing::kChannels; ++channel) {
    const std::span<const std::int64_t> times_ps = times[channel];
    std::cout << "ch" << channel << ": " << times_ps.size() << " tags";
    if (times_ps.size() > 1 && times_ps.back() > times_ps.front()) {
      std::cout << ", " << std::fixed << std::setprecision(0) << rate_hz(times_ps) << " per second";
    }
    std::cout << '\n';
  }
} catch (const std::exception& error) {
  std::cerr << error.what() << '\n';
  return 1;
}
