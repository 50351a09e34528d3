// The plots of simulated captures, from a narrow peak to nothing at all: well-formed, and drawn by a browser if there
// is one.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <vector>

#include "support/sanitizer.hpp"
#include "support/simulated_capture.hpp"
#include "support/strict_xml.hpp"

namespace {

using namespace orvo::test;
using Arguments = std::vector<std::string>;

struct Plot {
  std::string name;
  Arguments simulation;
  Arguments verification;
  std::size_t bars = 0;  // the least number of elements that are drawn
};

const std::vector<Plot> kPlots{
    {"narrow", {"--jitter=10"}, {}, 5},
    {"wide", {"--jitter=1500", "--delay=-3us", "--pair-rate=100000"}, {"--offset=-3000000", "--bin=50"}, 150},
    {"flat", {"--rate=3000000", "--pair-rate=0"}, {"--offset=0", "--range=100000", "--bin=1000"}, 201},
    {"empty", {"--pair-rate=0"}, {"--offset=900000000000"}, 0},
    {"one_bin", {}, {"--range=1", "--bin=8"}, 1},
    {"many_bins", {"--encoding=packed_delta"}, {"--range=50000", "--bin=1"}, 20}};

class SimulatedPlots : public SimulatedCapture {
 protected:
  /// Leaves cwd()/NAME.svg.
  void draw(const Plot& plot) {
    Arguments simulation{"--tags=100000"};
    simulation.insert(simulation.end(), plot.simulation.begin(), plot.simulation.end());
    simulate(simulation);
    Arguments verification{"c.tagcap", "--out-prefix=" + plot.name};
    verification.insert(verification.end(), plot.verification.begin(), plot.verification.end());
    EXPECT_EQ(verify(verification).exit_status, 0) << plot.name;
  }

  /// A browser's view of a page in cwd() once all of it is loaded; `result.out` is empty without a browser.
  ProgramResult dom_of(const std::string& page) {
    return shell(
        "for browser in chromium chromium-browser google-chrome; do\n"
        "  command -v $browser > /dev/null || continue\n"
        "  exec timeout 120 $browser --headless --no-sandbox --disable-gpu --no-first-run "
        "--disable-background-networking --user-data-dir=\"$PWD/browser\" --dump-dom \"file://$PWD/" +
        page + "\" 2> /dev/null\ndone\nexit 69");
  }
};

TEST_F(SimulatedPlots, AreWellFormed) {
  for (const Plot& plot : kPlots) {
    draw(plot);
    const auto elements = StrictXml::parse(read_file(cwd() / (plot.name + ".svg")));
    ASSERT_TRUE(elements) << plot.name;
    std::size_t bars = 0;
    for (const XmlElement& element : *elements) {
      if (element.name == "rect" && element.attributes.count("height") != 0) {
        bars += element.attributes.at("fill") == "steelblue";
      }
    }
    EXPECT_GE(bars, plot.bars) << plot.name;
    EXPECT_EQ(bars == 0, plot.bars == 0) << plot.name;
  }
}

TEST_F(SimulatedPlots, AreDrawnByABrowser) {
  if (kUnderAddressSanitizer) GTEST_SKIP() << "the sanitizer sees nothing of a browser";
  const auto image = [](const std::string& name) {
    return "<img src=\"" + name + ".svg\" onload=\"alt = '" + name + " drawn'\" onerror=\"alt = '" + name +
           " broken'\">\n";
  };
  std::string page;
  for (const Plot& plot : kPlots) {
    draw(plot);
    page += image(plot.name);
  }
  const std::string narrow = read_file(cwd() / "narrow.svg");
  write_file(cwd() / "cut.svg", narrow.substr(0, narrow.size() - 7));  // the control: without its "</svg>"
  write_file(cwd() / "plots.html", page + image("cut"));
  const ProgramResult result = dom_of("plots.html");
  if (result.exit_status == 69) GTEST_SKIP() << "there is no chromium here";
  ASSERT_EQ(result.exit_status, 0);
  for (const Plot& plot : kPlots) EXPECT_THAT(result.out, testing::HasSubstr("alt=\"" + plot.name + " drawn\""));
  EXPECT_THAT(result.out, testing::HasSubstr("alt=\"cut broken\""));
}

}  // namespace
