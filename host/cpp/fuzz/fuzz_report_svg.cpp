// The plot of any histogram is well-formed; that of a correlation stays within its canvas, and is byte for byte
// that of the reference.
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/support/input.hpp"
#include "fuzz/support/memory_file.hpp"
#include "fuzz/support/report_input.hpp"
#include "fuzz/support/require.hpp"
#include "support/strict_xml.hpp"
#include "verify/report_svg.hpp"

namespace {

using orvo::fuzz::require;
using orvo::test::XmlElement;

/// Bars and ticks lie on the canvas; bars are centred, so the outer ones reach half their width over the plot's
/// edges.
void check_place(const XmlElement& element) {
  const auto number = [&element](const char* name, int otherwise) {
    const auto found = element.attributes.find(name);
    return found == element.attributes.end() ? otherwise : std::stoi(found->second);
  };
  const int width = number("width", 0);
  require(number("x", 70) >= 0 - width / 2 && number("x", 70) + width <= 900 + width / 2, "x lies on the canvas");
  require(number("y", 0) >= 0 && number("y", 0) + number("height", 0) <= 360, "y lies on the canvas");
  for (const char* const name : {"x1", "x2"})
    require(number(name, 70) >= 66 && number(name, 70) <= 880, "lines lie in the plot");
  for (const char* const name : {"y1", "y2"})
    require(number(name, 40) >= 40 && number(name, 40) <= 314, "lines lie in the plot");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  orvo::fuzz::Input input(data, size);
  const RunResult run = read_run(input);
  const orvo::fuzz::MemoryFile file;
  write_svg(file.path(), run);

  const std::string svg = file.content();
  const auto elements = orvo::test::StrictXml::parse(svg);
  require(elements.has_value(), "the plot is well-formed");
  require(elements->front().name == "svg" && elements->front().attributes.contains("xmlns"), "the plot is an SVG");
  if (run.histogram.bin_center_ps.empty()) {
    require(elements->size() == 2 && elements->back().text == "empty histogram", "without bins the plot says so");
  } else if (is_countable(run.histogram) && is_equally_spaced(run.histogram)) {
    for (const XmlElement& element : *elements) check_place(element);
    require(svg == orvo::test::reference::svg_report(as_findings(run)), "the plot is the reference's");
  }
  return 0;
}
