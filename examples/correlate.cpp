// correlate FILE: how channel 1 of a capture follows channel 0. For the capture that write_capture makes it prints
//
//   delay: 250 ps
//   coincidences: 2500
//   peak: 1250 within 10 ps around 250 ps
//   width: 16.7 ps FWHM
#include <cstdint>
#include <exception>
#include <iomanip>
#include <iostream>
#include <orvo/timing/timing.hpp>
#include <vector>

/// The times of channels 0 and 1, in stream order.
struct TwoChannels {
  std::vector<std::int64_t> a_ps;
  std::vector<std::int64_t> b_ps;
};

static TwoChannels read_two_channels(const char* path) {
  orvo::timing::StreamFileReader reader;
  reader.open(path);
  TwoChannels channels;
  for (;;) {
    const std::vector<orvo::timing::TimeTag> tags = reader.decode_next_tags(65'536, 1 << 20);
    if (tags.empty()) return channels;
    for (const orvo::timing::TimeTag& tag : tags) {
      if (tag.channel == 0) channels.a_ps.push_back(tag.time_ps);
      if (tag.channel == 1) channels.b_ps.push_back(tag.time_ps);
    }
  }
}

int main(int argc, char** argv) try {
  if (argc != 2) {
    std::cerr << "usage: correlate FILE\n";
    return 64;
  }
  constexpr std::int64_t kRangePs = 1'000;
  constexpr std::int64_t kBinPs = 10;
  const auto [a_ps, b_ps] = read_two_channels(argv[1]);
  const std::int64_t delay_ps = orvo::timing::estimate_offset_ps(a_ps, b_ps);
  const auto histogram = orvo::timing::xcorr_histogram(a_ps, b_ps, kRangePs, kBinPs, delay_ps);
  const orvo::timing::XcorrPeak peak = histogram.peak();
  const orvo::timing::XcorrMoments moments = orvo::timing::xcorr_moments(histogram);
  std::cout << "delay: " << delay_ps << " ps\n"
            << "coincidences: " << moments.total << '\n'
            << "peak: " << peak.count << " within " << kBinPs << " ps around " << delay_ps + peak.center_ps << " ps\n"
            << "width: " << std::fixed << std::setprecision(1) << moments.fwhm_ps << " ps FWHM\n";
} catch (const std::exception& error) {
  std::cerr << error.what() << '\n';
  return 1;
}
