// The JSON summary of any run is one JSON object, and byte for byte that of the reference.
#include <cstddef>
#include <cstdint>

#include "fuzz/support/input.hpp"
#include "fuzz/support/memory_file.hpp"
#include "fuzz/support/report_input.hpp"
#include "fuzz/support/require.hpp"
#include "support/strict_json.hpp"
#include "verify/report_json.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using orvo::fuzz::require;
  orvo::fuzz::Input input(data, size);
  const RunResult run = read_run(input);
  const orvo::fuzz::MemoryFile file;
  write_json(file.path(), run);
  if (!is_countable(run.histogram)) return 0;  // negative counts may have no deviation

  const std::string json = file.content();
  const auto leaves = orvo::test::StrictJson::parse(json);
  require(leaves.has_value(), "the summary is one JSON object");
  require(leaves->size() == 22, "the summary has all its values");
  std::string source = run.source.native();
  for (char& c : source) {
    if (static_cast<unsigned char>(c) < 0x20 && c != '\t' && c != '\n' && c != '\r') c = '?';
  }
  require(leaves->at("source_file") == orvo::test::JsonLeaf{true, source}, "the path reads back");
  if (run.histogram.counts.empty()) return 0;  // its statistics need a bin
  require(json == orvo::test::reference::json_report(as_findings(run)), "the summary is the reference's");
  return 0;
}
