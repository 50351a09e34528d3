#pragma once
// Part of vq_verify_stream_file_xcorr: file-local throughout.
#include <string_view>

namespace {

constexpr std::string_view kHelpText =
    "vq_verify_stream_file_xcorr\n"
    "\n"
    "Run with no command-line arguments. The executable reads\n"
    "vq_verify_stream_file_xcorr.ini if present next to the executable or in the\n"
    "current directory. If no input file is configured, it uses the newest .tagcap\n"
    "file under VRN-B/logs/stream_file_verify. If none exists, it creates a small\n"
    "synthetic stream capture and verifies that path instead.\n"
    "\n"
    "Outputs:\n"
    "  <prefix>.csv   histogram bins\n"
    "  <prefix>.json  summary, counts, moment fit\n"
    "  <prefix>.svg   dependency-free plot\n"
    "\n"
    "Config keys:\n"
    "  input_file=path/to/file.tagcap\n"
    "  output_prefix=path/to/output_prefix\n"
    "  channel_a=0\n"
    "  channel_b=1\n"
    "  range_ps=5000\n"
    "  bin_ps=8\n"
    "  offset=auto\n"
    "  max_tags=0\n";
static_assert(kHelpText.size() == 666);

/// True when any argument asks for help.
inline bool help_requested(int argc, const char* const* argv) {
  for (int i = 1; i < argc; ++i) {
    const std::string_view word = argv[i];
    if (word == "--help" || word == "-h" || word == "/?" || word == "-?") return true;
  }
  return false;
}

}  // namespace
