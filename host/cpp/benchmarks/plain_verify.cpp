// The verification of a capture with nothing but references: channels 0 and 1, all settings as they are by default.
// A second argument is the offset, which else is estimated. Prints the figures of a summary, in its words, and writes
// no reports.
#include <cstdint>
#include <cstdio>
#include <exception>
#include <string>

#include "reference/run.hpp"
#include "support/plain_files.hpp"

int main(int argc, char** argv) {
  if (argc != 2 && argc != 3) return 64;
  try {
    using namespace orvo::test::reference;
    const bool is_estimated = argc == 2;
    const Window window{.offset_ps = is_estimated ? 0 : std::stoll(argv[2])};
    const Findings found =
        correlate<std::int64_t>(orvo::bench::decode_file_plainly(argv[1]), 0, 1, window, is_estimated);
    const Statistics stats = statistics(found.histogram);
    std::printf("decoded_tags=%llu\n", static_cast<unsigned long long>(found.decoded_tags));
    std::printf("ch0=%llu\n", static_cast<unsigned long long>(found.channel_counts[0]));
    std::printf("ch1=%llu\n", static_cast<unsigned long long>(found.channel_counts[1]));
    std::printf("coincidences=%lld\n", static_cast<long long>(stats.total));
    std::printf("peak_count=%lld\n", static_cast<long long>(stats.peak_count));
    std::printf("peak_ps=%lld\n", static_cast<long long>(stats.peak_ps));
    std::printf("rms_ps=%.1f\n", stats.rms_ps);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
}
