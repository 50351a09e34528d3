// The verification of a capture with nothing but plain twins: channels 0 and 1, all settings as they are by default.
// Prints the figures of a summary, in its words, and writes no reports.
#include <cstdio>
#include <exception>

#include "plain/verify_plain.hpp"

int main(int argc, char** argv) {
  if (argc != 2) return 64;
  try {
    const orvo::test::plain::Findings found = orvo::test::plain::verify(argv[1], {});
    std::printf("decoded_tags=%llu\n", static_cast<unsigned long long>(found.decoded_tags));
    std::printf("ch0=%llu\n", static_cast<unsigned long long>(found.channel_counts[0]));
    std::printf("ch1=%llu\n", static_cast<unsigned long long>(found.channel_counts[1]));
    std::printf("coincidences=%lld\n", static_cast<long long>(found.moments.total));
    std::printf("peak_count=%lld\n", static_cast<long long>(found.peak.count));
    std::printf("peak_ps=%lld\n", static_cast<long long>(found.peak.center_ps));
    std::printf("rms_ps=%.1f\n", found.moments.sigma_ps);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
}
