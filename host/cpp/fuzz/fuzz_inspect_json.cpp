// The inspection's JSON, and the report that a person reads: whatever a capture, its header and its name hold, the
// JSON parses and reads back, its sums are right, and nothing in the report disturbs a terminal.
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include "fuzz/support/inspected_input.hpp"
#include "inspect/report_json.hpp"
#include "inspect/report_text.hpp"

namespace {

using orvo::fuzz::require;

void require_sums(const Json& report) {
  std::uint64_t sum = 0;
  const Json& payload = report.at("payload");
  const bool packed = payload.at("encoding") == "packed_delta";
  for (const Json& each : payload.at("classes")) sum += std::uint64_t{each.at(packed ? "bits" : "bytes")};
  require(sum == std::uint64_t{payload.at("bytes")} * (packed ? 8 : 1), "the classes add up to the payload");
  std::uint64_t tags = 0;
  for (std::size_t c = 0; c < 4; ++c) {
    const Json& channel = report.at("channels").at(c);
    tags += std::uint64_t{channel.at("tags")};
    std::uint64_t counted = 0;
    for (const Json& count : report.at("rates").at("counts").at(c)) counted += std::uint64_t{count};
    require(counted == std::uint64_t{channel.at("tags")}, "the slices add up to the tags");
    std::uint64_t steps = 0;
    for (const Json& count : report.at("intervals").at("counts").at(c)) steps += std::uint64_t{count};
    steps += std::uint64_t{channel.at("backward_steps")} + std::uint64_t{channel.at("equal_times")};
    require(steps + (counted == 0 ? 0 : 1) == counted, "each step is forward, backward or none");
  }
  require(tags == std::uint64_t{report.at("tags")}, "the channels add up to all tags");
}

void require_plain_text(const std::string& text) {
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    require(c == '\n' || (byte >= ' ' && byte != 0x7F), "no control character reaches a terminal");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  orvo::fuzz::Input input(data, size);
  const NamedCapture capture(input);
  std::ostringstream out;
  const Inspection of = inspected(capture, out);
  const Findings findings = judge(of);
  const Json report = json_report(of, findings);
  const std::string text = json_text(report);
  const Json parsed = Json::parse(text, nullptr, false);
  require(!parsed.is_discarded(), "the report is JSON");
  // What is no UTF-8 reads back as its replacement.
  const bool reads_back =
      parsed == report || parsed == Json::parse(report.dump(-1, ' ', false, Json::error_handler_t::replace));
  require(reads_back, "it reads back");
  require(report.size() == 11, "it has all its members");
  require_sums(parsed);
  print_report(out, of, findings);
  print_line(out, of, findings);
  require_plain_text(out.str());
  return 0;
}
