// judge_peak FILE: are channels 0 and 1 of a capture correlated, and where? For the capture that write_capture makes
// it prints
//
//   significant: true
//   delay: 250.0 +- 2.9 ps
//   width: below 20.0 ps
//   pairs: 2500.0 +- 50.0
//   share of channel 0: 1.00, of channel 1: 0.25
#include <cstdint>
#include <exception>
#include <iomanip>
#include <iostream>
#include <orvo/timing/timing.hpp>

/// What of the peak is known, each number with its error over repeated recordings.
static void print_peak(const orvo::timing::CorrelationPeak& peak, std::int64_t offset_ps) {
  std::cout << std::fixed << std::setprecision(1);
  if (peak.place_ps) {
    const double delay_ps = static_cast<double>(offset_ps) + peak.place_ps->value;
    std::cout << "delay: " << delay_ps << " +- " << peak.place_ps->error << " ps\n";
  }
  if (peak.fwhm_ps) {
    std::cout << "width: " << peak.fwhm_ps->value << " +- " << peak.fwhm_ps->error << " ps\n";
  } else {
    std::cout << "width: below " << peak.narrowest_ps << " ps\n";
  }
  std::cout << "pairs: " << peak.pairs.value << " +- " << peak.pairs.error << '\n';
}

int main(int argc, char** argv) try {
  if (argc != 2) {
    std::cerr << "usage: judge_peak FILE\n";
    return 64;
  }
  orvo::timing::StreamFileReader reader;
  reader.open(argv[1]);
  orvo::timing::ChannelTimes times;
  while (reader.decode_next_chunk(1 << 20, times)) {
  }
  orvo::timing::sort_times(times[0]);
  orvo::timing::sort_times(times[1]);

  // A hundred bins: the background needs more room than the peak.
  const std::int64_t offset_ps = orvo::timing::estimate_offset_ps(times[0], times[1]);
  const orvo::timing::XcorrWindow window{500, 10, offset_ps};
  const auto statistics = orvo::timing::pair_statistics(times[0], times[1], window);
  const orvo::timing::PairJudgement& judgement = statistics.judgement;
  if (judgement.verdict != orvo::timing::PairVerdict::peak) {
    std::cout << "no peak\n";
    return 0;
  }
  std::cout << "significant: " << std::boolalpha << judgement.significant << '\n';
  print_peak(*judgement.peak, offset_ps);
  std::cout << "share of channel 0: " << std::setprecision(2) << statistics.share_a->value
            << ", of channel 1: " << statistics.share_b->value << '\n';
} catch (const std::exception& error) {
  std::cerr << error.what() << '\n';
  return 1;
}
