// The converter's command line: nothing but a usage error escapes, and what is accepted is within what the help says.
//
//   argument | 0xFE | argument | 0xFE | ...
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include "convert/options.hpp"
#include "fuzz/support/input.hpp"
#include "fuzz/support/require.hpp"

namespace {

using orvo::fuzz::require;

void require_usable(const Settings& settings) {
  require(!settings.inputs.empty(), "there is an input");
  require(settings.selection.channels <= 15, "channels are 0 to 3");
  require(settings.selection.from_ps.value_or(0) >= 0 && settings.selection.to_ps.value_or(0) >= 0, "times count up");
  require(settings.changes.sort_reach_ps.value_or(0) >= 0 && settings.gap_ps.value_or(0) >= 0, "times count up");
  const EncodingSettings& encoding = settings.encoding;
  require(encoding.delta_bits.value_or(1) >= 1 && encoding.delta_bits.value_or(1) <= 31, "widths are 1 to 31");
  require(encoding.quantum_ps.value_or(1) >= 1 && encoding.quantum_ps.value_or(1) <= 65'535, "quanta fit 16 bits");
  require(encoding.anchor_every >= 1, "anchors come");
  unsigned seen = 0;
  for (const std::uint8_t channel : settings.changes.channel) seen |= 1u << channel;
  require(seen == 15, "channels are exchanged, none is lost");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  orvo::fuzz::Input input(data, size);
  std::vector<std::string> arguments;
  while (!input.empty()) arguments.push_back(input.text_until(0xFE));
  try {
    Options options;
    std::ostringstream out;
    if (parse_arguments(options.app(), arguments, out)) return 0;
    require_usable(options.settings());
  } catch (const UsageError& error) {
    require(!std::string(error.what()).empty(), "a usage error says something");
  }
  return 0;
}
