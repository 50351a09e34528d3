// Runs every command that the documentation shows, page by page, in a directory that looks like a checkout, and
// compares what it prints with the page. Simulated captures come from the pages themselves.
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "docs/page.hpp"
#include "docs/session.hpp"
#include "support/product_root.hpp"

namespace {

using namespace orvo::test;

/// The tests' product root serves as the checkout: `scripts/verify`, the library's headers, the examples, both
/// programs on the PATH.
class Commands : public ProductRoot, public testing::WithParamInterface<std::string> {
 protected:
  Commands() {
    write_file(root() / "scripts/verify", "#!/bin/sh\nexec '" ORVO_TEST_TOOL "' \"$@\"\n");
    fs::permissions(root() / "scripts/verify", fs::perms::owner_all);
    fs::create_directories(root() / "host/cpp");
    fs::create_directory_symlink(checkout() / "host/cpp/include", root() / "host/cpp/include");
    fs::create_directory_symlink(checkout() / "examples", root() / "examples");
    fs::create_symlink(ORVO_TEST_TOOL, programs_ / "vq_verify_stream_file_xcorr");
    fs::create_symlink(ORVO_TEST_SIMULATOR, programs_ / "vq_simulate_stream_file");
    fs::create_symlink(ORVO_TEST_CONVERTER, programs_ / "vq_convert_stream_file");
    fs::create_symlink(ORVO_TEST_INSPECTOR, programs_ / "vq_inspect_stream_file");
  }

  ProgramResult bash(std::vector<std::string> arguments) {
    const std::string path = programs_.path().string() + ":" + std::getenv("PATH");
    return run({.program = "/bin/bash",
                .arguments = std::move(arguments),
                .directory = root(),
                .environment = {{"PATH", path}, {"TMPDIR", cwd().string()}, {"TZ", "UTC"}, {"LC_ALL", "C.UTF-8"}}});
  }

  bool is_there(const std::string& name) {
    return bash({"-c", "command -v \"$0\" || python3 -c \"import $0\"", name}).exit_status == 0;
  }

  bool lacks_a_need(const Page& page, const Block& block) {
    for (const std::string& need : needs_of(block)) {
      if (lacks(need, "not run: " + page.at(block.line))) return true;
    }
    return false;
  }

  /// Remembers what cannot be done without it.
  bool lacks(const std::string& need, const std::string& then) {
    if (is_there(need)) return false;
    not_done_ += "there is no " + need + " here, " + then + '\n';
    return true;
  }
  const std::string& not_done() const { return not_done_; }

  /// Writes a text to a file outside the session, and returns its path.
  std::string written(const std::string& text) const {
    write_file(cwd() / "text", text);
    return (cwd() / "text").string();
  }

  void expect_syntax(const Page& page, const Block& block) {
    if (block.language == "python" && !lacks("python3", "not parsed: " + page.at(block.line))) {
      const ProgramResult result = bash(
          {"-c", "python3 -c 'import ast, sys; ast.parse(open(sys.argv[1]).read())' \"$0\"", written(block.text)});
      EXPECT_EQ(result.exit_status, 0) << page.at(block.line) << '\n' << result.err;
    }
    if (block.language != "sh" && block.language != "console") return;
    for (const Step& step : steps_of(block)) {
      const std::string text = block.language == "sh" ? block.text : step.command + '\n';
      const ProgramResult result = bash({"-n", written(text)});
      EXPECT_EQ(result.exit_status, 0) << page.at(step.line) << '\n' << result.err;
    }
  }

  /// The steps of all blocks that should be run and can be.
  std::vector<Step> runnable_steps(const Page& page) {
    std::vector<Step> steps;
    for (const Block& block : page.blocks) {
      expect_syntax(page, block);
      if (block.has("unrun") || lacks_a_need(page, block)) continue;
      for (const Step& step : steps_of(block)) steps.push_back(step);
    }
    return steps;
  }

  void expect_steps(const Page& page, const std::vector<Step>& steps) {
    const ProgramResult result = bash({written(script_of(steps))});
    const std::string output = replaced(result.out, root().string(), "/home/ada/orvo");
    const std::vector<Outcome> outcomes = outcomes_in(output, steps.size());
    for (std::size_t i = 0; i < steps.size(); ++i) {
      const bool may_fail = i + 1 < steps.size() && asks_for_status(steps[i + 1]);
      EXPECT_EQ(complaint(steps[i], outcomes[i], may_fail), "") << page.at(steps[i].line) << ": " << steps[i].command;
      if (outcomes[i].status == -1) break;
    }
  }

  /// A picture on a page is the one that the commands of the page make, if they make one of that name.
  void expect_pictures(const Page& page) {
    for (const Link& link : page.links) {
      const fs::path shown = page.path.parent_path() / link.target;
      const fs::path made = root() / shown.filename();
      if (!link.picture || !fs::exists(made)) continue;
      EXPECT_TRUE(read_file(shown) == read_file(made)) << page.at(link.line) << ": the commands draw another picture";
    }
  }

 private:
  TempDirectory programs_;
  std::string not_done_;
};

TEST_P(Commands, DoAndSayWhatThePageShows) {
  const Page page = page_named(GetParam());
  expect_steps(page, runnable_steps(page));
  expect_pictures(page);
  if (!not_done().empty()) GTEST_SKIP() << not_done();  // the rest of the page passed
}

std::string test_name(const testing::TestParamInfo<std::string>& page) {
  std::string name = fs::path(page.param).stem().string();
  for (char& c : name) c = std::isalnum(static_cast<unsigned char>(c)) != 0 ? c : '_';
  return name;
}

INSTANTIATE_TEST_SUITE_P(Pages, Commands, testing::ValuesIn(page_names()), test_name);

// So that no block is overlooked.
TEST(Blocks, AreOfLanguagesThatTheTestsKnow) {
  constexpr std::array<std::string_view, 10> kKnown{"console", "sh",   "python", "cpp",  "cmake",
                                                    "ini",     "json", "hex",    "tags", "text"};
  for (const std::string& name : page_names()) {
    const Page page = page_named(name);
    for (const Block& block : page.blocks) {
      EXPECT_NE(std::find(kKnown.begin(), kKnown.end(), block.language), kKnown.end())
          << page.at(block.line) << ": '" << block.language << "'";
      for (const std::string& word : block.words) {
        EXPECT_TRUE(word == "unrun" || word.starts_with("needs=")) << page.at(block.line) << ": '" << word << "'";
      }
    }
  }
}

TEST(Readme, ShowsAPlotThatItsCommandsDraw) {
  const Page page = page_named("README.md");
  const auto plot = std::find_if(page.links.begin(), page.links.end(), [](const Link& link) { return link.picture; });
  ASSERT_NE(plot, page.links.end());
  const std::string stem = fs::path(plot->target).stem().string();
  EXPECT_NE(read_file(page.path).find("--out-prefix=" + stem), std::string::npos) << plot->target;
}

}  // namespace
